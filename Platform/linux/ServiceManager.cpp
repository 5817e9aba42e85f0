// Datagrams of "VARIABLE=value" to the socket that NOTIFY_SOCKET names: a path, or an abstract name
// behind "@".
#include "Platform/ServiceManager.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

constexpr timeval kPatience{5, 0};

struct Address {
    sockaddr_un name{};
    socklen_t size = 0;
};

// Nothing when `text` is the address of no socket.
std::optional<Address> addressFrom(std::string_view text) {
    Address address;
    const bool isAbstract = text.starts_with('@');
    // A path is followed by a zero, which an abstract name begins with instead.
    const std::size_t bytesMax = sizeof address.name.sun_path - (isAbstract ? 0 : 1);
    if (!(isAbstract || text.starts_with('/')) || text.size() < 2 || text.size() > bytesMax) {
        return std::nullopt;
    }
    address.name.sun_family = AF_UNIX;
    text.copy(address.name.sun_path, text.size());
    if (isAbstract) address.name.sun_path[0] = '\0';
    // The bytes of an abstract name are counted, whatever they are.
    const std::size_t terminator = isAbstract ? 0 : 1;
    address.size =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + text.size() + terminator);
    return address;
}

std::optional<std::string> tell(std::string_view what) {
    const char* const place = ::secure_getenv("NOTIFY_SOCKET");
    if (place == nullptr || *place == '\0') return std::nullopt;
    const auto why = [place](const char* reason) {
        return "the service manager at " + std::string(place) + " cannot be told: " + reason;
    };
    const auto address = addressFrom(place);
    if (!address) return why("that is the address of no socket");

    const UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket) return why(std::strerror(errno));
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &kPatience, sizeof kPatience);
    const auto* name = reinterpret_cast<const sockaddr*>(&address->name);
    while (::sendto(socket.get(), what.data(), what.size(), MSG_NOSIGNAL, name, address->size) <
           0) {
        if (errno == EAGAIN) return why("it does not read");
        if (errno != EINTR) return why(std::strerror(errno));
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> ServiceManager::tellReady() {
    return tell("READY=1");
}

std::optional<std::string> ServiceManager::tellStatus(std::string_view status) {
    std::string line = "STATUS=" + std::string(status);
    for (char& character : line) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7f) character = ' ';  // A line break would begin a variable.
    }
    return tell(line);
}

std::optional<std::string> ServiceManager::tellStopping() {
    return tell("STOPPING=1");
}

}  // namespace sevrin::platform
