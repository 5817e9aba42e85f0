// `switchboardctl wait`: returns when an identifier is published, or is not any more.
//
// Three things tell that it may be time to ask again, for none of them is enough: the switchboard's
// notifications; for --gone the end of a connection to the publisher, because what ends with its
// publisher is not announced; and the clock, because a publisher may also leave without ending, or
// come over from another user.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "tools/Sleep.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

using Clock = Deadline::Clock;
using namespace std::chrono_literals;

// Between two questions that nothing has prompted, and between those that follow close on an event,
// which the switchboard may have to hear of yet.
constexpr std::chrono::milliseconds kCalmInterval = 500ms;
constexpr std::chrono::milliseconds kPromptInterval = 10ms;

struct WaitOptions {
    std::string identifier;
    bool isGone = false;
};

// A connection to the publisher for the sake of its end.
class PublisherWatch {
public:
    // Watches `endpoint`, unless it is what was watched last: a publisher who turns us away is left
    // to the clock.
    void watch(const EndpointPtr& endpoint) {
        if (watched_ && watched_->isEqual(*endpoint)) return;
        watched_ = endpoint;
        connection_.emplace(endpoint, [](const CallError&) { wakeMainThread(); });
    }

private:
    EndpointPtr watched_;
    std::optional<ComponentClient> connection_;
};

// The endpoint, or nothing while there is no switchboard to ask: the client goes on looking for it.
std::optional<EndpointPtr> ask(const Invocation& invocation, SwitchboardClient& client,
                               const std::string& identifier, Clock::time_point end) {
    using Code = CallError::Code;
    const Deadline deadline = std::min(end, invocation.deadline().at());
    const Result<EndpointPtr> found = client.query(identifier, deadline);
    if (found) return *found;
    switch (found.error().code) {
        case Code::NoService:
        case Code::Disconnected:
        case Code::DeadlinePassed:
            invocation.detail(found.error().description);
            return std::nullopt;
        case Code::Untrusted:
        case Code::Refused:
        case Code::VersionMismatch:
        case Code::BadAnswer:
            break;
    }
    throw switchboardFailure(found.error(), invocation.options().target);
}

void subscribe(SwitchboardClient& client, bool isGone) {
    const char* const name =
        isGone ? kEndpointRedactedNotification : kEndpointPublishedNotification;
    client.subscribe({.name = name, .source = kSwitchboardSource},
                     [](const Notification&) { wakeMainThread(); });
}

// Whether it came to pass before `end`.
bool waitUntil(const Invocation& invocation, SwitchboardClient& client, const WaitOptions& options,
               Clock::time_point end) {
    PublisherWatch watch;
    auto interval = kPromptInterval;
    bool isSubscribed = false;
    bool isWaiting = false;
    for (;;) {
        const auto found = ask(invocation, client, options.identifier, end);
        if (found && (*found == nullptr) == options.isGone) return true;
        // Nothing that happens from here on is missed, what happened before the next question shows
        // there.
        if (!std::exchange(isSubscribed, true)) {
            subscribe(client, options.isGone);
            continue;
        }
        if (options.isGone && found) watch.watch(*found);
        const auto asked = Clock::now();
        if (asked >= end) return false;
        if (!std::exchange(isWaiting, true)) invocation.detail("waiting");
        sleepUntil(std::min(end, asked + interval));
        const bool isPrompted = Clock::now() < std::min(end, asked + interval);
        interval = isPrompted ? kPromptInterval : std::min(interval * 2, kCalmInterval);
    }
}

ExitStatus wait(const Invocation& invocation, const WaitOptions& options) {
    const auto timeout = invocation.options().timeout;
    const auto end = (timeout ? Deadline(*timeout) : Deadline(Deadline::kSpanMax)).at();
    SwitchboardClient client = invocation.connect();
    if (!waitUntil(invocation, client, options, end))
        throw Failure(ExitStatus::DeadlinePassed, options.identifier,
                      options.isGone ? "still published" : "not published", "a longer --timeout");
    if (invocation.options().isJson) {
        Json record = newRecord();
        addText(record, "id", options.identifier);
        record["found"] = !options.isGone;
        invocation.answer("", record);
    }
    return ExitStatus::Done;
}

}  // namespace

void addWait(CommandLine& commandLine) {
    const auto options = std::make_shared<WaitOptions>();
    CLI::App& verb = commandLine.addVerb(
        "wait",
        "Wait until an identifier is published, or is not any more; for ever without --timeout",
        "wait com.example.clock --timeout 30s\nwait com.example.clock --gone",
        [options](const Invocation& invocation) { return wait(invocation, *options); });
    verb.add_option("id", options->identifier, "What it is published under")
        ->type_name("ID")
        ->required();
    verb.add_flag("--gone", options->isGone, "Wait until nobody publishes it");
}

}  // namespace sevrin
