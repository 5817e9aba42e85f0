// The kernel's own permission check, retraced without a call for each object.
#include "Platform/linux/EffectiveAccess.h"

#include <linux/capability.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

namespace sevrin::platform {

namespace {

constexpr std::uint32_t kAll = R_OK | W_OK | X_OK;
constexpr const char* kAccessAcl = "system.posix_acl_access";
// The inode that the namespace which every machine begins with always has.
constexpr ino_t kInitialUserNamespace = 0xEFFF'FFFD;

// The first word of the effective capabilities; both that matter here are in it.
std::uint32_t effectiveCapabilities() noexcept {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> data{};
    return ::syscall(SYS_capget, &header, data.data()) == 0 ? data[0].effective : 0;
}

bool isOutsideInitialUserNamespace() noexcept {
    struct stat space {};
    return ::stat("/proc/self/ns/user", &space) != 0 || space.st_ino != kInitialUserNamespace;
}

// What CAP_DAC_OVERRIDE grants: everything but executing what nobody may execute.
std::uint32_t rightsOfOverriding(std::uint32_t mode) noexcept {
    return R_OK | W_OK | (S_ISDIR(mode) || (mode & 0111U) != 0 ? X_OK : 0);
}

std::uint32_t askKernel(int dirfd, const char* name) noexcept {
    const int flags = AT_EACCESS | AT_SYMLINK_NOFOLLOW | (*name == '\0' ? AT_EMPTY_PATH : 0);
    if (::faccessat(dirfd, name, R_OK | W_OK | X_OK, flags) == 0) return kAll;
    std::uint32_t rights = 0;
    for (const int right : {R_OK, W_OK, X_OK}) {
        if (::faccessat(dirfd, name, right, flags) == 0)
            rights |= static_cast<std::uint32_t>(right);
    }
    return rights;
}

}  // namespace

EffectiveAccess::EffectiveAccess(int fd) noexcept : user_(::geteuid()) {
    struct statvfs mount {};
    if (::fstatvfs(fd, &mount) == 0) {
        isReadOnly_ = (mount.f_flag & ST_RDONLY) != 0;
        isNoExec_ = (mount.f_flag & ST_NOEXEC) != 0;
    }
}

std::uint32_t EffectiveAccess::of(int dirfd, const char* name, const struct statx& stat) noexcept {
    const bool isOnOtherMount = *name != '\0' && (stat.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    if (isOnOtherMount) return askKernel(dirfd, name);
    const std::uint32_t mode = stat.stx_mode;
    std::uint32_t rights = mode & kAll;
    if (user_ == stat.stx_uid) {
        rights = mode >> 6 & kAll;
    } else if (hasPrivilege(CAP_DAC_OVERRIDE)) {
        rights = 0;  // what the classes grant beside adds nothing
    } else if ((mode & S_IRWXG) != 0 && !S_ISLNK(mode) && mayHaveAcl(dirfd, name)) {
        // Without a right in the group's bits, the mask of a list, the kernel looks at none either.
        return askKernel(dirfd, name);
    } else if (isInGroup(stat.stx_gid)) {
        rights = mode >> 3 & kAll;
    }
    // Most objects are their owner's, whose rights no privilege could add to.
    const std::uint32_t missing = rightsOfOverriding(mode) & ~rights;
    if (missing != 0) {
        const std::uint32_t added = missing & rightsOfPrivilege(mode);
        // Within a namespace a privilege reaches only some objects.
        if (added != 0 && isInUserNamespace()) return askKernel(dirfd, name);
        rights |= added;
    }
    const bool isStored = S_ISREG(mode) || S_ISDIR(mode) || S_ISLNK(mode);
    const bool isImmutable = (stat.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
    if ((isReadOnly_ && isStored) || isImmutable) rights &= ~std::uint32_t{W_OK};
    if (isNoExec_ && S_ISREG(mode)) rights &= ~std::uint32_t{X_OK};
    return rights;
}

// What the caller's privileges grant whatever the mode says.
std::uint32_t EffectiveAccess::rightsOfPrivilege(std::uint32_t mode) noexcept {
    if (hasPrivilege(CAP_DAC_OVERRIDE)) return rightsOfOverriding(mode);
    if (!hasPrivilege(CAP_DAC_READ_SEARCH)) return 0;
    return S_ISDIR(mode) ? R_OK | X_OK : R_OK;
}

bool EffectiveAccess::hasPrivilege(unsigned number) noexcept {
    if (!capabilities_) capabilities_ = effectiveCapabilities();
    return (*capabilities_ & (1U << number)) != 0;
}

bool EffectiveAccess::isInUserNamespace() noexcept {
    if (!isInUserNamespace_) isInUserNamespace_ = isOutsideInitialUserNamespace();
    return *isInUserNamespace_;
}

bool EffectiveAccess::isInGroup(std::uint32_t group) noexcept {
    // The objects of a directory mostly share one group.
    if (askedGroup_ != group) {
        askedGroup_ = group;
        isInAskedGroup_ = group == ::getegid() || ::group_member(group) != 0;
    }
    return isInAskedGroup_;
}

// Whether the kernel must be asked: all but the sure knowledge that there is no list.
bool EffectiveAccess::mayHaveAcl(int dirfd, const char* name) noexcept {
    if (hasNoAcls_) return false;
    // The way through /proc works for every kernel and every kind of descriptor. Only the
    // descriptor itself is a link that must be followed.
    std::array<char, 32 + 256> path{};
    const int length = std::snprintf(path.data(), path.size(), "/proc/self/fd/%d%s%s", dirfd,
                                     *name == '\0' ? "" : "/", name);
    if (length < 0 || static_cast<std::size_t>(length) >= path.size()) return true;
    const ssize_t size = *name == '\0' ? ::getxattr(path.data(), kAccessAcl, nullptr, 0)
                                       : ::lgetxattr(path.data(), kAccessAcl, nullptr, 0);
    if (size >= 0) return true;
    hasNoAcls_ = errno == EOPNOTSUPP;
    return errno != ENODATA && errno != EOPNOTSUPP;
}

}  // namespace sevrin::platform
