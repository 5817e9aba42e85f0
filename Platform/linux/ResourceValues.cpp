// Resource values on Linux: from the name, the file flags, one extended attribute and the mount.
//
// An item is excluded from backup when it has the flag nodump, as dump and e2fsprogs have it, or
// the attribute user.xdg.robots.backup with the value "false", as freedesktop.org proposes. There
// are no packages here, and no extensions that are hidden.
#include "Platform/ResourceValues.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <linux/stat.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdint>

#include "Platform/NSURL.h"
#include "Platform/PathString.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {

namespace {

constexpr const char* kBackupAttribute = "user.xdg.robots.backup";
constexpr std::string_view kNoBackup = "false";

#ifndef STATX_MNT_ID_UNIQUE
constexpr unsigned STATX_MNT_ID_UNIQUE = 0x4000;  // Linux 6.8; older kernels ignore it.
#endif

bool hasNoBackupAttribute(const std::string& path) {
    char value[kNoBackup.size()];
    const ssize_t size = ::lgetxattr(path.c_str(), kBackupAttribute, value, sizeof value);
    return size >= 0 && std::string_view(value, static_cast<std::size_t>(size)) == kNoBackup;
}

// The mount that the item lies on. The number of a mount is given again after an unmount, unless
// the kernel has the newer kind that is not; a kernel without either tells the device.
Value volumeIdentifier(const struct statx& item) {
    if ((item.stx_mask & (STATX_MNT_ID | STATX_MNT_ID_UNIQUE)) != 0)
        return Data{"mount " + std::to_string(item.stx_mnt_id)};
    return Data{"device " + std::to_string(item.stx_dev_major) + ":" +
                std::to_string(item.stx_dev_minor)};
}

// Sets or clears the flag nodump. Only files and folders have flags.
int setNoDump(const std::string& path, bool isSet) {
    const UniqueFd file(
        ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    int flags = 0;
    if (!file || ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) return -1;
    const int wanted = isSet ? flags | FS_NODUMP_FL : flags & ~FS_NODUMP_FL;
    return wanted == flags ? 0 : ::ioctl(file.get(), FS_IOC_SETFLAGS, &wanted);
}

int unsupported() {
    errno = ENOTSUP;
    return -1;
}

int excludeFromBackup(const std::string& path, bool isExcluded) {
    struct stat item {};
    if (::lstat(path.c_str(), &item) != 0) return -1;
    if (!S_ISREG(item.st_mode) && !S_ISDIR(item.st_mode)) return unsupported();
    if (isExcluded) {
        if (::lsetxattr(path.c_str(), kBackupAttribute, kNoBackup.data(), kNoBackup.size(), 0) == 0)
            return 0;
        if (errno != ENOTSUP) return -1;
        if (setNoDump(path, true) == 0) return 0;
        return errno == ENOTTY ? unsupported() : -1;
    }
    if (::lremovexattr(path.c_str(), kBackupAttribute) != 0 && errno != ENODATA && errno != ENOTSUP)
        return -1;
    return setNoDump(path, false) == 0 || errno == ENOTTY || errno == ENOTSUP ? 0 : -1;
}

}  // namespace

std::optional<Value> readResourceValue(const std::string& path, std::string_view key) {
    struct statx item {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_TYPE | STATX_MNT_ID | STATX_MNT_ID_UNIQUE, &item) != 0) {
        return std::nullopt;
    }
    const std::string_view name = lastPathComponent(path);
    if (key == NSURLLocalizedNameKey) return Value(name);
    if (key == NSURLIsHiddenKey) return Value(name.starts_with('.') && name != "." && name != "..");
    if (key == NSURLHasHiddenExtensionKey || key == NSURLIsPackageKey) return Value(false);
    if (key == NSURLIsExcludedFromBackupKey)
        return Value((item.stx_attributes & STATX_ATTR_NODUMP) != 0 || hasNoBackupAttribute(path));
    if (key == NSURLVolumeIdentifierKey) return volumeIdentifier(item);
    return Value();
}

int writeResourceValue(const std::string& path, std::string_view key, const Value& value) {
    const bool* wanted = value.ifBoolean();
    if (key == NSURLIsExcludedFromBackupKey && wanted != nullptr)
        return excludeFromBackup(path, *wanted);

    // The others cannot be changed here, but they can be what they are.
    const std::optional<Value> current = readResourceValue(path, key);
    if (!current) return -1;
    if (!current->isNull() && value.kind() != current->kind()) {
        errno = EINVAL;
        return -1;
    }
    return value == *current && !current->isNull() ? 0 : unsupported();
}

}  // namespace sevrin::platform
