// How the pool counts its work, starts threads for it and lets them go.
#include "Platform/linux/WorkerPool.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <asio/post.hpp>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/linux/MainLoop.h"
#include "Platform/linux/WorkerPoolLimits.h"

namespace sevrin::platform {
namespace {

// The pool whose thread this is.
thread_local const WorkerPool* poolOfThisThread = nullptr;

}  // namespace

WorkerPool::WorkerPool(const char* threadName, int niceness)
    : threadName_(threadName), niceness_(niceness), neverOutOfWork_(context_.get_executor()) {}

void WorkerPool::async(std::function<void()> block) {
    {
        const std::lock_guard lock(mutex_);
        startThreadFor(blocks_ + 1, timers_);
        ++blocks_;
    }
    asio::post(context_, [this, block = std::move(block)] { runCounted(block); });
}

void WorkerPool::after(std::chrono::nanoseconds delay, std::function<void()> block) {
    {
        const std::lock_guard lock(mutex_);
        startThreadFor(blocks_, timers_ + 1);
        ++timers_;
    }
    runAfter(context_, delay, [this, block = std::move(block)] {
        {
            const std::lock_guard lock(mutex_);
            startThreadFor(blocks_ + 1, timers_ - 1);
            --timers_;
            ++blocks_;
        }
        runCounted(block);
    });
}

void WorkerPool::end() noexcept {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    context_.stop();
    const std::size_t ownThreads = poolOfThisThread == this ? 1 : 0;
    threadLeft_.wait_for(lock, kExitGrace, [&] { return threads_ == ownThreads; });
}

// Called under the lock, before the work is counted: when it throws, nothing has changed. Fewer
// threads than wished are enough to go on; only a pool without any cannot do its work.
void WorkerPool::startThreadFor(std::size_t blocks, std::size_t timers) {
    if (isEnding_ || threads_ >= threadsNeeded(blocks, timers)) return;
    try {
        std::thread([this] { work(); }).detach();
        ++threads_;
    } catch (const std::system_error&) {
        if (threads_ == 0) throw;
    }
}

std::size_t WorkerPool::threadsNeeded(std::size_t blocks, std::size_t timers) {
    const std::size_t wished = blocks + (timers > 0 ? 1 : 0);
    return std::min(wished, kThreadsPerPoolMax);
}

void WorkerPool::work() noexcept {
    poolOfThisThread = this;
    ::pthread_setname_np(::pthread_self(), threadName_);
    // Niceness is a thread's own here. Becoming nicer is never refused.
    [[maybe_unused]] const int niceness = ::nice(niceness_);

    do {
        while (context_.run_one_for(kThreadIdleTime) > 0) {
        }
    } while (!leaves());
}

// Whether the idle thread that asks goes; then it is no longer counted.
bool WorkerPool::leaves() {
    const std::lock_guard lock(mutex_);
    if (!isEnding_ && threads_ <= threadsNeeded(blocks_, timers_)) return false;
    --threads_;
    threadLeft_.notify_all();
    return true;
}

void WorkerPool::runCounted(const std::function<void()>& block) noexcept {
    runBlock(block);
    const std::lock_guard lock(mutex_);
    --blocks_;
}

}  // namespace sevrin::platform
