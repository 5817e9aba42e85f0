// Serves a component: the object that stands before it on the wire.
#include "client/ComponentServer.h"

#include <utility>

#include "Platform/Assertion.h"
#include "client/CustomProtocol.h"

namespace sevrin {

namespace {

// Passes messages on to a component, which so needs to know nothing of selectors.
class ComponentObject final : public platform::Object {
public:
    explicit ComponentObject(std::shared_ptr<SVComponentServing> component)
        : component_(std::move(component)) {}

    [[nodiscard]] const platform::Class& isa() const override {
        static const platform::Class& theClass =
            *new platform::Class("ComponentServerObject", &Object::classObject(),
                                 componentServingMethods<ComponentObject>());
        return theClass;
    }

    void barrierWithCompletion(std::function<void()> completion) {
        component_->barrierWithCompletion(std::move(completion));
    }
    void queryComponentVersionWithReply(std::function<void(std::string)> reply) {
        component_->queryComponentVersionWithReply(std::move(reply));
    }
    void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) {
        component_->queryBuildNumberWithReply(std::move(reply));
    }
    void didInstallComponent() { component_->didInstallComponent(); }
    void willUninstallComponent() { component_->willUninstallComponent(); }

private:
    const std::shared_ptr<SVComponentServing> component_;
};

ProtocolServer::Acceptor objectAcceptor(ComponentServer::Acceptor acceptor) {
    SEVRIN_ASSERT(acceptor, "a server has an acceptor");
    return [acceptor =
                std::move(acceptor)](const std::shared_ptr<platform::NSXPCConnection>& connection) {
        auto component =
            acceptor(Peer{connection->effectiveUserIdentifier(),
                          connection->effectiveGroupIdentifier(), connection->processIdentifier()});
        return component ? std::make_shared<ComponentObject>(std::move(component)) : nullptr;
    };
}

}  // namespace

Component::Component(std::string version, std::uint32_t buildNumber)
    : version_(std::move(version)), buildNumber_(buildNumber) {}

void Component::barrierWithCompletion(std::function<void()> completion) {
    completion();
}

void Component::queryComponentVersionWithReply(std::function<void(std::string)> reply) {
    reply(version_);
}

void Component::queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) {
    reply(buildNumber_);
}

ComponentServer::ComponentServer(std::shared_ptr<SVComponentServing> component)
    : ComponentServer([component = std::move(component)](const Peer&) { return component; }) {}

ComponentServer::ComponentServer(Acceptor acceptor)
    : server_(std::make_unique<ProtocolServer>(SVComponentServing::protocol(),
                                               objectAcceptor(std::move(acceptor)))) {}

ComponentServer::ComponentServer(ComponentServer&&) noexcept = default;
ComponentServer& ComponentServer::operator=(ComponentServer&&) noexcept = default;
ComponentServer::~ComponentServer() = default;

EndpointPtr ComponentServer::endpoint() const {
    return server_->endpoint();
}

std::size_t ComponentServer::connectionCount() const {
    return server_->connectionCount();
}

void ComponentServer::shutdown() {
    server_->shutdown();
}

}  // namespace sevrin
