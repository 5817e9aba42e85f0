// A readiness wait on the main context, armed again after every call.
#include "Platform/linux/DescriptorWatch.h"

#include <asio/posix/stream_descriptor.hpp>
#include <mutex>
#include <system_error>
#include <utility>

#include "Platform/linux/MainLoop.h"

namespace sevrin::platform {

struct DescriptorWatch::State {
    std::mutex mutex;  // The descriptor object is used by the loop and by the destructor's thread.
    asio::posix::stream_descriptor descriptor{mainContext()};
    std::function<void(int)> whenReadable;
};

DescriptorWatch::DescriptorWatch(UniqueFd descriptor, std::function<void(int)> whenReadable)
    : descriptor_(descriptor.get()), state_(std::make_shared<State>()) {
    state_->whenReadable = std::move(whenReadable);
    state_->descriptor.assign(descriptor.get());
    static_cast<void>(descriptor.release());
    arm(state_);
}

DescriptorWatch::~DescriptorWatch() {
    const std::lock_guard lock(state_->mutex);
    std::error_code ignored;  // The descriptor is gone whatever close() says.
    state_->descriptor.close(ignored);
}

void DescriptorWatch::arm(const std::shared_ptr<State>& state) {
    const std::lock_guard lock(state->mutex);
    if (!state->descriptor.is_open()) return;
    const int descriptor = state->descriptor.native_handle();
    const auto readable = asio::posix::stream_descriptor::wait_read;
    state->descriptor.async_wait(readable, [state, descriptor](std::error_code error) {
        if (error) return;  // Closed.
        runBlock([&] { state->whenReadable(descriptor); });
        arm(state);
    });
}

}  // namespace sevrin::platform
