// Standard output and standard error, unbuffered.
#include "tools/Output.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "tools/Failure.h"

namespace sevrin {

namespace {

// Writes as much of `text` as the descriptor ever takes; whether that was all, else errno says why.
bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            // A descriptor that others made non-blocking.
            pollfd room{descriptor, POLLOUT, 0};
            ::poll(&room, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// On whatever thread notices it; the others may be in the middle of anything.
[[noreturn]] void endNow(ExitStatus status) {
    ::_exit(static_cast<int>(status));
}

}  // namespace

bool wantsColor(ColorWish wish, const char* noColor, bool isTerminal) {
    if (wish != ColorWish::Auto) return wish == ColorWish::Always;
    if (noColor != nullptr && *noColor != '\0') return false;
    return isTerminal;
}

void writeAnswer(std::string_view text) {
    if (writeAll(STDOUT_FILENO, text)) return;
    if (errno == EPIPE) endNow(ExitStatus::Done);
    const Failure failure(ExitStatus::Broken, "cannot write the answer", std::strerror(errno));
    writeNote(messageOf(failure, "") + '\n');
    endNow(failure.status);
}

void writeNote(std::string_view text) {
    (void)writeAll(STDERR_FILENO, text);
}

bool isOutputTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

void endIfReaderHasGone() {
    pollfd output{STDOUT_FILENO, 0, 0};
    if (::poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0)
        endNow(ExitStatus::Done);
}

}  // namespace sevrin
