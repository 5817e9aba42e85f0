// From the kernel's vocabulary for objects to the platform's.
#include "Platform/linux/ObjectFacts.h"

#include <dirent.h>
#include <sys/sysmacros.h>

namespace sevrin::platform {

namespace {

constexpr attrgroup_t kCommonFromStatx =
    ATTR_CMN_NAME | ATTR_CMN_DEVID | ATTR_CMN_FSID | ATTR_CMN_OBJTYPE | ATTR_CMN_MODTIME |
    ATTR_CMN_CHGTIME | ATTR_CMN_ACCTIME | ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK |
    ATTR_CMN_FLAGS | ATTR_CMN_USERACCESS | ATTR_CMN_FILEID | ATTR_CMN_RETURNED_ATTRS;
constexpr attrgroup_t kDirectoryFromStatx =
    ATTR_DIR_LINKCOUNT | ATTR_DIR_ALLOCSIZE | ATTR_DIR_IOBLOCKSIZE | ATTR_DIR_DATALENGTH;
constexpr attrgroup_t kFileFromStatx =
    ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_IOBLOCKSIZE |
    ATTR_FILE_DEVTYPE | ATTR_FILE_DATALENGTH | ATTR_FILE_DATAALLOCSIZE;

}  // namespace

attribute_set_t knownFromStatx(const struct statx& stat) noexcept {
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

vtype objectTypeOfMode(unsigned mode) noexcept {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return VREG;
        case S_IFDIR:
            return VDIR;
        case S_IFBLK:
            return VBLK;
        case S_IFCHR:
            return VCHR;
        case S_IFLNK:
            return VLNK;
        case S_IFSOCK:
            return VSOCK;
        case S_IFIFO:
            return VFIFO;
        default:
            return VNON;
    }
}

unsigned modeOfEntryType(unsigned char type) noexcept {
    return type == DT_WHT ? 0 : static_cast<unsigned>(DTTOIF(type));
}

std::uint32_t fileFlags(const struct statx& stat, std::string_view name) noexcept {
    std::uint32_t flags = 0;
    if ((stat.stx_attributes & STATX_ATTR_IMMUTABLE) != 0) flags |= SF_IMMUTABLE;
    if ((stat.stx_attributes & STATX_ATTR_APPEND) != 0) flags |= SF_APPEND;
    if ((stat.stx_attributes & STATX_ATTR_NODUMP) != 0) flags |= UF_NODUMP;
    if (isHiddenName(name)) flags |= UF_HIDDEN;
    return flags;
}

std::int32_t deviceNumber(unsigned major, unsigned minor) noexcept {
    return static_cast<std::int32_t>(gnu_dev_makedev(major, minor));
}

}  // namespace sevrin::platform
