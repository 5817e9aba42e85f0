// Connecting to services and endpoints: within a deadline, and only to a process that runs as the
// right user.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/BootstrapFolder.h"

namespace sevrin::platform::bootstrap {

namespace {

using Code = XPCError::Code;

XPCError failureOf(int error, const std::string& what) {
    switch (error) {
        case ENOENT:
        case ECONNREFUSED:
            return {Code::NoService, "nobody listens as " + what};
        case EAGAIN:
        case EINPROGRESS:
            return {Code::DeadlinePassed, what + " did not take the connection in time"};
        case EACCES:
        case EPERM:
            return {Code::Refused, "no permission to connect to " + what};
        default:
            return {Code::NoService, "cannot connect to " + what + ": " + std::strerror(error)};
    }
}

// A stream socket connect blocks while the listener's backlog is full; the send timeout bounds
// that.
Connected connectTo(const sockaddr_un& address, const std::string& what,
                    NSXPCConnection::Deadline deadline) {
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) return failureOf(errno, what);
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::microseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0) return failureOf(EAGAIN, what);
        const timeval timeout{left / 1'000'000, left % 1'000'000};
        ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0)
            return socket;
        if (errno != EINTR) return failureOf(errno, what);
    }
}

uid_t userBehind(int socket) {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0)
        return static_cast<uid_t>(-1);
    return credentials.uid;
}

}  // namespace

Connected connectToService(std::string_view name, NSXPCConnection::Domain domain,
                           NSXPCConnection::Deadline deadline) try {
    auto opened = openFolderToConnect(domain);
    if (auto* error = std::get_if<XPCError>(&opened)) {
        error->description = std::string(name) + ": " + error->description;
        return std::move(*error);
    }
    const std::string what = std::string(name) + " in " + folderPath(domain);
    Connected connected =
        connectTo(addressIn(std::get<UniqueFd>(opened).get(), std::string(name)), what, deadline);
    if (const auto* socket = std::get_if<UniqueFd>(&connected)) {
        const uid_t wanted = domain == NSXPCConnection::Domain::System ? 0 : ::geteuid();
        const uid_t user = userBehind(socket->get());
        if (user != wanted)
            return XPCError{Code::Untrusted, what + " is served by user " + std::to_string(user)};
    }
    return connected;
} catch (const std::logic_error& error) {
    return XPCError{Code::NoService, error.what()};
}

Connected connectToEndpoint(const XPCEndpoint& endpoint, NSXPCConnection::Deadline deadline) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = "/proc/self/fd/" + std::to_string(endpoint.fd());
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return connectTo(address, "the publisher of that endpoint", deadline);
}

}  // namespace sevrin::platform::bootstrap
