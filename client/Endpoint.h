// The capability to connect to a publisher, as it is published, found and handed around.
#pragma once

#include <memory>

#include "Platform/NSXPCListenerEndpoint.h"

namespace sevrin {

// Null where there is none. Two endpoints lead to the same listener when isEqual says so.
using EndpointPtr = std::shared_ptr<platform::NSXPCListenerEndpoint>;

}  // namespace sevrin
