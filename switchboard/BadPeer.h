// Reports the clients that broke a rule and lost their connection for it.
#pragma once

#include <string>

#include "Platform/NSXPCConnection.h"

namespace sevrin {

// Logs one line of diagnosis: who the peer of `connection` is and, in a sentence without a subject,
// what it did. On any thread. This is also what the platform reports its own findings to.
void logBadPeer(const platform::NSXPCConnection& connection, const std::string& what);

}  // namespace sevrin
