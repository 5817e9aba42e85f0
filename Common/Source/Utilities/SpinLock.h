// A lock of one byte, for objects of which there are millions.
//
// A directory of a million entries has a million of them, so a mutex of forty bytes is too dear.
// Whoever finds it taken tries for a moment and then sleeps until it is free: some are held across
// a system call. Not recursive. Satisfies what std::lock_guard asks for.
#pragma once

#include <atomic>
#include <cstdint>

namespace sevrin {

class SpinLock {
public:
    SpinLock() = default;
    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    void lock() noexcept {
        std::uint8_t expected = kFree;
        if (!state_.compare_exchange_strong(expected, kTaken, std::memory_order_acquire)) {
            lockContended();
        }
    }

    [[nodiscard]] bool try_lock() noexcept {
        std::uint8_t expected = kFree;
        return state_.compare_exchange_strong(expected, kTaken, std::memory_order_acquire);
    }

    void unlock() noexcept {
        if (state_.exchange(kFree, std::memory_order_release) == kAwaited) state_.notify_one();
    }

private:
    static constexpr std::uint8_t kFree = 0;
    static constexpr std::uint8_t kTaken = 1;
    static constexpr std::uint8_t kAwaited = 2;  // Taken, and somebody may be asleep.

    void lockContended() noexcept;

    std::atomic<std::uint8_t> state_ = kFree;
};

}  // namespace sevrin
