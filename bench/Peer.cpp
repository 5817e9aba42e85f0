// The processes that the driver measures.
#include "bench/Peer.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "bench/Link.h"

namespace sevrin::bench {

namespace {

constexpr std::size_t kBytesMax = 64 * 1024;
constexpr std::size_t kDescriptorsMax = 253;

// Sends `bytes` with `count` times the same descriptor.
void sendWithDescriptors(int socket, const char* bytes, std::size_t size, int descriptor,
                         std::size_t count) {
    iovec part{const_cast<char*>(bytes), size};
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
            std::memcpy(CMSG_DATA(header) + i * sizeof descriptor, &descriptor, sizeof descriptor);
        }
    }
    if (::sendmsg(socket, &message, MSG_NOSIGNAL) < 0) std::_Exit(1);
}

// Receives as a server must that is sent descriptors: it closes what it does not keep.
std::size_t receiveOrExit(int socket) {
    static char buffer[kBytesMax];
    alignas(cmsghdr) static std::array<char, CMSG_SPACE(kDescriptorsMax * sizeof(int))> control;
    iovec part{buffer, sizeof buffer};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t received = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    if (received <= 0) std::_Exit(0);
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

std::vector<int> acceptAll(int listener, std::size_t count) {
    std::vector<int> sockets;
    while (sockets.size() < count) {
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) std::_Exit(1);
        sockets.push_back(socket);
    }
    return sockets;
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string result;
    for (std::size_t i = 0; i < count; ++i)
        result += text;
    return result;
}

}  // namespace

void waitRaw(const std::vector<int>& sockets, const std::function<void(int socket)>& serve) {
    if (sockets.size() > 1) waitWithEpoll(sockets, serve);
    for (;;)
        serve(sockets.front());
}

void waitWithEpoll(const std::vector<int>& sockets, const std::function<void(int socket)>& serve) {
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    for (const int socket : sockets) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = socket;
        ::epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &event);
    }
    for (;;) {
        std::array<epoll_event, 64> events;
        const int count = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i)
            serve(events[static_cast<std::size_t>(i)].data.fd);
    }
}

Peer Peer::child(const std::string& path, const std::function<void(int)>& run) {
    ::unlink(path.c_str());
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener, 4096) != 0) {
        fail("listen at " + path);
    }
    const pid_t pid = ::fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        run(listener);
        std::_Exit(0);
    }
    ::close(listener);
    return Peer(pid, path);
}

Peer Peer::switchboard(const std::string& program, const std::string& folder) {
    const pid_t pid = ::fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::setenv("SEVRIN_BOOTSTRAP_DIR", folder.c_str(), 1);
        ::setenv("CFFIXED_USER_HOME", folder.c_str(), 1);
        if (::geteuid() == 0) {
            ::execl(program.c_str(), program.c_str(), "--users", "65534", nullptr);
        } else {
            ::execl(program.c_str(), program.c_str(), nullptr);
        }
        std::fprintf(stderr, "switchboard-bench: cannot run %s\n", program.c_str());
        std::_Exit(1);
    }
    const std::string name = ::geteuid() == 0 ? "" : "." + std::to_string(::geteuid());
    return Peer(pid, folder + "/com.sevrin.switchboard" + name);
}

Peer Peer::rawServer(const std::string& folder, std::size_t connections, std::size_t requestBytes,
                     std::string reply, int endpoint, Waiting waiting) {
    return child(folder + "/raw", [=](int listener) {
        const std::string replies = repeated(reply, kDescriptorsMax);
        waiting(acceptAll(listener, connections), [&](int socket) {
            const std::size_t count = receiveOrExit(socket) / requestBytes;
            sendWithDescriptors(socket, replies.data(), count * reply.size(), endpoint, count);
        });
    });
}

Peer Peer::rawRelay(const std::string& folder, std::size_t listeners, std::size_t postBytes,
                    std::string delivery) {
    return child(folder + "/raw", [=](int listener) {
        const std::vector<int> sockets = acceptAll(listener, listeners + 1);
        const std::string deliveries = repeated(delivery, kDescriptorsMax);
        waitRaw({sockets.front()}, [&](int poster) {
            const std::size_t count = receiveOrExit(poster) / postBytes;
            for (std::size_t i = 1; i < sockets.size(); ++i) {
                sendWithDescriptors(sockets[i], deliveries.data(), count * delivery.size(), -1, 0);
            }
        });
    });
}

Peer::Peer(Peer&& other) noexcept
    : pid_(std::exchange(other.pid_, -1)), path_(std::move(other.path_)) {}

Peer::~Peer() {
    if (pid_ < 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    ::unlink(path_.c_str());
    ::unlink((path_ + ".lock").c_str());
}

double Peer::residentBytes() const {
    const std::string path = "/proc/" + std::to_string(pid_) + "/statm";
    std::FILE* file = std::fopen(path.c_str(), "r");
    long total = 0;
    long resident = 0;
    if (file == nullptr || std::fscanf(file, "%ld %ld", &total, &resident) != 2)
        fail("read " + path);
    std::fclose(file);
    return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

void Peer::pin(bool isPinned) const {
    cpu_set_t set;
    CPU_ZERO(&set);
    const long processors = isPinned ? 1 : ::sysconf(_SC_NPROCESSORS_ONLN);
    for (long i = 0; i < processors; ++i)
        CPU_SET(static_cast<std::size_t>(i), &set);
    ::sched_setaffinity(0, sizeof set, &set);
    // Every thread of the peer, not only its first.
    const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
    const std::string command = "for t in " + tasks + "/*; do taskset -pc " +
                                (isPinned ? "0" : "0-" + std::to_string(processors - 1)) +
                                " ${t##*/} >/dev/null; done";
    if (std::system(command.c_str()) != 0) fail("taskset");
}

}  // namespace sevrin::bench
