// `switchboardctl publish`: serves a component that knows its version and nothing else, until
// interrupted. For trying things out, and for tests of programs that look for a component.
#include <fmt/format.h>

#include <atomic>

#include "tools/Interruption.h"
#include "tools/Publisher.h"
#include "tools/Verbs/Verbs.h"
#include "tools/Version.h"

namespace sevrin {

namespace {

using StateChange = SwitchboardClient::StateChange;
using Event = StateChange::Event;

// How long the switchboard may take to hear that the endpoint is withdrawn.
constexpr std::chrono::seconds kFarewellTimeout{1};

struct PublishOptions {
    std::string identifier;
    std::string version = fmt::format("Switchboardctl-{}", toolVersion());
    std::uint32_t buildNumber = kSwitchboardBuildNumber;
};

void tell(const Invocation& invocation, const char* event, const std::string& identifier) {
    Json record = newRecord();
    record["event"] = event;
    record["time"] = rfc3339(platform::NSDate::date());
    addText(record, "id", identifier);
    invocation.answer(fmt::format("{} {}", event, identifier), record);
}

// On the XPC thread, for every change after the first connection.
void tellChange(const Invocation& invocation, const StateChange& change,
                const std::string& identifier) {
    switch (change.event) {
        case Event::Connected:
            break;
        case Event::Reconnected:
            tell(invocation, "republished", identifier);
            break;
        case Event::Disconnected:
            tell(invocation, "disconnected", identifier);
            invocation.note(change.reason->description + "; waiting for a switchboard");
            break;
        case Event::Unreachable:
            invocation.detail(change.reason->description);
            break;
    }
}

// Queries find the earliest publisher, which may be another one.
void noteRival(const Invocation& invocation, const EndpointPtr& found, const EndpointPtr& own) {
    if (!found || found->isEqual(*own)) return;
    const Result<Peer> rival = publisherOf(found, invocation.deadline());
    invocation.note(fmt::format(
        "published by {} too, which queries find first",
        rival ? fmt::format("process {} ({})", rival->process, processName(rival->process))
              : std::string("another process")));
}

int publish(const Invocation& invocation, const PublishOptions& options) {
    const std::string& identifier = options.identifier;
    const ComponentServer server(std::make_shared<Component>(options.version, options.buildNumber));
    SwitchboardClient::Options clientOptions;
    clientOptions.stateHandler = [invocation, identifier](const StateChange& change) {
        tellChange(invocation, change, identifier);
    };
    SwitchboardClient client = invocation.connect(std::move(clientOptions));
    client.publish(server.endpoint(), identifier);
    const EndpointPtr found = invocation.require(client.query(identifier, invocation.deadline()));
    noteRival(invocation, found, server.endpoint());

    Farewell farewell;
    tell(invocation, "published", identifier);
    const int status = farewell.waitForSignal();

    // Whoever waits for the end hears of it at once: what ends with its connection is not
    // announced.
    client.redact(identifier);
    (void)client.barrier(kFarewellTimeout);
    (void)client.closeAndWait(kFarewellTimeout);
    return status;
}

}  // namespace

void addPublish(CommandLine& commandLine) {
    const auto options = std::make_shared<PublishOptions>();
    CLI::App& verb = commandLine.addVerb(
        "publish", "Serve a component under an identifier, until interrupted",
        "publish com.example.clock\n"
        "publish com.example.clock --component-version Clock-1.0 --build-number 65536",
        [options](const Invocation& invocation) {
            return static_cast<ExitStatus>(publish(invocation, *options));
        });
    verb.add_option("id", options->identifier, "What to publish it under")
        ->type_name("ID")
        ->required();
    verb.add_option("--component-version", options->version, "The version that it answers")
        ->type_name("TEXT");
    verb.add_option("--build-number", options->buildNumber, "The build number that it answers")
        ->type_name("N");
}

}  // namespace sevrin
