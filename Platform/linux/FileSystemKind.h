// What is true of a whole kind of file system: one table, by the name in the mount table.
//
// Pure. What one volume of a kind may have and another not is left out of the valid bits here and
// is for VolumeAttributes to probe.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "Platform/AttributeList.h"

struct statfs;

namespace sevrin::platform {

struct FileSystemKind {
    std::string_view name;
    std::uint32_t format = 0;           // VOL_CAP_FMT_ bits
    std::uint32_t formatValid = 0;      // which of them are known
    std::uint32_t interfaces = 0;       // VOL_CAP_INT_ bits
    std::uint32_t interfacesValid = 0;  // which of them are known
    bool isRemote = false;              // a server stands behind it
    bool isPseudo = false;              // a view of the kernel, nothing stored
    bool ignoresOwners = false;         // keeps no owner and mode for each object
    bool isVolatile = false;            // gone with the mount, and any identity with it
};

// The kind of that name ("ext4", "fuse.sshfs"). For a name that is not in the table, what is true
// of every file system; `name` is then empty.
[[nodiscard]] const FileSystemKind& kindNamed(std::string_view name) noexcept;

// The identity that a file system has of its own. Nothing where it has none, one borrowed from the
// file system below it, or one that only a server knows: deviceIdentity serves those.
[[nodiscard]] std::optional<fsid_t> ownIdentity(const struct ::statfs& raw) noexcept;

// The identity that a mounted file system has by its device, in the form in which the kernel itself
// makes one.
[[nodiscard]] fsid_t deviceIdentity(unsigned major, unsigned minor) noexcept;

}  // namespace sevrin::platform
