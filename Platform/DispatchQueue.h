// Queues that run blocks: the main queue on the main thread, global queues on a small pool.
//
// The main queue is served by the main thread's run loop (NSRunLoop) and by nothing else: in a
// program that never runs the loop its blocks wait for ever. Blocks of the main queue run one after
// another in the order given; blocks of a global queue run side by side in no promised order.
// Nothing exists before its first use: the pool starts a thread when a block finds none free, up to
// a small number, and lets idle threads go. A block that waits for something holds its thread
// meanwhile.
//
// An exception that leaves a block ends the process through an assertion that tells its what().
// exit() is safe anywhere: no further block starts, running ones may finish or be cut off, and no
// queue goes away under them. A child of fork() must not use queues before exec().
#pragma once

#include <chrono>
#include <functional>

namespace sevrin::platform {

class DispatchQueue {
public:
    enum class Priority { Default, Background };

    // The queue whose blocks run on the main thread.
    [[nodiscard]] static DispatchQueue& mainQueue();

    // The queue of the pool; blocks of Background run on threads that yield to all others.
    [[nodiscard]] static DispatchQueue& globalQueue(Priority priority);

    // Queues `block` and returns at once. From any thread. Throws std::system_error when the block
    // needs the first thread of a pool and the system gives none.
    virtual void async(std::function<void()> block) = 0;

    // Returns after `block` has run. On the main queue, from another thread only: the main thread
    // would wait for itself, which is asserted. A global queue runs it on the caller's own thread,
    // which needs no thread of the pool and cannot deadlock.
    virtual void sync(const std::function<void()>& block) = 0;

    // Queues `block` once `delay` has passed on the steady clock; at once when it is not positive.
    // From any thread. Throws as async().
    virtual void after(std::chrono::nanoseconds delay, std::function<void()> block) = 0;

    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

protected:
    DispatchQueue() = default;
    ~DispatchQueue() = default;
};

// Whether the caller is on the thread that runs main().
[[nodiscard]] bool isMainThread() noexcept;

}  // namespace sevrin::platform
