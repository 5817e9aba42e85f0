// Copying an item, with all that is in it when it is a folder.
#pragma once

#include <sys/stat.h>

#include <map>
#include <utility>

#include "Platform/linux/FileLocation.h"
#include "Platform/linux/FileMetadata.h"

namespace sevrin::platform {

// What a copy has taken along, to be asked before its source is removed. (Folders are not in it:
// what counts is what lies in them.)
class CopiedItems {
public:
    // Remembers an item as it was when it was copied.
    void add(const struct stat& item);

    // Whether the item was copied and is still what it was then.
    [[nodiscard]] bool contains(const struct stat& item) const;

private:
    struct State {
        timespec modified;
        off_t size;
    };

    std::map<std::pair<dev_t, ino_t>, State> items_;
};

// Makes a copy of `source` at `target`, where nothing may be (EEXIST): content, links as links,
// several names of one file within the tree as several names of one copy, special files, holes, and
// what FileMetadata.h copies. Works relative to open folders and follows no link. What vanishes
// from a folder meanwhile is not in the copy. On failure what was made is removed again, and
// FileFailure is thrown with the path of the item (of the source, or of the copy when making that
// failed); a folder is not copied into itself: EINVAL. `copied`, when it is given, gets what was
// copied.
void copyTree(const FileLocation& source, const FileLocation& target, AttributeLoss loss,
              CopiedItems* copied = nullptr);

}  // namespace sevrin::platform
