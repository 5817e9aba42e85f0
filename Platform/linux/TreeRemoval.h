// Removing an item, with all that is in it when it is a folder.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <functional>

#include "Platform/linux/FileLocation.h"

namespace sevrin::platform {

// Removes the item, relative to open folders and without following links. What vanishes by itself
// meanwhile is fine, as long as it is not the item itself. Stops at the first thing that cannot be
// removed and throws FileFailure with its path; `removed` counts what is gone by then. A mounted
// volume is not emptied, for its place could not be removed: EBUSY.
//
// `mayRemove`, when it is given, is asked about every item but folders; where it says no, that is a
// failure too: EBUSY.
void removeTree(const FileLocation& item, std::uint64_t& removed,
                const std::function<bool(const struct stat&)>& mayRemove = nullptr);

}  // namespace sevrin::platform
