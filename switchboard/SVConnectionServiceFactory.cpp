// Accepts connections on behalf of a server class known by name.
#include "switchboard/SVConnectionServiceFactory.h"

#include <array>
#include <utility>

#include "Platform/Class.h"
#include "Platform/NSXPCInterface.h"
#include "Platform/Value.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

using platform::Class;
using platform::Invocation;
using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::NSXPCListener;
using platform::ObjectPtr;
using platform::Protocol;
using platform::Value;

std::shared_ptr<SVConnectionServiceFactory>
SVConnectionServiceFactory::initWithListenerServerClassConformingTo(
    std::shared_ptr<NSXPCListener> listener, std::string serverClass, const Protocol& protocol) {
    NSXPCListener& ready = *listener;
    std::shared_ptr<SVConnectionServiceFactory> factory(
        new SVConnectionServiceFactory(std::move(listener), std::move(serverClass), protocol));
    ready.resume();
    return factory;
}

SVConnectionServiceFactory::SVConnectionServiceFactory(std::shared_ptr<NSXPCListener> listener,
                                                       std::string serverClass,
                                                       const Protocol& protocol)
    : SVConnectionVendor(std::move(listener)),
      serverClass_(std::move(serverClass)),
      serverProtocol_(&protocol) {}

SVConnectionServiceFactory::~SVConnectionServiceFactory() {
    shutdown();  // Here, while the members that the delegate method reads are still alive.
}

std::string SVConnectionServiceFactory::serverClass() const {
    const std::lock_guard guard(lock_);
    return serverClass_;
}

void SVConnectionServiceFactory::setServerClass(std::string serverClass) {
    const std::lock_guard guard(lock_);
    serverClass_ = std::move(serverClass);
}

namespace {

// What the class called `className` offers for the connection; nullptr refuses.
ObjectPtr serverObject(const std::string& className,
                       const std::shared_ptr<NSXPCConnection>& connection,
                       const std::shared_ptr<NSXPCInterface>& interface) {
    const Class* const serverClass = Class::named(className);
    if (!serverClass) return nullptr;
    const Class::Method* const method =
        serverClass->classMethod(SVConnectionObjectFactory::kServerObjectForConnection);
    if (!method) return nullptr;

    std::array<Value, 2> arguments{Value(connection), Value(interface)};
    Invocation invocation{arguments, {}};
    return (*method)(nullptr, invocation).object();
}

}  // namespace

bool SVConnectionServiceFactory::listenerShouldAcceptNewConnection(
    NSXPCListener&, const std::shared_ptr<NSXPCConnection>& connection) {
    const auto interface = NSXPCInterface::interfaceWithProtocol(serverProtocol());
    ObjectPtr server = serverObject(serverClass(), connection, interface);
    if (!server) return false;

    connection->setExportedInterface(interface);
    connection->setExportedObject(std::move(server));
    connection->resume();
    return true;
}

}  // namespace sevrin
