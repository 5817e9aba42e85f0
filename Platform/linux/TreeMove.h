// Moving an item, within a volume or to another one.
#pragma once

#include "Platform/linux/FileLocation.h"

namespace sevrin::platform {

// Moves `source` to `target`, where nothing may be: as NSFileManager.h says. Throws FileFailure.
void moveTree(const FileLocation& source, const FileLocation& target);

}  // namespace sevrin::platform
