// The threads of one global queue.
//
// Starts a thread when a block would otherwise wait and lets a thread go that stays idle: a process
// that once used a queue does not keep paying for it. How many and how long is told in
// WorkerPoolLimits.h. Threads are detached, so the pool must never be destroyed; end() is its last
// act.
#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace sevrin::platform {

class WorkerPool {
public:
    // Threads are called `threadName` (at most 15 bytes, a literal) and are `niceness` steps nicer
    // than the process.
    WorkerPool(const char* threadName, int niceness);

    // Both as the queue's functions of the same name; from any thread.
    void async(std::function<void()> block);
    void after(std::chrono::nanoseconds delay, std::function<void()> block);

    // For the exit of the process: starts nothing any more and waits until the threads have left,
    // but no longer than kExitGrace. May be called on a thread of the pool.
    void end() noexcept;

private:
    void startThreadFor(std::size_t blocks, std::size_t timers);
    [[nodiscard]] static std::size_t threadsNeeded(std::size_t blocks, std::size_t timers);
    void work() noexcept;
    [[nodiscard]] bool leaves();
    void runCounted(const std::function<void()>& block) noexcept;

    const char* const threadName_;
    const int niceness_;
    asio::io_context context_;
    asio::executor_work_guard<asio::io_context::executor_type> neverOutOfWork_;

    std::mutex mutex_;  // Guards what follows.
    std::condition_variable threadLeft_;
    std::size_t threads_ = 0;
    std::size_t blocks_ = 0;  // Queued or running.
    std::size_t timers_ = 0;  // Not expired yet; one free thread waits for all of them.
    bool isEnding_ = false;
};

}  // namespace sevrin::platform
