// Home folders: where the environment and the user database say they are.
#include "Platform/PathString.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <optional>
#include <vector>

namespace sevrin::platform {

namespace {

// Calls one of the lookups that want a buffer, with a larger one until it fits.
std::optional<std::string> homeFromDatabase(
    const std::function<int(passwd*, char*, std::size_t, passwd**)>& look) {
    constexpr std::size_t kBufferMax = std::size_t{1} << 20U;
    passwd entry{};
    for (std::vector<char> buffer(1024); buffer.size() <= kBufferMax;
         buffer.resize(buffer.size() * 4)) {
        passwd* found = nullptr;
        const int error = look(&entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) continue;
        if (found == nullptr || found->pw_dir == nullptr || *found->pw_dir == '\0') break;
        return std::string(found->pw_dir);
    }
    return std::nullopt;
}

std::optional<std::string> homeOfUser(const std::string& name) {
    return homeFromDatabase([&](auto... rest) { return ::getpwnam_r(name.c_str(), rest...); });
}

}  // namespace

std::string homeDirectory() {
    for (const char* variable : {"CFFIXED_USER_HOME", "HOME"}) {
        const char* home = ::secure_getenv(variable);
        if (home != nullptr && *home == '/') return home;
    }
    return homeFromDatabase([](auto... rest) { return ::getpwuid_r(::geteuid(), rest...); })
        .value_or("/");
}

std::string stringByExpandingTildeInPath(std::string_view path) {
    if (!path.starts_with('~')) return std::string(path);
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string name(path.substr(1, end - 1));
    const std::optional<std::string> home = name.empty() ? homeDirectory() : homeOfUser(name);
    if (!home) return std::string(path);
    if (end == path.size()) return *home;
    return stringByAppendingPathComponent(*home, path.substr(end));
}

}  // namespace sevrin::platform
