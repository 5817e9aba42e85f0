// Where service names live on Linux: the bootstrap folder, claiming a name, anonymous sockets.
#include "Platform/linux/Bootstrap.h"

#include <fcntl.h>
#include <paths.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/linux/BootstrapFolder.h"

namespace sevrin::platform::bootstrap {

namespace {

constexpr int kBacklog = 4096;
constexpr int kFirstInheritedFd = 3;  // SD_LISTEN_FDS_START of the launcher's protocol

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

UniqueFd makeSocket() {
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) throwErrno("socket");
    return socket;
}

// Binds a new socket to `name` in `folder` and has it listen; `mode` says who may connect.
ListeningSocket listenIn(int folder, const std::string& name, mode_t mode) {
    ListeningSocket result;
    result.socket = makeSocket();
    const sockaddr_un address = addressIn(folder, name);
    if (::bind(result.socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
        0)
        throwErrno("bind");
    // Not connectable by others until the mode is set, by nobody until it listens.
    if (::fchmodat(folder, name.c_str(), mode, 0) != 0) throwErrno("chmod");
    if (::listen(result.socket.get(), kBacklog) != 0) throwErrno("listen");
    UniqueFd path(::openat(folder, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!path) throwErrno("open");
    result.endpoint = XPCEndpoint::adopt(std::move(path));
    return result;
}

// The process that wrote itself into the lock file last; empty when none did.
std::string processIn(int claim) {
    std::array<char, 32> text{};
    const ssize_t size = ::pread(claim, text.data(), text.size() - 1, 0);
    return size > 0 ? std::string(text.data(), static_cast<std::size_t>(size)) : "";
}

// The process that listens on the socket file `name`, empty when it is not known; nothing when none
// does.
std::optional<std::string> listenerOn(int folder, const std::string& name) {
    const UniqueFd probe = makeSocket();
    const sockaddr_un address = addressIn(folder, name);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    if (::connect(probe.get(), generic, sizeof address) != 0) {
        if (errno != EAGAIN) return std::nullopt;
        return "";  // It has more callers than it takes, so it is there.
    }
    ucred listener{};
    socklen_t size = sizeof listener;
    if (::getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &listener, &size) != 0) return "";
    return std::to_string(listener.pid);
}

std::string alreadyServedBy(const std::string& process) {
    return "another process serves that name already (pid " +
           (process.empty() ? "unknown" : process) + ")";
}

// Locks the lock file of `name`. Its lock, unlike the socket file, ends with the process that holds
// it, however that ends. A launcher holds none: it has a socket before there is a server, and with
// its socket file gone nobody would ever reach it again. A listener that is the last holder of the
// lock, though, is just ending.
std::variant<UniqueFd, std::string> claimName(int folder, const std::string& name) {
    UniqueFd claim(::openat(folder, (name + ".lock").c_str(),
                            O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!claim) return "its lock file cannot be opened: " + std::string(std::strerror(errno));
    const std::string holder = processIn(claim.get());
    if (::flock(claim.get(), LOCK_EX | LOCK_NB) != 0) return alreadyServedBy(holder);
    const auto listener = listenerOn(folder, name);
    if (listener && (listener->empty() || *listener != holder)) return alreadyServedBy(*listener);

    const std::string process = std::to_string(::getpid());
    if (::ftruncate(claim.get(), 0) != 0 ||
        ::pwrite(claim.get(), process.data(), process.size(), 0) < 0) {
        return "its lock file cannot be written: " + std::string(std::strerror(errno));
    }
    return claim;
}

std::optional<long> numberIn(const char* text) {
    if (text == nullptr) return std::nullopt;
    long number = 0;
    const char* end = text + std::strlen(text);
    const auto [stop, error] = std::from_chars(text, end, number);
    if (error != std::errc() || stop != end) return std::nullopt;
    return number;
}

bool isListeningStream(int fd) {
    const auto has = [fd](int option, int wanted) {
        int value = 0;
        socklen_t size = sizeof value;
        return ::getsockopt(fd, SOL_SOCKET, option, &value, &size) == 0 && value == wanted;
    };
    return has(SO_ACCEPTCONN, 1) && has(SO_TYPE, SOCK_STREAM) && has(SO_DOMAIN, AF_UNIX);
}

// The number of the inherited descriptor that the launcher has named `name`.
std::optional<int> inheritedFd(std::string_view name) {
    const auto process = numberIn(::secure_getenv("LISTEN_PID"));
    const auto count = numberIn(::secure_getenv("LISTEN_FDS"));
    const char* names = ::secure_getenv("LISTEN_FDNAMES");
    if (!process || *process != ::getpid() || !count || names == nullptr) return std::nullopt;

    std::string_view rest = names;
    for (int index = 0; index < *count; ++index) {
        const std::size_t end = rest.find(':');
        if (rest.substr(0, end) == name) return kFirstInheritedFd + index;
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    return std::nullopt;
}

// The endpoint of an inherited socket is found by the path that it is bound to.
std::variant<ListeningSocket, std::string> takeInherited(int fd) {
    if (!isListeningStream(fd)) return "the socket that the launcher passed does not listen";
    ListeningSocket result;
    result.socket = UniqueFd(fd);
    result.isInherited = true;
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    sockaddr_un address{};
    socklen_t size = sizeof address - 1;
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        address.sun_path[0] == '/') {
        UniqueFd path(::open(address.sun_path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        if (path) result.endpoint = XPCEndpoint::adopt(std::move(path));
    }
    return result;
}

}  // namespace

void ListeningSocket::withdraw() {
    if (folder) ::unlinkat(folder.get(), name.c_str(), 0);
    folder.reset();
    claim.reset();
}

std::variant<ListeningSocket, std::string> listenAsService(std::string_view name) try {
    if (const auto fd = inheritedFd(name)) return takeInherited(*fd);

    const bool isSystem = ::geteuid() == 0;
    auto opened = openFolderToListen(isSystem ? NSXPCConnection::Domain::System
                                              : NSXPCConnection::Domain::User);
    if (auto* why = std::get_if<std::string>(&opened)) return std::move(*why);
    UniqueFd folder = std::move(std::get<UniqueFd>(opened));

    const std::string fileName(name);
    (void)addressIn(folder.get(), fileName);  // A name that cannot be used is not claimed either.
    auto claimed = claimName(folder.get(), fileName);
    if (auto* why = std::get_if<std::string>(&claimed)) return std::move(*why);

    // Ours by the lock: a socket file still here belongs to a process that is gone.
    ::unlinkat(folder.get(), fileName.c_str(), 0);
    ListeningSocket result = listenIn(folder.get(), fileName, isSystem ? 0666 : 0600);
    result.folder = std::move(folder);
    result.name = fileName;
    result.claim = std::move(std::get<UniqueFd>(claimed));
    return result;
} catch (const std::system_error& error) {
    return std::string(error.what());
} catch (const std::logic_error& error) {
    return std::string(error.what());
}

ListeningSocket listenAnonymously() {
    std::string path = privateParentPath() + "/sevrin-XXXXXX";
    if (::mkdtemp(path.data()) == nullptr) throwErrno("mkdtemp");
    // Whatever happens, neither the folder nor the name stays behind: the endpoint is all that
    // leads here.
    struct Cleanup {
        const std::string& path;
        UniqueFd folder;
        ~Cleanup() {
            if (folder) ::unlinkat(folder.get(), "s", 0);
            ::rmdir(path.c_str());
        }
    } cleanup{path, UniqueFd(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC))};
    if (!cleanup.folder) throwErrno("open");
    // Anyone who holds the endpoint may connect, whatever user the publisher is: the capability is
    // the permission.
    return listenIn(cleanup.folder.get(), "s", 0666);
}

}  // namespace sevrin::platform::bootstrap
