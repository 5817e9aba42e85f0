// The platform's clocks that run since the start of the system, in ticks.
//
// None of them follows the time of day, and none ever goes back. What a tick is,
// mach_timebase_info() says. Nothing fails but that, and only where a system says so. Any thread.
#pragma once

#include <cstdint>

namespace sevrin::platform {

// A tick takes numer/denom nanoseconds.
struct mach_timebase_info_data_t {
    std::uint32_t numer = 0;
    std::uint32_t denom = 0;
};

using kern_return_t = int;

// The answer of a call that did what it was asked.
inline constexpr kern_return_t kKernSuccess = 0;

// Tells the length of a tick, the same for all clocks below and for the life of the system. Gives
// kKernSuccess, or what went wrong; then `info` is not to be used.
[[nodiscard]] kern_return_t mach_timebase_info(mach_timebase_info_data_t& info) noexcept;

// Ticks while the system was awake.
[[nodiscard]] std::uint64_t mach_absolute_time() noexcept;

// The same, read faster and behind by up to a few milliseconds.
[[nodiscard]] std::uint64_t mach_approximate_time() noexcept;

// Ticks since the start, those that the system slept included; may be behind as the one above.
[[nodiscard]] std::uint64_t mach_continuous_approximate_time() noexcept;

}  // namespace sevrin::platform
