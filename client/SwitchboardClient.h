// A program's line to the switchboard: offers endpoints, finds those of others, posts and receives
// notifications.
//
//     SwitchboardClient client;
//     client.publish(server.endpoint(), "com.example.thing");
//     auto found = client.query("com.example.other", 2s);
//     if (!found) std::cerr << found.error().description;
//     else if (*found) ...                                       // null: nobody publishes it
//
// Any thread may call it. Calls that wait take a deadline; their twins with a completion return at
// once. Either way a call ends exactly once: with the answer or with an error (Result.h says which
// and on what thread). Calls are sent in the order made.
//
// The connection is kept up. When the switchboard goes away the client connects again, by itself,
// and restores there, in the original order, what it was told to do for good: setUser, publish and
// subscribe. Meanwhile
//   - setUser, publish, redact, subscribe and unsubscribe are remembered and take effect with the
//     next connection;
//   - post, query, barrier and the rest fail at once with the reason of the break;
//   - what was in flight at the break has failed as Disconnected, and may or may not have been
//   done.
// Calls made while the client is connecting wait for the outcome of that attempt and share it.
//
// It tries again after 10 ms, 20 ms, ... up to every second, starting anew once a connection has
// lasted a second. Who is turned away (Refused, VersionMismatch, Untrusted, BadAnswer) would be so
// again: then it waits 1 s, 2 s, ... up to a minute, which is enough to notice that the
// administrator has changed something.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Export.h"
#include "client/ComponentClient.h"
#include "client/Deadline.h"
#include "client/Endpoint.h"
#include "client/Notification.h"
#include "client/Peer.h"
#include "client/Result.h"

namespace sevrin {

class SwitchboardSession;

class SEVRIN_EXPORT SwitchboardClient {
public:
    // Which switchboard: that of the user whom this process runs as, or the machine's, which serves
    // its users apart from each other and lets root speak for any of them (setUser).
    enum class Service { User, System };

    enum class State { Connecting, Connected, Disconnected, Closed };

    struct StateChange {
        enum class Event {
            Connected,     // for the first time
            Reconnected,   // again, and everything remembered is in effect again
            Disconnected,  // the connection has ended: `reason`
            Unreachable,   // an attempt failed: `reason`; told once until the reason changes
        };

        Event event;
        std::optional<CallError> reason = std::nullopt;

        // How long the client waits before it tries (again); nothing when it will not.
        std::optional<std::chrono::milliseconds> retryDelay = std::nullopt;
    };

    // Told of every change, in order, on the XPC thread and with no lock held. What a Completion
    // may and must not do goes for it too. Nothing is told about close().
    using StateHandler = std::function<void(const StateChange&)>;

    struct Options {
        Service service = Service::User;

        // Whether to connect again by itself. Without, the first failure is final.
        bool reconnects = true;

        StateHandler stateHandler = nullptr;
    };

    // Starts to connect and returns at once, also when there is no switchboard yet.
    SwitchboardClient();
    explicit SwitchboardClient(Options options);

    // Connects and waits for the switchboard's first answer. Gives up with the first attempt: an
    // error says that it failed, or that the deadline passed, and the state handler is told
    // nothing. Not on the XPC thread (asserted).
    [[nodiscard]] static Result<SwitchboardClient> connect(Options options, Deadline deadline);

    SwitchboardClient(SwitchboardClient&&) noexcept = default;
    SwitchboardClient& operator=(SwitchboardClient&& other) noexcept;

    // Closes.
    ~SwitchboardClient();

    // Ends the connection for good, which withdraws everything published and subscribed. Unanswered
    // calls complete with Disconnected. Nothing else is called once this has returned, except that
    // a callback that the XPC thread has begun still runs to its end. May be called in a callback,
    // and twice.
    void close();

    // Closes, and waits until all completions have run and no callback runs any more: whatever they
    // use may go now. False when the deadline passed first. Not on the XPC thread (asserted).
    [[nodiscard]] bool closeAndWait(Deadline deadline);

    [[nodiscard]] State state() const;

    // The switchboard's process; nothing unless connected.
    [[nodiscard]] std::optional<Peer> peer() const;

    // Waits, through failed attempts if need be, until connected. The error is DeadlinePassed,
    // whose description tells what stood in the way; or, when the client does not try (any more),
    // the reason for that. Not on the XPC thread (asserted).
    [[nodiscard]] Result<void> waitUntilConnected(Deadline deadline);

    // MARK: What lasts. None of these waits; barrier() tells when they have taken effect.

    // Offers `endpoint` to the user's other processes under `identifier` (1024 bytes at most),
    // replacing what this client published under it before. Null redacts. Other programs may
    // publish under the same identifier: queries find whichever of them connected first. Throws
    // std::length_error for a longer identifier or the 16,385th one, and does nothing then.
    void publish(EndpointPtr endpoint, const std::string& identifier);

    // Withdraws what this client published under `identifier`; nothing happens if it did not.
    void redact(const std::string& identifier);

    // Moves this client from root's registry of the system's switchboard to that of `user`, with
    // all that it has published. The switchboard ignores it for users it does not serve, for 0, and
    // when the client is not (any more) in root's registry.
    void setUser(std::uint32_t user);

    // Has `handler` called with every notification that passes `filter`, from any program and
    // user, this client's own included. Throws std::length_error for a name or source longer than
    // 1024 bytes, or for the 4097th subscription, and does nothing then.
    SubscriptionId subscribe(NotificationFilter filter, NotificationHandler handler);

    // Ends a subscription. Its handler is not called again once this has returned, except for a
    // call that the XPC thread has begun. It may do this itself. Unknown ones are ignored.
    void unsubscribe(SubscriptionId subscription);
    void unsubscribeAll();

    // MARK: Questions. The first form of each waits and must not be called on the XPC thread
    // (asserted); the second calls its completion. Nobody counts how many are under way, but when
    // more than 4 MB of calls lie unread, the connection ends.

    // The endpoint that is published under `identifier`, or null when nobody does. Throws
    // std::length_error for an identifier of more than 1024 bytes.
    [[nodiscard]] Result<EndpointPtr> query(const std::string& identifier, Deadline deadline);
    void query(const std::string& identifier, Deadline deadline,
               Completion<EndpointPtr> completion);

    // A connection to the program that publishes `identifier`, up and tested. NoService also when
    // nobody does.
    [[nodiscard]] Result<ComponentClient> connectToPublisher(const std::string& identifier,
                                                             Deadline deadline);

    // Posts to all subscribers. The answer is that the switchboard has passed it on to them; not
    // that they have handled it. Throws, with nothing sent, std::invalid_argument when the user
    // info holds what cannot travel (Notification.h) and std::length_error when it is too long.
    [[nodiscard]] Result<void> post(const Notification& notification, Deadline deadline);
    void post(const Notification& notification, Deadline deadline, Completion<void> completion);

    // Posts without an answer, and never waits. Success says that the notification is on its way,
    // where it can still be lost with the connection; an error, that nothing was sent: there is no
    // connection, or (DeadlinePassed) a megabyte of such posts is still to be handled, and the
    // other forms should be used until the switchboard has caught up.
    [[nodiscard]] Result<void> post(const Notification& notification);

    // Answers when the switchboard has handled everything that was called here before.
    [[nodiscard]] Result<void> barrier(Deadline deadline);
    void barrier(Deadline deadline, Completion<void> completion);

    // The switchboard's version, such as "Switchboard-2.2.5.12", and the same as a number.
    [[nodiscard]] Result<std::string> componentVersion(Deadline deadline);
    void componentVersion(Deadline deadline, Completion<std::string> completion);
    [[nodiscard]] Result<std::uint32_t> buildNumber(Deadline deadline);
    void buildNumber(Deadline deadline, Completion<std::uint32_t> completion);

private:
    explicit SwitchboardClient(std::shared_ptr<SwitchboardSession> session);

    // A share of the session for the length of a call, whose callbacks may destroy this object
    // before the call is over.
    [[nodiscard]] std::shared_ptr<SwitchboardSession> session() const { return session_; }

    std::shared_ptr<SwitchboardSession> session_;  // nullptr once moved from
};

}  // namespace sevrin
