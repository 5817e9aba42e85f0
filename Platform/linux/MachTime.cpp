// The clocks since the start of the system, as Linux keeps them; a tick is a nanosecond.
#include "Platform/MachTime.h"

#include <time.h>

namespace sevrin::platform {
namespace {

// The clocks asked for exist in every kernel that this runs on, so reading them does not fail.
std::uint64_t read(clockid_t clock) noexcept {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000U +
           static_cast<std::uint64_t>(time.tv_nsec);
}

}  // namespace

kern_return_t mach_timebase_info(mach_timebase_info_data_t& info) noexcept {
    info = {1, 1};
    return kKernSuccess;
}

std::uint64_t mach_absolute_time() noexcept {
    return read(CLOCK_MONOTONIC);  // Stands still in sleep, as wanted.
}

std::uint64_t mach_approximate_time() noexcept {
    return read(CLOCK_MONOTONIC_COARSE);
}

std::uint64_t mach_continuous_approximate_time() noexcept {
    return read(CLOCK_BOOTTIME);  // Has no faster twin; being exact is allowed.
}

}  // namespace sevrin::platform
