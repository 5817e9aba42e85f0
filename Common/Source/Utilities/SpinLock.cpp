// The slow way into a taken lock: a few looks, then sleep.
#include "Common/Source/Utilities/SpinLock.h"

namespace sevrin {

void SpinLock::lockContended() noexcept {
    constexpr int kLooks = 64;
    for (int look = 0; look < kLooks; ++look) {
        if (state_.load(std::memory_order_relaxed) == kFree && try_lock()) return;
    }
    // Who has slept cannot know whether others still do, so it takes the lock as an awaited one.
    while (state_.exchange(kAwaited, std::memory_order_acquire) != kFree) {
        state_.wait(kAwaited, std::memory_order_relaxed);
    }
}

}  // namespace sevrin
