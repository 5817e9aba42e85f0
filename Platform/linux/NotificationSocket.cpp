// Naming, finding, sending and receiving, by the kernel's rules for abstract sockets.
#include "Platform/linux/NotificationSocket.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <system_error>

#include "Platform/NSDistributedNotificationCenter.h"

namespace sevrin::platform {
namespace {

[[noreturn]] void throwErrno(const char* operation) {
    throw std::system_error(errno, std::generic_category(), operation);
}

UniqueFd newSocket() {
    UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) throwErrno("socket");
    return socket;
}

struct Address {
    sockaddr_un name{};
    socklen_t size = 0;
};

// The abstract address called `name`; nothing when that is longer than any can be.
std::optional<Address> abstractAddress(std::string_view name) {
    Address address;
    if (name.size() >= sizeof address.name.sun_path) return std::nullopt;
    address.name.sun_family = AF_UNIX;
    std::memcpy(address.name.sun_path + 1, name.data(), name.size());
    address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    return address;
}

std::string randomDigits() {
    std::uint64_t number = 0;
    // Eight bytes come whole once the kernel's generator is ready.
    if (::getrandom(&number, sizeof number, 0) != sizeof number) throwErrno("getrandom");
    std::array<char, 16> digits{};
    return {digits.data(),
            std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr};
}

std::string prefixOfUser(uid_t user) {
    return std::string(kNotificationSocketPrefix) + std::to_string(user) + '/';
}

// Room for a packet's credentials and nothing more, so that the kernel finds no place to install a
// descriptor that somebody attached.
struct CredentialsBuffer {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> bytes{};
};

std::optional<uid_t> senderOf(msghdr& message) {
    const cmsghdr* header = CMSG_FIRSTHDR(&message);
    if (!header || header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_CREDENTIALS) {
        return std::nullopt;
    }
    ucred credentials{};
    std::memcpy(&credentials, CMSG_DATA(header), sizeof credentials);
    return credentials.uid;
}

std::string readSocketList() {
    constexpr const char* kList = "/proc/net/unix";
    const UniqueFd list(::open(kList, O_RDONLY | O_CLOEXEC));
    if (!list) throwErrno(kList);
    std::string text;
    std::array<char, 8192> part;
    for (;;) {
        const ssize_t size = ::read(list.get(), part.data(), part.size());
        if (size < 0 && errno != EINTR) throwErrno(kList);
        if (size == 0) return text;
        if (size > 0) text.append(part.data(), static_cast<std::size_t>(size));
    }
}

// The field of `line` that `text` begins with, taken off together with the blanks before it.
std::string_view takeField(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string_view field = text.substr(0, text.find(' '));
    text.remove_prefix(field.size());
    return field;
}

template <typename Number>
bool takeNumber(std::string_view& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return error == std::errc();
}

constexpr std::uint64_t kNoInode = 0;

// Name and inode of every socket in the list that carries our prefix. A name may contain a line
// break and so forge lines; but its true line is always there too, so a name that is listed with
// two inodes is known to be doubtful and gets kNoInode.
std::map<std::string, std::uint64_t> listedSockets() {
    const std::string list = readSocketList();
    std::map<std::string, std::uint64_t> sockets;
    const std::string marker = " @" + std::string(kNotificationSocketPrefix);
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find('\n', begin), list.size());
        std::string_view line(list.data() + begin, end - begin);
        begin = end + 1;

        const std::size_t name = line.find(marker);
        if (name == std::string_view::npos) continue;
        std::string_view fields = line.substr(0, name);
        for (int skipped = 0; skipped < 6; ++skipped)
            takeField(fields);
        std::string_view digits = takeField(fields);
        std::uint64_t inode = kNoInode;
        if (!takeNumber(digits, inode) || !digits.empty()) inode = kNoInode;
        const auto [known, isNew] = sockets.try_emplace(std::string(line.substr(name + 2)), inode);
        if (!isNew && known->second != inode) known->second = kNoInode;
    }
    return sockets;
}

// Whether the socket with that name and inode is in fact one that a process of `user` opened. The
// process that the name tells must hold it under the descriptor that the name tells.
bool belongsTo(uid_t user, std::string_view name, std::uint64_t inode) {
    const std::string prefix = prefixOfUser(user);
    if (inode == kNoInode || !name.starts_with(prefix)) return false;
    name.remove_prefix(prefix.size());
    unsigned process = 0;
    unsigned descriptor = 0;
    if (!takeNumber(name, process) || !name.starts_with('.')) return false;
    name.remove_prefix(1);
    if (!takeNumber(name, descriptor)) return false;

    const std::string path =
        "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
           status.st_ino == inode && status.st_uid == user;
}

}  // namespace

UniqueFd openNotificationSocket() {
    UniqueFd socket = newSocket();
    // Before the socket has a name: whatever arrives comes with its sender's credentials.
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) {
        throwErrno("setsockopt SO_PASSCRED");
    }
    const std::string name = prefixOfUser(::geteuid()) + std::to_string(::getpid()) + '.' +
                             std::to_string(socket.get()) + '.' + randomDigits();
    const Address address = abstractAddress(name).value();
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address.name), address.size) != 0) {
        throwErrno("bind");
    }
    return socket;
}

std::optional<NotificationPacket> receiveNotificationPacket(int socket) {
    std::array<char, NSDistributedNotificationCenter::kNotificationBytesMax> buffer;
    CredentialsBuffer control;
    iovec bytes{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_iov = &bytes;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes.data();
    message.msg_controllen = control.bytes.size();

    ssize_t size = 0;
    do {
        size = ::recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (size < 0 && errno == EINTR);
    if (size < 0) return std::nullopt;

    NotificationPacket packet;
    packet.bytes.assign(buffer.data(), static_cast<std::size_t>(size));
    if ((message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0) packet.sender = senderOf(message);
    return packet;
}

std::vector<std::string> notificationReceivers(NotificationReach reach) {
    const uid_t user = ::geteuid();
    std::vector<std::string> names;
    for (const auto& [name, inode] : listedSockets()) {
        if (reach == NotificationReach::AllSessions || belongsTo(user, name, inode)) {
            names.push_back(name);
        }
    }
    return names;
}

void sendNotificationPacket(const std::string& name, std::string_view bytes) {
    const std::optional<Address> address = abstractAddress(name);
    if (!address) return;  // Forged: no socket can have that name.
    // A socket for each receiver: what waits unread is charged to its sender, and one receiver that
    // does not read must not use up what is meant for the others.
    const UniqueFd socket = newSocket();

    // Left to itself the kernel would tell the real user; what counts is the effective one.
    const ucred credentials{::getpid(), ::geteuid(), ::getegid()};
    CredentialsBuffer control;
    iovec content{const_cast<char*>(bytes.data()), bytes.size()};  // sendmsg only reads it.
    sockaddr_un receiver = address->name;
    msghdr message{};
    message.msg_name = &receiver;
    message.msg_namelen = address->size;
    message.msg_iov = &content;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes.data();
    message.msg_controllen = control.bytes.size();
    cmsghdr* header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_CREDENTIALS;
    header->cmsg_len = CMSG_LEN(sizeof credentials);
    std::memcpy(CMSG_DATA(header), &credentials, sizeof credentials);

    if (::sendmsg(socket.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return;
    // What a receiver can bring about, willingly or not, ends with that receiver.
    constexpr std::array kOfTheReceiver{EAGAIN, ECONNREFUSED, ECONNRESET, EACCES,
                                        EPERM,  EPIPE,        EPROTOTYPE};
    if (std::find(kOfTheReceiver.begin(), kOfTheReceiver.end(), errno) == kOfTheReceiver.end()) {
        throwErrno("sendmsg");
    }
}

}  // namespace sevrin::platform
