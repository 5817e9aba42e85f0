// Copying owner, attributes, rights, flags and times.
#include "Platform/linux/FileMetadata.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/limits.h>
#include <linux/stat.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

namespace {

constexpr const char* kAccessList = "system.posix_acl_access";
constexpr const char* kDefaultList = "system.posix_acl_default";

// The attribute calls on an item that is not open take a path; this is one that no change to the
// folders above leads elsewhere.
std::string pathOf(const FileReference& item) {
    return "/proc/self/fd/" + std::to_string(item.folder) + "/" + item.name;
}

// Calls `read` with ever larger buffers. Nothing when it fails.
template <typename Read>
std::optional<std::string> readWhole(const Read& read) {
    for (std::size_t size = 256; size <= 4UL * XATTR_SIZE_MAX; size *= 4) {
        std::string bytes(size, '\0');
        const ssize_t found = read(bytes.data(), bytes.size());
        if (found >= 0) {
            bytes.resize(static_cast<std::size_t>(found));
            return bytes;
        }
        if (errno != ERANGE) return std::nullopt;
    }
    return std::nullopt;
}

std::optional<std::string> attributeNames(const FileReference& item) {
    return readWhole([&](char* bytes, std::size_t size) {
        return item.fd >= 0 ? ::flistxattr(item.fd, bytes, size)
                            : ::llistxattr(pathOf(item).c_str(), bytes, size);
    });
}

std::optional<std::string> attributeOf(const FileReference& item, const char* name) {
    return readWhole([&](char* bytes, std::size_t size) {
        return item.fd >= 0 ? ::fgetxattr(item.fd, name, bytes, size)
                            : ::lgetxattr(pathOf(item).c_str(), name, bytes, size);
    });
}

int setAttribute(const FileReference& item, const char* name, const std::string& value) {
    return item.fd >= 0 ? ::fsetxattr(item.fd, name, value.data(), value.size(), 0)
                        : ::lsetxattr(pathOf(item).c_str(), name, value.data(), value.size(), 0);
}

bool isOfUser(std::string_view name) {
    return name.starts_with("user.") || name.starts_with("system.posix_acl_");
}

bool copyAttribute(const FileReference& source, const FileReference& target, const char* name,
                   AttributeLoss loss) {
    const std::optional<std::string> value = attributeOf(source, name);
    if (!value) return errno == ENODATA || !isOfUser(name);  // It went, or is not for us.
    if (setAttribute(target, name, *value) == 0) return true;
    // A volume without such attributes, or an attribute that others give: the kernel's, root's.
    if (errno != ENOTSUP && errno != EPERM && errno != EACCES && errno != EINVAL) return false;
    if (!isOfUser(name) || loss == AttributeLoss::Accept) return true;
    errno = ENOTSUP;
    return false;
}

bool copyAttributes(const FileReference& source, const FileReference& target, AttributeLoss loss) {
    const std::optional<std::string> names = attributeNames(source);
    if (!names) return errno == ENOTSUP;
    for (std::size_t start = 0; start < names->size();) {
        const char* name = names->c_str() + start;
        if (!copyAttribute(source, target, name, loss)) return false;
        start += std::strlen(name) + 1;
    }
    return true;
}

// Whether the target has the owner and the group of the source now.
bool copyOwner(const FileReference& target, const struct stat& attributes) {
    const auto change = [&](uid_t user, gid_t group) {
        return target.fd >= 0
                   ? ::fchown(target.fd, user, group)
                   : ::fchownat(target.folder, target.name, user, group, AT_SYMLINK_NOFOLLOW);
    };
    if (change(attributes.st_uid, attributes.st_gid) == 0) return true;
    // Others than root can still give it to a group of theirs.
    static_cast<void>(change(static_cast<uid_t>(-1), attributes.st_gid));
    struct stat now {};
    const int result = target.fd >= 0
                           ? ::fstat(target.fd, &now)
                           : ::fstatat(target.folder, target.name, &now, AT_SYMLINK_NOFOLLOW);
    return result == 0 && now.st_uid == attributes.st_uid && now.st_gid == attributes.st_gid;
}

bool copyMode(const FileReference& target, const struct stat& attributes, bool hasOwner) {
    if (S_ISLNK(attributes.st_mode)) return true;
    const mode_t lent = hasOwner ? 0 : S_ISUID | S_ISGID;
    const mode_t mode = attributes.st_mode & 07777 & ~lent;
    const int result = target.fd >= 0
                           ? ::fchmod(target.fd, mode)
                           : ::fchmodat(target.folder, target.name, mode, AT_SYMLINK_NOFOLLOW);
    return result == 0 || errno == EPERM || errno == ENOTSUP;
}

// Of the flags only the one that says what the owner wants backed up belongs to a copy.
void copyNoDump(const FileReference& source, const FileReference& target) {
    struct statx found {};
    int flags = 0;
    if (target.fd >= 0 && ::statx(source.fd, "", AT_EMPTY_PATH, STATX_TYPE, &found) == 0 &&
        (found.stx_attributes & STATX_ATTR_NODUMP) != 0 &&
        ::ioctl(target.fd, FS_IOC_GETFLAGS, &flags) == 0) {
        flags |= FS_NODUMP_FL;
        static_cast<void>(::ioctl(target.fd, FS_IOC_SETFLAGS, &flags));
    }
}

bool copyTimes(const FileReference& target, const struct stat& attributes) {
    const std::array<timespec, 2> times{attributes.st_atim, attributes.st_mtim};
    const int result =
        target.fd >= 0 ? ::futimens(target.fd, times.data())
                       : ::utimensat(target.folder, target.name, times.data(), AT_SYMLINK_NOFOLLOW);
    return result == 0 || errno == EPERM || errno == ENOTSUP;
}

}  // namespace

// In this order: a change of owner takes the bits that lend rights and a file's capabilities, a
// list changes the mode bits, and everything changes the times.
bool copyMetadata(const FileReference& source, const FileReference& target,
                  const struct stat& attributes, AttributeLoss loss) {
    const bool hasOwner = copyOwner(target, attributes);
    if (!copyAttributes(source, target, loss) || !copyMode(target, attributes, hasOwner))
        return false;
    copyNoDump(source, target);
    return copyTimes(target, attributes);
}

void removeInheritedACL(int fd) {
    static_cast<void>(::fremovexattr(fd, kAccessList));
    static_cast<void>(::fremovexattr(fd, kDefaultList));
}

bool removeInheritedRights(int folder, const char* name, mode_t mode) {
    const UniqueFd made(::openat(folder, name, O_PATH | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
    if (!made) return false;
    const std::string path = "/proc/self/fd/" + std::to_string(made.get());
    static_cast<void>(::removexattr(path.c_str(), kAccessList));
    static_cast<void>(::removexattr(path.c_str(), kDefaultList));
    return ::chmod(path.c_str(), mode) == 0;
}

}  // namespace sevrin::platform
