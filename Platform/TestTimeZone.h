// For tests only: local time in a zone of the test's choice, and moments given in UTC.
//
// The zone is the whole process's, so a test that sets one must be alone in its process while it
// does; the test runner starts every test in a process of its own.
#pragma once

#include <stdlib.h>
#include <time.h>

#include <chrono>
#include <optional>
#include <string>

#include "Platform/NSDate.h"

namespace sevrin::platform {

// Zones as rules, which need no zone files. Clocks go from 02:00 to 03:00 on the last Sunday of
// March and from 03:00 to 02:00 on the last Sunday of October.
inline constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
// Midnight is skipped: from 00:00 to 01:00 on the last Friday of April. From 24:00 to 23:00 on the
// last Thursday of October.
inline constexpr const char* kSkipsMidnight = "EET-2EEST,M4.5.5/0,M10.5.4/24";
// The hour after midnight is repeated: from 01:00 to 00:00 on the first Sunday of November.
inline constexpr const char* kRepeatsMidnight = "CST5CDT,M3.2.0/0,M11.1.0/1";
// Midnight lies within what is skipped: from 23:30 to 00:30 on the last Sunday of March.
inline constexpr const char* kSkipsAcrossMidnight = "EST5EDT,M3.5.0/23:30,M10.5.0/2:30";

class ScopedTimeZone {
public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* before = ::getenv("TZ")) before_ = before;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ScopedTimeZone() {
        if (before_) {
            ::setenv("TZ", before_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

private:
    std::optional<std::string> before_;
};

// The moment at which clocks in UTC show this. Years before 1 are 0, -1, ...
inline NSDate utc(int year, unsigned month, unsigned day, int hour = 0, int minute = 0,
                  double second = 0) {
    const std::chrono::sys_seconds moment =
        std::chrono::sys_days(std::chrono::year(year) / std::chrono::month(month) /
                              std::chrono::day(day)) +
        std::chrono::hours(hour) + std::chrono::minutes(minute);
    return NSDate::dateWithTimeIntervalSince1970(
        static_cast<double>(moment.time_since_epoch().count()) + second);
}

// How a test names dates when it fails.
inline void PrintTo(NSDate date, std::ostream* out) {
    *out << date.description();
}

}  // namespace sevrin::platform
