// The main thread's event loop, shared by the run loop, the main queue and all that is watched on
// it; and the one place from which blocks are called.
//
// The loop is created with its first use and never destroyed: other threads may still hand it work
// while the process exits.
#pragma once

#include <asio/io_context.hpp>
#include <functional>

namespace sevrin::platform {

// From any thread. Never out of work, so a run of it ends by stop() only.
[[nodiscard]] asio::io_context& mainContext();

// Calls `block`; an exception that leaves it ends the process with its what().
void runBlock(const std::function<void()>& block) noexcept;

// Queues `block` on `context` once `delay` has passed. From any thread.
void runAfter(asio::io_context& context, std::chrono::nanoseconds delay,
              std::function<void()> block);

}  // namespace sevrin::platform
