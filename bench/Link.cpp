// One connection of the driver.
#include "bench/Link.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "bench/Wire.h"

namespace sevrin::bench {

namespace {

constexpr std::size_t kReceiveBytes = 256 * 1024;
constexpr std::size_t kDescriptorsMax = 253;

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) fail("path too long: " + path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

}  // namespace

void fail(const std::string& what) {
    std::fprintf(stderr, "switchboard-bench: %s: %s\n", what.c_str(), std::strerror(errno));
    std::exit(1);
}

Link Link::to(const std::string& path) {
    const sockaddr_un address = addressOf(path);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        platform::UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!socket) fail("socket");
        if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
            0) {
            return Link(std::move(socket));
        }
        if (std::chrono::steady_clock::now() > deadline) fail("connect to " + path);
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
}

Link Link::toSwitchboard(const std::string& path) {
    Link link = to(path);
    link.send(greeting());
    link.receiveAll(kGreetingBytes);
    return link;
}

void Link::send(std::string_view bytes, int descriptor, std::size_t count) const {
    while (!bytes.empty()) {
        iovec part{const_cast<char*>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorsMax * sizeof(int))> control;
        if (descriptor >= 0) {
            message.msg_control = control.data();
            message.msg_controllen = CMSG_SPACE(count * sizeof(int));
            cmsghdr* header = CMSG_FIRSTHDR(&message);
            header->cmsg_level = SOL_SOCKET;
            header->cmsg_type = SCM_RIGHTS;
            header->cmsg_len = CMSG_LEN(count * sizeof(int));
            for (std::size_t i = 0; i < count; ++i) {
                std::memcpy(CMSG_DATA(header) + i * sizeof descriptor, &descriptor,
                            sizeof descriptor);
            }
            descriptor = -1;
        }
        const ssize_t sent = ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
        if (sent < 0 && errno != EINTR) fail("send");
        if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

std::size_t Link::receive() const {
    return receiveWith(0);
}

std::size_t Link::receiveNow() const {
    return receiveWith(MSG_DONTWAIT);
}

std::size_t Link::receiveWith(int flags) const {
    static char* const buffer = new char[kReceiveBytes];
    iovec part{buffer, kReceiveBytes};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorsMax * sizeof(int))> control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t received = ::recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC | flags);
    if (received < 0 && errno == EAGAIN) return 0;
    if (received <= 0) fail("the peer has gone");
    for (cmsghdr* header = CMSG_FIRSTHDR(&message); header;
         header = CMSG_NXTHDR(&message, header)) {
        const std::size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < count; ++i) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(header) + i * sizeof fd, sizeof fd);
            ::close(fd);
        }
    }
    return static_cast<std::size_t>(received);
}

void Link::receiveAll(std::size_t bytes) const {
    for (std::size_t got = 0; got < bytes;)
        got += receive();
}

platform::UniqueFd makeEndpoint(const std::string& folder, bool keepsListening) {
    const std::string path = folder + "/endpoint";
    // Listens as long as the program runs: an endpoint whose listener has gone would be no endpoint
    // to hand out.
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = addressOf(path);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 8) != 0) {
        fail("listen at " + path);
    }
    platform::UniqueFd endpoint(::open(path.c_str(), O_PATH | O_CLOEXEC));
    if (!endpoint) fail("open " + path);
    ::unlink(path.c_str());
    if (!keepsListening) ::close(listener);
    return endpoint;
}

}  // namespace sevrin::bench
