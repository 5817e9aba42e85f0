// The main thread's run loop over the main context.
#include "Platform/NSRunLoop.h"

#include "Platform/Assertion.h"
#include "Platform/DispatchQueue.h"
#include "Platform/linux/MainLoop.h"

namespace sevrin::platform {

NSRunLoop& NSRunLoop::currentRunLoop() {
    SEVRIN_ASSERT(isMainThread(), "only the main thread has a run loop");
    static NSRunLoop loop;
    return loop;
}

void NSRunLoop::run() {
    runUntilDate(std::chrono::steady_clock::time_point::max());
}

bool NSRunLoop::runUntilDate(std::chrono::steady_clock::time_point deadline) {
    SEVRIN_ASSERT(isMainThread(), "the run loop belongs to the main thread");
    SEVRIN_ASSERT(!isRunning_, "the run loop is running already");
    asio::io_context& context = mainContext();
    context.restart();

    isRunning_ = true;
    if (deadline == std::chrono::steady_clock::time_point::max()) {
        context.run();  // Sleeps without a limit, where a deadline is waited for in slices.
    } else {
        context.run_until(deadline);
    }
    isRunning_ = false;
    return context.stopped();
}

void NSRunLoop::stop() {
    SEVRIN_ASSERT(isMainThread(), "the run loop belongs to the main thread");
    if (isRunning_) mainContext().stop();
}

}  // namespace sevrin::platform
