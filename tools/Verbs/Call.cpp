// `switchboardctl call`: asks the publisher of an identifier directly.
#include <fmt/format.h>

#include <chrono>

#include "tools/Duration.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

using Clock = std::chrono::steady_clock;

struct CallOptions {
    std::string identifier;
    std::string question;
};

// The publisher's answer; throws the Failure that its absence means.
template <typename Type>
Type require(Result<Type> result, const std::string& identifier) {
    if (!result) throw publisherFailure(result.error(), identifier);
    return *std::move(result);
}

void askBarrier(const Invocation& invocation, const std::string& identifier,
                ComponentClient& component, Json record) {
    const auto sent = Clock::now();
    const Result<void> answer = component.barrier(invocation.deadline());
    if (!answer) throw publisherFailure(answer.error(), identifier);
    const auto time = Clock::now() - sent;
    record["time_us"] = std::chrono::duration<double, std::micro>(time).count();
    invocation.answer(millisecondsText(time), record);
}

ExitStatus call(const Invocation& invocation, const CallOptions& options) {
    const std::string& identifier = options.identifier;
    SwitchboardClient client = invocation.connect();
    const EndpointPtr endpoint =
        invocation.require(client.query(identifier, invocation.deadline()));
    if (!endpoint) {
        invocation.note(fmt::format("{}: nobody publishes it", identifier));
        return ExitStatus::No;
    }
    ComponentClient component =
        require(ComponentClient::connect(endpoint, invocation.deadline()), identifier);

    Json record = newRecord();
    addText(record, "id", identifier);
    if (options.question == "version") {
        const std::string version =
            require(component.componentVersion(invocation.deadline()), identifier);
        addText(record, "version", version);
        invocation.answer(version, record);
    } else if (options.question == "build") {
        const std::uint32_t number =
            require(component.buildNumber(invocation.deadline()), identifier);
        record["build_number"] = number;
        invocation.answer(std::to_string(number), record);
    } else {
        askBarrier(invocation, identifier, component, std::move(record));
    }
    return ExitStatus::Done;
}

}  // namespace

void addCall(CommandLine& commandLine) {
    const auto options = std::make_shared<CallOptions>();
    CLI::App& verb = commandLine.addVerb(
        "call", "Ask a publisher directly: its version, its build number, or how fast it answers",
        "call com.example.clock version\ncall com.example.clock barrier --timeout 500ms",
        [options](const Invocation& invocation) { return call(invocation, *options); });
    verb.add_option("id", options->identifier, "What it is published under")
        ->type_name("ID")
        ->required();
    verb.add_option("question", options->question, "version, build or barrier")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"version", "build", "barrier"}));
}

}  // namespace sevrin
