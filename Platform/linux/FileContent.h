// Copying what is in a file: shared with the source where the file system can, with its holes
// elsewhere.
#pragma once

#include <sys/stat.h>

namespace sevrin::platform {

class ContentCopier {
public:
    // Copies the content of `source`, a regular file whose attributes are `attributes`, into
    // `target`, which is empty. Both are open and at their start. false with errno when that fails.
    // A source that grows or shrinks meanwhile gives what was there when it was read.
    [[nodiscard]] bool copy(int source, int target, const struct stat& attributes);

private:
    // Whether the last try to share said that these volumes never do; the next pair may.
    dev_t noSharingFrom_ = 0;
    dev_t noSharingTo_ = 0;
};

}  // namespace sevrin::platform
