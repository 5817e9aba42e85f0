// What descriptors tell of the objects behind them.
#include "Platform/linux/OpenObject.h"

#include <fcntl.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>

#include "Platform/linux/DirectoryEntries.h"
#include "Platform/linux/MountedVolume.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kDeletedMark = " (deleted)";

bool isAt(const char* path, const struct statx& stat) noexcept {
    struct statx there {};
    return ::statx(AT_FDCWD, path, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_INO, &there) == 0 &&
           there.stx_ino == stat.stx_ino && there.stx_dev_major == stat.stx_dev_major &&
           there.stx_dev_minor == stat.stx_dev_minor;
}

}  // namespace

UniqueFd openObject(const char* path, bool followsLink) noexcept {
    return UniqueFd(::open(path, O_PATH | O_CLOEXEC | (followsLink ? 0 : O_NOFOLLOW)));
}

bool statObject(int fd, unsigned fields, struct statx& stat) noexcept {
    return ::statx(fd, "", AT_EMPTY_PATH | AT_NO_AUTOMOUNT, fields, &stat) == 0;
}

std::optional<std::string_view> pathOfObject(int fd, const struct statx& stat,
                                             PathRoom& room) noexcept {
    std::array<char, 32> link{};
    (void)std::snprintf(link.data(), link.size(), "/proc/self/fd/%d", fd);
    const ssize_t length = ::readlink(link.data(), room.data(), room.size() - 1);
    if (length <= 0 || room[0] != '/') return std::nullopt;
    const auto size = static_cast<std::size_t>(length);
    if (size == room.size() - 1) return std::nullopt;
    room[size] = '\0';
    const std::string_view path(room.data(), size);
    // The kernel marks a name that is gone with words that may just as well be part of one.
    if (stat.stx_nlink == 0) return std::nullopt;
    if (path.ends_with(kDeletedMark) && !isAt(room.data(), stat)) return std::nullopt;
    return path;
}

std::optional<std::uint32_t> countEntries(int dirfd, const char* name) noexcept {
    const int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    const UniqueFd directory(::openat(dirfd, *name == '\0' ? "." : name, flags));
    if (!directory) return std::nullopt;
    alignas(8) std::array<std::byte, 32768> buffer;
    std::uint32_t count = 0;
    for (;;) {
        const long size = readEntries(directory.get(), buffer.data(), buffer.size());
        if (size < 0) return std::nullopt;
        if (size == 0) return count;
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            const DirectoryEntry& entry = entryAt(buffer.data() + at);
            if (!isDotEntry(entry)) ++count;
            at += entry.length;
        }
    }
}

std::optional<fsid_t> identityOfFileSystem(int fd) noexcept try {
    struct ::statfs raw {};
    if (::fstatfs(fd, &raw) != 0) return std::nullopt;
    if (const std::optional<fsid_t> identity = ownIdentity(raw)) return identity;
    // The device of the mount: an overlay's objects may have others.
    const std::optional<MountEntry> mount = mountOf(fd);
    if (!mount) return std::nullopt;
    return deviceIdentity(mount->deviceMajor, mount->deviceMinor);
} catch (const std::bad_alloc&) {
    return std::nullopt;
}

}  // namespace sevrin::platform
