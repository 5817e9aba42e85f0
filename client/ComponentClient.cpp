// A connection to one component: each call turned into a message of its protocol.
#include "client/ComponentClient.h"

#include <mutex>
#include <optional>
#include <utility>

#include "Platform/Assertion.h"
#include "client/CustomProtocol.h"
#include "client/SwitchboardMessages.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

namespace {

using platform::ValueArray;

std::unique_ptr<ProtocolClient> clientOf(EndpointPtr endpoint,
                                         ComponentClient::DisconnectHandler handler) {
    return std::make_unique<ProtocolClient>(
        SVComponentServing::protocol(), std::move(endpoint),
        ProtocolClient::Options{.disconnectHandler = std::move(handler)});
}

// Decides who is told of the connection's end: until connect() has succeeded its caller, then the
// handler. Never both, and never nobody.
class Trial {
public:
    explicit Trial(ComponentClient::DisconnectHandler wanted)
        : handler(wanted ? std::move(wanted) : [](const CallError&) {}) {}

    // The connection has ended: whether that is for the handler.
    [[nodiscard]] bool isForHandler(const CallError& reason) {
        const std::scoped_lock guard(lock_);
        if (!isOver_) failure_ = reason;
        return isOver_;
    }

    // The first answer has come: why the connection has ended all the same, if it has.
    [[nodiscard]] std::optional<CallError> pass() {
        const std::scoped_lock guard(lock_);
        isOver_ = true;
        return failure_;
    }

    const ComponentClient::DisconnectHandler handler;

private:
    std::mutex lock_;
    bool isOver_ = false;
    std::optional<CallError> failure_;
};

template <typename Type>
Result<Type> ask(ProtocolClient& client, const Message& message, Deadline deadline,
                 Result<Type> (*read)(const ValueArray&)) {
    const Result<ValueArray> values =
        client.call(message.method->selector, message.arguments, deadline);
    if (!values) return values.error();
    return read(*values);
}

template <typename Type>
void ask(ProtocolClient& client, const Message& message, Deadline deadline,
         Result<Type> (*read)(const ValueArray&), Completion<Type> completion) {
    SEVRIN_ASSERT(completion, "an asynchronous call has a completion");
    client.call(message.method->selector, message.arguments, deadline,
                [read, completion = std::move(completion)](Result<ValueArray> values) {
                    completion(values ? read(*values) : Result<Type>(values.error()));
                });
}

}  // namespace

ComponentClient::ComponentClient(EndpointPtr endpoint, DisconnectHandler handler)
    : client_(clientOf(std::move(endpoint), std::move(handler))) {
    client_->start();
}

ComponentClient::ComponentClient(std::unique_ptr<ProtocolClient> client)
    : client_(std::move(client)) {}

Result<ComponentClient> ComponentClient::connect(EndpointPtr endpoint, Deadline deadline,
                                                 DisconnectHandler handler) {
    const auto trial = std::make_shared<Trial>(std::move(handler));
    ComponentClient client(clientOf(std::move(endpoint), [trial](const CallError& reason) {
        if (trial->isForHandler(reason)) trial->handler(reason);
    }));
    client.client_->startAndWait(deadline);
    const Result<void> answer = client.barrier(deadline);
    if (!answer) return answer.error();
    if (const auto failure = trial->pass()) return *failure;
    return client;
}

ComponentClient::ComponentClient(ComponentClient&&) noexcept = default;
ComponentClient& ComponentClient::operator=(ComponentClient&&) noexcept = default;
ComponentClient::~ComponentClient() = default;

void ComponentClient::close() {
    client_->close();
}

std::optional<Peer> ComponentClient::peer() const {
    return client_->peer();
}

Result<void> ComponentClient::barrier(Deadline deadline) {
    return ask(*client_, message::barrier(), deadline, message::readNothing);
}

void ComponentClient::barrier(Deadline deadline, Completion<void> completion) {
    ask(*client_, message::barrier(), deadline, message::readNothing, std::move(completion));
}

Result<std::string> ComponentClient::componentVersion(Deadline deadline) {
    return ask(*client_, message::queryComponentVersion(), deadline, message::readText);
}

void ComponentClient::componentVersion(Deadline deadline, Completion<std::string> completion) {
    ask(*client_, message::queryComponentVersion(), deadline, message::readText,
        std::move(completion));
}

Result<std::uint32_t> ComponentClient::buildNumber(Deadline deadline) {
    return ask(*client_, message::queryBuildNumber(), deadline, message::readNumber);
}

void ComponentClient::buildNumber(Deadline deadline, Completion<std::uint32_t> completion) {
    ask(*client_, message::queryBuildNumber(), deadline, message::readNumber,
        std::move(completion));
}

void ComponentClient::didInstall() {
    client_->send("didInstallComponent", {});
}

void ComponentClient::willUninstall() {
    client_->send("willUninstallComponent", {});
}

}  // namespace sevrin
