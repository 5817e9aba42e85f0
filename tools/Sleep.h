// Where the main thread waits for what callbacks on the XPC thread bring.
#pragma once

#include <chrono>

namespace sevrin {

// Sleeps until `moment` or until somebody has called wakeMainThread() since it last slept. On the
// main thread.
void sleepUntil(std::chrono::steady_clock::time_point moment);

// On any thread.
void wakeMainThread();

}  // namespace sevrin
