// Where the main thread waits for what callbacks on the XPC thread bring.
#include "tools/Sleep.h"

#include "Platform/DispatchQueue.h"
#include "Platform/NSRunLoop.h"

namespace sevrin {

using platform::DispatchQueue;
using platform::NSRunLoop;

void sleepUntil(std::chrono::steady_clock::time_point moment) {
    NSRunLoop::currentRunLoop().runUntilDate(moment);
}

// A block that is queued while nobody sleeps ends the next sleep, so no wake-up is lost.
void wakeMainThread() {
    DispatchQueue::mainQueue().async([] { NSRunLoop::currentRunLoop().stop(); });
}

}  // namespace sevrin
