// The Gregorian calendar in the local time zone: dates taken apart, put together and counted on.
//
// Today's rules hold for all years (proleptic, no change from the Julian calendar). Local time is
// what the machine's zone says at each call. A local time that is skipped when clocks are put
// forward moves forward by as much; of one that occurs twice the first is meant.
//
// Covers the years 32767 BC to 32766 AD. A date beyond them is taken as the nearest end, and what
// would lead beyond them stops there: no date and no number makes an operation fail. On any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "Platform/NSDate.h"

namespace sevrin::platform {

// Units of the calendar as bits, so that a set of them is one value. Do not renumber.
enum class NSCalendarUnit : std::uint64_t {
    Era = 2,
    Year = 4,
    Month = 8,
    Day = 16,
    Hour = 32,
    Minute = 64,
    Second = 128,
};

constexpr NSCalendarUnit operator|(NSCalendarUnit one, NSCalendarUnit other) noexcept {
    return static_cast<NSCalendarUnit>(static_cast<std::uint64_t>(one) |
                                       static_cast<std::uint64_t>(other));
}

// Whether the set `units` has `unit` among them.
constexpr bool contains(NSCalendarUnit units, NSCalendarUnit unit) noexcept {
    return (static_cast<std::uint64_t>(units) & static_cast<std::uint64_t>(unit)) != 0;
}

// The fields of a date, or amounts to add to one; what is not set is not known, or adds nothing.
struct NSDateComponents {
    std::optional<std::int64_t> era{};         // 0 is BC, 1 is AD.
    std::optional<std::int64_t> year{};        // Of the era: 1 BC is followed by 1 AD.
    std::optional<std::int64_t> month{};       // 1 to 12
    std::optional<std::int64_t> day{};         // 1 to 31
    std::optional<std::int64_t> hour{};        // 0 to 23
    std::optional<std::int64_t> minute{};      // 0 to 59
    std::optional<std::int64_t> second{};      // 0 to 59
    std::optional<std::int64_t> weekOfYear{};  // Only an amount to add: weeks of seven days.
};

class NSCalendar {
public:
    // The user's calendar. On this system it is the Gregorian one.
    static NSCalendar currentCalendar() noexcept { return {}; }

    // The Gregorian calendar, whichever the user prefers.
    static NSCalendar gregorianCalendar() noexcept { return {}; }

    // Those fields of `date` that the set `units` names; the others are left unset.
    NSDateComponents componentsFromDate(NSCalendarUnit units, NSDate date) const;

    // The date with these fields; an unset one takes its first value (era AD, year 1, month 1,
    // day 1, time 0). Fields beyond their range carry over: month 13 is the next January, day 0 the
    // day before the first, hour 24 the next midnight.
    NSDate dateFromComponents(const NSDateComponents& components) const;

    // The first moment of the local day in which `date` lies: midnight, or where clocks skip
    // midnight the first moment they do show.
    NSDate startOfDayForDate(NSDate date) const;

    // `date` with these amounts (negative ones too) added, the largest unit first. Years and months
    // keep the day, or take the month's last where it has none such: 31 January and a month is
    // 28 or 29 February. Years, months, weeks and days keep the local time of day, however long the
    // days are. Hours, minutes and seconds are exact time. The era adds nothing.
    NSDate dateByAddingComponentsToDate(const NSDateComponents& components, NSDate date) const;

    // The position, from 1, of the `smaller` unit of `date` within its `larger` unit. Known are the
    // day in the era (1 January 1 AD is day 1; nothing in the years BC, which have no first day)
    // and the minute in the day (1 to 1440 as clocks show it, also on a day of 23 or 25 hours).
    // Nothing for any other pair.
    std::optional<std::int64_t> ordinalityOfUnitInUnitForDate(NSCalendarUnit smaller,
                                                              NSCalendarUnit larger,
                                                              NSDate date) const;
};

}  // namespace sevrin::platform
