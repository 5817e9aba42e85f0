// A program's line to the switchboard: each call turned into a message of the session.
#include "client/SwitchboardClient.h"

#include <utility>

#include "client/Callback.h"
#include "client/SwitchboardMessages.h"
#include "client/SwitchboardSession.h"

namespace sevrin {

namespace {

using Connection = platform::NSXPCConnection;

template <typename Type>
Result<Type> ask(Connection& connection, const Message& message, Deadline deadline,
                 Result<Type> (*read)(const platform::ValueArray&)) {
    return resultOf<Type>(
        connection.requestAndWait(*message.method, message.arguments, deadline.at()), read);
}

template <typename Type>
void ask(Connection& connection, const Message& message, Deadline deadline,
         Result<Type> (*read)(const platform::ValueArray&), Completion<Type> completion) {
    SEVRIN_ASSERT(completion, "an asynchronous call has a completion");
    connection.request(
        *message.method, message.arguments,
        [read, completion = std::move(completion)](Connection::Answer answer) {
            runCallback(completion, resultOf<Type>(std::move(answer), read));
        },
        deadline.at());
}

// The message of a post that can travel; throws otherwise.
Message postOf(const Notification& notification) {
    Message message = message::post(notification);
    requireSendable(message);
    return message;
}

Message queryOf(const std::string& identifier) {
    requireShort(identifier, "an identifier");
    return message::query(identifier);
}

}  // namespace

// MARK: Life

SwitchboardClient::SwitchboardClient() : SwitchboardClient(Options()) {}

SwitchboardClient::SwitchboardClient(Options options)
    : session_(std::make_shared<SwitchboardSession>(std::move(options))) {
    session_->start();
}

SwitchboardClient::SwitchboardClient(std::shared_ptr<SwitchboardSession> session)
    : session_(std::move(session)) {}

Result<SwitchboardClient> SwitchboardClient::connect(Options options, Deadline deadline) {
    SwitchboardClient client(std::make_shared<SwitchboardSession>(std::move(options)));
    const Result<void> connected = client.session_->startAndWait(deadline);
    if (!connected) return connected.error();
    return client;
}

SwitchboardClient& SwitchboardClient::operator=(SwitchboardClient&& other) noexcept {
    if (this == &other) return *this;
    if (session_) session_->close();
    session_ = std::move(other.session_);
    return *this;
}

SwitchboardClient::~SwitchboardClient() {
    if (session_) session_->close();
}

void SwitchboardClient::close() {
    session_->close();
}

bool SwitchboardClient::closeAndWait(Deadline deadline) {
    return session()->closeAndWait(deadline);
}

SwitchboardClient::State SwitchboardClient::state() const {
    return session()->state();
}

std::optional<Peer> SwitchboardClient::peer() const {
    return session()->peer();
}

Result<void> SwitchboardClient::waitUntilConnected(Deadline deadline) {
    return session()->waitUntilConnected(deadline);
}

// MARK: What lasts

void SwitchboardClient::publish(EndpointPtr endpoint, const std::string& identifier) {
    session()->publish(std::move(endpoint), identifier);
}

void SwitchboardClient::redact(const std::string& identifier) {
    session()->redact(identifier);
}

void SwitchboardClient::setUser(std::uint32_t user) {
    session()->setUser(user);
}

SubscriptionId SwitchboardClient::subscribe(NotificationFilter filter,
                                            NotificationHandler handler) {
    return session()->subscribe(std::move(filter), std::move(handler));
}

void SwitchboardClient::unsubscribe(SubscriptionId subscription) {
    session()->unsubscribe(subscription);
}

void SwitchboardClient::unsubscribeAll() {
    session()->unsubscribeAll();
}

// MARK: Questions

Result<EndpointPtr> SwitchboardClient::query(const std::string& identifier, Deadline deadline) {
    return ask(*session()->connection(), queryOf(identifier), deadline, message::readEndpoint);
}

void SwitchboardClient::query(const std::string& identifier, Deadline deadline,
                              Completion<EndpointPtr> completion) {
    ask(*session()->connection(), queryOf(identifier), deadline, message::readEndpoint,
        std::move(completion));
}

Result<ComponentClient> SwitchboardClient::connectToPublisher(const std::string& identifier,
                                                              Deadline deadline) {
    const Result<EndpointPtr> found = query(identifier, deadline);
    if (!found) return found.error();
    if (!*found) return CallError{CallError::Code::NoService, "nobody publishes " + identifier};
    return ComponentClient::connect(*found, deadline);
}

// A post has no reply of its own: the barrier behind it, on the same connection, answers for it.
Result<void> SwitchboardClient::post(const Notification& notification, Deadline deadline) {
    const Message message = postOf(notification);
    const std::shared_ptr<Connection> connection = session()->connection();
    connection->send(*message.method, message.arguments);
    return ask(*connection, message::barrier(), deadline, message::readNothing);
}

void SwitchboardClient::post(const Notification& notification, Deadline deadline,
                             Completion<void> completion) {
    const Message message = postOf(notification);
    const std::shared_ptr<Connection> connection = session()->connection();
    connection->send(*message.method, message.arguments);
    ask(*connection, message::barrier(), deadline, message::readNothing, std::move(completion));
}

Result<void> SwitchboardClient::post(const Notification& notification) {
    return session()->post(postOf(notification));
}

Result<void> SwitchboardClient::barrier(Deadline deadline) {
    return ask(*session()->connection(), message::barrier(), deadline, message::readNothing);
}

void SwitchboardClient::barrier(Deadline deadline, Completion<void> completion) {
    ask(*session()->connection(), message::barrier(), deadline, message::readNothing,
        std::move(completion));
}

Result<std::string> SwitchboardClient::componentVersion(Deadline deadline) {
    return ask(*session()->connection(), message::queryComponentVersion(), deadline,
               message::readText);
}

void SwitchboardClient::componentVersion(Deadline deadline, Completion<std::string> completion) {
    ask(*session()->connection(), message::queryComponentVersion(), deadline, message::readText,
        std::move(completion));
}

Result<std::uint32_t> SwitchboardClient::buildNumber(Deadline deadline) {
    return ask(*session()->connection(), message::queryBuildNumber(), deadline,
               message::readNumber);
}

void SwitchboardClient::buildNumber(Deadline deadline, Completion<std::uint32_t> completion) {
    ask(*session()->connection(), message::queryBuildNumber(), deadline, message::readNumber,
        std::move(completion));
}

}  // namespace sevrin
