// An endpoint on Linux: what makes a descriptor one, and when two are the same.
#include "Platform/linux/XPCEndpoint.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <mutex>
#include <optional>
#include <system_error>
#include <unordered_set>
#include <utility>

#include "Platform/Class.h"
#include "Platform/linux/PeerLedger.h"

namespace sevrin::platform {

namespace {

using Identity = XPCEndpoint::Identity;

// Device and inode of the socket that `fd` is a path descriptor of; nothing for any other
// descriptor. A connected or listening socket itself is refused: whoever holds one could read from
// it or shut it down.
std::optional<Identity> socketIdentity(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || (flags & O_PATH) == 0) return std::nullopt;
    struct stat status;
    if (::fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode)) return std::nullopt;
    return Identity{status.st_dev, status.st_ino};
}

}  // namespace

// The endpoints that peers have sent, by user and identity. Holding one keeps its inode from being
// given to another socket, so as long as it stands here an equal identity is the same listener.
struct XPCEndpoint::Table {
    struct Key {
        uid_t user;
        Identity identity;

        static Key of(const XPCEndpoint* endpoint) {
            return {endpoint->user_, endpoint->identity_};
        }
        static Key of(const Key& key) { return key; }
        friend bool operator==(const Key&, const Key&) = default;
    };
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(const auto& entry) const {
            const Key key = Key::of(entry);
            return std::hash<std::uint64_t>{}(key.identity.inode * 31 + key.identity.device * 7 +
                                              key.user);
        }
    };
    struct Equal {
        using is_transparent = void;
        bool operator()(const auto& left, const auto& right) const {
            return Key::of(left) == Key::of(right);
        }
    };

    static Table& shared() {
        static Table& theTable = *new Table;
        return theTable;
    }

    std::mutex lock;
    std::unordered_multiset<XPCEndpoint*, Hash, Equal> endpoints;
};

Class& NSXPCListenerEndpoint::classObject() {
    static Class& theClass = *new Class("NSXPCListenerEndpoint", &Object::classObject(), {});
    return theClass;
}

std::shared_ptr<XPCEndpoint> XPCEndpoint::adopt(UniqueFd fd) {
    const auto identity = socketIdentity(fd.get());
    if (!identity) throw std::system_error(ENOTSOCK, std::generic_category(), "no endpoint");
    return std::make_shared<XPCEndpoint>(std::move(fd), *identity);
}

std::shared_ptr<XPCEndpoint> XPCEndpoint::adoptFromPeer(UniqueFd fd, uid_t user, const char*& why) {
    const auto identity = socketIdentity(fd.get());
    if (!identity) {
        why = "a descriptor that is no endpoint";
        return nullptr;
    }
    Table& table = Table::shared();
    const std::scoped_lock guard(table.lock);
    const auto [first, last] = table.endpoints.equal_range(Table::Key{user, *identity});
    for (auto known = first; known != last; ++known) {
        // One whose last holder is letting go of it at this moment cannot be had any more.
        if (auto endpoint = (*known)->weak_from_this().lock()) return endpoint;
    }
    if (!PeerLedger::shared().chargeDescriptor(user)) {
        why = "more descriptors than its user may have";
        return nullptr;
    }
    auto endpoint = std::make_shared<XPCEndpoint>(std::move(fd), *identity);
    endpoint->user_ = user;
    endpoint->isCharged_ = true;
    table.endpoints.insert(endpoint.get());
    return endpoint;
}

XPCEndpoint::~XPCEndpoint() {
    if (!isCharged_) return;
    {
        Table& table = Table::shared();
        const std::scoped_lock guard(table.lock);
        const auto [first, last] = table.endpoints.equal_range(this);
        table.endpoints.erase(std::find(first, last, this));
    }
    PeerLedger::shared().releaseDescriptor(user_);
}

bool XPCEndpoint::isEqual(const Object& other) const {
    const auto* endpoint = dynamic_cast<const XPCEndpoint*>(&other);
    return endpoint != nullptr && endpoint->identity_ == identity_;
}

std::size_t XPCEndpoint::hash() const {
    return std::hash<std::uint64_t>{}(identity_.inode) ^
           (std::hash<std::uint64_t>{}(identity_.device) << 1);
}

}  // namespace sevrin::platform
