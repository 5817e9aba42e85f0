// The inside of a SwitchboardClient: the connection of the moment, what is to be restored on the
// next one, and the handlers.
//
// There is always a connection: live, under way, or ended. A call goes to whichever it is, and an
// ended one answers it with the reason of its end, on the XPC thread like any other answer. So no
// call needs to ask first, and none falls between two connections.
//
// A session ends with close(); its owner makes sure of that. Blocks and handlers that wait
// elsewhere hold it weakly. One lock guards all of its state; it is held while messages are sent,
// so that what is remembered and what was sent never disagree, and never while a callback runs.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "Platform/NSXPCConnection.h"
#include "client/Message.h"
#include "client/PostWindow.h"
#include "client/RetryDelay.h"
#include "client/StandingOrders.h"
#include "client/SwitchboardClient.h"

namespace sevrin {

class SwitchboardSession : public std::enable_shared_from_this<SwitchboardSession> {
public:
    using Connection = platform::NSXPCConnection;
    using State = SwitchboardClient::State;
    using StateChange = SwitchboardClient::StateChange;
    using Clock = std::chrono::steady_clock;

    explicit SwitchboardSession(SwitchboardClient::Options options);

    // Begins to connect on another thread; or tries once on this one, and is kept up only if that
    // succeeds. One of them, once, before anything else.
    void start();
    [[nodiscard]] Result<void> startAndWait(Deadline deadline);

    // The rest as SwitchboardClient has it.
    void close();
    [[nodiscard]] bool closeAndWait(Deadline deadline);
    [[nodiscard]] State state() const;
    [[nodiscard]] std::optional<Peer> peer() const;
    [[nodiscard]] Result<void> waitUntilConnected(Deadline deadline);

    void publish(EndpointPtr endpoint, const std::string& identifier);
    void redact(const std::string& identifier);
    void setUser(std::uint32_t user);
    SubscriptionId subscribe(NotificationFilter filter, NotificationHandler handler);
    void unsubscribe(SubscriptionId subscription);
    void unsubscribeAll();

    // Sends a post unless too many are under way; SwitchboardClient says what the errors are.
    [[nodiscard]] Result<void> post(const Message& message);

    // The connection that a call made now goes to.
    [[nodiscard]] std::shared_ptr<Connection> connection() const;

    // Hands a notification to its subscriber. On the XPC thread.
    void deliver(SubscriptionId subscription, const Notification& notification);

private:
    struct Subscriber {
        NotificationFilter filter;
        NotificationHandler handler;
    };

    // With lock_ held.
    void prepareConnection();
    [[nodiscard]] bool isWanted(const Connection* connection) const;
    [[nodiscard]] bool mayRetry() const;
    [[nodiscard]] StateChange noteEnd(const CallError& reason);
    void send(const Message& message);
    void watchPosts(std::uint64_t mark);

    // Without.
    void greeted(const Connection* connection);
    void ended(const Connection* connection);
    void retryAfter(std::chrono::milliseconds delay);
    void connectAgain();
    void report(const StateChange& change);

    const SwitchboardClient::Service service_;

    mutable std::mutex lock_;
    std::condition_variable changed_;  // state_ or isApart_
    State state_ = State::Connecting;
    std::shared_ptr<Connection> connection_;
    bool isApart_ = false;  // connection_ has ended and all its calls have been told
    std::optional<Peer> peer_;
    PostWindow posts_;  // on connection_
    StandingOrders orders_;
    std::unordered_map<SubscriptionId, std::shared_ptr<const Subscriber>> subscribers_;
    std::uint64_t lastSubscription_ = 0;
    std::shared_ptr<const SwitchboardClient::StateHandler> stateHandler_;

    const bool reconnects_;
    bool isOnTrial_ = false;  // the first attempt is to succeed, or be the last
    bool wasConnected_ = false;
    RetryDelay retryDelay_;
    Clock::time_point connectedAt_;
    std::optional<CallError> failure_;         // why state_ is Disconnected
    std::optional<CallError::Code> reported_;  // the last reason told, until connected
};

}  // namespace sevrin
