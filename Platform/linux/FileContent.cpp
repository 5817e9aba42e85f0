// Copying what is in a file.
#include "Platform/linux/FileContent.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <memory>

namespace sevrin::platform {

namespace {

// Bytes of one step where they pass through this process.
constexpr std::size_t kBufferSize = 256UL * 1024;

bool writeAll(int target, const char* bytes, std::size_t size, off_t offset) {
    while (size > 0) {
        const ssize_t written = ::pwrite(target, bytes, size, offset);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes += written;
        offset += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

// Copies from `offset` to `end`, or to the end of the source when that comes first; `offset` is
// where it ended.
bool copyThroughMemory(int source, int target, off_t& offset, off_t end) {
    const auto buffer = std::make_unique_for_overwrite<char[]>(kBufferSize);
    while (offset < end) {
        const auto wanted = static_cast<std::size_t>(end - offset);
        const ssize_t size = ::pread(source, buffer.get(), std::min(wanted, kBufferSize), offset);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) return false;
        if (size == 0) break;
        if (!writeAll(target, buffer.get(), static_cast<std::size_t>(size), offset)) return false;
        offset += size;
    }
    return true;
}

// The same within the kernel where it can: it may share or have a server copy.
bool copyRange(int source, int target, off_t& offset, off_t end) {
    while (offset < end) {
        off_t from = offset;
        off_t to = offset;
        const ssize_t size = ::copy_file_range(source, &from, target, &to,
                                               static_cast<std::size_t>(end - offset), 0);
        if (size > 0) {
            offset += size;
        } else if (size == 0 || errno == EXDEV || errno == ENOSYS || errno == EINVAL ||
                   errno == EOPNOTSUPP || errno == EPERM) {
            // Nothing copied is the end of the file, or a file that only reading can read.
            return copyThroughMemory(source, target, offset, end);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

// Files of /proc and the like have content and claim to have none.
bool copyUnsized(int source, int target) {
    off_t offset = 0;
    constexpr off_t kNoEnd = off_t{1} << 62U;
    return copyThroughMemory(source, target, offset, kNoEnd);
}

// Copies the parts that hold data and leaves out the holes between them.
bool copyParts(int source, int target, off_t size) {
    off_t offset = 0;
    while (offset < size) {
        const off_t data = ::lseek(source, offset, SEEK_DATA);
        if (data < 0 && errno == ENXIO) break;  // Nothing but a hole up to the end.
        if (data < 0)
            return copyRange(source, target, offset, size) && ::ftruncate(target, offset) == 0;
        const off_t hole = ::lseek(source, data, SEEK_HOLE);
        if (hole < 0) return false;
        offset = data;
        const off_t end = std::min(hole, size);
        if (!copyRange(source, target, offset, end)) return false;
        if (offset < end) return ::ftruncate(target, offset) == 0;  // It was cut meanwhile.
    }
    return ::ftruncate(target, size) == 0;
}

}  // namespace

bool ContentCopier::copy(int source, int target, const struct stat& attributes) {
    constexpr off_t kBlockUnit = 512;  // st_blocks counts in these, whatever the file system.

    if (attributes.st_size == 0) return attributes.st_blocks != 0 || copyUnsized(source, target);
    struct stat made {};
    if (::fstat(target, &made) != 0) return false;
    if (noSharingFrom_ != attributes.st_dev || noSharingTo_ != made.st_dev) {
        if (::ioctl(target, FICLONE, source) == 0) return true;
        if (errno == ENOSPC || errno == EDQUOT || errno == EIO) return false;
        noSharingFrom_ = attributes.st_dev;
        noSharingTo_ = made.st_dev;
    }
    const bool hasHoles = attributes.st_blocks * kBlockUnit < attributes.st_size;
    if (hasHoles) return copyParts(source, target, attributes.st_size);
    off_t offset = 0;
    return copyRange(source, target, offset, attributes.st_size);
}

}  // namespace sevrin::platform
