// Standard error belongs to everybody who inherited it, so its blocking mode is not ours to change:
// what could block is asked for room first, and gets no more at once than it certainly has room
// for.
#include "Platform/linux/ConsoleWriter.h"

#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <mutex>

namespace sevrin::platform {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPatience(1000);

// Whether the last message was waited for in vain. Whoever reads is then presumed stuck, and does
// not cost every further message a second. Guarded by the writers' turns.
bool readerIsStuck = false;

// For its lifetime, a write of this thread to a pipe without readers fails with EPIPE and raises
// nothing. The signal's disposition is the program's: it is only blocked, and taken back if raised.
class SigpipeGuard {
public:
    SigpipeGuard() noexcept {
        sigset_t pending;
        ::sigemptyset(&sigpipe_);
        ::sigaddset(&sigpipe_, SIGPIPE);
        ::sigpending(&pending);
        wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &sigpipe_, &before_);
    }
    ~SigpipeGuard() {
        if (raised_ && !wasPending_) {
            constexpr timespec kAtOnce{};
            while (::sigtimedwait(&sigpipe_, nullptr, &kAtOnce) < 0 && errno == EINTR) {
            }
        }
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

    void noteRaised() noexcept { raised_ = true; }

private:
    sigset_t sigpipe_{};
    sigset_t before_{};
    bool wasPending_ = false;
    bool raised_ = false;
};

// Whether standard error can take something, or can tell why not, by `deadline`.
bool waitForRoom(Clock::time_point deadline) noexcept {
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd standardError{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
        const int ready =
            ::poll(&standardError, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        if (ready > 0) return true;
        if (ready == 0 || errno != EINTR) return false;
    }
}

// One attempt that does not block: a socket offers that by flags, and poll has found room for an
// atomic write to a pipe. Only another process that fills the pipe in between can make it wait.
ssize_t writeOnce(std::string_view text, mode_t mode) noexcept {
    if (S_ISREG(mode)) return ::write(STDERR_FILENO, text.data(), text.size());
    if (S_ISSOCK(mode)) {
        return ::send(STDERR_FILENO, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    }
    SigpipeGuard guard;
    const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
    const ssize_t written = ::write(STDERR_FILENO, text.data(), size);
    if (written < 0 && errno == EPIPE) guard.noteRaised();
    return written;
}

}  // namespace

void writeToStandardError(std::string_view text, mode_t mode) noexcept {
    // Threads take turns, or two of them could find the same room and one would block. A turn ends
    // when the patience does.
    static std::mutex turn;
    const std::lock_guard<std::mutex> lock(turn);

    const auto deadline = Clock::now() + (readerIsStuck ? kPatience * 0 : kPatience);
    while (!text.empty()) {
        if (!S_ISREG(mode) && !waitForRoom(deadline)) {
            readerIsStuck = true;
            return;
        }
        const ssize_t written = writeOnce(text, mode);
        if (written > 0) {
            readerIsStuck = false;
            text.remove_prefix(static_cast<std::size_t>(written));
            continue;
        }
        const bool mayTryAgain =
            written < 0 && (errno == EINTR || (errno == EAGAIN && Clock::now() < deadline));
        if (!mayTryAgain) return;
    }
}

}  // namespace sevrin::platform
