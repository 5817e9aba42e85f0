// One file-system object held by a descriptor, so that all that is asked of it concerns the same
// one.
//
// Functions over borrowed descriptors, which may be O_PATH ones; errno tells why one failed.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "Platform/AttributeList.h"
#include "Platform/UniqueFd.h"
#include "Platform/linux/ObjectFacts.h"

namespace sevrin::platform {

// Opens the object at `path` without reading it, mounting anything or waiting for a device.
[[nodiscard]] UniqueFd openObject(const char* path, bool followsLink) noexcept;

// statx of the object behind `fd`; false with errno.
[[nodiscard]] bool statObject(int fd, unsigned fields, struct statx& stat) noexcept;

// Room for a path that the kernel tells, with its NUL.
using PathRoom = std::array<char, 4096>;

// The path by which the object behind `fd` is reached, in `room`; nothing when it has none any
// longer, when no path from this process's root leads there, or when it does not fit.
[[nodiscard]] std::optional<std::string_view> pathOfObject(int fd, const struct statx& stat,
                                                           PathRoom& room) noexcept;

// Entries of a directory but "." and "..", counted by reading it: `name` in `dirfd`, or the object
// behind `dirfd` itself when the name is empty. Nothing when it may not be read.
[[nodiscard]] std::optional<std::uint32_t> countEntries(int dirfd, const char* name) noexcept;

// Of the file system that the object behind `fd` is on: its identity, unique among the mounted.
[[nodiscard]] std::optional<fsid_t> identityOfFileSystem(int fd) noexcept;

}  // namespace sevrin::platform
