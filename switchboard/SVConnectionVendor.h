// Owns a listener and decides, as its delegate, about the connections that arrive there.
//
// This base refuses every connection; SVConnectionServiceFactory accepts them. Connections that
// were accepted live on when the vendor goes. Operations may be called on any thread; the delegate
// method runs on the XPC thread.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/Object.h"

namespace sevrin {

class SVConnectionVendor : public platform::Object, public platform::NSXPCListenerDelegate {
public:
    // Keeps `listener` and becomes its delegate; does not resume it.
    [[nodiscard]] static std::shared_ptr<SVConnectionVendor> initWithListener(
        std::shared_ptr<platform::NSXPCListener> listener);

    // Shuts down. The `redact` hook of a subclass is out of reach by then: a subclass that has one,
    // or state of its own that the delegate method uses, shuts down in its own destructor.
    ~SVConnectionVendor() override;

    // Sends itself `redact` if its class has such a method (the hook of a vendor that has published
    // its endpoint somewhere), then invalidates the listener and lets it go. When this returns, no
    // connection is decided about any more, unless the caller is on the XPC thread itself. Must not
    // be called under a lock that the delegate method takes. Harmless when done twice.
    void shutdown();

    // The listener's endpoint; nullptr once shut down.
    [[nodiscard]] std::shared_ptr<platform::NSXPCListenerEndpoint> endpoint() const;

    // The name under which a subclass has published the endpoint; empty when it has not.
    [[nodiscard]] const std::string& publishedName() const { return publishedName_; }

    // Refuses.
    bool listenerShouldAcceptNewConnection(
        platform::NSXPCListener& listener,
        const std::shared_ptr<platform::NSXPCConnection>& connection) override;

protected:
    explicit SVConnectionVendor(std::shared_ptr<platform::NSXPCListener> listener);

    // The listener; nullptr once shut down.
    [[nodiscard]] std::shared_ptr<platform::NSXPCListener> listener() const;

    std::string publishedName_;

private:
    mutable std::mutex lock_;
    std::shared_ptr<platform::NSXPCListener> listener_;  // guarded by lock_
};

}  // namespace sevrin
