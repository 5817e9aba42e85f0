// The bootstrap folder itself: where it is, whether it can be trusted, and addresses of sockets in
// it.
#pragma once

#include <sys/un.h>

#include <string>
#include <variant>

#include "Platform/NSXPCConnection.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform::bootstrap {

// Opens the folder of `domain` as a path descriptor, making it when it is missing. A text says why
// it cannot be used: not ours, or writable by others.
[[nodiscard]] std::variant<UniqueFd, std::string> openFolderToListen(
    NSXPCConnection::Domain domain);

// Opens the folder of `domain` to look for a service in it; nothing is made.
[[nodiscard]] std::variant<UniqueFd, XPCError> openFolderToConnect(NSXPCConnection::Domain domain);

// A folder in which this user may make private ones.
[[nodiscard]] std::string privateParentPath();

// The address of socket `name` in `folder`, by way of the descriptor, so that the length of the
// folder's own path does not matter. Throws std::logic_error, with the reason, when the name alone
// is too long or cannot be that of a file.
[[nodiscard]] sockaddr_un addressIn(int folder, const std::string& name);

}  // namespace sevrin::platform::bootstrap
