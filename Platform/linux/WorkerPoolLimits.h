// The limits of the pools that serve the global queues.
#pragma once

#include <chrono>
#include <cstddef>

namespace sevrin::platform {

// Threads of one queue, so blocks that run side by side; further ones wait.
inline constexpr std::size_t kThreadsPerPoolMax = 8;

// How long a thread waits for another block before it goes. Starting one anew takes some 50 us.
inline constexpr std::chrono::milliseconds kThreadIdleTime{1000};

// What exit() grants the blocks that run at that moment; then the process ends around them.
inline constexpr std::chrono::milliseconds kExitGrace{500};

}  // namespace sevrin::platform
