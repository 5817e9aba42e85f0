// An endpoint on Linux: a path descriptor (O_PATH) on the socket that a listener has bound and
// unlinked.
//
// The descriptor gives the right to connect and nothing else: reading, accepting and shutting down
// all fail on it.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class XPCEndpoint final : public NSXPCListenerEndpoint,
                          public std::enable_shared_from_this<XPCEndpoint> {
public:
    // Takes over the path descriptor of a socket; throws std::system_error if it is neither.
    [[nodiscard]] static std::shared_ptr<XPCEndpoint> adopt(UniqueFd fd);

    // The endpoint for a descriptor that `user` sent. A descriptor that leads to the same listener
    // as one that the user has here already is closed and that one is given; a new one is charged
    // to the user as long as it lives. nullptr when it is no endpoint, or more than the user's
    // share; then `why` says which.
    [[nodiscard]] static std::shared_ptr<XPCEndpoint> adoptFromPeer(UniqueFd fd, uid_t user,
                                                                    const char*& why);

    struct Identity {
        std::uint64_t device;
        std::uint64_t inode;

        friend bool operator==(const Identity&, const Identity&) = default;
    };

    // How the equal endpoints of one user find each other.
    struct Table;

    XPCEndpoint(UniqueFd fd, Identity identity) : fd_(std::move(fd)), identity_(identity) {}
    ~XPCEndpoint();

    [[nodiscard]] int fd() const { return fd_.get(); }

    [[nodiscard]] bool isEqual(const Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

private:
    UniqueFd fd_;
    uid_t user_ = 0;
    bool isCharged_ = false;  // to user_, and in the table
    const Identity identity_;
};

}  // namespace sevrin::platform
