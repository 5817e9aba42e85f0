// A connection to one component: the program behind an endpoint that the switchboard gave.
//
//     if (auto component = ComponentClient::connect(endpoint, 2s)) {
//         auto version = component->componentVersion(2s);
//
// Any thread may call it. Calls that wait take a deadline; their twins with a completion return at
// once. Either way a call ends exactly once: with the answer or with an error. The connection ends
// with this object, with close() or with the other process, and is never made again: a component
// that has been started anew has a new endpoint. More than 4096 unanswered calls at once are a
// breach of the protocol, for which the component ends the connection.
//
// It speaks to what every component offers; a component with a protocol of its own is reached
// through CustomProtocol.h.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Export.h"
#include "client/Deadline.h"
#include "client/Endpoint.h"
#include "client/Peer.h"
#include "client/Result.h"

namespace sevrin {

class ProtocolClient;

class SEVRIN_EXPORT ComponentClient {
public:
    // Told once, on the XPC thread, after the connection has ended, or could not be made, and all
    // its calls have completed; not when close() ended it. What a Completion may and must not do
    // goes for it too.
    using DisconnectHandler = std::function<void(const CallError& reason)>;

    // Starts to connect and returns at once; calls made meanwhile wait for the outcome.
    explicit ComponentClient(EndpointPtr endpoint, DisconnectHandler handler = nullptr);

    // Connects and waits for the component's first answer. When that fails the error says why, and
    // the handler is told nothing. Not on the XPC thread (asserted).
    [[nodiscard]] static Result<ComponentClient> connect(EndpointPtr endpoint, Deadline deadline,
                                                         DisconnectHandler handler = nullptr);

    ComponentClient(ComponentClient&&) noexcept;
    ComponentClient& operator=(ComponentClient&&) noexcept;

    // Closes.
    ~ComponentClient();

    // Ends the connection. Unanswered calls complete with Disconnected. May be called in a
    // callback, and twice.
    void close();

    // Who is at the other end; nothing before the first answer.
    [[nodiscard]] std::optional<Peer> peer() const;

    // MARK: Questions. The first form of each waits and must not be called on the XPC thread
    // (asserted); the second calls its completion.

    // Answers when the component has handled everything that was called here before.
    [[nodiscard]] Result<void> barrier(Deadline deadline);
    void barrier(Deadline deadline, Completion<void> completion);

    // The component's version as text and as a number.
    [[nodiscard]] Result<std::string> componentVersion(Deadline deadline);
    void componentVersion(Deadline deadline, Completion<std::string> completion);
    [[nodiscard]] Result<std::uint32_t> buildNumber(Deadline deadline);
    void buildNumber(Deadline deadline, Completion<std::uint32_t> completion);

    // MARK: Hooks around an installation. Sent without an answer, and dropped when the connection
    // has ended; barrier() tells when they have been handled.

    void didInstall();
    void willUninstall();

private:
    explicit ComponentClient(std::unique_ptr<ProtocolClient> client);

    std::unique_ptr<ProtocolClient> client_;  // nullptr once moved from
};

}  // namespace sevrin
