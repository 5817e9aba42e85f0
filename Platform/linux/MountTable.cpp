// The mount table of the kernel in the platform's records. A mount is always told from others by
// the kernel's number for it: paths and devices may be shared.
#include "Platform/MountTable.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "Platform/UniqueFd.h"
#include "Platform/VolumeCapabilities.h"
#include "Platform/linux/MountedVolume.h"
#include "Platform/linux/OpenObject.h"

namespace sevrin::platform {

namespace {

struct OptionFlag {
    std::string_view option;
    std::uint32_t flag;
};

constexpr std::array kMountOptions = {
    OptionFlag{"ro", MNT_RDONLY}, OptionFlag{"nosuid", MNT_NOSUID}, OptionFlag{"nodev", MNT_NODEV},
    OptionFlag{"noexec", MNT_NOEXEC}, OptionFlag{"noatime", MNT_NOATIME}};
constexpr std::array kSuperOptions = {
    OptionFlag{"ro", MNT_RDONLY},       OptionFlag{"sync", MNT_SYNCHRONOUS},
    OptionFlag{"usrquota", MNT_QUOTA},  OptionFlag{"grpquota", MNT_QUOTA},
    OptionFlag{"prjquota", MNT_QUOTA},  OptionFlag{"usrjquota", MNT_QUOTA},
    OptionFlag{"grpjquota", MNT_QUOTA}, OptionFlag{"quota", MNT_QUOTA}};

// Folders that the system keeps for itself, and the one below them where people find their media.
constexpr std::array<std::string_view, 4> kSystemFolders = {"/dev", "/proc", "/run", "/sys"};
constexpr std::string_view kMediaFolder = "/run/media/";

bool isWithin(std::string_view path, std::string_view folder) noexcept {
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

bool isForPeople(const MountEntry& entry, const FileSystemKind& kind) noexcept {
    if (kind.isPseudo) return false;
    if (entry.mountPoint.starts_with(kMediaFolder)) return true;
    return std::none_of(kSystemFolders.begin(), kSystemFolders.end(), [&](std::string_view folder) {
        return isWithin(entry.mountPoint, folder);
    });
}

std::uint32_t flagsOf(const MountEntry& entry, const FileSystemKind& kind) {
    std::uint32_t flags = 0;
    for (const OptionFlag& one : kMountOptions) {
        if (hasOption(entry.options, one.option)) flags |= one.flag;
    }
    for (const OptionFlag& one : kSuperOptions) {
        if (hasOption(entry.superOptions, one.option)) flags |= one.flag;
    }
    if (!kind.isRemote) flags |= MNT_LOCAL;
    if (kind.ignoresOwners) flags |= MNT_IGNORE_OWNERSHIP;
    if (entry.mountPoint == "/") flags |= MNT_ROOTFS;
    if (entry.type == "autofs") flags |= MNT_AUTOMOUNTED;
    if (!isForPeople(entry, kind)) flags |= MNT_DONTBROWSE;
    if (hasActiveJournal(entry, kind).value_or(false)) flags |= MNT_JOURNALED;
    return flags;
}

template <std::size_t Size>
void copyText(std::string_view text, char (&room)[Size]) noexcept {
    const std::size_t size = std::min(text.size(), Size - 1);
    std::memcpy(room, text.data(), size);
    room[size] = '\0';
}

int failWith(int error) noexcept {
    errno = error;
    return -1;
}

// Fills in what can be had of one mount; false when no path leads to it.
bool reachMount(const MountEntry& entry, int mode, struct statfs& record) {
    describeMount(entry, record);
    if (mode == MNT_NOWAIT && kindNamed(entry.type).isRemote) return true;
    const UniqueFd root = openObject(entry.mountPoint.c_str(), false);
    if (!root) return errno != ENOENT && errno != ENOTDIR;
    const int id = mountIdOf(root.get());
    if (id != 0 && id != entry.id) return false;
    (void)addFigures(root.get(), record);
    return true;
}

int listMounts(struct statfs* buffer, std::size_t capacity, int mode) {
    errno = 0;
    const std::vector<MountEntry> entries = readMountInfo();
    if (entries.empty() && errno != 0) return -1;
    std::size_t count = 0;
    for (const MountEntry& entry : entries) {
        if (buffer != nullptr && count == capacity) break;
        struct statfs counted {};
        struct statfs& record = buffer == nullptr ? counted : buffer[count];
        if (reachMount(entry, mode, record)) ++count;
    }
    return static_cast<int>(count);
}

}  // namespace

int mountIdOf(int fd) noexcept {
    struct statx stat {};
    constexpr int kFlags = AT_EMPTY_PATH | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
    if (::statx(fd, "", kFlags, STATX_MNT_ID, &stat) == 0 && (stat.stx_mask & STATX_MNT_ID) != 0) {
        return static_cast<int>(stat.stx_mnt_id);
    }
    // A file system whose server is gone, or that is another user's, tells nothing of its objects;
    // the descriptor still knows where it is.
    std::array<char, 64> path{};
    (void)std::snprintf(path.data(), path.size(), "/proc/thread-self/fdinfo/%d", fd);
    const UniqueFd file(::open(path.data(), O_RDONLY | O_CLOEXEC));
    std::array<char, 512> text{};
    const ssize_t size = file ? ::read(file.get(), text.data(), text.size()) : -1;
    if (size <= 0) return 0;
    constexpr std::string_view kField = "mnt_id:\t";
    const std::string_view lines(text.data(), static_cast<std::size_t>(size));
    const std::size_t at = lines.find(kField);
    int id = 0;
    if (at != std::string_view::npos) {
        const char* number = lines.data() + at + kField.size();
        (void)std::from_chars(number, lines.data() + lines.size(), id);
    }
    return id;
}

std::optional<MountEntry> mountOf(int fd) {
    std::vector<MountEntry> entries = readMountInfo();
    const int id = mountIdOf(fd);
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [id](const MountEntry& entry) { return entry.id == id; });
    if (found != entries.end()) return std::move(*found);
    errno = ENOENT;
    return std::nullopt;
}

std::optional<bool> hasActiveJournal(const MountEntry& entry, const FileSystemKind& kind) {
    if ((kind.formatValid & VOL_CAP_FMT_JOURNAL_ACTIVE) != 0) {
        return (kind.format & VOL_CAP_FMT_JOURNAL_ACTIVE) != 0;
    }
    if (kind.name != "ext4") return std::nullopt;
    // The driver names the process that writes the journal, or "<none>".
    std::array<char, 256> link{};
    const std::string block = "/sys/dev/block/" + std::to_string(entry.deviceMajor) + ':' +
                              std::to_string(entry.deviceMinor);
    const ssize_t size = ::readlink(block.c_str(), link.data(), link.size());
    if (size <= 0) return std::nullopt;
    const std::string_view target(link.data(), static_cast<std::size_t>(size));
    const std::string task =
        "/sys/fs/ext4/" + std::string(target.substr(target.rfind('/') + 1)) + "/journal_task";
    const UniqueFd file(::open(task.c_str(), O_RDONLY | O_CLOEXEC));
    char first = '\0';
    if (!file || ::read(file.get(), &first, 1) != 1) return std::nullopt;
    return first != '<';
}

void describeMount(const MountEntry& entry, struct statfs& record) {
    record = {};
    const FileSystemKind& kind = kindNamed(entry.type);
    copyText(entry.type, record.f_fstypename);
    copyText(entry.mountPoint, record.f_mntonname);
    copyText(entry.source, record.f_mntfromname);
    record.f_flags = flagsOf(entry, kind);
    record.f_fsid = deviceIdentity(entry.deviceMajor, entry.deviceMinor);
    const std::string_view owner = valueOfOption(entry.superOptions, "user_id");
    (void)std::from_chars(owner.data(), owner.data() + owner.size(), record.f_owner);
}

bool addFigures(int fd, struct statfs& record) noexcept {
    struct ::statfs raw {};
    if (::fstatfs(fd, &raw) != 0) return false;
    record.f_bsize = static_cast<std::uint32_t>(raw.f_frsize != 0 ? raw.f_frsize : raw.f_bsize);
    record.f_iosize = static_cast<std::int32_t>(raw.f_bsize);
    record.f_blocks = raw.f_blocks;
    record.f_bfree = raw.f_bfree;
    record.f_bavail = raw.f_bavail;
    record.f_files = raw.f_files;
    record.f_ffree = raw.f_ffree;
    record.f_type = static_cast<std::uint32_t>(raw.f_type);
    if (const std::optional<fsid_t> identity = ownIdentity(raw)) record.f_fsid = *identity;
    return true;
}

int statfs(const char* path, struct statfs* buffer) noexcept try {
    if (path == nullptr || buffer == nullptr) return failWith(EFAULT);
    const UniqueFd object = openObject(path, true);
    if (!object) return -1;
    const std::optional<MountEntry> mount = mountOf(object.get());
    if (!mount) return -1;
    describeMount(*mount, *buffer);
    return addFigures(object.get(), *buffer) ? 0 : -1;
} catch (const std::bad_alloc&) {
    return failWith(ENOMEM);
}

int getfsstat(struct statfs* buffer, std::size_t size, int mode) noexcept try {
    if (mode != MNT_WAIT && mode != MNT_NOWAIT) return failWith(EINVAL);
    return listMounts(buffer, size / sizeof *buffer, mode);
} catch (const std::bad_alloc&) {
    return failWith(ENOMEM);
}

int unmount(const char* path, int flags) noexcept {
    if (path == nullptr) return failWith(EFAULT);
    if ((flags & ~MNT_FORCE) != 0) return failWith(EINVAL);
    if ((flags & MNT_FORCE) == 0) return ::umount2(path, UMOUNT_NOFOLLOW);
    // Forcing alone ends what waits for a server; what keeps files open goes on with them, and the
    // volume is gone for everybody else.
    constexpr int kForce = 1;  // the kernel's own MNT_FORCE
    if (::umount2(path, UMOUNT_NOFOLLOW | kForce) == 0) return 0;
    return errno == EBUSY ? ::umount2(path, UMOUNT_NOFOLLOW | MNT_DETACH) : -1;
}

}  // namespace sevrin::platform
