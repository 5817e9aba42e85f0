// The kernel's records of directory entries, walked where they lie.
//
// Neither owns nor reads anything itself; the buffer is the caller's.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace sevrin::platform {

// What begins a struct linux_dirent64; the name follows, ended by a NUL, within `length`.
struct DirectoryEntry {
    std::uint64_t inode;
    std::int64_t nextPosition;  // of the entry after this one, for lseek
    std::uint16_t length;
    unsigned char type;  // a DT_ value

    [[nodiscard]] const char* name() const noexcept {
        constexpr std::size_t kNameOffset = 19;
        return reinterpret_cast<const char*>(this) + kNameOffset;
    }
};

// The size of the record of the shortest name, of the longest that most file systems have (255
// bytes), and of the longest that there is (of 255 UTF-16 units, or of a file system in user
// space).
inline constexpr std::size_t kEntrySizeMin = 24;
inline constexpr std::size_t kEntrySizeCommon = 280;
inline constexpr std::size_t kEntrySizeMax = 1048;

// Bytes of entries read, 0 at the end, -1 with errno.
[[nodiscard]] inline long readEntries(int dirfd, std::byte* buffer, std::size_t size) noexcept {
    return ::syscall(SYS_getdents64, dirfd, buffer, size);
}

[[nodiscard]] inline const DirectoryEntry& entryAt(const std::byte* place) noexcept {
    return *reinterpret_cast<const DirectoryEntry*>(place);
}

// Whether the entry is "." or "..".
[[nodiscard]] inline bool isDotEntry(const DirectoryEntry& entry) noexcept {
    const char* name = entry.name();
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

}  // namespace sevrin::platform
