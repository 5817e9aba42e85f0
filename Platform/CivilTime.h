// Dates as whole seconds on the UTC and the local clock, and those taken apart into calendar
// fields.
//
// Shared by the sources of dates, calendar and formatter; no part of the platform contract. Pure
// arithmetic: the time zone is LocalTime.h's. The calendar is proleptic: today's rules hold for all
// years.
#pragma once

#include <chrono>
#include <cmath>

#include "Platform/NSDate.h"

namespace sevrin::platform {

// The whole years that std::chrono can express on every clock: one year is kept free at each end,
// so that a local time beyond the end of its UTC year is still expressible.
inline constexpr std::chrono::year kFirstYear(-32'766);
inline constexpr std::chrono::year kLastYear(32'766);

// Their first and last second, counted from the first moment of 1970.
inline constexpr std::chrono::seconds kFirstSecond =
    std::chrono::sys_days(kFirstYear / 1 / 1).time_since_epoch();
inline constexpr std::chrono::seconds kLastSecond =
    std::chrono::sys_days((kLastYear + std::chrono::years(1)) / 1 / 1).time_since_epoch() -
    std::chrono::seconds(1);

// What a clock shows: midnight is 00:00:00, and there are no leap seconds.
struct CivilTime {
    int year;         // ..., -1, 0, 1, ...: the year 0 is 1 BC.
    unsigned month;   // 1 to 12
    unsigned day;     // 1 to 31
    unsigned hour;    // 0 to 23
    unsigned minute;  // 0 to 59
    unsigned second;  // 0 to 59
};

// The fields of a time on the local clock, which lies within a day of the expressible years.
constexpr CivilTime civilTime(std::chrono::local_seconds local) {
    const auto midnight = std::chrono::floor<std::chrono::days>(local);
    const std::chrono::year_month_day date(midnight);
    const std::chrono::hh_mm_ss time(local - midnight);
    return {static_cast<int>(date.year()),
            static_cast<unsigned>(date.month()),
            static_cast<unsigned>(date.day()),
            static_cast<unsigned>(time.hours().count()),
            static_cast<unsigned>(time.minutes().count()),
            static_cast<unsigned>(time.seconds().count())};
}

// The UTC second within which `date` lies, held within the expressible years.
inline std::chrono::sys_seconds wholeSecond(NSDate date) {
    // The floor comes first: added to before, a fraction could be rounded up into the next second.
    const double seconds =
        std::floor(date.timeIntervalSinceReferenceDate()) + NSDate::kTimeIntervalSince1970;
    // Written so that "not a number" fails the first comparison and becomes the first second.
    if (!(seconds > static_cast<double>(kFirstSecond.count()))) {
        return std::chrono::sys_seconds(kFirstSecond);
    }
    if (seconds > static_cast<double>(kLastSecond.count())) {
        return std::chrono::sys_seconds(kLastSecond);
    }
    return std::chrono::sys_seconds(std::chrono::seconds(static_cast<std::int64_t>(seconds)));
}

}  // namespace sevrin::platform
