// A peer that need not keep any rule: a raw socket with the few words that the tests of bad peers
// are written in.
//
// Every word that can fail without the test being at fault answers with a boolean; none throws.
// Used on one thread.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Platform/NSXPCListener.h"
#include "Platform/UniqueFd.h"
#include "Platform/linux/RawWire.h"
#include "Platform/linux/XPCEndpoint.h"

namespace sevrin::platform {

// Descriptors that this process has open.
[[nodiscard]] inline std::size_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

class HostilePeer {
public:
    // Connects to whoever listens behind `endpoint`.
    explicit HostilePeer(const std::shared_ptr<NSXPCListenerEndpoint>& endpoint)
        : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const auto& target = static_cast<const XPCEndpoint&>(*endpoint);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = "/proc/self/fd/" + std::to_string(target.fd());
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(
            ::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0)
            << std::strerror(errno);
    }

    // Takes over a socket that is connected already.
    explicit HostilePeer(UniqueFd socket) : socket_(std::move(socket)) {}

    // Sends all of `bytes` with one call after another, the descriptors with the first. False when
    // the other side has closed meanwhile.
    bool send(std::string_view bytes, const std::vector<int>& descriptors = {}) {
        std::vector<char> control(CMSG_SPACE(descriptors.size() * sizeof(int)));
        bool isFirst = true;
        while (!bytes.empty()) {
            iovec part{const_cast<char*>(bytes.data()), bytes.size()};
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            if (std::exchange(isFirst, false) && !descriptors.empty()) {
                message.msg_control = control.data();
                message.msg_controllen = control.size();
                cmsghdr* header = CMSG_FIRSTHDR(&message);
                header->cmsg_level = SOL_SOCKET;
                header->cmsg_type = SCM_RIGHTS;
                header->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
                std::memcpy(CMSG_DATA(header), descriptors.data(),
                            descriptors.size() * sizeof(int));
            }
            const ssize_t sent = ::sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR) continue;
            if (sent < 0) return false;
            bytes.remove_prefix(static_cast<std::size_t>(sent));
        }
        return true;
    }

    // Says what a well-behaved client says first.
    bool greet() { return send(rawwire::greeting()); }

    // Sends `bytes` one by one, each in a call of its own.
    bool sendByteByByte(std::string_view bytes) {
        for (const char& byte : bytes) {
            if (!send({&byte, 1})) return false;
        }
        return true;
    }

    // Whether the other side closes the connection before patience ends; what it sends until then
    // is read and kept.
    [[nodiscard]] bool isClosed() {
        while (receive()) {
        }
        return isClosed_;
    }

    // Whether `count` bytes have come, reading until they have.
    [[nodiscard]] bool hasReceived(std::size_t count) {
        while (received_.size() < count && receive()) {
        }
        return received_.size() >= count;
    }

    // What has been read so far.
    [[nodiscard]] const std::string& received() const { return received_; }

    // Gives up sending while still reading.
    void shutDownSending() { ::shutdown(socket_.get(), SHUT_WR); }

    void close() { socket_.reset(); }

    // Lets go of the socket, for somebody who keeps it open.
    [[nodiscard]] UniqueFd release() { return std::move(socket_); }

    [[nodiscard]] int socket() const { return socket_.get(); }

private:
    // Reads once; descriptors that come along are closed. False at the end, and without patience.
    bool receive() {
        pollfd waiting{socket_.get(), POLLIN, 0};
        constexpr int kPatienceMs = 20'000;
        if (::poll(&waiting, 1, kPatienceMs) <= 0) return false;
        std::array<char, 65'536> buffer;
        alignas(cmsghdr) std::array<char, CMSG_SPACE(253 * sizeof(int))> control;
        iovec part{buffer.data(), buffer.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        const ssize_t size = ::recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
        if (size <= 0) {
            isClosed_ = true;
            return false;
        }
        for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
             header = CMSG_NXTHDR(&message, header)) {
            for (std::size_t at = CMSG_LEN(0); at < header->cmsg_len; at += sizeof(int)) {
                int fd;
                std::memcpy(&fd, reinterpret_cast<const char*>(header) + at, sizeof fd);
                UniqueFd(fd).reset();
            }
        }
        received_.append(buffer.data(), static_cast<std::size_t>(size));
        return true;
    }

    UniqueFd socket_;
    std::string received_;
    bool isClosed_ = false;
};

// The endpoint that somebody sends over `socket` with one byte; nullptr when nothing comes.
[[nodiscard]] inline std::shared_ptr<XPCEndpoint> receiveEndpoint(int socket) {
    char byte;
    iovec part{&byte, 1};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    if (::recvmsg(socket, &message, MSG_CMSG_CLOEXEC) != 1) return nullptr;
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (header == nullptr) return nullptr;
    int fd;
    std::memcpy(&fd, CMSG_DATA(header), sizeof fd);
    return XPCEndpoint::adopt(UniqueFd(fd));
}

}  // namespace sevrin::platform
