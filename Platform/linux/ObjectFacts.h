// What is known of one file-system object before it is packed: the kernel's answer and what was
// worked out from it.
//
// Plain data and pure functions; asking the kernel is the caller's.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <string_view>

#include "Platform/AttributeList.h"

namespace sevrin::platform {

// Attributes of a volume, known only where they were asked of a mount point.
struct VolumeFacts {
    std::uint32_t type = 0;
    std::int64_t size = 0;
    std::int64_t spaceFree = 0;
    std::int64_t spaceAvailable = 0;
    std::int64_t minimumAllocation = 0;
    std::uint32_t ioBlockSize = 0;
    std::uint32_t objectCount = 0;
    std::uint32_t objectCountMax = 0;
    std::uint32_t mountFlags = 0;
    std::string_view mountPoint;
    std::string_view name;
    std::string_view device;
    vol_capabilities_attr_t capabilities{};
    unsigned char uuid[16]{};
    vol_attributes_attr_t attributes{};
};

struct ObjectFacts {
    struct statx stat {};     // all zero where the kernel told nothing
    attribute_set_t known{};  // which attributes can be given
    std::string_view name;    // must be followed by a NUL, as must the path
    std::string_view fullPath;
    fsid_t fsid{};
    std::uint32_t userAccess = 0;
    std::uint32_t entryCount = 0;
    std::uint32_t error = 0;
    const VolumeFacts* volume = nullptr;

    [[nodiscard]] bool isDirectory() const noexcept { return S_ISDIR(stat.stx_mode); }
};

// The fields of statx that any attribute is made from.
inline constexpr unsigned kStatxFields = STATX_BASIC_STATS | STATX_BTIME;

// The common, directory and file attributes that follow from `facts.stat` and the name alone.
[[nodiscard]] attribute_set_t knownFromStatx(const struct statx& stat) noexcept;

// The kind of object that a file mode, or the type byte of a directory entry, names.
[[nodiscard]] vtype objectTypeOfMode(unsigned mode) noexcept;
[[nodiscard]] unsigned modeOfEntryType(unsigned char type) noexcept;

// UF_ and SF_ bits: immutable and append-only need privilege here, so they are the superuser's
// flags; an object whose name begins with a point counts as hidden.
[[nodiscard]] std::uint32_t fileFlags(const struct statx& stat, std::string_view name) noexcept;

// Whether a name is one that file browsers hide.
[[nodiscard]] inline bool isHiddenName(std::string_view name) noexcept {
    return name.size() > 1 && name[0] == '.' && name != "..";
}

// The device number in the platform's 32 bits.
[[nodiscard]] std::int32_t deviceNumber(unsigned major, unsigned minor) noexcept;

}  // namespace sevrin::platform
