// Capabilities come from the table by kind, and from probes of this one volume where a kind does
// not decide. A probe reads; it never makes a file.
#include "Platform/linux/VolumeAttributes.h"

#include <fcntl.h>
#include <sys/xattr.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "Platform/DirectoryReader.h"
#include "Platform/UniqueFd.h"
#include "Platform/VolumeCapabilities.h"
#include "Platform/linux/MountedVolume.h"
#include "Platform/linux/VolumeIdentity.h"
#include "Platform/linux/XfsGeometry.h"

namespace sevrin::platform {

namespace {

constexpr attrgroup_t kSizes = ATTR_VOL_SIZE | ATTR_VOL_SPACEFREE | ATTR_VOL_SPACEAVAIL;
constexpr attrgroup_t kCounts = ATTR_VOL_OBJCOUNT | ATTR_VOL_MAXOBJCOUNT;
constexpr attrgroup_t kAlwaysKnown =
    ATTR_VOL_FSTYPE | ATTR_VOL_SIGNATURE | ATTR_VOL_MINALLOCATION | ATTR_VOL_ALLOCATIONCLUMP |
    ATTR_VOL_IOBLOCKSIZE | ATTR_VOL_MOUNTPOINT | ATTR_VOL_MOUNTFLAGS | ATTR_VOL_MOUNTEDDEVICE |
    ATTR_VOL_CAPABILITIES | ATTR_VOL_ATTRIBUTES | ATTR_VOL_INFO;
constexpr attrgroup_t kNeedsRoot = ATTR_VOL_NAME | ATTR_VOL_UUID | ATTR_VOL_CAPABILITIES;

// Whether objects of the volume may have an extended attribute of the kind of `name`; nothing when
// the answer may not be seen. It is the root that is asked.
std::optional<bool> mayHaveAttribute(int fd, const char* name) noexcept {
    std::array<char, 32> link{};
    (void)std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
    if (::getxattr(link.data(), name, nullptr, 0) >= 0 || errno == ENODATA) return true;
    if (errno == EOPNOTSUPP) return false;
    return std::nullopt;
}

// Two words of bits under construction: what is so, and what is known.
struct Word {
    std::uint32_t& bits;
    std::uint32_t& valid;

    void learn(std::uint32_t bit, std::optional<bool> answer) const noexcept {
        if (!answer) return;
        valid |= bit;
        bits = *answer ? bits | bit : bits & ~bit;
    }
};

vol_capabilities_attr_t capabilitiesOf(int fd, int root, const MountEntry& mount,
                                       const FileSystemKind& kind, bool hasSizes) {
    vol_capabilities_attr_t all{};
    const Word format{all.capabilities[VOL_CAPABILITIES_FORMAT],
                      all.valid[VOL_CAPABILITIES_FORMAT]};
    const Word interfaces{all.capabilities[VOL_CAPABILITIES_INTERFACES],
                          all.valid[VOL_CAPABILITIES_INTERFACES]};
    format.bits = kind.format;
    format.valid = kind.formatValid;
    interfaces.bits = kind.interfaces;
    interfaces.valid = kind.interfacesValid;
    format.learn(VOL_CAP_FMT_NO_VOLUME_SIZES, !hasSizes);
    format.learn(VOL_CAP_FMT_JOURNAL_ACTIVE, hasActiveJournal(mount, kind));
    interfaces.learn(VOL_CAP_INT_READDIRATTR, hasGetdirentriesattr());
    interfaces.learn(VOL_CAP_INT_EXTENDED_SECURITY,
                     mayHaveAttribute(fd, "system.posix_acl_access"));
    interfaces.learn(VOL_CAP_INT_EXTENDED_ATTR, mayHaveAttribute(fd, "user.sevrin"));
    if (kind.name == "xfs" && root >= 0) {
        if (const std::optional<XfsGeometry> geometry = xfsGeometry(root)) {
            format.learn(VOL_CAP_FMT_CASE_SENSITIVE, (geometry->flags & kXfsFoldsCase) == 0);
            interfaces.learn(VOL_CAP_INT_CLONE, (geometry->flags & kXfsSharesBlocks) != 0);
        }
    }
    return all;
}

// What objects of the volume have, and what of it the volume keeps itself instead of this platform
// working it out. `root` decides whether there are times of creation.
vol_attributes_attr_t attributeSetsOf(const FileSystemKind& kind, const struct statx& root,
                                      attrgroup_t volume) noexcept {
    struct statx directory = root;
    directory.stx_mode = S_IFDIR;
    struct statx file = root;
    file.stx_mode = S_IFREG;
    vol_attributes_attr_t sets{};
    sets.validattr = knownFromStatx(directory);
    sets.validattr.fileattr = knownFromStatx(file).fileattr;
    sets.validattr.commonattr |= ATTR_CMN_FULLPATH | ATTR_CMN_ERROR;
    sets.validattr.dirattr |= ATTR_DIR_ENTRYCOUNT;
    sets.validattr.volattr = volume;
    sets.nativeattr = sets.validattr;
    sets.nativeattr.commonattr &= ~(ATTR_CMN_FULLPATH | ATTR_CMN_USERACCESS | ATTR_CMN_ERROR |
                                    ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_FSID | ATTR_CMN_DEVID);
    sets.nativeattr.dirattr &= ~(ATTR_DIR_ENTRYCOUNT | ATTR_DIR_MOUNTSTATUS);
    if (kind.ignoresOwners) {
        sets.nativeattr.commonattr &=
            ~(ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS);
    }
    return sets;
}

std::int64_t bytesOf(std::uint64_t blocks, std::uint32_t blockSize) noexcept {
    std::int64_t bytes = 0;
    const bool isTooMuch = __builtin_mul_overflow(blocks, blockSize, &bytes);
    return isTooMuch ? std::numeric_limits<std::int64_t>::max() : bytes;
}

std::uint32_t in32Bits(std::uint64_t count) noexcept {
    return static_cast<std::uint32_t>(
        std::min<std::uint64_t>(count, std::numeric_limits<std::uint32_t>::max()));
}

}  // namespace

bool VolumeReport::fill(int fd, const struct statx& root, attrgroup_t wanted) noexcept try {
    const std::optional<MountEntry> mount = mountOf(fd);
    if (!mount) return false;
    const FileSystemKind& kind = kindNamed(mount->type);
    describeMount(*mount, record_);
    if (!addFigures(fd, record_)) return false;
    addFiguresOfVolume();
    if ((wanted & ATTR_VOL_ATTRIBUTES) != 0) wanted |= ATTR_VOL_NAME | ATTR_VOL_UUID;
    if ((wanted & kNeedsRoot) != 0) {
        const int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
        const UniqueFd readable(::openat(fd, ".", flags));
        if ((wanted & ATTR_VOL_CAPABILITIES) != 0) {
            const bool hasSizes = (known_ & ATTR_VOL_SIZE) != 0;
            facts_.capabilities = capabilitiesOf(fd, readable.get(), *mount, kind, hasSizes);
        }
        addIdentity(readable.get(), *mount, wanted);
    }
    facts_.attributes = attributeSetsOf(kind, root, known_);
    return true;
} catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
}

void VolumeReport::addFiguresOfVolume() noexcept {
    known_ = kAlwaysKnown;
    if (record_.f_blocks != 0) known_ |= kSizes;
    if (record_.f_files != 0) known_ |= kCounts;
    facts_.type = record_.f_type;
    facts_.size = bytesOf(record_.f_blocks, record_.f_bsize);
    facts_.spaceFree = bytesOf(record_.f_bfree, record_.f_bsize);
    facts_.spaceAvailable = bytesOf(record_.f_bavail, record_.f_bsize);
    facts_.minimumAllocation = record_.f_bsize;
    facts_.ioBlockSize = static_cast<std::uint32_t>(record_.f_iosize);
    facts_.objectCount = in32Bits(record_.f_files - std::min(record_.f_files, record_.f_ffree));
    facts_.objectCountMax = in32Bits(record_.f_files);
    facts_.mountFlags = record_.f_flags;
    facts_.mountPoint = record_.f_mntonname;
    facts_.device = record_.f_mntfromname;
}

void VolumeReport::addIdentity(int root, const MountEntry& mount, attrgroup_t wanted) {
    const FileSystemKind& kind = kindNamed(mount.type);
    if ((wanted & ATTR_VOL_UUID) != 0) {
        if (const std::optional<UuidBytes> uuid = uuidOfVolume(root, mount, kind)) {
            std::copy(uuid->begin(), uuid->end(), facts_.uuid);
            known_ |= ATTR_VOL_UUID;
        }
    }
    if ((wanted & ATTR_VOL_NAME) != 0) {
        if (const std::optional<std::string> label = labelOfVolume(root, mount, kind)) {
            const std::size_t size = std::min(label->size(), label_.size() - 1);
            std::memcpy(label_.data(), label->data(), size);
            label_[size] = '\0';
            facts_.name = std::string_view(label_.data(), size);
            known_ |= ATTR_VOL_NAME;
        }
    }
}

}  // namespace sevrin::platform
