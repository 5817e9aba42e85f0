// Listens anonymously and serves whoever is accepted.
#include <mutex>
#include <unordered_map>
#include <utility>

#include "Platform/NSXPCListener.h"
#include "client/Callback.h"
#include "client/CustomProtocol.h"

namespace sevrin {

using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::NSXPCListener;

// Outlives the ProtocolServer while somebody is at work in it.
class ProtocolServer::Listening final : public platform::NSXPCListenerDelegate,
                                        public std::enable_shared_from_this<Listening> {
public:
    Listening(const platform::Protocol& protocol, Acceptor acceptor)
        : protocol_(protocol),
          listener_(NSXPCListener::anonymousListener()),
          acceptor_(std::make_shared<const Acceptor>(std::move(acceptor))) {}

    void start() {
        listener_->setDelegate(this);
        listener_->resume();
    }

    EndpointPtr endpoint() const { return listener_->endpoint(); }

    std::size_t connectionCount() const {
        const std::scoped_lock guard(lock_);
        return connections_.size();
    }

    void shutdown() {
        std::shared_ptr<const Acceptor> acceptor;
        Connections connections;
        {
            const std::scoped_lock guard(lock_);
            acceptor.swap(acceptor_);
            connections.swap(connections_);
        }
        listener_->invalidate();
        for (const auto& [key, connection] : connections)
            connection->invalidate();
    }

    bool listenerShouldAcceptNewConnection(
        NSXPCListener&, const std::shared_ptr<NSXPCConnection>& connection) override {
        const auto self = shared_from_this();  // The acceptor may destroy the server.
        std::shared_ptr<const Acceptor> acceptor;
        {
            const std::scoped_lock guard(lock_);
            acceptor = acceptor_;
        }
        if (!acceptor) return false;
        platform::ObjectPtr object = runCallback(*acceptor, connection);
        if (!object) return false;

        connection->setExportedInterface(NSXPCInterface::interfaceWithProtocol(protocol_));
        connection->setExportedObject(std::move(object));
        connection->setInvalidationHandler([weak = weak_from_this(), key = connection.get()] {
            if (const auto listening = weak.lock()) listening->forget(key);
        });
        {
            const std::scoped_lock guard(lock_);
            if (!acceptor_) return false;  // Shut down meanwhile.
            connections_.emplace(connection.get(), connection);
        }
        connection->resume();
        return true;
    }

private:
    using Connections = std::unordered_map<NSXPCConnection*, std::shared_ptr<NSXPCConnection>>;

    void forget(NSXPCConnection* connection) {
        std::shared_ptr<NSXPCConnection> ended;  // Released after the lock.
        const std::scoped_lock guard(lock_);
        const auto found = connections_.find(connection);
        if (found == connections_.end()) return;
        ended = std::move(found->second);
        connections_.erase(found);
    }

    const platform::Protocol& protocol_;
    const std::shared_ptr<NSXPCListener> listener_;

    mutable std::mutex lock_;
    std::shared_ptr<const Acceptor> acceptor_;  // nullptr once shut down
    Connections connections_;
};

ProtocolServer::ProtocolServer(const platform::Protocol& protocol, Acceptor acceptor)
    : listening_(std::make_shared<Listening>(protocol, std::move(acceptor))) {
    listening_->start();
}

ProtocolServer::~ProtocolServer() {
    listening_->shutdown();
}

EndpointPtr ProtocolServer::endpoint() const {
    return listening_->endpoint();
}

std::size_t ProtocolServer::connectionCount() const {
    return listening_->connectionCount();
}

void ProtocolServer::shutdown() {
    listening_->shutdown();
}

}  // namespace sevrin
