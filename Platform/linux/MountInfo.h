// The kernel's mount table as text, taken apart.
//
// Parsing is pure; readMountInfo reads the table of this process. Throws std::bad_alloc at most.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sevrin::platform {

// One mount. Paths are as this process sees them, with their escapes resolved.
struct MountEntry {
    int id = 0;
    unsigned deviceMajor = 0;
    unsigned deviceMinor = 0;
    std::string root;  // which directory of the file system is mounted
    std::string mountPoint;
    std::string options;       // of this mount, between commas
    std::string type;          // "ext4"
    std::string source;        // "/dev/sda1"
    std::string superOptions;  // of the file system, between commas
};

// The entries of a mountinfo text in its order. Lines that are none are skipped.
[[nodiscard]] std::vector<MountEntry> parseMountInfo(std::string_view text);

// The table that the calling thread sees; empty with errno when it cannot be read.
[[nodiscard]] std::vector<MountEntry> readMountInfo();

// Whether a list between commas has `option`, by itself or with a value.
[[nodiscard]] bool hasOption(std::string_view options, std::string_view option) noexcept;

// The value that a list between commas gives to `option`, or empty.
[[nodiscard]] std::string_view valueOfOption(std::string_view options,
                                             std::string_view option) noexcept;

}  // namespace sevrin::platform
