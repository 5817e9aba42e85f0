// Who is at the other end of a connection.
#pragma once

#include <sys/types.h>

namespace sevrin {

// The other process as the kernel knew it when it connected (a client) or began to listen (a
// server). The user and the group are the effective ones. The process id is for messages and
// statistics: ids are used again, so no decision about trust may rest on it.
struct Peer {
    uid_t user = static_cast<uid_t>(-1);
    gid_t group = static_cast<gid_t>(-1);
    pid_t process = 0;

    friend bool operator==(const Peer&, const Peer&) = default;
};

}  // namespace sevrin
