// What is true of a whole kind of file system: one table, by the name in the mount table.
//
// Pure. What one volume of a kind may have and another not is left out of the valid bits here and
// is for VolumeAttributes to probe.
#pragma once

#include <sys/types.h>

#include <cstdint>
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

// The identity of a file system from its own figures and its device: its own, or the device where
// it has none or one borrowed from the file system below it. That of network file systems is always
// the device, which is known without asking a server.
[[nodiscard]] fsid_t identityOf(const struct ::statfs& raw, dev_t device) noexcept;

}  // namespace sevrin::platform
