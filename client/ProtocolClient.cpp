// One end of a connection whose other end serves a protocol of its own.
#include <mutex>
#include <stdexcept>
#include <utility>

#include "Platform/DispatchQueue.h"
#include "client/Callback.h"
#include "client/CustomProtocol.h"
#include "client/Message.h"

namespace sevrin {

using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::Protocol;
using platform::ValueArray;

namespace {

// How long the system may take to let us in before it counts as a failure.
constexpr std::chrono::seconds kConnectTimeout{5};

Result<ValueArray> readValues(const ValueArray& values) {
    return values;
}

}  // namespace

// Outlives the ProtocolClient while somebody is at work in it.
class ProtocolClient::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(const Protocol& protocol, const EndpointPtr& endpoint)
        : protocol_(protocol), xpc_(NSXPCConnection::initWithListenerEndpoint(endpoint)) {}

    void prepare(Options options) {
        handler_ = std::move(options.disconnectHandler);
        xpc_->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(protocol_));
        if (options.exportedProtocol) {
            xpc_->setExportedInterface(
                NSXPCInterface::interfaceWithProtocol(*options.exportedProtocol));
            xpc_->setExportedObject(std::move(options.exportedObject));
        }
        xpc_->setInvalidationHandler([weak = weak_from_this()] {
            if (const auto self = weak.lock()) self->ended();
        });
    }

    void connect(NSXPCConnection::Deadline deadline) {
        xpc_->resume(deadline);
        if (xpc_->failure()) return;
        const std::scoped_lock guard(lock_);
        peer_ = Peer{xpc_->effectiveUserIdentifier(), xpc_->effectiveGroupIdentifier(),
                     xpc_->processIdentifier()};
    }

    void close() {
        DisconnectHandler handler;  // Released after the lock.
        const std::scoped_lock guard(lock_);
        handler.swap(handler_);
        xpc_->invalidate();
    }

    std::optional<Peer> peer() const {
        const std::scoped_lock guard(lock_);
        return peer_;
    }

    NSXPCConnection& xpc() { return *xpc_; }

    // The message for `selector`, which has a reply or not, as wanted; throws when it cannot be.
    Message message(std::string_view selector, ValueArray arguments, bool hasReply) const {
        const platform::MethodDescription* method = protocol_.method(selector);
        if (!method || method->hasReply != hasReply) {
            throw std::invalid_argument(protocol_.name() + " has no method " +
                                        std::string(selector) +
                                        (hasReply ? " with a reply" : " without a reply"));
        }
        Message message{method, std::move(arguments)};
        requireSendable(message);
        return message;
    }

private:
    void ended() {
        DisconnectHandler handler;
        {
            const std::scoped_lock guard(lock_);
            handler.swap(handler_);
        }
        if (handler) runCallback(handler, *xpc_->failure());
    }

    const Protocol& protocol_;
    const std::shared_ptr<NSXPCConnection> xpc_;

    mutable std::mutex lock_;
    std::optional<Peer> peer_;
    DisconnectHandler handler_;  // until it is told, or closed
};

ProtocolClient::ProtocolClient(const Protocol& protocol, EndpointPtr endpoint, Options options)
    : connection_(std::make_shared<Connection>(protocol, endpoint)) {
    connection_->prepare(std::move(options));
}

ProtocolClient::~ProtocolClient() {
    connection_->close();
}

void ProtocolClient::start() {
    using platform::DispatchQueue;
    DispatchQueue::globalQueue(DispatchQueue::Priority::Default).async([connection = connection_] {
        connection->connect(Deadline(kConnectTimeout).at());
    });
}

void ProtocolClient::startAndWait(Deadline deadline) {
    connection_->connect(deadline.at());
}

void ProtocolClient::close() {
    connection_->close();
}

std::optional<Peer> ProtocolClient::peer() const {
    return connection_->peer();
}

// The calls hold a share of the connection: their callbacks may destroy this object before they are
// over.

Result<ValueArray> ProtocolClient::call(std::string_view selector, const ValueArray& arguments,
                                        Deadline deadline) {
    const std::shared_ptr<Connection> connection = connection_;
    const Message message = connection->message(selector, arguments, true);
    return resultOf<ValueArray>(
        connection->xpc().requestAndWait(*message.method, message.arguments, deadline.at()),
        readValues);
}

void ProtocolClient::call(std::string_view selector, const ValueArray& arguments, Deadline deadline,
                          Completion<ValueArray> completion) {
    SEVRIN_ASSERT(completion, "an asynchronous call has a completion");
    const std::shared_ptr<Connection> connection = connection_;
    const Message message = connection->message(selector, arguments, true);
    connection->xpc().request(
        *message.method, message.arguments,
        [completion = std::move(completion)](NSXPCConnection::Answer answer) {
            runCallback(completion, resultOf<ValueArray>(std::move(answer), readValues));
        },
        deadline.at());
}

void ProtocolClient::send(std::string_view selector, const ValueArray& arguments) {
    const std::shared_ptr<Connection> connection = connection_;
    const Message message = connection->message(selector, arguments, false);
    connection->xpc().send(*message.method, message.arguments);
}

}  // namespace sevrin
