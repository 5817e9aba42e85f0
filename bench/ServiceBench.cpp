// The multi-process driver: measures the real switchboard, each figure beside the raw limit of the
// machine in the same run.
//
//     switchboard-bench [--program PATH] [--rounds N] [--seconds S] [MEASURE...]
//
// MEASURE is any of start, roundtrip, queries, publish, relay, fanout, size, memory; all without.
// The table goes to standard output.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "Platform/NSXPCConnection.h"
#include "bench/Link.h"
#include "bench/Load.h"
#include "bench/Peer.h"
#include "bench/Report.h"
#include "bench/Wire.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin::bench {

namespace {

constexpr const char* kIdentifier = "com.example.backup.agent";
constexpr const char* kNotification = "com.example.backup.progress";
constexpr const char* kSource = "com.example.backup";

struct Options {
    std::string program;
    int rounds = 5;
    double seconds = 1;
    std::vector<std::string> measures;
};

class Bench {
public:
    Bench(Options options, std::string folder)
        : options_(std::move(options)), folder_(std::move(folder)) {}

    void run();

private:
    [[nodiscard]] bool wants(const char* measure) const {
        return options_.measures.empty() || std::ranges::count(options_.measures, measure) > 0;
    }
    [[nodiscard]] Peer startSwitchboard() const {
        return Peer::switchboard(options_.program, folder_);
    }
    void add(const Row& row) { print(row); }

    void roundTrip();
    void queries(std::size_t clients, std::size_t inFlight, const char* target);
    void publishAndRedact();
    void relay(std::size_t subscribers, std::size_t inFlight, const char* target);
    void relayLatency();
    void queryCost();
    void memory();
    void start();

    const Options options_;
    const std::string folder_;
};

std::string manyQueries(std::size_t count) {
    std::string batch;
    for (std::size_t serial = 1; serial <= count; ++serial)
        batch += query(kIdentifier, serial);
    return batch;
}

// The median of a client's synchronous query, in microseconds.
double callLatency(platform::NSXPCConnection& connection, const platform::MethodDescription& method,
                   double seconds) {
    const std::array<platform::Value, 1> arguments{kIdentifier};
    std::vector<double> times;
    const auto begin = Clock::now();
    while (secondsSince(begin) < seconds) {
        const auto start = Clock::now();
        const auto answer =
            connection.requestAndWait(method, arguments, start + std::chrono::seconds(5));
        if (!std::holds_alternative<platform::ValueArray>(answer)) {
            fail("the switchboard did not answer");
        }
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return median(std::move(times));
}

void Bench::roundTrip() {
    const Peer switchboard = startSwitchboard();
    const platform::UniqueFd endpoint = makeEndpoint(folder_);
    const Link publisher = Link::toSwitchboard(switchboard.path());
    publisher.send(publish(kIdentifier), endpoint.get());
    const Link link = Link::toSwitchboard(switchboard.path());
    const std::string request = query(kIdentifier, 1);
    const std::string reply = queryReply(1);
    const Peer raw = Peer::rawServer(folder_, 1, request.size(), reply, endpoint.get());
    const Link rawLink = Link::to(raw.path());

    for (const double percentile : {0.5, 0.99}) {
        const std::string name = percentile == 0.5 ? "p50" : "p99";
        add(compare(
            "query round trip, one core, " + name, "us", percentile == 0.5 ? "at most 1.5" : "",
            options_.rounds,
            [&] {
                switchboard.pin(true);
                return latency(link, request, reply.size(), options_.seconds, percentile);
            },
            [&] {
                raw.pin(true);
                return latency(rawLink, request, reply.size(), options_.seconds, percentile);
            }));
    }

    // The same question by a client's synchronous call, with everything that the platform checks on
    // the way back.
    ::setenv("SEVRIN_BOOTSTRAP_DIR", folder_.c_str(), 1);
    const bool isSystem = ::geteuid() == 0;
    const auto connection = platform::NSXPCConnection::initWithMachServiceName(
        switchboard.path().substr(folder_.size() + 1),
        isSystem ? platform::NSXPCConnection::Domain::System
                 : platform::NSXPCConnection::Domain::User);
    const platform::Protocol& protocol = VeloraSwitchboarding_private::protocol();
    connection->setRemoteObjectInterface(platform::NSXPCInterface::interfaceWithProtocol(protocol));
    connection->resume();
    add(compare(
        "the same by a synchronous call of a client, p50", "us", "", options_.rounds,
        [&] {
            switchboard.pin(true);
            return callLatency(*connection,
                               *protocol.method("queryEndpointForIdentifier:withReply:"),
                               options_.seconds);
        },
        [&] {
            raw.pin(true);
            return latency(rawLink, request, reply.size(), options_.seconds, 0.5);
        }));
    connection->invalidate();
    switchboard.pin(false);
}

void Bench::queries(std::size_t clients, std::size_t inFlight, const char* target) {
    const Peer switchboard = startSwitchboard();
    const platform::UniqueFd endpoint = makeEndpoint(folder_);
    const Link publisher = Link::toSwitchboard(switchboard.path());
    publisher.send(publish(kIdentifier), endpoint.get());
    const std::string batch = manyQueries(inFlight);
    const std::string reply = queryReply(1);
    const Peer raw =
        Peer::rawServer(folder_, clients, batch.size() / inFlight, reply, endpoint.get());
    std::vector<Link> links;
    std::vector<Link> rawLinks;
    for (std::size_t i = 0; i < clients; ++i)
        links.push_back(Link::toSwitchboard(switchboard.path()));
    for (std::size_t i = 0; i < clients; ++i)
        rawLinks.push_back(Link::to(raw.path()));

    const std::size_t answerBytes = reply.size() * inFlight;
    add(compare(
        "queries per second, " + std::to_string(clients) + " clients, " + std::to_string(inFlight) +
            " in flight each",
        "/s", target, options_.rounds,
        [&] { return closedLoop(links, batch, answerBytes, inFlight, options_.seconds); },
        [&] { return closedLoop(rawLinks, batch, answerBytes, inFlight, options_.seconds); }));
}

void Bench::publishAndRedact() {
    constexpr std::size_t kPairs = 16;
    const Peer switchboard = startSwitchboard();
    const platform::UniqueFd endpoint = makeEndpoint(folder_);
    std::string batch;
    for (std::size_t i = 0; i < kPairs; ++i)
        batch += publish(kIdentifier) + redact(kIdentifier);
    batch += barrier(1);
    const std::string reply = barrierReply(1);
    const Peer raw = Peer::rawServer(folder_, 1, batch.size(), reply, -1);
    const Link link = Link::toSwitchboard(switchboard.path());
    const Link rawLink = Link::to(raw.path());
    const auto pairs = [&](const Link& to) {
        std::size_t batches = 0;
        const auto begin = Clock::now();
        while (secondsSince(begin) < options_.seconds) {
            to.send(batch, endpoint.get(), kPairs);
            to.receiveAll(reply.size());
            ++batches;
        }
        return static_cast<double>(batches * kPairs) / secondsSince(begin);
    };
    add(compare(
        "publish and redact pairs per second, 16 in flight", "/s", "", options_.rounds,
        [&] { return pairs(link); }, [&] { return pairs(rawLink); }));
}

std::vector<Link> subscribers(const Peer& switchboard, std::size_t count) {
    std::vector<Link> links;
    for (std::size_t i = 0; i < count; ++i) {
        links.push_back(Link::toSwitchboard(switchboard.path()));
        links.back().send(subscribe("observer", kNotification) + barrier(1));
        links.back().receiveAll(barrierReply(1).size());
    }
    return links;
}

void Bench::relay(std::size_t count, std::size_t inFlight, const char* target) {
    const Peer switchboard = startSwitchboard();
    const std::vector<Link> listeners = subscribers(switchboard, count);
    const Link poster = Link::toSwitchboard(switchboard.path());
    const std::string onePost = post(kNotification, kSource);
    const std::string oneDelivery = delivery("observer", kNotification, kSource);
    const Peer raw = Peer::rawRelay(folder_, count, onePost.size(), oneDelivery);
    const Link rawPoster = Link::to(raw.path());
    std::vector<Link> rawListeners;
    for (std::size_t i = 0; i < count; ++i)
        rawListeners.push_back(Link::to(raw.path()));

    std::string posts;
    for (std::size_t i = 0; i < inFlight; ++i)
        posts += onePost;
    const std::size_t bytes = oneDelivery.size() * inFlight;
    add(compare(
        "relay to " + std::to_string(count) + ", deliveries per second, " +
            std::to_string(inFlight) + " in flight",
        "/s", target, options_.rounds,
        [&] { return fanOut(poster, listeners, posts, bytes, inFlight, options_.seconds); },
        [&] { return fanOut(rawPoster, rawListeners, posts, bytes, inFlight, options_.seconds); }));
}

void Bench::relayLatency() {
    const Peer switchboard = startSwitchboard();
    const std::string onePost = post(kNotification, kSource);
    const std::string oneDelivery = delivery("observer", kNotification, kSource);
    const Peer raw = Peer::rawServer(folder_, 1, onePost.size(), oneDelivery, -1);
    const Link link = Link::toSwitchboard(switchboard.path());
    link.send(subscribe("observer", kNotification));
    const Link rawLink = Link::to(raw.path());
    add(compare(
        "relay to one subscriber, p50", "us", "at most 1.5", options_.rounds,
        [&] { return latency(link, onePost, oneDelivery.size(), options_.seconds, 0.5); },
        [&] { return latency(rawLink, onePost, oneDelivery.size(), options_.seconds, 0.5); }));
}

void publishMany(const std::vector<Link>& links, std::size_t count, int endpoint) {
    for (std::size_t i = 0; i < count; ++i) {
        links[i % links.size()].send(publish("com.example.agent." + std::to_string(i)), endpoint);
    }
    for (const Link& link : links) {
        link.send(barrier(1));
        link.receiveAll(barrierReply(1).size());
    }
}

// The p50 of a query for identifiers chosen at random among `count`, on one core.
double randomQueries(const Link& link, std::size_t count, double seconds) {
    std::mt19937 random(1);
    std::vector<std::string> requests;
    for (std::size_t i = 0; i < 20000; ++i)
        requests.push_back(query("com.example.agent." + std::to_string(random() % count), 1));
    const std::size_t replyBytes = queryReply(1).size();
    std::vector<double> times;
    const auto begin = Clock::now();
    for (std::size_t i = 0; secondsSince(begin) < seconds; i = (i + 1) % requests.size()) {
        const auto start = Clock::now();
        link.send(requests[i]);
        link.receiveAll(replyBytes);
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    return median(std::move(times));
}

void Bench::queryCost() {
    const platform::UniqueFd endpoint = makeEndpoint(folder_);
    const Peer few = startSwitchboard();
    std::vector<Link> fewLinks;
    fewLinks.push_back(Link::toSwitchboard(few.path()));
    publishMany(fewLinks, 10, endpoint.get());

    ::mkdir((folder_ + "/many").c_str(), 0755);
    const auto against = [&](const char* measure, std::size_t connections, std::size_t endpoints) {
        const Peer many = Peer::switchboard(options_.program, folder_ + "/many");
        std::vector<Link> links;
        for (std::size_t i = 0; i < connections; ++i)
            links.push_back(Link::toSwitchboard(many.path()));
        publishMany(links, endpoints, endpoint.get());
        Row row = compare(
            measure, "us", "at most 1.1", options_.rounds,
            [&] {
                many.pin(true);
                return randomQueries(links.front(), endpoints, options_.seconds);
            },
            [&] {
                few.pin(true);
                return randomQueries(fewLinks.front(), 10, options_.seconds);
            });
        many.pin(false);
        add(row);
    };
    against("query p50 with 100,000 endpoints (raw: with 10)", 10, 100000);
    against("query p50 with 9,000 connections (raw: with 1)", 9000, 10);
    ::rmdir((folder_ + "/many").c_str());
}

void Bench::memory() {
    const Peer switchboard = startSwitchboard();
    std::vector<Link> links;
    links.push_back(Link::toSwitchboard(switchboard.path()));
    const double atStart = switchboard.residentBytes();
    add({"resident memory with the first client", "MB", atStart / 1e6, 0, 0, "4"});

    constexpr std::size_t kConnections = 4000;
    for (std::size_t i = 1; i < kConnections; ++i)
        links.push_back(Link::toSwitchboard(switchboard.path()));
    const double connected = switchboard.residentBytes();
    add({"resident memory per idle connection", "bytes", (connected - atStart) / (kConnections - 1),
         0, 0, "2048"});

    // Each its own endpoint: the switchboard keeps equal ones once.
    constexpr std::size_t kEndpoints = 4000;
    for (std::size_t i = 0; i < kEndpoints; ++i) {
        const platform::UniqueFd endpoint = makeEndpoint(folder_, false);
        links[i % 16].send(publish("com.example.agent." + std::to_string(i)), endpoint.get());
    }
    for (std::size_t i = 0; i < 16; ++i) {
        links[i].send(barrier(1));
        links[i].receiveAll(barrierReply(1).size());
    }
    add({"resident memory per endpoint", "bytes",
         (switchboard.residentBytes() - connected) / kEndpoints, 0, 0, "250"});
}

void Bench::start() {
    std::vector<double> times;
    for (int round = 0; round < 4 * options_.rounds; ++round) {
        const auto begin = Clock::now();
        const Peer switchboard = startSwitchboard();
        const Link link = Link::toSwitchboard(switchboard.path());
        link.send(barrier(1));
        link.receiveAll(barrierReply(1).size());
        times.push_back(1000 * secondsSince(begin));
    }
    add({"from start to the first answered request", "ms", median(times), 0, 0, "3"});
}

void Bench::run() {
    printHead("Switchboard", "Raw");
    if (wants("start")) start();
    if (wants("roundtrip")) roundTrip();
    if (wants("queries")) {
        queries(1, 1, "");
        queries(8, 1, "");
        queries(64, 1, "at least 0.75");
        queries(1, 16, "");
        queries(8, 16, "");
        queries(64, 16, "at least 0.5");
    }
    if (wants("publish")) publishAndRedact();
    if (wants("relay")) {
        relayLatency();
        relay(1, 1, "");
        relay(10, 1, "");
        relay(100, 1, "");
    }
    if (wants("fanout")) {
        relay(1000, 1, "at least 0.85");
        relay(1000, 16, "at least 0.6");
    }
    if (wants("size")) queryCost();
    if (wants("memory")) memory();
}

// Thousands of connections need as many descriptors; the children inherit the limit.
void raiseDescriptorLimit() {
    rlimit limit{1 << 20, 1 << 20};
    if (::setrlimit(RLIMIT_NOFILE, &limit) == 0) return;
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

}  // namespace sevrin::bench

int main(int argc, char** argv) {
    using namespace sevrin::bench;
    Options options;
    const std::string self = argv[0];
    options.program = self.substr(0, self.rfind('/') + 1) + "switchboard";
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const auto value = [&] {
            return ++i < argc ? argv[i] : (fail("value missing after " + argument), "");
        };
        if (argument == "--program") {
            options.program = value();
        } else if (argument == "--rounds") {
            options.rounds = std::atoi(value());
        } else if (argument == "--seconds") {
            options.seconds = std::atof(value());
        } else {
            options.measures.push_back(argument);
        }
    }
    raiseDescriptorLimit();
    std::string folder = "/tmp/switchboard-bench-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) fail("mkdtemp");
    ::chmod(folder.c_str(), 0755);
    Bench(std::move(options), folder).run();
    ::rmdir(folder.c_str());
    return 0;
}
