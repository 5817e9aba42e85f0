// What it costs to wait for messages with Asio instead of bare epoll.
//
//     asio-bench [--rounds N] [--seconds S]
//
// Two raw servers answer the same queries by the same code (one recvmsg, one sendmsg with a
// descriptor) and differ in how they wait: Asio's async_wait on every connection, renewed after
// each answer, or one level-triggered epoll set. They are measured in turn. The last two rows
// measure the epoll server against a second one of its kind: how far their ratio is from 1 is how
// far the others may be off by chance. docs/decisions/epoll-on-the-xpc-thread.md keeps the table.
#include <sys/stat.h>
#include <unistd.h>

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <cstdlib>
#include <functional>
#include <list>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/UniqueFd.h"
#include "bench/Link.h"
#include "bench/Load.h"
#include "bench/Peer.h"
#include "bench/Report.h"
#include "bench/Wire.h"

namespace sevrin::bench {

namespace {

constexpr std::size_t kClients = 64;
constexpr const char* kIdentifier = "com.example.backup.agent";

// One connection of the Asio server: a wait object that is renewed after each answer.
class Connection {
public:
    Connection(asio::io_context& context, int socket, const std::function<void(int)>& serve)
        : descriptor_(context, socket), serve_(serve) {}

    void wait() {
        descriptor_.async_wait(asio::posix::stream_descriptor::wait_read,
                               [this](const std::error_code& error) {
                                   if (error) std::_Exit(1);
                                   serve_(descriptor_.native_handle());
                                   wait();
                               });
    }

private:
    asio::posix::stream_descriptor descriptor_;
    const std::function<void(int)>& serve_;
};

void waitWithAsio(const std::vector<int>& sockets, const std::function<void(int)>& serve) {
    asio::io_context context(1);  // One thread runs it, as on the XPC thread.
    std::list<Connection> connections;
    for (const int socket : sockets)
        connections.emplace_back(context, socket, serve).wait();
    context.run();
}

struct Options {
    int rounds = 15;
    double seconds = 0.5;
};

// A server that waits in its own way, and the connections to it.
struct Server {
    Server(const std::string& folder, std::size_t clients, const std::string& request,
           const std::string& reply, int endpoint, const Waiting& waiting)
        : peer(Peer::rawServer(folder, clients, request.size(), reply, endpoint, waiting)) {
        while (links.size() < clients)
            links.push_back(Link::to(peer.path()));
    }

    Peer peer;
    std::vector<Link> links;
};

// Measures a server that waits as `first` says beside one that waits with epoll.
void compareWaits(const std::string& folder, const std::string& note, const Waiting& first,
                  const Options& options) {
    const platform::UniqueFd endpoint = makeEndpoint(folder);
    const std::string request = query(kIdentifier, 1);
    const std::string reply = queryReply(1);
    const auto serve = [&](const char* name, std::size_t clients, const Waiting& waiting) {
        return Server(folder + name, clients, request, reply, endpoint.get(), waiting);
    };
    {
        const Server one = serve("/first", 1, first);
        const Server other = serve("/second", 1, waitWithEpoll);
        const auto roundTrip = [&](const Server& server) {
            server.peer.pin(true);
            return latency(server.links.front(), request, reply.size(), options.seconds, 0.5);
        };
        print(compare(
            "query round trip, one core, p50" + note, "us", "at most 1.2", options.rounds,
            [&] { return roundTrip(one); }, [&] { return roundTrip(other); }));
        one.peer.pin(false);
    }
    const Server one = serve("/first", kClients, first);
    const Server other = serve("/second", kClients, waitWithEpoll);
    const auto perSecond = [&](const Server& server) {
        return closedLoop(server.links, request, reply.size(), 1, options.seconds);
    };
    print(compare(
        "queries per second, " + std::to_string(kClients) + " clients" + note, "/s",
        "at least 0.83", options.rounds, [&] { return perSecond(one); },
        [&] { return perSecond(other); }));
}

// What one more connection that waits takes in the server's process with Asio, beyond what it takes
// with epoll.
void compareMemory(const std::string& folder) {
    constexpr std::size_t kConnections = 900;  // below the usual limit of descriptors
    const std::string request = query(kIdentifier, 1);
    const std::string reply = barrierReply(1);
    const auto bytesEach = [&](const Waiting& waiting) {
        const auto residentWith = [&](std::size_t connections) {
            const Server server(folder, connections, request, reply, -1, waiting);
            for (const Link& link : server.links) {
                link.send(request);
                link.receiveAll(reply.size());
            }
            return server.peer.residentBytes();
        };
        return (residentWith(kConnections) - residentWith(1)) / (kConnections - 1);
    };
    print({"resident memory of one wait object", "bytes",
           bytesEach(waitWithAsio) - bytesEach(waitWithEpoll), 0, 0, ""});
}

int run(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string option = argv[i];
        if (i + 1 == argc) fail("value missing after " + option);
        if (option == "--rounds") {
            options.rounds = std::atoi(argv[i + 1]);
        } else if (option == "--seconds") {
            options.seconds = std::atof(argv[i + 1]);
        } else {
            fail("unknown option " + option);
        }
    }
    std::string folder = "/tmp/asio-bench-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) fail("mkdtemp");
    for (const char* name : {"/first", "/second"})
        ::mkdir((folder + name).c_str(), 0755);

    printHead("Asio", "epoll");
    compareWaits(folder, "", waitWithAsio, options);
    compareMemory(folder);
    compareWaits(folder, " (epoll beside epoll)", waitWithEpoll, options);

    for (const char* name : {"/first", "/second", ""})
        ::rmdir((folder + name).c_str());
    return 0;
}

}  // namespace

}  // namespace sevrin::bench

int main(int argc, char** argv) {
    return sevrin::bench::run(argc, argv);
}
