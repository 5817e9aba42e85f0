// A moment in time: seconds, with fraction, since the first moment of 2001 in UTC.
//
// A value of eight bytes, trivially copyable, free of time zone and calendar (NSCalendar.h) and of
// any text (NSDateFormatter.h). Today's dates resolve about 0.1 microseconds. Usable on any thread.
#pragma once

#include <compare>
#include <string>

#include "Platform/Export.h"

namespace sevrin::platform {

class SEVRIN_EXPORT NSDate {
public:
    // The reference date in seconds since the first moment of 1970; leap seconds do not count.
    static constexpr double kTimeIntervalSince1970 = 978'307'200.0;

    // Now, by the machine's real-time clock.
    static NSDate date() noexcept;

    // The moment `seconds` after (when negative: before) the reference date, or 1970.
    static constexpr NSDate dateWithTimeIntervalSinceReferenceDate(double seconds) noexcept {
        return NSDate(seconds);
    }
    static constexpr NSDate dateWithTimeIntervalSince1970(double seconds) noexcept {
        return NSDate(seconds - kTimeIntervalSince1970);
    }

    // Seconds from the reference date, 1970 or `other` to this date; negative when it is earlier.
    constexpr double timeIntervalSinceReferenceDate() const noexcept { return seconds_; }
    constexpr double timeIntervalSince1970() const noexcept {
        return seconds_ + kTimeIntervalSince1970;
    }
    constexpr double timeIntervalSinceDate(NSDate other) const noexcept {
        return seconds_ - other.seconds_;
    }

    // The date `seconds` later (when negative: earlier); a day of the calendar is NSCalendar's.
    constexpr NSDate dateByAddingTimeInterval(double seconds) const noexcept {
        return NSDate(seconds_ + seconds);
    }

    // Whether this date is earlier than the current time.
    bool inThePast() const noexcept { return *this < date(); }

    // Earlier dates are less. A date made from "not a number" is unordered and equals nothing.
    constexpr auto operator<=>(const NSDate&) const noexcept = default;

    // The same order made total, for sorting: "not a number" stands at an end, equal to itself.
    constexpr std::weak_ordering compare(NSDate other) const noexcept {
        return std::weak_order(seconds_, other.seconds_);
    }

    // "2026-11-21 09:20:37 +0000": always in UTC, fractions of a second dropped, the years before
    // year 1 counted 0, -1, ... For people and diagnostics. Beyond the range of NSCalendar it is
    // the nearest end of that range.
    std::string description() const;

private:
    explicit constexpr NSDate(double seconds) noexcept : seconds_(seconds) {}

    double seconds_;
};

}  // namespace sevrin::platform
