// The directory that a path's item is in, also for a path that keeps no parent.
#pragma once

#include "Common/Source/Utilities/KTPath.h"
#include "Platform/PathString.h"

namespace sevrin {

// The path's parent(); for one within another that comes from an archive, and so has none, what its
// text says. Never nullptr.
[[nodiscard]] inline KTPathPtr folderOf(const KTPath& path) {
    const KTPathPtr parent = path.parent();
    return parent ? parent : KTPath::initWithPath(platform::dirname(path.cPath()));
}

}  // namespace sevrin
