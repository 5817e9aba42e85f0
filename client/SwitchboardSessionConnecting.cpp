// The inside of a SwitchboardClient: how it connects, and connects again.
//
// An attempt is a new connection that is given everything to restore, then a barrier, before it is
// even connected; so whatever is called meanwhile comes after that, in order. The barrier's answer
// makes the attempt a success, the connection's end a failure. Both come on the XPC thread.
// Connecting itself may block and is left to a queue.
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/Class.h"
#include "Platform/DispatchQueue.h"
#include "client/Callback.h"
#include "client/SwitchboardMessages.h"
#include "client/SwitchboardSession.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

using platform::DispatchQueue;
using platform::NSXPCConnection;
using platform::NSXPCInterface;

namespace {

// How long the system may take to let us in before it counts as a failure.
constexpr std::chrono::seconds kConnectTimeout{5};

DispatchQueue& queue() {
    return DispatchQueue::globalQueue(DispatchQueue::Priority::Default);
}

std::shared_ptr<NSXPCConnection> connectionTo(SwitchboardClient::Service service) {
    using Domain = NSXPCConnection::Domain;
    if (service == SwitchboardClient::Service::System)
        return NSXPCConnection::initWithMachServiceName(kSystemServiceName, Domain::System);
    char name[64];
    std::snprintf(name, sizeof name, kUserServiceNameFormat, static_cast<unsigned>(::geteuid()));
    return NSXPCConnection::initWithMachServiceName(name, Domain::User);
}

// What the switchboard may call here: passes notifications on to the session.
class Receiver final : public platform::Object, public SwitchboardSubscribing {
public:
    explicit Receiver(std::weak_ptr<SwitchboardSession> session) : session_(std::move(session)) {}

    [[nodiscard]] const platform::Class& isa() const override {
        static const platform::Class& theClass = *new platform::Class(
            "SwitchboardClientReceiver", &Object::classObject(), subscribingMethods<Receiver>());
        return theClass;
    }

    void forwardToObserverNotificationFromSourceWithInfo(const std::string& observerID,
                                                         const std::string& notification,
                                                         const std::optional<std::string>& source,
                                                         const platform::Value& userInfo) override {
        std::uint64_t number = 0;
        const char* end = observerID.data() + observerID.size();
        const auto [rest, error] = std::from_chars(observerID.data(), end, number);
        if (error != std::errc() || rest != end) return;

        Notification received{notification, source, std::nullopt};
        if (const platform::Dictionary* dictionary = userInfo.ifDictionary())
            received.userInfo = *dictionary;
        if (const auto session = session_.lock())
            session->deliver(SubscriptionId{number}, received);
    }

private:
    const std::weak_ptr<SwitchboardSession> session_;
};

}  // namespace

void SwitchboardSession::start() {
    std::shared_ptr<Connection> connection;
    {
        const std::scoped_lock guard(lock_);
        prepareConnection();
        connection = connection_;
    }
    queue().async([connection] { connection->resume(Deadline(kConnectTimeout).at()); });
}

Result<void> SwitchboardSession::startAndWait(Deadline deadline) {
    SEVRIN_ASSERT(!NSXPCConnection::isXPCThread(),
                  "the XPC thread cannot wait for an answer that it would have to deliver");
    {
        const std::scoped_lock guard(lock_);
        isOnTrial_ = true;
        prepareConnection();
    }
    connection()->resume(deadline.at());
    return waitUntilConnected(deadline);
}

// Whether the end of the connection of the moment is followed by another one.
bool SwitchboardSession::mayRetry() const {
    return reconnects_ && (wasConnected_ || !isOnTrial_);
}

void SwitchboardSession::prepareConnection() {
    connection_ = connectionTo(service_);
    isApart_ = false;
    posts_ = PostWindow();
    state_ = State::Connecting;

    Connection* raw = connection_.get();
    raw->setRemoteObjectInterface(
        NSXPCInterface::interfaceWithProtocol(VeloraSwitchboarding_private::protocol()));
    raw->setExportedInterface(
        NSXPCInterface::interfaceWithProtocol(SwitchboardSubscribing::protocol()));
    raw->setExportedObject(std::make_shared<Receiver>(weak_from_this()));
    raw->setInvalidationHandler([weak = weak_from_this(), raw] {
        if (const auto self = weak.lock()) self->ended(raw);
    });

    for (const Message& order : orders_.messages())
        send(order);
    raw->request(*message::barrier().method, {},
                 [weak = weak_from_this(), raw](const Connection::Answer& answer) {
                     const auto self = weak.lock();
                     if (self && std::holds_alternative<platform::ValueArray>(answer))
                         self->greeted(raw);
                 });
}

bool SwitchboardSession::isWanted(const Connection* connection) const {
    return state_ != State::Closed && connection == connection_.get();
}

void SwitchboardSession::greeted(const Connection* connection) {
    StateChange change{StateChange::Event::Connected};
    {
        const std::scoped_lock guard(lock_);
        if (!isWanted(connection)) return;
        if (wasConnected_) change.event = StateChange::Event::Reconnected;
        state_ = State::Connected;
        wasConnected_ = true;
        connectedAt_ = Clock::now();
        reported_.reset();
        peer_ = Peer{connection->effectiveUserIdentifier(), connection->effectiveGroupIdentifier(),
                     connection->processIdentifier()};
    }
    changed_.notify_all();
    report(change);
}

void SwitchboardSession::ended(const Connection* connection) {
    StateChange change;
    bool isNews = false;
    {
        const std::scoped_lock guard(lock_);
        isApart_ = true;
        changed_.notify_all();
        if (!isWanted(connection)) return;
        const CallError reason = *connection->failure();
        change = noteEnd(reason);
        const bool isFailedTrial = isOnTrial_ && !wasConnected_;  // Its caller is told.
        isNews = !isFailedTrial &&
                 (change.event == StateChange::Event::Disconnected || reported_ != reason.code);
        reported_ = reason.code;
    }
    if (change.retryDelay) retryAfter(*change.retryDelay);
    if (isNews) report(change);
}

// Enters the state Disconnected, and says what that means.
SwitchboardSession::StateChange SwitchboardSession::noteEnd(const CallError& reason) {
    const bool wasUp = state_ == State::Connected;
    StateChange change{wasUp ? StateChange::Event::Disconnected : StateChange::Event::Unreachable,
                       reason, std::nullopt};
    if (mayRetry()) {
        const auto lasted = wasUp ? Clock::now() - connectedAt_ : Clock::duration::zero();
        change.retryDelay = retryDelay_.after(reason.code, lasted);
    }
    state_ = State::Disconnected;
    failure_ = reason;
    peer_.reset();
    return change;
}

void SwitchboardSession::retryAfter(std::chrono::milliseconds delay) {
    queue().after(delay, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->connectAgain();
    });
}

void SwitchboardSession::connectAgain() {
    std::shared_ptr<Connection> connection;
    {
        const std::scoped_lock guard(lock_);
        if (state_ == State::Closed) return;
        prepareConnection();
        connection = connection_;
    }
    connection->resume(Deadline(kConnectTimeout).at());
}

void SwitchboardSession::report(const StateChange& change) {
    std::shared_ptr<const SwitchboardClient::StateHandler> handler;
    {
        const std::scoped_lock guard(lock_);
        handler = stateHandler_;
    }
    if (handler) runCallback(*handler, change);
}

Result<void> SwitchboardSession::waitUntilConnected(Deadline deadline) {
    SEVRIN_ASSERT(!NSXPCConnection::isXPCThread(),
                  "the XPC thread cannot wait for an answer that it would have to deliver");
    std::unique_lock guard(lock_);
    const bool isSettled = changed_.wait_until(guard, deadline.at(), [this] {
        return state_ == State::Connected || state_ == State::Closed ||
               (state_ == State::Disconnected && !mayRetry());
    });
    if (isSettled && state_ == State::Connected) return {};
    if (isSettled && state_ == State::Disconnected) return *failure_;
    if (isSettled) return CallError{CallError::Code::Disconnected, "the client was closed"};
    std::string why = "not connected to the switchboard in time";
    if (failure_) why += ": " + failure_->description;
    return CallError{CallError::Code::DeadlinePassed, std::move(why)};
}

}  // namespace sevrin
