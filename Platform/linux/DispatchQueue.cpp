// The queues: the main queue posts to the main loop, each global queue is a worker pool.
#include "Platform/DispatchQueue.h"

#include <unistd.h>

#include <asio/post.hpp>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/linux/MainLoop.h"
#include "Platform/linux/WorkerPool.h"

namespace sevrin::platform {
namespace {

class MainQueue final : public DispatchQueue {
public:
    void async(std::function<void()> block) override {
        SEVRIN_ASSERT(block, "a queue was given an empty block");
        asio::post(mainContext(), [block = std::move(block)] { runBlock(block); });
    }

    void sync(const std::function<void()>& block) override {
        SEVRIN_ASSERT(!isMainThread(), "the main thread would wait for itself");
        std::mutex mutex;
        std::condition_variable changed;
        bool isDone = false;
        async([&] {
            block();
            // Told under the lock: once the waiting thread holds it, all of this is gone.
            const std::lock_guard lock(mutex);
            isDone = true;
            changed.notify_one();
        });
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return isDone; });
    }

    void after(std::chrono::nanoseconds delay, std::function<void()> block) override {
        SEVRIN_ASSERT(block, "a queue was given an empty block");
        runAfter(mainContext(), delay, std::move(block));
    }
};

class GlobalQueue final : public DispatchQueue {
public:
    GlobalQueue(const char* threadName, int niceness) : pool_(threadName, niceness) {}

    void async(std::function<void()> block) override {
        SEVRIN_ASSERT(block, "a queue was given an empty block");
        pool_.async(std::move(block));
    }

    void sync(const std::function<void()>& block) override { runBlock(block); }

    void after(std::chrono::nanoseconds delay, std::function<void()> block) override {
        SEVRIN_ASSERT(block, "a queue was given an empty block");
        pool_.after(delay, std::move(block));
    }

    void endAtExit() noexcept { pool_.end(); }

private:
    WorkerPool pool_;
};

// Queues are never destroyed: a thread that outlives the grace may still use one. What ends with
// the process's static objects is this guard; as pools start late, it goes before most of them.
struct ExitGuard {
    GlobalQueue& queue;
    ~ExitGuard() { queue.endAtExit(); }
};

constexpr int kBackgroundNiceness = 10;

GlobalQueue& defaultQueue() {
    static GlobalQueue& queue = *new GlobalQueue("queue-default", 0);
    static const ExitGuard guard{queue};
    return queue;
}

GlobalQueue& backgroundQueue() {
    static GlobalQueue& queue = *new GlobalQueue("queue-backgrnd", kBackgroundNiceness);
    static const ExitGuard guard{queue};
    return queue;
}

}  // namespace

DispatchQueue& DispatchQueue::mainQueue() {
    static MainQueue& queue = *new MainQueue;
    return queue;
}

DispatchQueue& DispatchQueue::globalQueue(Priority priority) {
    switch (priority) {
        case Priority::Default:
            return defaultQueue();
        case Priority::Background:
            return backgroundQueue();
    }
    SEVRIN_ASSERT(false, "no such priority");
}

bool isMainThread() noexcept {
    return ::gettid() == ::getpid();
}

}  // namespace sevrin::platform
