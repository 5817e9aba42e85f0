// The two ways of asking, and the fan-out.
#include "bench/Load.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>

#include "Platform/UniqueFd.h"

namespace sevrin::bench {

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

double latency(const Link& link, const std::string& request, std::size_t replyBytes, double seconds,
               double percentile) {
    std::vector<double> times;
    const auto begin = Clock::now();
    while (secondsSince(begin) < seconds) {
        const auto start = Clock::now();
        link.send(request);
        link.receiveAll(replyBytes);
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
    }
    std::ranges::sort(times);
    return times[static_cast<std::size_t>(percentile * static_cast<double>(times.size() - 1))];
}

namespace {

// Many connections in one thread: waits for whichever has something to read.
class Poll {
public:
    explicit Poll(const std::vector<Link>& links) : epoll_(::epoll_create1(EPOLL_CLOEXEC)) {
        for (std::size_t i = 0; i < links.size(); ++i) {
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u64 = i;
            ::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, links[i].fd(), &event);
        }
    }

    // Calls `handle(index)` for every connection that is ready now, after waiting for the first.
    template <typename Handle>
    void wait(Handle handle) {
        std::array<epoll_event, 256> events;
        const int count =
            ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
        for (int i = 0; i < count; ++i)
            handle(events[static_cast<std::size_t>(i)].data.u64);
    }

private:
    platform::UniqueFd epoll_;
};

}  // namespace

double closedLoop(const std::vector<Link>& links, const std::string& batch, std::size_t answerBytes,
                  std::size_t perBatch, double seconds) {
    Poll poll(links);
    std::vector<std::size_t> due(links.size(), answerBytes);
    for (const Link& link : links)
        link.send(batch);
    std::size_t batches = 0;
    std::size_t open = links.size();
    const auto begin = Clock::now();
    double took = 0;
    while (open > 0) {
        poll.wait([&](std::size_t i) {
            due[i] -= links[i].receive();
            if (due[i] > 0) return;
            ++batches;
            due[i] = answerBytes;
            if (took == 0 && secondsSince(begin) < seconds) {
                links[i].send(batch);
            } else {
                if (took == 0) took = secondsSince(begin);
                --open;
            }
        });
    }
    return static_cast<double>(batches * perBatch) / took;
}

double fanOut(const Link& poster, const std::vector<Link>& listeners, const std::string& posts,
              std::size_t deliveryBytes, std::size_t perPost, double seconds) {
    Poll poll(listeners);
    std::size_t rounds = 0;
    const auto begin = Clock::now();
    while (secondsSince(begin) < seconds) {
        poster.send(posts);
        for (std::size_t due = listeners.size() * deliveryBytes; due > 0;) {
            poll.wait([&](std::size_t i) { due -= listeners[i].receive(); });
        }
        ++rounds;
    }
    return static_cast<double>(rounds * listeners.size() * perPost) / secondsSince(begin);
}

}  // namespace sevrin::bench
