// Waits for connections under a service name, or anonymously under an endpoint that can be handed
// around.
//
// A new listener is silent until resume(). Its delegate decides about every connection on the XPC
// thread. Invalidating ends the listening and nothing else: connections that were accepted live on.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/Object.h"

namespace sevrin::platform {

class NSXPCConnection;
class NSXPCListener;

class NSXPCListenerDelegate {
public:
    // Whether to accept. An accepted connection has been configured and resumed by the delegate; a
    // refused one is invalidated by the platform.
    virtual bool listenerShouldAcceptNewConnection(
        NSXPCListener& listener, const std::shared_ptr<NSXPCConnection>& connection) = 0;

protected:
    ~NSXPCListenerDelegate() = default;
};

class NSXPCListener : public Object {
public:
    // A listener under a service name of this user, or of the system when the effective user id is
    // 0. Registering may fail (another process serves the name, the folder is not safe): the
    // console says why, the listener stays silent, and registrationFailure() tells.
    [[nodiscard]] static std::shared_ptr<NSXPCListener> initWithMachServiceName(
        std::string_view name);

    // A listener that only the holders of its endpoint can reach. Throws std::system_error when the
    // system gives no socket.
    [[nodiscard]] static std::shared_ptr<NSXPCListener> anonymousListener();

    // The delegate is borrowed: it must take itself out (nullptr) or invalidate the listener before
    // it goes. After setDelegate or invalidate returns, the former delegate is not called any more,
    // unless the caller is on the XPC thread itself.
    virtual void setDelegate(NSXPCListenerDelegate* delegate) = 0;

    // The capability to connect to this listener; nullptr once invalidated, or when registering
    // failed.
    [[nodiscard]] virtual std::shared_ptr<NSXPCListenerEndpoint> endpoint() = 0;

    virtual void resume() = 0;

    // Stops listening for good. Harmless when done twice.
    virtual void invalidate() = 0;

    // Why the service name could not be registered, in a sentence; nothing when all is well.
    [[nodiscard]] virtual std::optional<std::string> registrationFailure() const = 0;
};

}  // namespace sevrin::platform
