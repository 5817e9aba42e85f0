// Single calls on files that the platform has beyond POSIX.
//
// They fail as system calls do: -1 (or nothing), and errno says why. What an operating system or a
// file system has no twin of fails with ENOTSUP. Paths are bytes ended by NUL; the last component
// is not followed when it is a link, unless said otherwise. On any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sevrin::platform {

// What renamex_np() does about an item at the new name; the platform's own numbers.
enum RenameFlags : std::uint32_t {
    RENAME_SWAP = 2,  // both names exist, and change places at once
    RENAME_EXCL = 4,  // fails with EEXIST when the new name exists, whatever it is
};

// Renames `from` to `to`. `flags` is 0 or one of RenameFlags; both, and others, give EINVAL. A file
// system that cannot do what a flag asks for gives ENOTSUP and has changed nothing.
int renamex_np(const char* from, const char* to, std::uint32_t flags) noexcept;

// Exchanges the contents of two files, leaving all else about them in place.
int exchangedata(const char* path1, const char* path2, std::uint32_t options) noexcept;

// A limit of the file system at `path` (links are followed): `name` is one of POSIX's _PC_
// constants. -1 with errno unchanged when there is no limit.
//
// _PC_FILESIZEBITS counts the bits of a signed number that holds the size of the largest file.
long pathconf(const char* path, int name) noexcept;

// The path of an open item without any link in it, those included that a volume is stitched
// together with (firmlinks). ENOENT when the item is not reachable under a path any more.
[[nodiscard]] std::optional<std::string> pathWithoutFirmlinks(int fd);

// `path` without links and without the components "." and ".."; every component must exist.
[[nodiscard]] std::optional<std::string> realPath(const char* path);

// 32 random bits that nobody can predict.
[[nodiscard]] std::uint32_t arc4random() noexcept;

}  // namespace sevrin::platform
