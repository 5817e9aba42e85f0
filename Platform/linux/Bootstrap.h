// Where service names live on Linux: socket files in a bootstrap folder, claimed by a lock file,
// reached by path.
//
// Trusts nothing that it finds: folders must belong to the right user and be closed to others, the
// process behind a socket must run as the right user. SEVRIN_BOOTSTRAP_DIR moves the folder; it and
// every other variable is ignored in set-id programs.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "Platform/NSXPCConnection.h"
#include "Platform/UniqueFd.h"
#include "Platform/XPCError.h"
#include "Platform/linux/XPCEndpoint.h"

namespace sevrin::platform::bootstrap {

// The folder that holds the sockets of `domain` for this process.
[[nodiscard]] std::string folderPath(NSXPCConnection::Domain domain);

// A listening socket, the endpoint that leads to it, and for a service the claim on its name.
struct ListeningSocket {
    UniqueFd socket;
    std::shared_ptr<XPCEndpoint> endpoint;
    UniqueFd folder;  // together with name: the socket file to remove; none for an anonymous or
                      // inherited socket
    std::string name;
    UniqueFd claim;            // the locked file; whoever holds the lock serves the name
    bool isInherited = false;  // the launcher's: it listens on when this process does not any more

    // Removes the socket file and gives the name up.
    void withdraw();
};

// Claims `name` for this process and listens under it, or takes over the socket that the launcher
// has opened for it (LISTEN_FDS). A text says why not.
[[nodiscard]] std::variant<ListeningSocket, std::string> listenAsService(std::string_view name);

// A socket that only its endpoint leads to. Throws std::system_error.
[[nodiscard]] ListeningSocket listenAnonymously();

using Connected = std::variant<UniqueFd, XPCError>;

// Connects to the service `name` of this user or of the system, and checks who serves it.
[[nodiscard]] Connected connectToService(std::string_view name, NSXPCConnection::Domain domain,
                                         NSXPCConnection::Deadline deadline);

// Connects to the listener behind `endpoint`.
[[nodiscard]] Connected connectToEndpoint(const XPCEndpoint& endpoint,
                                          NSXPCConnection::Deadline deadline);

}  // namespace sevrin::platform::bootstrap
