// The mounted file system that an open object is on.
//
// Works on borrowed descriptors, which may be O_PATH ones. Throws std::bad_alloc at most.
#pragma once

#include <optional>

#include "Platform/MountTable.h"
#include "Platform/linux/FileSystemKind.h"
#include "Platform/linux/MountInfo.h"

namespace sevrin::platform {

// The number of a mount in the mount table, without asking a server; 0 where nothing tells it.
[[nodiscard]] int mountIdOf(int fd) noexcept;

// The entry of the mount that the object behind `fd` is on. Nothing, with errno ENOENT, when it is
// not in this process's table.
[[nodiscard]] std::optional<MountEntry> mountOf(int fd);

// Whether a journal is kept while the file system is mounted; nothing when that cannot be seen.
[[nodiscard]] std::optional<bool> hasActiveJournal(const MountEntry& entry,
                                                   const FileSystemKind& kind);

// What the mount table alone tells: names, flags, owner and an identity from the device.
void describeMount(const MountEntry& entry, struct statfs& record);

// The figures of the file system of the object behind `fd`, and its own identity where it has one.
// False with errno.
[[nodiscard]] bool addFigures(int fd, struct statfs& record) noexcept;

}  // namespace sevrin::platform
