// Where an item is: the open folder it lies in, and its name there.
//
// What is done to files starts from here, so that no later change to the folders above leads it
// somewhere else. Failures are thrown as FileFailure and become errors at the contract's border.
#pragma once

#include <string>
#include <string_view>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

// A call on the item at `path` failed with the errno `number`.
struct FileFailure {
    int number;
    std::string path;
};

// Throws the failure with today's errno.
[[noreturn]] void throwFailure(std::string path);

struct FileLocation {
    UniqueFd folder;   // opened with O_PATH
    std::string name;  // the last component
    std::string path;  // as it was given
};

// Finds the folder that holds the last component of `path`, following links on the way there, and
// not the last component. A path may be longer than the kernel takes at once. Throws FileFailure:
// ENOENT for the empty path, EINVAL for one with a NUL, and what opening the folder gives.
[[nodiscard]] FileLocation locate(std::string_view path);

// The item of the given relative path below `folder`, with no link followed anywhere: its folder,
// opened with O_PATH. -1 with errno when that fails.
[[nodiscard]] UniqueFd openFolderBelow(int folder, std::string_view path);

}  // namespace sevrin::platform
