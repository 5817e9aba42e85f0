// `switchboardctl monitor`: prints notifications as they come.
//
// They are printed on the XPC thread. A slow reader of the output so slows down the reading from
// the switchboard, which keeps a bounded amount for us and then ends the connection; the client
// comes back, and it is said that something may be missing. Nothing piles up in this process.
#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <set>

#include "tools/NotificationText.h"
#include "tools/Sleep.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

using Clock = std::chrono::steady_clock;
using StateChange = SwitchboardClient::StateChange;
using Event = StateChange::Event;

// How soon to notice that nobody reads the output any more.
constexpr std::chrono::seconds kReaderCheckInterval{1};

struct MonitorOptions {
    std::vector<std::string> names;
    std::optional<std::string> source;
    std::uint64_t count = 0;  // 0: no end
};

// What prints; shared by the callbacks, which may outlive the verb by a moment.
class Printer {
public:
    Printer(const Invocation& invocation, std::uint64_t count)
        : invocation_(invocation),
          columns_({{"time", true, 29}, {"name", true, 30}, {"source", true, 12}, {"info", true}},
                   invocation.options().columns),
          left_(count) {}

    void printHeader() const { invocation_.answerHeader(columns_); }

    // On the XPC thread.
    void print(const Notification& notification) {
        if (isDone_) return;
        const std::string time = rfc3339(platform::NSDate::date());
        Json record = eventRecord("notification", time);
        addNotification(record, notification);
        invocation_.answerRow(columns_,
                              {time, notification.name, notification.source.value_or("-"),
                               textOf(notification.userInfo)},
                              record);
        if (left_ == 0 || --left_ > 0) return;
        isDone_ = true;
        wakeMainThread();
    }

    // On the XPC thread.
    void print(const StateChange& change) const {
        switch (change.event) {
            case Event::Connected:
                break;
            case Event::Reconnected:
                printEvent("resubscribed");
                invocation_.note("connected again; what was posted meanwhile is missing");
                break;
            case Event::Disconnected:
                printEvent("disconnected");
                invocation_.note(change.reason->description + "; waiting for a switchboard");
                break;
            case Event::Unreachable:
                invocation_.detail(change.reason->description);
                break;
        }
    }

    // Nothing in text, where only notifications are answers.
    void printEvent(const char* event) const {
        if (!invocation_.options().isJson) return;
        invocation_.answer("", eventRecord(event, rfc3339(platform::NSDate::date())));
    }

    [[nodiscard]] bool isDone() const { return isDone_; }

private:
    static Json eventRecord(const char* event, const std::string& time) {
        Json record = newRecord();
        record["event"] = event;
        record["time"] = time;
        return record;
    }

    const Invocation invocation_;
    const Columns columns_;
    std::uint64_t left_;  // used on the XPC thread only
    std::atomic<bool> isDone_ = false;
};

ExitStatus monitor(const Invocation& invocation, const MonitorOptions& options) {
    const auto printer = std::make_shared<Printer>(invocation, options.count);
    SwitchboardClient::Options clientOptions;
    clientOptions.stateHandler = [printer](const StateChange& change) { printer->print(change); };
    SwitchboardClient client = invocation.connect(std::move(clientOptions));
    printer->printHeader();

    const auto print = [printer](const Notification& notification) {
        printer->print(notification);
    };
    for (const std::string& name : std::set(options.names.begin(), options.names.end()))
        client.subscribe({.name = name, .source = options.source}, print);
    if (options.names.empty()) client.subscribe({.source = options.source}, print);
    invocation.require(client.barrier(invocation.deadline()));
    printer->printEvent("subscribed");
    invocation.detail("subscribed");

    while (!printer->isDone()) {
        sleepUntil(Clock::now() + kReaderCheckInterval);
        endIfReaderHasGone();
    }
    return ExitStatus::Done;
}

}  // namespace

void addMonitor(CommandLine& commandLine) {
    const auto options = std::make_shared<MonitorOptions>();
    CLI::App& verb = commandLine.addVerb(
        "monitor", "Print notifications as they come, until interrupted",
        "monitor\nmonitor SwitchboardEndpointPublished SwitchboardEndpointRedacted --json",
        [options](const Invocation& invocation) { return monitor(invocation, *options); });
    verb.add_option("name", options->names, "Which notifications; all when none is named")
        ->type_name("NAME");
    verb.add_option("--source", options->source, "Only those that this source posts")
        ->type_name("S");
    verb.add_option("--count", options->count, "End after so many")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    commandLine.addColumns(verb);
}

}  // namespace sevrin
