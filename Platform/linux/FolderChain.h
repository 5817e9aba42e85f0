// A way down a tree of folders, from the top to the one that is being worked in.
//
// Trees may be deeper than a process may have descriptors, so only the last folders of the way are
// held open. The others are found again through "..", and it is made sure that they are the same:
// who moves a folder meanwhile does not lead the way out of the tree.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class FolderChain {
public:
    // The last folder of the way, borrowed until the way changes. There must be one.
    [[nodiscard]] int current() const { return levels_.back().fd.get(); }
    [[nodiscard]] std::size_t depth() const { return levels_.size(); }

    // Goes down into a folder, opened for reading. false with errno when it cannot be examined.
    [[nodiscard]] bool descend(UniqueFd folder);

    // Goes up by one; from the top, to nowhere. false with errno when the way up is not found:
    // ESTALE when it leads elsewhere by now. Then the chain is of no more use.
    [[nodiscard]] bool ascend();

private:
    struct Level {
        UniqueFd fd;  // none while too many others are open
        dev_t device;
        ino_t number;
    };

    std::vector<Level> levels_;
};

// The names in a folder, read at once: what is done to them does not disturb the reading.
class FolderNames {
public:
    // Reads the folder, which is open for reading, from its start. Throws nothing; false with
    // errno when reading fails.
    [[nodiscard]] bool read(int folder);

    // The next name, or nullptr; "." and ".." are left out. Valid as long as this object.
    [[nodiscard]] const char* next();

private:
    std::string names_;  // each ended by NUL
    std::size_t position_ = 0;
};

}  // namespace sevrin::platform
