// What is known of one file-system object before it is packed: the kernel's answer and what was
// worked out from it.
//
// Plain data and pure functions; asking the kernel is the caller's. Any thread.
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

// Whether a name is one that file browsers hide.
[[nodiscard]] inline bool isHiddenName(std::string_view name) noexcept {
    return name.size() > 1 && name[0] == '.' && name != "..";
}

// Listings ask what follows for millions of objects, so it stands here to be inlined.

// The common, directory and file attributes that follow from what statx told and the name alone.
[[nodiscard]] inline attribute_set_t knownFromStatx(const struct statx& stat) noexcept {
    constexpr attrgroup_t kCommonFromStatx =
        ATTR_CMN_NAME | ATTR_CMN_DEVID | ATTR_CMN_FSID | ATTR_CMN_OBJTYPE | ATTR_CMN_MODTIME |
        ATTR_CMN_CHGTIME | ATTR_CMN_ACCTIME | ATTR_CMN_OWNERID | ATTR_CMN_GRPID |
        ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS | ATTR_CMN_USERACCESS | ATTR_CMN_FILEID |
        ATTR_CMN_RETURNED_ATTRS;
    constexpr attrgroup_t kDirectoryFromStatx =
        ATTR_DIR_LINKCOUNT | ATTR_DIR_ALLOCSIZE | ATTR_DIR_IOBLOCKSIZE | ATTR_DIR_DATALENGTH;
    constexpr attrgroup_t kFileFromStatx =
        ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_IOBLOCKSIZE |
        ATTR_FILE_DEVTYPE | ATTR_FILE_DATALENGTH | ATTR_FILE_DATAALLOCSIZE;
    attribute_set_t known{};
    known.commonattr = kCommonFromStatx;
    if ((stat.stx_mask & STATX_BTIME) != 0) known.commonattr |= ATTR_CMN_CRTIME;
    if (S_ISDIR(stat.stx_mode)) {
        known.dirattr = kDirectoryFromStatx;
        // A kernel before 5.8 does not say whether something is mounted there.
        if ((stat.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
            known.dirattr |= ATTR_DIR_MOUNTSTATUS;
        }
    } else {
        known.fileattr = kFileFromStatx;
    }
    return known;
}

// UF_ and SF_ bits: immutable and append-only need privilege here, so they are the superuser's
// flags; an object whose name begins with a point counts as hidden.
[[nodiscard]] inline std::uint32_t fileFlags(const struct statx& stat,
                                             std::string_view name) noexcept {
    std::uint32_t flags = 0;
    if ((stat.stx_attributes & STATX_ATTR_IMMUTABLE) != 0) flags |= SF_IMMUTABLE;
    if ((stat.stx_attributes & STATX_ATTR_APPEND) != 0) flags |= SF_APPEND;
    if ((stat.stx_attributes & STATX_ATTR_NODUMP) != 0) flags |= UF_NODUMP;
    if (isHiddenName(name)) flags |= UF_HIDDEN;
    return flags;
}

// The kind of object that a file mode names.
[[nodiscard]] inline vtype objectTypeOfMode(unsigned mode) noexcept {
    static_assert(S_IFMT == 0xF000 && S_IFIFO == 0x1000 && S_IFCHR == 0x2000 && S_IFDIR == 0x4000);
    static_assert(S_IFBLK == 0x6000 && S_IFREG == 0x8000 && S_IFLNK == 0xA000 &&
                  S_IFSOCK == 0xC000);
    constexpr vtype kTypes[16] = {VNON, VFIFO, VCHR, VNON, VDIR,  VNON, VBLK, VNON,
                                  VREG, VNON,  VLNK, VNON, VSOCK, VNON, VNON, VNON};
    return kTypes[mode >> 12 & 0xF];
}

// The file mode that the type byte of a directory entry stands for; 0 when it names no kind.
[[nodiscard]] inline unsigned modeOfEntryType(unsigned char type) noexcept {
    constexpr unsigned char kWhiteout = 14;
    return type == kWhiteout ? 0 : static_cast<unsigned>(type) << 12;
}

// The device number in the platform's 32 bits, as the kernel packs it.
[[nodiscard]] inline std::int32_t deviceNumber(unsigned major, unsigned minor) noexcept {
    return static_cast<std::int32_t>((minor & 0xFF) | major << 8 | (minor & ~0xFFU) << 12);
}

}  // namespace sevrin::platform
