// Dates from the times of the file system: seconds since 1970 and nanoseconds.
#pragma once

#include <time.h>

#include "Platform/NSDate.h"

namespace sevrin {

// The seconds are counted from the reference date before anything is rounded: a date resolves small
// numbers best.
[[nodiscard]] inline platform::NSDate newCFDateWithBSDTimeSpec(const timespec& time) noexcept {
    constexpr auto kReferenceDate = static_cast<time_t>(platform::NSDate::kTimeIntervalSince1970);
    return platform::NSDate::dateWithTimeIntervalSinceReferenceDate(
        static_cast<double>(time.tv_sec - kReferenceDate) +
        static_cast<double>(time.tv_nsec) / 1e9);
}

}  // namespace sevrin
