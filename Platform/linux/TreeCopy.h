// Copying an item, with all that is in it when it is a folder.
#pragma once

#include "Platform/linux/FileLocation.h"
#include "Platform/linux/FileMetadata.h"

namespace sevrin::platform {

// Makes a copy of `source` at `target`, where nothing may be (EEXIST): content, links as links,
// several names of one file within the tree as several names of one copy, special files, holes, and
// what FileMetadata.h copies. Works relative to open folders and follows no link. What vanishes
// from a folder meanwhile is not in the copy. On failure what was made is removed again, and
// FileFailure is thrown with the path of the item (of the source, or of the copy when making that
// failed); a folder is not copied into itself: EINVAL.
void copyTree(const FileLocation& source, const FileLocation& target, AttributeLoss loss);

}  // namespace sevrin::platform
