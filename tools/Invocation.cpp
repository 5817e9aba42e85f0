// One run of one verb: its options, its line to the switchboard, its output.
#include "tools/Invocation.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/Printable.h"

namespace sevrin {

namespace {

constexpr const char* kBold = "\033[1m";
constexpr const char* kPlain = "\033[0m";

// Acts as another user, for the kernel and so for whoever asks it, as long as it lives.
class ActingAs {
public:
    explicit ActingAs(uid_t user) {
        if (::seteuid(user) == 0) return;
        throw Failure(ExitStatus::Refused, fmt::format("--user={}", user),
                      fmt::format("cannot act as that user: {}", std::strerror(errno)));
    }
    ~ActingAs() {
        // What may become any user may become root again.
        if (::seteuid(0) != 0) std::abort();
    }
    ActingAs(const ActingAs&) = delete;
    ActingAs& operator=(const ActingAs&) = delete;
};

}  // namespace

Invocation::Invocation(std::string verb, CommonOptions options)
    : verb_(std::move(verb)),
      options_(std::move(options)),
      isColored_(wantsColor(options_.color, std::getenv("NO_COLOR"), isOutputTerminal())) {}

Deadline Invocation::deadline() const {
    return options_.timeout.value_or(kAnswerTimeout);
}

// MARK: The switchboard

SwitchboardClient Invocation::connect(SwitchboardClient::Options options) const {
    const std::optional<std::uint32_t>& user = options_.target.user;
    if (user) requireServed(*user);
    options.service = options_.target.service;
    SwitchboardClient client = require(SwitchboardClient::connect(std::move(options), deadline()));
    if (user) client.setUser(*user);
    if (const std::optional<Peer> peer = client.peer()) {
        detail(fmt::format("connected to {}, process {} of user {}", options_.target.serviceName(),
                           peer->process, peer->user));
    }
    return client;
}

// The switchboard ignores in silence that root wants to speak for a user whom it does not serve;
// every answer would then be about root. The user itself would be turned away.
void Invocation::requireServed(std::uint32_t user) const {
    const ActingAs actor(user);
    SwitchboardClient::Options options;
    options.service = options_.target.service;
    options.reconnects = false;
    const auto client = SwitchboardClient::connect(std::move(options), deadline());
    if (client) return;
    Failure failure = switchboardFailure(client.error(), options_.target);
    if (failure.status == ExitStatus::Refused)
        failure.reason = fmt::format("user {} is not served: {}", user, failure.reason);
    throw failure;
}

// MARK: Output

void Invocation::answer(std::string_view text, const Json& record) const {
    const std::string line = options_.isJson ? lineOf(record) : printable(text);
    writeAnswer(line + '\n');
}

void Invocation::answerLines(std::string_view text, std::string_view style) const {
    const bool isStyled = isColored_ && !style.empty();
    std::string lines;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        if (isStyled) lines += style;
        lines += printable(text.substr(begin, end - begin));
        if (isStyled) lines += kPlain;
        lines += '\n';
        begin = end + 1;
    }
    writeAnswer(lines);
}

void Invocation::answerHeader(const Columns& columns) const {
    if (options_.isJson || !options_.hasLegend || !isOutputTerminal()) return;
    std::string header = columns.header();
    if (isColored_) header = kBold + header + kPlain;
    writeAnswer(header);
}

void Invocation::answerRow(const Columns& columns, const Columns::Cells& row,
                           const Json& record) const {
    writeAnswer(options_.isJson ? lineOf(record) + '\n' : columns.line(row));
}

void Invocation::note(std::string_view text) const {
    if (!options_.isQuiet)
        writeNote(printable(fmt::format("switchboardctl: {}: {}", verb_, text)) + '\n');
}

void Invocation::detail(std::string_view text) const {
    if (options_.isVerbose) note(text);
}

}  // namespace sevrin
