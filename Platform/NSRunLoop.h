// The run loop of the main thread: serves the main queue and whatever else the platform delivers
// there (signals, cross-process notifications).
//
// There is one, and it belongs to the main thread; every call is made there. Another thread that
// wants the loop to stop queues a block that stops it.
#pragma once

#include <chrono>

#include "Platform/Export.h"

namespace sevrin::platform {

class SEVRIN_EXPORT NSRunLoop {
public:
    // The main thread's loop. Other threads have none: asking there is asserted.
    [[nodiscard]] static NSRunLoop& currentRunLoop();

    // Serves the main queue, sleeping while there is nothing to do. Returns only after stop(). Not
    // from within a block of the main queue, which is asserted; the same goes for runUntilDate().
    void run();

    // As run(), but at the latest until `deadline`; when that has passed already, no block runs.
    // Answers whether stop() was what ended it.
    bool runUntilDate(std::chrono::steady_clock::time_point deadline);

    // Makes the run in progress return after the current block; what is still queued waits for the
    // next run. Does nothing while the loop is not running.
    void stop();

    NSRunLoop(const NSRunLoop&) = delete;
    NSRunLoop& operator=(const NSRunLoop&) = delete;

private:
    NSRunLoop() = default;

    bool isRunning_ = false;
};

}  // namespace sevrin::platform
