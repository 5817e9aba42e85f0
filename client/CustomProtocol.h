// For experts: components with a protocol of their own, on both ends of an endpoint.
//
// A platform::Protocol says, as data, which selectors exist and what they take and give; both sides
// are built with the same one. The server exports a platform::Object whose class answers those
// selectors (Platform/SelectorMethod.h); the client calls them by selector with values. Everything
// that arrives is checked against the protocol before any code of the program runs. Threads, order,
// completions and deadlines are those of ComponentServer and ComponentClient, which are made of
// these. A protocol should inherit SVComponentServing::protocol(), as every component of the suite
// does.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/Export.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/Object.h"
#include "Platform/Protocol.h"
#include "Platform/Value.h"
#include "client/Deadline.h"
#include "client/Endpoint.h"
#include "client/Peer.h"
#include "client/Result.h"

namespace sevrin {

class SEVRIN_EXPORT ProtocolServer {
public:
    // Gives the object that serves a new connection, or null to refuse it. May prepare the
    // connection (its remote object interface, for calls back to the peer) and keep it; does not
    // resume it and leaves its invalidation handler alone. Runs on the XPC thread and must not wait
    // for another one.
    using Acceptor =
        std::function<platform::ObjectPtr(const std::shared_ptr<platform::NSXPCConnection>&)>;

    // Listens and serves `protocol`, which outlives it. Throws std::system_error when the system
    // gives no socket.
    ProtocolServer(const platform::Protocol& protocol, Acceptor acceptor);
    ProtocolServer(const ProtocolServer&) = delete;
    ProtocolServer& operator=(const ProtocolServer&) = delete;

    // Shuts down.
    ~ProtocolServer();

    // As ComponentServer's.
    [[nodiscard]] EndpointPtr endpoint() const;
    [[nodiscard]] std::size_t connectionCount() const;
    void shutdown();

private:
    class SEVRIN_LOCAL Listening;

    std::shared_ptr<Listening> listening_;
};

class SEVRIN_EXPORT ProtocolClient {
public:
    using DisconnectHandler = std::function<void(const CallError& reason)>;

    struct Options {
        // What the other side may call here, and on which object; both or neither.
        const platform::Protocol* exportedProtocol = nullptr;
        platform::ObjectPtr exportedObject = nullptr;

        // As ComponentClient's.
        DisconnectHandler disconnectHandler = nullptr;
    };

    // A connection to `endpoint` whose other side serves `protocol`, which outlives it. Nothing
    // happens yet, but calls may be made: they wait for start() or startAndWait().
    ProtocolClient(const platform::Protocol& protocol, EndpointPtr endpoint, Options options);
    ProtocolClient(const ProtocolClient&) = delete;
    ProtocolClient& operator=(const ProtocolClient&) = delete;

    // Closes.
    ~ProtocolClient();

    // Connects: on another thread, or on this one until `deadline` at most. Once.
    void start();
    void startAndWait(Deadline deadline);

    void close();

    // Who is at the other end; nothing before the first answer.
    [[nodiscard]] std::optional<Peer> peer() const;

    // Calls a method that replies, and gives the values of its reply. Throws std::invalid_argument
    // when `selector` is no such method of the protocol or the arguments are not what it takes, and
    // std::length_error when they are too long; nothing is sent then. The first form waits and must
    // not be called on the XPC thread (asserted).
    [[nodiscard]] Result<platform::ValueArray> call(std::string_view selector,
                                                    const platform::ValueArray& arguments,
                                                    Deadline deadline);
    void call(std::string_view selector, const platform::ValueArray& arguments, Deadline deadline,
              Completion<platform::ValueArray> completion);

    // Calls a method without a reply; throws as call(). Dropped when the connection has ended.
    void send(std::string_view selector, const platform::ValueArray& arguments);

private:
    class SEVRIN_LOCAL Connection;

    std::shared_ptr<Connection> connection_;
};

}  // namespace sevrin
