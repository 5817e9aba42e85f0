// The inside of a SwitchboardClient: what its calls do. How it connects, and connects again, is in
// SwitchboardSessionConnecting.cpp.
#include "client/SwitchboardSession.h"

#include <utility>

#include "Platform/Assertion.h"
#include "client/Callback.h"
#include "client/SwitchboardMessages.h"

namespace sevrin {

using platform::NSXPCConnection;

SwitchboardSession::SwitchboardSession(SwitchboardClient::Options options)
    : service_(options.service), reconnects_(options.reconnects) {
    if (options.stateHandler) {
        stateHandler_ = std::make_shared<const SwitchboardClient::StateHandler>(
            std::move(options.stateHandler));
    }
}

// MARK: The end

void SwitchboardSession::close() {
    // Released after the lock, for what they captured may come back here.
    std::unordered_map<SubscriptionId, std::shared_ptr<const Subscriber>> subscribers;
    std::shared_ptr<const SwitchboardClient::StateHandler> stateHandler;
    {
        const std::scoped_lock guard(lock_);
        if (state_ == State::Closed) return;
        state_ = State::Closed;
        peer_.reset();
        subscribers.swap(subscribers_);
        stateHandler.swap(stateHandler_);
        connection_->invalidate();
    }
    changed_.notify_all();
}

bool SwitchboardSession::closeAndWait(Deadline deadline) {
    SEVRIN_ASSERT(!NSXPCConnection::isXPCThread(),
                  "the XPC thread cannot wait for callbacks that run on it");
    close();
    std::unique_lock guard(lock_);
    if (!changed_.wait_until(guard, deadline.at(), [this] { return isApart_; })) return false;

    // The XPC thread does one thing after the other: when it answers this, from a connection that
    // has ended, it is past every callback that it had begun.
    const auto isPast = std::make_shared<bool>(false);
    connection_->request(*message::barrier().method, {},
                         [self = shared_from_this(), isPast](const Connection::Answer&) {
                             const std::scoped_lock pastGuard(self->lock_);
                             *isPast = true;
                             self->changed_.notify_all();
                         });
    return changed_.wait_until(guard, deadline.at(), [&isPast] { return *isPast; });
}

// MARK: State

SwitchboardSession::State SwitchboardSession::state() const {
    const std::scoped_lock guard(lock_);
    return state_;
}

std::optional<Peer> SwitchboardSession::peer() const {
    const std::scoped_lock guard(lock_);
    return peer_;
}

std::shared_ptr<NSXPCConnection> SwitchboardSession::connection() const {
    const std::scoped_lock guard(lock_);
    return connection_;
}

// MARK: What lasts

void SwitchboardSession::send(const Message& message) {
    connection_->send(*message.method, message.arguments);
}

void SwitchboardSession::publish(EndpointPtr endpoint, const std::string& identifier) {
    if (!endpoint) return redact(identifier);
    const std::scoped_lock guard(lock_);
    orders_.publish(endpoint, identifier);
    send(message::publish(std::move(endpoint), identifier));
}

void SwitchboardSession::redact(const std::string& identifier) {
    requireShort(identifier, "an identifier");
    const std::scoped_lock guard(lock_);
    orders_.redact(identifier);
    send(message::redact(identifier));
}

void SwitchboardSession::setUser(std::uint32_t user) {
    const std::scoped_lock guard(lock_);
    orders_.setUser(user);
    send(message::setUser(user));
}

SubscriptionId SwitchboardSession::subscribe(NotificationFilter filter,
                                             NotificationHandler handler) {
    SEVRIN_ASSERT(handler, "a subscription has a handler");
    auto subscriber =
        std::make_shared<const Subscriber>(Subscriber{std::move(filter), std::move(handler)});
    const std::scoped_lock guard(lock_);
    const SubscriptionId subscription{lastSubscription_ + 1};
    orders_.subscribe(subscription, subscriber->filter);
    ++lastSubscription_;
    send(message::addObserver(subscription, subscriber->filter));
    if (state_ != State::Closed) subscribers_.emplace(subscription, std::move(subscriber));
    return subscription;
}

void SwitchboardSession::unsubscribe(SubscriptionId subscription) {
    std::shared_ptr<const Subscriber> subscriber;  // Released after the lock.
    const std::scoped_lock guard(lock_);
    const auto found = subscribers_.find(subscription);
    if (found == subscribers_.end()) return;
    subscriber = std::move(found->second);
    subscribers_.erase(found);
    orders_.unsubscribe(subscription);
    send(message::removeObserver(subscription));
}

void SwitchboardSession::unsubscribeAll() {
    std::unordered_map<SubscriptionId, std::shared_ptr<const Subscriber>> subscribers;
    const std::scoped_lock guard(lock_);
    subscribers.swap(subscribers_);
    orders_.unsubscribeAll();
    send(message::removeAllObservers());
}

// MARK: Notifications

Result<void> SwitchboardSession::post(const Message& message) {
    const platform::EncodedCall call(*message.method, message.arguments);
    const std::size_t bytes = call.head().size() + call.rest().bytes().size();
    const std::scoped_lock guard(lock_);
    if (std::optional<CallError> failure = connection_->failure()) return *std::move(failure);
    if (!posts_.hasRoomFor(bytes)) {
        return CallError{CallError::Code::DeadlinePassed,
                         "the switchboard is still busy with what was posted before"};
    }
    connection_->send(call, platform::EncodedArguments({}));
    posts_.add(bytes);
    if (const std::optional<std::uint64_t> mark = posts_.takeMark()) watchPosts(*mark);
    return {};
}

void SwitchboardSession::watchPosts(std::uint64_t mark) {
    connection_->request(
        *message::barrier().method, {},
        [weak = weak_from_this(), raw = connection_.get(), mark](const Connection::Answer& answer) {
            const auto self = weak.lock();
            if (!self || std::holds_alternative<CallError>(answer)) return;
            const std::scoped_lock guard(self->lock_);
            if (raw == self->connection_.get()) self->posts_.handled(mark);
        });
}

// What has been unsubscribed meanwhile, though the switchboard did not know it yet, finds nobody.
void SwitchboardSession::deliver(SubscriptionId subscription, const Notification& notification) {
    std::shared_ptr<const Subscriber> subscriber;
    {
        const std::scoped_lock guard(lock_);
        const auto found = subscribers_.find(subscription);
        if (found == subscribers_.end()) return;
        subscriber = found->second;
    }
    const std::optional<std::string>& source = subscriber->filter.source;
    if (source && source != notification.source) return;
    runCallback(subscriber->handler, notification);
}

}  // namespace sevrin
