// The platform's single calls on files, by their Linux twins.
#include "Platform/FileCalls.h"

#include <fcntl.h>
#include <limits.h>
#include <linux/magic.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "Platform/PathString.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {

namespace {

constexpr int kOpenFolder = O_PATH | O_DIRECTORY | O_CLOEXEC;

bool isSameItem(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

// Whether the item at `path` lies, or would lie, somewhere below the folder `item`.
bool liesBelow(const char* path, const char* item) {
    struct stat wanted {};
    if (::lstat(item, &wanted) != 0) return false;
    UniqueFd folder(::open(std::string(dirname(path)).c_str(), kOpenFolder));
    struct stat before {};
    for (struct stat here{}; folder && ::fstat(folder.get(), &here) == 0; before = here) {
        if (isSameItem(here, wanted)) return true;
        if (isSameItem(here, before)) return false;  // The root is its own parent.
        folder.reset(::openat(folder.get(), "..", kOpenFolder));
    }
    return false;
}

}  // namespace

// A file system that knows no flags says EINVAL, and so does the kernel when a folder would get
// into itself; only where the two items lie tells one from the other.
int renamex_np(const char* from, const char* to, std::uint32_t flags) noexcept {
    if (flags != 0 && flags != RENAME_SWAP && flags != RENAME_EXCL) {
        errno = EINVAL;
        return -1;
    }
    const unsigned linuxFlags = flags == RENAME_SWAP   ? RENAME_EXCHANGE
                                : flags == RENAME_EXCL ? RENAME_NOREPLACE
                                                       : 0;
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, linuxFlags) == 0) return 0;
    if (errno == ENOSYS) {
        errno = ENOTSUP;
    } else if (errno == EINVAL && flags != 0) {
        errno = liesBelow(to, from) || liesBelow(from, to) ? EINVAL : ENOTSUP;
    }
    return -1;
}

int exchangedata(const char*, const char*, std::uint32_t) noexcept {
    errno = ENOTSUP;
    return -1;
}

// What the library knows about sizes is out of date: for tmpfs it answers 32, for Btrfs 255. The
// kernel keeps a size in 64 bits with a sign, FAT in 32 bits without one.
long pathconf(const char* path, int name) noexcept {
    if (name != _PC_FILESIZEBITS) return ::pathconf(path, name);
    struct statfs volume {};
    if (::statfs(path, &volume) != 0) return -1;
    return static_cast<std::uint64_t>(volume.f_type) == MSDOS_SUPER_MAGIC ? 33 : 64;
}

std::optional<std::string> pathWithoutFirmlinks(int fd) {
    struct stat item {};
    if (::fstat(fd, &item) != 0) return std::nullopt;
    char path[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = ::readlink(link.c_str(), path, sizeof path);
    if (size < 0) return std::nullopt;

    // The kernel marks what was removed, and what it cannot reach, in ways that a name could spell
    // too: only what is found under the path is believed.
    std::string result(path, static_cast<std::size_t>(size));
    struct stat found {};
    if (!result.starts_with('/') || ::lstat(result.c_str(), &found) != 0 ||
        !isSameItem(item, found)) {
        errno = ENOENT;
        return std::nullopt;
    }
    return result;
}

std::optional<std::string> realPath(const char* path) {
    const std::unique_ptr<char, decltype(&::free)> resolved(::realpath(path, nullptr), &::free);
    if (!resolved) return std::nullopt;
    return std::string(resolved.get());
}

std::uint32_t arc4random() noexcept {
    return ::arc4random();
}

}  // namespace sevrin::platform
