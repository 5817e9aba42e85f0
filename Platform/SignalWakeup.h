// The bridge from a signal handler to the main queue.
//
// A handler may do next to nothing: no lock, no allocation, no queue. trigger() is what it may do.
// Create the object before the handler is installed, take the handler out before it goes.
#pragma once

#include <functional>
#include <memory>

namespace sevrin::platform {

class SignalWakeup {
public:
    // `block` is what trigger() makes run on the main queue. On the main thread, as the destructor.
    // Throws std::system_error when the system gives no descriptor.
    explicit SignalWakeup(std::function<void()> block);
    ~SignalWakeup();

    SignalWakeup(const SignalWakeup&) = delete;
    SignalWakeup& operator=(const SignalWakeup&) = delete;

    // Makes the block run at least once after this call; several calls may share one run. Safe in a
    // signal handler and on any thread: one write that never blocks, errno left as it was.
    void trigger() const noexcept;

private:
    struct Backend;
    std::unique_ptr<Backend> backend_;
};

}  // namespace sevrin::platform
