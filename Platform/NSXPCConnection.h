// A connection to one other process: messages both ways, in order, checked against a protocol on
// arrival.
//
// All messages of all connections are handled on one thread, the XPC thread, each connection's in
// the order sent. Handlers and reply blocks run there too, never under a lock, each reply block
// exactly once. Every operation may be called on any thread. A connection delivers nothing until
// resume(). Once invalidated (by either side) it stays so.
#pragma once

#include <sys/types.h>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "Platform/Export.h"
#include "Platform/NSXPCInterface.h"
#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/Object.h"
#include "Platform/Value.h"
#include "Platform/XPCError.h"

namespace sevrin::platform {

// Arguments in their form on the wire. Holds no endpoints.
class SEVRIN_EXPORT EncodedArguments {
public:
    // Encodes `arguments` in order. Throws std::invalid_argument for what cannot travel, and
    // std::length_error when one is nested deeper than kNestingMax.
    explicit EncodedArguments(std::span<const Value> arguments);

    [[nodiscard]] const std::string& bytes() const { return bytes_; }
    [[nodiscard]] std::size_t count() const { return count_; }

private:
    std::string bytes_;
    std::size_t count_ = 0;
};

// A one-way message to many peers, who differ in its leading arguments only: the selector and all
// other arguments, encoded once for all of them.
class SEVRIN_EXPORT EncodedCall {
public:
    // `rest` are the last arguments of `method`.
    EncodedCall(const MethodDescription& method, std::span<const Value> rest);

    // What goes before the leading arguments, and what goes after them.
    [[nodiscard]] const std::string& head() const { return head_; }
    [[nodiscard]] const EncodedArguments& rest() const { return rest_; }
    [[nodiscard]] const MethodDescription& method() const { return *method_; }

private:
    const MethodDescription* method_;
    std::string head_;
    EncodedArguments rest_;
};

class SEVRIN_EXPORT NSXPCConnection : public Object {
public:
    // The answer to a request: the values of the reply block, or why there is none.
    using Answer = std::variant<ValueArray, XPCError>;
    using AnswerHandler = std::function<void(Answer)>;
    using Handler = std::function<void()>;
    using Deadline = std::chrono::steady_clock::time_point;

    // Which name space a service name is looked up in.
    enum class Domain { User, System };

    // Connections to a listener's endpoint or to a named service. Nothing happens before resume();
    // failures to connect are reported to the requests made (NoService, Untrusted, ...) and to the
    // invalidation handler.
    [[nodiscard]] static std::shared_ptr<NSXPCConnection> initWithListenerEndpoint(
        const std::shared_ptr<NSXPCListenerEndpoint>& endpoint);
    [[nodiscard]] static std::shared_ptr<NSXPCConnection> initWithMachServiceName(
        std::string_view name, Domain domain);

    // What the peer may call here, and on which object. Set before resume(); the object may be
    // cleared at any time.
    virtual void setExportedInterface(std::shared_ptr<NSXPCInterface> interface) = 0;
    virtual void setExportedObject(ObjectPtr object) = 0;
    [[nodiscard]] virtual ObjectPtr exportedObject() const = 0;
    [[nodiscard]] virtual std::shared_ptr<NSXPCInterface> exportedInterface() const = 0;

    // What we may call there; needed before the first message is sent.
    virtual void setRemoteObjectInterface(std::shared_ptr<NSXPCInterface> interface) = 0;
    [[nodiscard]] virtual std::shared_ptr<NSXPCInterface> remoteObjectInterface() const = 0;

    // Runs once, on the XPC thread, after the connection has ended for good and all unanswered
    // requests were told. A handler set after that never runs.
    virtual void setInvalidationHandler(Handler handler) = 0;

    // Runs when a named service went away but may come back under the same connection. This backend
    // ends the connection instead, so the handler exists for symmetry and never runs here.
    virtual void setInterruptionHandler(Handler handler) = 0;

    // Makes the connection live: connects if it is a client's, then delivers. Blocks no longer than
    // `connectDeadline` (five seconds from now unless given).
    virtual void resume(std::optional<Deadline> connectDeadline = std::nullopt) = 0;

    // Ends the connection. What was sent before is still delivered if the peer has room for it.
    // Harmless when done twice.
    virtual void invalidate() = 0;

    // Why the connection has ended; nothing while it lives.
    [[nodiscard]] virtual std::optional<XPCError> failure() const = 0;

    // The peer, from the kernel: as of the moment it connected, or began to listen.
    [[nodiscard]] virtual uid_t effectiveUserIdentifier() const = 0;
    [[nodiscard]] virtual gid_t effectiveGroupIdentifier() const = 0;
    [[nodiscard]] virtual pid_t processIdentifier() const = 0;

    // Sends a one-way message. `method` belongs to the remote object interface's protocol; the
    // arguments must be of its types (a mistake is ours and asserted). Sent to a connection that
    // has ended it is dropped. Throws std::length_error, with nothing sent, when the message is
    // larger or nested deeper than XPCLimits.h allows; so do the requests, and the reply blocks
    // that exported methods are given.
    virtual void send(const MethodDescription& method, std::span<const Value> arguments) = 0;

    // Sends `call` with the leading arguments that are this peer's own.
    virtual void send(const EncodedCall& call, const EncodedArguments& leading) = 0;

    // Sends a message with a reply block. `handler` runs exactly once, on the XPC thread: with the
    // reply, with DeadlinePassed, or with the reason why the connection ended. Without a deadline
    // it waits as long as the connection lives.
    virtual void request(const MethodDescription& method, std::span<const Value> arguments,
                         AnswerHandler handler,
                         std::optional<Deadline> deadline = std::nullopt) = 0;

    // The same, waiting for the answer on the calling thread. Must not be called on the XPC thread
    // (asserted): the answer would wait for its own question. Messages that arrived before the
    // answer have been handled when this returns.
    [[nodiscard]] virtual Answer requestAndWait(const MethodDescription& method,
                                                std::span<const Value> arguments,
                                                Deadline deadline) = 0;

    // Whether the calling thread is the XPC thread.
    [[nodiscard]] static bool isXPCThread();

    // Told, on the XPC thread, about every connection that is ended because its peer broke a rule,
    // with what it did in a sentence. One for the process; set it before the first listener.
    // Without one such peers are dropped in silence.
    using FaultReporter =
        std::function<void(const NSXPCConnection& connection, const std::string& what)>;
    static void setFaultReporter(FaultReporter reporter);
};

}  // namespace sevrin::platform
