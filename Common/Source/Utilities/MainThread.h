// Work for the main thread, and work to keep away from it.
//
// Blocks for the main thread are served by its run loop (Platform/NSRunLoop.h) and wait as long as
// it does not run. What a block may throw, and what happens at exit, is as with every queue
// (Platform/DispatchQueue.h).
#pragma once

#include <functional>
#include <memory>

#include "Platform/DispatchQueue.h"

namespace sevrin {

// The queue whose blocks run on the main thread.
[[nodiscard]] platform::DispatchQueue& MainDispatchQueue();

// Whether the caller is on the main thread.
[[nodiscard]] bool IsMainThread() noexcept;

// Queues `block` for the main thread and returns at once, also there.
void DispatchToMainQueue(std::function<void()> block);

// Runs `block` on the main thread: at once when the caller is there, else through the queue. The
// first returns when the block has run, the second may return before.
void RunOnMainThreadSync(const std::function<void()>& block);
void RunOnMainThreadAsync(std::function<void()> block);

// Lets go of `object` on a background queue after the current block of the main thread, so that the
// main thread does not spend its time on destroying it. For the main thread: elsewhere, where there
// is no hurry, and with nullptr it does nothing, and the reference ends with the call.
void ReleaseLaterInBackground(std::shared_ptr<const void> object);

}  // namespace sevrin
