// The bootstrap folder itself: the environment's say in it, and the checks before it is trusted.
#include "Platform/linux/BootstrapFolder.h"

#include <fcntl.h>
#include <paths.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "Platform/linux/Bootstrap.h"

namespace sevrin::platform::bootstrap {

namespace {

using Domain = NSXPCConnection::Domain;

constexpr const char* kSystemFolder = "/run/sevrin";
constexpr mode_t kSystemFolderMode = 0755;
constexpr mode_t kUserFolderMode = 0700;

// A variable's value, unless it is unset, empty, or the program is set-id and must not listen to
// its caller.
std::string environment(const char* name) {
    const char* value = ::secure_getenv(name);
    return value ? value : "";
}

bool isOwnFolder(const std::string& path) {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == ::geteuid();
}

// The runtime folder of this user's sessions; empty when there is none. A relative path is as none:
// it would mean another folder in every working directory, and the two sides would never meet.
std::string runtimeFolder() {
    std::string path = environment("XDG_RUNTIME_DIR");
    if (path.starts_with('/')) return path;
    path = "/run/user/" + std::to_string(::geteuid());
    return isOwnFolder(path) ? path : "";
}

uid_t ownerOf(Domain domain) {
    return domain == Domain::System ? 0 : ::geteuid();
}

// Why the open folder cannot be trusted with service names of `domain`; empty when it can.
std::string whyUnsafe(int folder, Domain domain) {
    struct stat status;
    if (::fstat(folder, &status) != 0) return std::strerror(errno);
    if (status.st_uid != ownerOf(domain)) return "belongs to user " + std::to_string(status.st_uid);
    if (status.st_mode & (S_IWGRP | S_IWOTH)) return "is writable by others";
    return "";
}

UniqueFd openFolder(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

std::string folderPath(Domain domain) {
    const std::string moved = environment("SEVRIN_BOOTSTRAP_DIR");
    if (!moved.empty()) return moved;
    if (domain == Domain::System) return kSystemFolder;
    const std::string runtime = runtimeFolder();
    if (!runtime.empty()) return runtime + "/sevrin";
    return _PATH_TMP + ("sevrin-" + std::to_string(::geteuid()));
}

std::string privateParentPath() {
    const std::string runtime = runtimeFolder();
    return !runtime.empty() && isOwnFolder(runtime) ? runtime : _PATH_TMP;
}

std::variant<UniqueFd, std::string> openFolderToListen(Domain domain) {
    const std::string path = folderPath(domain);
    const mode_t mode = domain == Domain::System ? kSystemFolderMode : kUserFolderMode;
    const bool isMade = ::mkdir(path.c_str(), mode) == 0;
    if (isMade) ::chmod(path.c_str(), mode);  // Whatever the umask took away.
    if (!isMade && errno != EEXIST)
        return "bootstrap folder " + path + " cannot be made: " + std::strerror(errno);

    UniqueFd folder = openFolder(path);
    if (!folder) return "bootstrap folder " + path + " cannot be opened: " + std::strerror(errno);
    const std::string why = whyUnsafe(folder.get(), domain);
    if (!why.empty()) return "bootstrap folder " + path + " " + why;
    return folder;
}

std::variant<UniqueFd, XPCError> openFolderToConnect(Domain domain) {
    const std::string path = folderPath(domain);
    UniqueFd folder = openFolder(path);
    if (!folder) {
        return XPCError{XPCError::Code::NoService,
                        "bootstrap folder " + path + ": " + std::strerror(errno)};
    }
    const std::string why = whyUnsafe(folder.get(), domain);
    if (!why.empty())
        return XPCError{XPCError::Code::Untrusted, "bootstrap folder " + path + " " + why};
    return folder;
}

sockaddr_un addressIn(int folder, const std::string& name) {
    const bool leadsElsewhere = name.find_first_of(std::string_view("/\0", 2)) != std::string::npos;
    if (name.empty() || name == "." || name == ".." || leadsElsewhere)
        throw std::invalid_argument("the name " + name + " is none of a file");
    const std::string path = "/proc/self/fd/" + std::to_string(folder) + "/" + name;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw std::length_error("the name " + name + " is too long for a socket");
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

}  // namespace sevrin::platform::bootstrap
