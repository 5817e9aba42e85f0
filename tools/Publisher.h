// Who publishes an endpoint: the process at its other end, as the kernel knows it.
#pragma once

#include <string>

#include "client/Switchboard.h"

namespace sevrin {

// Connects to `endpoint` to learn who listens there; waits for no word of the publisher, which may
// be busy or stopped. NoService when nobody listens any more.
[[nodiscard]] Result<Peer> publisherOf(const EndpointPtr& endpoint, Deadline deadline);

// The name of a user; the number when there is no such user.
[[nodiscard]] std::string userName(uid_t user);

// What process `process` is called, as any bytes; empty when it has ended. Ids are used again, so
// this is for people to read.
[[nodiscard]] std::string processName(pid_t process);

}  // namespace sevrin
