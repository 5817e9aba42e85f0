// The current time, and a date's text for people.
#include "Platform/NSDate.h"

#include <time.h>

#include <array>
#include <cstdio>

#include "Platform/CivilTime.h"

namespace sevrin::platform {

NSDate NSDate::date() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);  // Cannot fail: the clock exists and the memory is ours.
    // The whole seconds are brought near zero before the fraction joins them: it keeps more digits.
    return NSDate(static_cast<double>(now.tv_sec) - kTimeIntervalSince1970 +
                  static_cast<double>(now.tv_nsec) * 1e-9);
}

std::string NSDate::description() const {
    const CivilTime time =
        civilTime(std::chrono::local_seconds(wholeSecond(*this).time_since_epoch()));
    const char* format = time.year < 0
                             ? "%05d-%02u-%02u %02u:%02u:%02u +0000"  // The sign adds one.
                             : "%04d-%02u-%02u %02u:%02u:%02u +0000";
    std::array<char, 48> text{};
    const int length = std::snprintf(text.data(), text.size(), format, time.year, time.month,
                                     time.day, time.hour, time.minute, time.second);
    return std::string(text.data(), static_cast<std::size_t>(length));
}

}  // namespace sevrin::platform
