// Attributes of the entries of a directory: one getdents64 for many names and one statx for each,
// relative to the open directory, packed straight into the caller's buffer without allocating.
//
// No state is kept between calls but the descriptor's position. Names are therefore read in
// portions that cannot overfill the buffer; where a small buffer makes that impossible, the
// position is set back to the first entry that did not fit.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include "Platform/AttributeList.h"
#include "Platform/linux/DirectoryEntries.h"
#include "Platform/linux/EntryPacker.h"
#include "Platform/linux/OpenObject.h"

namespace sevrin::platform {

namespace {

constexpr std::size_t kNamesSizeMax = 32768;

int failWith(int error) noexcept {
    errno = error;
    return -1;
}

// How far one call came.
struct Progress {
    std::uint32_t count = 0;
    std::size_t used = 0;
    off_t position = 0;  // of the first entry not packed
    bool hasEnded = false;
    bool isFull = false;
};

// Packs the entries that lie in `names` until the buffer or the count is full.
void packPortion(EntryPacker& packer, const std::byte* names, std::size_t namesSize,
                 std::byte* buffer, std::size_t size, std::uint32_t countMax,
                 Progress& progress) noexcept {
    for (std::size_t at = 0; at < namesSize;) {
        const DirectoryEntry& entry = entryAt(names + at);
        at += entry.length;
        if (!isDotEntry(entry)) {
            progress.isFull = progress.count == countMax;
            if (progress.isFull) return;
            std::size_t taken = 0;
            switch (packer.pack(entry, buffer + progress.used, size - progress.used, taken)) {
                case EntryPacker::Outcome::NoRoom:
                    progress.isFull = true;
                    return;
                case EntryPacker::Outcome::Packed:
                    progress.used += taken;
                    ++progress.count;
                    break;
                case EntryPacker::Outcome::Gone:
                    break;
            }
        }
        progress.position = static_cast<off_t>(entry.nextPosition);
    }
}

// 0, or the errno to fail with when not even one entry came.
int packEntries(int dirfd, EntryPacker& packer, std::byte* buffer, std::size_t size,
                std::uint32_t countMax, Progress& progress) noexcept {
    alignas(8) std::array<std::byte, kNamesSizeMax> names;
    // The shortest name makes the most of its record: so much room each entry's record needs at
    // most for the bytes that the entry takes itself.
    const std::size_t recordSizeMax = packer.fixedSizeMax() + 8;
    // Only where the very first entry may not fit can it be this position that is gone back to. It
    // is not asked for otherwise: some file systems begin a directory anew after any seek.
    if (size < packer.fixedSizeMax() + kEntrySizeMax) {
        progress.position = ::lseek(dirfd, 0, SEEK_CUR);
        if (progress.position < 0) return errno == ESPIPE ? ENOTDIR : errno;
    }
    while (!progress.isFull && progress.count < countMax) {
        const std::size_t fitting = std::min<std::size_t>((size - progress.used) / recordSizeMax,
                                                          countMax - progress.count);
        std::size_t portion = std::min(fitting * kEntrySizeMin, kNamesSizeMax);
        if (progress.count == 0) {
            portion = std::max(portion, kEntrySizeMax);
        } else if (portion < kEntrySizeCommon) {
            break;
        }
        const long read = readEntries(dirfd, names.data(), portion);
        // A name too long for the portion is left to the next call.
        if (read < 0 && progress.count == 0) return errno;
        progress.hasEnded = read == 0;
        if (read <= 0) break;
        packPortion(packer, names.data(), static_cast<std::size_t>(read), buffer, size, countMax,
                    progress);
    }
    if (progress.isFull) {
        if (::lseek(dirfd, progress.position, SEEK_SET) < 0) return errno;
        if (progress.count == 0) return ERANGE;
    }
    return 0;
}

// A value that changes with the directory: with the times that the kernel stamps on every change,
// the size and the number of subdirectories.
std::optional<std::uint32_t> stateOf(int dirfd) noexcept {
    struct statx stat {};
    if (!statObject(dirfd, STATX_BASIC_STATS, stat)) return std::nullopt;
    constexpr std::uint64_t kMultiplier =
        0x9E37'79B9'7F4A'7C15;  // 2 to the 64th by the golden ratio
    std::uint64_t hash = 0;
    const auto mix = [&hash](std::uint64_t value) {
        hash = (hash ^ value) * kMultiplier;
        hash ^= hash >> 29;
    };
    mix(static_cast<std::uint64_t>(stat.stx_mtime.tv_sec));
    mix(stat.stx_mtime.tv_nsec);
    mix(static_cast<std::uint64_t>(stat.stx_ctime.tv_sec));
    mix(stat.stx_ctime.tv_nsec);
    mix(stat.stx_size);
    mix(stat.stx_nlink);
    return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

int getattrlistbulk(int dirfd, const attrlist* list, void* buffer, std::size_t size,
                    std::uint64_t options) noexcept {
    AttributeRequest request;
    if (const int error = readBulkRequest(list, options, request); error != 0) {
        return failWith(error);
    }
    if (buffer == nullptr) return failWith(EFAULT);
    EntryPacker packer(dirfd, request, request.packsInvalid);
    Progress progress;
    const int error = packEntries(dirfd, packer, static_cast<std::byte*>(buffer), size,
                                  std::uint32_t{INT32_MAX}, progress);
    return error != 0 ? failWith(error) : static_cast<int>(progress.count);
}

int getdirentriesattr(int dirfd, const attrlist* list, void* buffer, std::size_t size,
                      std::uint32_t* count, std::uint32_t* basep, std::uint32_t* newState,
                      std::uint32_t options) noexcept {
    AttributeRequest request;
    if (const int error = readRequest(list, options, request); error != 0) return failWith(error);
    if (request.returnsSet() || request.wanted.volattr != 0) return failWith(EINVAL);
    if (buffer == nullptr || count == nullptr || basep == nullptr || newState == nullptr) {
        return failWith(EFAULT);
    }
    if (*count == 0) return failWith(EINVAL);
    const std::optional<std::uint32_t> state = stateOf(dirfd);
    if (!state) return -1;
    const off_t begin = ::lseek(dirfd, 0, SEEK_CUR);
    EntryPacker packer(dirfd, request, true);
    Progress progress;
    const int error =
        packEntries(dirfd, packer, static_cast<std::byte*>(buffer), size, *count, progress);
    if (error != 0) return failWith(error);
    *count = progress.count;
    *basep = static_cast<std::uint32_t>(begin);
    *newState = *state;
    return progress.hasEnded ? 1 : 0;
}

}  // namespace sevrin::platform
