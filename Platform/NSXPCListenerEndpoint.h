// The capability to connect to one listener: whoever holds it can, nobody else can find it.
//
// It can be sent in a message like any other argument. No holder can read what others send to the
// listener, take over its connections or shut it down.
#pragma once

#include "Platform/Export.h"
#include "Platform/Object.h"

namespace sevrin::platform {

class SEVRIN_EXPORT NSXPCListenerEndpoint : public Object {
public:
    [[nodiscard]] static Class& classObject();
    [[nodiscard]] const Class& isa() const override { return classObject(); }

    // Two endpoints are equal when they lead to the same listener (inherited isEqual and hash).

protected:
    NSXPCListenerEndpoint() = default;
};

}  // namespace sevrin::platform
