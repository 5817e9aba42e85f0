// Owns a listener: the way in and the way out.
#include "switchboard/SVConnectionVendor.h"

#include <utility>

#include "Platform/Class.h"

namespace sevrin {

using platform::Class;
using platform::Invocation;
using platform::NSXPCConnection;
using platform::NSXPCListener;
using platform::NSXPCListenerEndpoint;

std::shared_ptr<SVConnectionVendor> SVConnectionVendor::initWithListener(
    std::shared_ptr<NSXPCListener> listener) {
    return std::shared_ptr<SVConnectionVendor>(new SVConnectionVendor(std::move(listener)));
}

SVConnectionVendor::SVConnectionVendor(std::shared_ptr<NSXPCListener> listener)
    : listener_(std::move(listener)) {
    listener_->setDelegate(this);
}

SVConnectionVendor::~SVConnectionVendor() {
    shutdown();
}

void SVConnectionVendor::shutdown() {
    if (const Class::Method* const redact = isa().instanceMethod("redact")) {
        Invocation noArguments;
        (*redact)(this, noArguments);
    }

    std::shared_ptr<NSXPCListener> listener;
    {
        const std::lock_guard guard(lock_);
        listener.swap(listener_);
    }
    if (listener) listener->invalidate();
}

std::shared_ptr<NSXPCListenerEndpoint> SVConnectionVendor::endpoint() const {
    const std::shared_ptr<NSXPCListener> current = listener();
    return current ? current->endpoint() : nullptr;
}

std::shared_ptr<NSXPCListener> SVConnectionVendor::listener() const {
    const std::lock_guard guard(lock_);
    return listener_;
}

bool SVConnectionVendor::listenerShouldAcceptNewConnection(
    NSXPCListener&, const std::shared_ptr<NSXPCConnection>&) {
    return false;
}

}  // namespace sevrin
