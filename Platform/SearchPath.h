// Where the system keeps its standard folders, for the user and for the machine.
//
// Names folders only: whether they are there is not asked. On any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sevrin::platform {

// The platform's own numbers; they stand in archives.
enum NSSearchPathDirectory : std::uint64_t {
    NSApplicationDirectory = 1,
    NSLibraryDirectory = 5,
    NSApplicationSupportDirectory = 14,
};

// Combined by |.
enum NSSearchPathDomainMask : std::uint64_t {
    NSUserDomainMask = 1,
    NSLocalDomainMask = 2,
};

// The paths of that directory in the domains of the mask, the user's before the machine's. A user's
// path begins with "~", or with the home folder when `expandTilde` asks for that. Nothing for
// numbers other than those above.
[[nodiscard]] std::vector<std::string> NSSearchPathForDirectoriesInDomains(std::uint64_t directory,
                                                                           std::uint64_t domainMask,
                                                                           bool expandTilde);

// What stands before "/Library" and the like in the machine's domain: empty for the root of the
// file system, else the folder that SEVRIN_LOCAL_ROOT names by an absolute path, which tests,
// packaging and containers use. A program that runs with more rights than its caller ignores it.
[[nodiscard]] std::string localRoot();

}  // namespace sevrin::platform
