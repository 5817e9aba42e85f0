// Which of the ways to read a directory the platform offers, and the seam to try the others.
//
// getattrlistbulk is the best reader; where it is missing, getdirentriesattr serves the volumes
// that report VOL_CAP_INT_READDIRATTR; readdir serves all others. Readers ask here and the volume;
// nobody tests for a system by name. Any thread.
#pragma once

#include <cstdint>

namespace sevrin::platform {

enum class DirectoryReader : std::uint8_t {
    Bulk,       // getattrlistbulk
    Attribute,  // getdirentriesattr
    Plain,      // opendir and readdir
};

// Whether getattrlistbulk is offered.
[[nodiscard]] bool hasGetattrlistbulk() noexcept;

// Whether volumes offer getdirentriesattr: what they report as VOL_CAP_INT_READDIRATTR.
[[nodiscard]] bool hasGetdirentriesattr() noexcept;

// While it lives, the whole process has no better reader than the one named: Attribute takes
// getattrlistbulk away, Plain takes it and every volume's VOL_CAP_INT_READDIRATTR away. The calls
// themselves go on working. For tests, and for tools that show what a reader sees; at most one at a
// time.
class DirectoryReaderOverride {
public:
    explicit DirectoryReaderOverride(DirectoryReader best) noexcept;
    DirectoryReaderOverride(const DirectoryReaderOverride&) = delete;
    DirectoryReaderOverride& operator=(const DirectoryReaderOverride&) = delete;
    ~DirectoryReaderOverride();
};

}  // namespace sevrin::platform
