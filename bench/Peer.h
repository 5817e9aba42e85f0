// The processes that the driver measures: the switchboard itself, and raw peers that move the same
// bytes and do nothing else.
//
// Raw peers are the limit of the machine: the same system calls with nothing between them. Each
// peer is a child process; it ends with its Peer.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace sevrin::bench {

// How a raw peer waits: calls `serve(socket)`, which receives once, whenever one of `sockets` has
// something to read. Never returns.
using Waiting = std::function<void(const std::vector<int>& sockets,
                                   const std::function<void(int socket)>& serve)>;

// Waits in the receive call of a single connection, and with epoll for several.
void waitRaw(const std::vector<int>& sockets, const std::function<void(int socket)>& serve);

// Waits with epoll however many there are.
void waitWithEpoll(const std::vector<int>& sockets, const std::function<void(int socket)>& serve);

class Peer {
public:
    // Starts `program` as the system switchboard in the bootstrap folder `folder`.
    [[nodiscard]] static Peer switchboard(const std::string& program, const std::string& folder);

    // Answers each `requestBytes` received with `reply` and the descriptor `endpoint`, unless that
    // is -1: whatever one receive brought, by one send.
    [[nodiscard]] static Peer rawServer(const std::string& folder, std::size_t connections,
                                        std::size_t requestBytes, std::string reply, int endpoint,
                                        Waiting waiting = waitRaw);

    // The first connection posts, all others listen: sends `delivery` to every listener for each
    // `postBytes` received, what is owed to one listener by one send.
    [[nodiscard]] static Peer rawRelay(const std::string& folder, std::size_t listeners,
                                       std::size_t postBytes, std::string delivery);

    Peer(Peer&& other) noexcept;
    Peer& operator=(Peer&&) = delete;
    ~Peer();

    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] const std::string& path() const { return path_; }

    // Bytes of memory that are resident now.
    [[nodiscard]] double residentBytes() const;

    // Keeps the process (and with `self` the driver) on processor 0, or lets it go everywhere
    // again.
    void pin(bool isPinned) const;

private:
    Peer(pid_t pid, std::string path) : pid_(pid), path_(std::move(path)) {}
    [[nodiscard]] static Peer child(const std::string& path,
                                    const std::function<void(int listener)>& run);

    pid_t pid_;
    std::string path_;
};

}  // namespace sevrin::bench
