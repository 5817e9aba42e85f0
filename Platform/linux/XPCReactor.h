// The XPC thread: one loop over epoll that serves every socket of the process's listeners and
// connections.
//
// Started with its first use and never ended; it owns what is registered with it until that is
// removed. Everything that it calls (sources, tasks, timers) runs on its one thread, never under a
// lock of the reactor. Level-triggered, so a source may read as much or as little as it likes per
// call.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class XPCReactor {
public:
    using Clock = std::chrono::steady_clock;
    using Task = std::function<void()>;

    // Something with a descriptor to wait for.
    class Source {
    public:
        // The descriptor is ready as `events` (EPOLLIN and so on) say. Not called after remove().
        virtual void handleEvents(std::uint32_t events) = 0;

        // Sends what has gathered since the last flush; called once after the events that gathered
        // it were handled.
        virtual void flush() {}

    protected:
        ~Source() = default;
    };

    // The process's reactor.
    [[nodiscard]] static XPCReactor& shared();

    // Whether the calling thread is the XPC thread; starts nothing.
    [[nodiscard]] static bool isCurrentThread();

    // Runs `task` on the XPC thread, after what was posted earlier.
    void post(Task task);

    // Runs `task` on the XPC thread at `when` or soon after.
    void postAt(Clock::time_point when, Task task);

    // Waits for `events` on `fd` in behalf of `source`, which is kept alive until removed.
    void add(int fd, std::shared_ptr<Source> source, std::uint32_t events);

    // Changes what is waited for; 0 pauses. Any thread.
    void modify(int fd, Source* source, std::uint32_t events);

    // Ends the waiting. On the XPC thread only; the descriptor must still be open.
    void remove(int fd, Source* source);

    // Whether what is sent now should gather: more is about to be sent that can share its send
    // calls. Not so while the last message of a burst is handled; then the peers get their part
    // while the next one's is prepared. On the XPC thread only.
    [[nodiscard]] bool isGathering() const { return isGathering_; }
    void setGathering(bool isGathering) { isGathering_ = isGathering; }

    // Has `source` flushed when the current event has been handled. On the XPC thread only.
    void flushLater(std::shared_ptr<Source> source);

private:
    XPCReactor();
    void run();
    void wait();
    void runTasks();
    void runTimers();
    void flushAll();
    [[nodiscard]] int timeoutMs();
    void wake();

    UniqueFd epoll_;
    UniqueFd wakeup_;

    std::mutex lock_;
    std::vector<Task> tasks_;
    std::multimap<Clock::time_point, Task> timers_;
    std::unordered_map<Source*, std::shared_ptr<Source>> sources_;

    // Only touched on the XPC thread.
    bool isGathering_ = true;
    std::vector<std::shared_ptr<Source>> toFlush_;
    std::vector<std::shared_ptr<Source>>
        removed_;  // kept until no event of this round can name them
};

}  // namespace sevrin::platform
