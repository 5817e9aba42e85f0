// The suite's own layout, which is the same on every system.
#include "Platform/SearchPath.h"

#include <cstdlib>
#include <string_view>

#include "Platform/PathString.h"

namespace sevrin::platform {

namespace {

// Below the home folder and below the machine's root alike; empty for a number that is none.
std::string_view folderOf(std::uint64_t directory) {
    switch (directory) {
        case NSApplicationDirectory:
            return "/Applications";
        case NSLibraryDirectory:
            return "/Library";
        case NSApplicationSupportDirectory:
            return "/Library/Application Support";
        default:
            return "";
    }
}

}  // namespace

std::string localRoot() {
    const char* const root = ::secure_getenv("SEVRIN_LOCAL_ROOT");
    if (root == nullptr || *root != '/') return "";
    const std::string path = stringByStandardizingPath(root);
    return path == "/" ? "" : path;
}

std::vector<std::string> NSSearchPathForDirectoriesInDomains(std::uint64_t directory,
                                                             std::uint64_t domainMask,
                                                             bool expandTilde) {
    const std::string_view folder = folderOf(directory);
    std::vector<std::string> paths;
    if (folder.empty()) return paths;
    if (domainMask & NSUserDomainMask) {
        const std::string path = "~" + std::string(folder);
        paths.push_back(expandTilde ? stringByExpandingTildeInPath(path) : path);
    }
    if (domainMask & NSLocalDomainMask) paths.push_back(localRoot() + std::string(folder));
    return paths;
}

}  // namespace sevrin::platform
