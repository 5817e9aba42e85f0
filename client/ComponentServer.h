// Serves a component to whoever holds its endpoint.
//
//     ComponentServer server(std::make_shared<Component>("Thing-1.0", 0x10000));
//     client.publish(server.endpoint(), "com.example.thing");
//
// Any thread may use it. The component's methods are called on the XPC thread, those of one
// connection in the order sent, and with no lock held. A method that takes long hands the work to
// another thread and replies from there; the XPC thread serves everybody else meanwhile. A reply is
// given at most once; one that is never given leaves the caller waiting for its deadline. A method
// that throws costs its caller the connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "Platform/Export.h"
#include "client/Endpoint.h"
#include "client/Peer.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

class ProtocolServer;

// A component that knows its version and does nothing else; a base for those that do.
class SEVRIN_EXPORT Component : public SVComponentServing {
public:
    // Answers `version`, such as "Thing-1.0", and `buildNumber`.
    Component(std::string version, std::uint32_t buildNumber);

    void barrierWithCompletion(std::function<void()> completion) override;
    void queryComponentVersionWithReply(std::function<void(std::string)> reply) override;
    void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) override;

private:
    const std::string version_;
    const std::uint32_t buildNumber_;
};

class SEVRIN_EXPORT ComponentServer {
public:
    // Decides, on the XPC thread, about each peer that connects: the component that serves it, one
    // for all or one of its own, or null to refuse it. It must not wait for another thread.
    using Acceptor = std::function<std::shared_ptr<SVComponentServing>(const Peer& peer)>;

    // Serves `component` to everybody who holds the endpoint. Throws std::system_error when the
    // system gives no socket.
    explicit ComponentServer(std::shared_ptr<SVComponentServing> component);

    // The same to those whom `acceptor` accepts.
    explicit ComponentServer(Acceptor acceptor);

    ComponentServer(ComponentServer&&) noexcept;
    ComponentServer& operator=(ComponentServer&&) noexcept;

    // Shuts down.
    ~ComponentServer();

    // What leads here: for SwitchboardClient::publish, or to be sent in a message. Null after
    // shutdown().
    [[nodiscard]] EndpointPtr endpoint() const;

    // Connections accepted and not ended yet.
    [[nodiscard]] std::size_t connectionCount() const;

    // Refuses everybody from now on and ends all connections. A method that the XPC thread has
    // begun still runs to its end; what it replies is dropped. May be called in a method, and
    // twice.
    void shutdown();

private:
    std::unique_ptr<ProtocolServer> server_;  // nullptr once moved from
};

}  // namespace sevrin
