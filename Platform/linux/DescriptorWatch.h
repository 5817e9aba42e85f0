// Calls a function on the main loop whenever a descriptor is readable.
//
// Owns the descriptor. Made and destroyed on any thread; the function runs on the main thread.
#pragma once

#include <functional>
#include <memory>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class DescriptorWatch {
public:
    // `whenReadable` gets the descriptor and is called again as long as that stays readable.
    DescriptorWatch(UniqueFd descriptor, std::function<void(int)> whenReadable);

    // Closes the descriptor. On the main thread no call follows. On another one a call may be in
    // progress: its owner must keep it away from a descriptor that is about to close.
    ~DescriptorWatch();

    DescriptorWatch(const DescriptorWatch&) = delete;
    DescriptorWatch& operator=(const DescriptorWatch&) = delete;

    // The descriptor, borrowed.
    [[nodiscard]] int descriptor() const noexcept { return descriptor_; }

private:
    struct State;
    static void arm(const std::shared_ptr<State>& state);

    int descriptor_;
    std::shared_ptr<State> state_;  // Shared with the wait in progress.
};

}  // namespace sevrin::platform
