// A block that many ask for and a background thread runs soon after: asking costs nobody anything.
//
// A queue wakes a thread for its block, or starts one, which takes the asking thread from one to a
// hundred microseconds. Here asking only leaves a note: a thread of the task's own looks for notes
// every kBackgroundTaskDelay while they can be expected, and has the block run on the global
// background queue. Once nothing came for kBackgroundTaskPatience it sleeps, and the next who asks
// sets an alarm for it. For work that nobody waits for. Never destroyed. A child of fork() must not
// use it before exec(), as with queues.
#pragma once

#include <atomic>
#include <chrono>

namespace sevrin::platform {

// How long a note lies at most. Were it shorter, setting the alarm would mean moving the
// processor's next tick, which takes microseconds in virtual machines.
inline constexpr std::chrono::milliseconds kBackgroundTaskDelay{20};

// How long the thread looks for notes after the last one, or the last expect().
inline constexpr std::chrono::milliseconds kBackgroundTaskPatience{1000};

class BackgroundTask {
public:
    explicit BackgroundTask(void (*block)(),
                            std::chrono::milliseconds patience = kBackgroundTaskPatience) noexcept
        : block_(block), patience_(patience) {}
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    // For who makes work that request() will be called for: within the patience that
    // takes no system call. The first call starts the thread; where the system gives none,
    // requests go to the queue at once. Any thread.
    void expect() noexcept;

    // The block runs, once at least, after this call; requests made before it begins are one. Any
    // thread. It is this thread that runs it where no other is to be had.
    void request() noexcept;

private:
    void start() noexcept;
    void wake() noexcept;
    void enqueue() noexcept;
    void serve() noexcept;
    void lookForRequests() noexcept;
    bool waitForAlarm() noexcept;

    void (*const block_)();
    const std::chrono::milliseconds patience_;
    std::atomic<bool> isAsked_ = false;
    std::atomic<bool> isExpected_ = false;
    std::atomic<bool> isAwake_ = false;  // somebody looks for the other two
    std::atomic<bool> isStarted_ = false;
    std::atomic<int> alarm_ = -1;  // of the backend; -1: there is no thread
};

}  // namespace sevrin::platform
