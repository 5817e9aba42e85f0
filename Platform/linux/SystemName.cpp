// The little of the shell's syntax that os-release files use.
#include "Platform/linux/SystemName.h"

#include <algorithm>

namespace sevrin::platform {

namespace {

constexpr std::string_view kNameAssignment = "PRETTY_NAME=";
constexpr std::string_view kDefaultName = "Linux";

// The value of an assignment as the shell would read it.
std::string unquoted(std::string_view value) {
    std::string result;
    char quote = '\0';
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char character = value[i];
        if (quote == '\0' && (character == '"' || character == '\'')) {
            quote = character;
        } else if (character == quote && quote != '\0') {
            quote = '\0';
        } else if (character == '\\' && quote != '\'' && i + 1 < value.size()) {
            result += value[++i];
        } else {
            result += character;
        }
    }
    return result;
}

}  // namespace

std::string prettyNameFromOsRelease(std::string_view osRelease) {
    std::string name;
    while (!osRelease.empty()) {
        const std::size_t end = std::min(osRelease.find('\n'), osRelease.size());
        const std::string_view line = osRelease.substr(0, end);
        osRelease.remove_prefix(std::min(end + 1, osRelease.size()));
        if (line.starts_with(kNameAssignment)) name = unquoted(line.substr(kNameAssignment.size()));
    }
    return name.empty() ? std::string(kDefaultName) : name;
}

std::string_view versionFromKernelRelease(std::string_view release) {
    const std::size_t end = std::min(release.find_first_not_of("0123456789."), release.size());
    return end == 0 ? release : release.substr(0, end);
}

}  // namespace sevrin::platform
