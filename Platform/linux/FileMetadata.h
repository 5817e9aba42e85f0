// Giving a copy what its source has beyond its content: owner, extended attributes and access
// control lists, mode bits, flags, times.
#pragma once

#include <sys/stat.h>

#include <string>

namespace sevrin::platform {

// An item to read from or write to. Of files and folders the descriptor serves; of others, which
// cannot be opened, the folder and the name.
struct FileReference {
    int fd = -1;      // -1: by name
    int folder = -1;  // may be -1 when there is a descriptor
    const char* name = nullptr;
};

// What happens where the volume of the copy cannot hold an attribute or a list that a user gave.
enum class AttributeLoss {
    Accept,  // a copy is made as well as can be
    Refuse,  // ENOTSUP: the source is to be removed afterwards
};

// Gives `target` what `source`, whose stat is `attributes`, has. What only root may give is left
// out for others, and so is what a volume has no place for, but for the above. A copy whose owner
// cannot be kept loses the bits that lend the owner's rights. false with errno on any other
// failure.
[[nodiscard]] bool copyMetadata(const FileReference& source, const FileReference& target,
                                const struct stat& attributes, AttributeLoss loss);

// Takes from an item just made what it inherited from the folder it was made in: the rights of a
// copy are those of its source.
void removeInheritedACL(int fd);

// The same for a folder that was just made, and gives it the bits of `mode`: the list may have kept
// even its owner out. Answers false, with errno, when that cannot be done.
[[nodiscard]] bool removeInheritedRights(int folder, const char* name, mode_t mode);

}  // namespace sevrin::platform
