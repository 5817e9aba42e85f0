// Dates relative to a date in the user's calendar and local time zone: where its era, year, month
// or day starts, the same day at an hour and minute, the next time it is that hour and minute, and
// offsets by a number of minutes, hours, days, weeks, months or years.
//
// Pure calculation on top of NSCalendar, whose rules for skipped and repeated local times, short
// months and absurd numbers hold here: nothing fails. May be called on any thread.
#pragma once

#include <cstdint>

#include "Platform/NSDate.h"

namespace sevrin {

// What an offset counts. Any other number is a scale that offsets by nothing. Do not renumber.
inline constexpr std::uint32_t kScaleMinute = 0;
inline constexpr std::uint32_t kScaleHour = 1;
inline constexpr std::uint32_t kScaleDay = 2;
inline constexpr std::uint32_t kScaleWeek = 3;
inline constexpr std::uint32_t kScaleMonth = 4;
inline constexpr std::uint32_t kScaleYear = 5;

// As an hour or minute: the one that the date itself has.
inline constexpr std::int64_t kKeepHourOrMinute = -1;

// The first moment of the current day.
platform::NSDate startOfToday();

// Today at that hour (0 to 23, or kKeepHourOrMinute) and minute (0 to 59, or kKeepHourOrMinute):
// what dateWithHourMinute gives for the current moment.
platform::NSDate todayWithHourMinute(std::int64_t hour, std::int64_t minute);

// The first moment of the era, year, month or day in which `date` lies. An era starts with the
// first day of its year 1: the years BC, which count backwards, with the first day of 1 BC.
platform::NSDate startOfEra(platform::NSDate date);
platform::NSDate startOfYear(platform::NSDate date);
platform::NSDate startOfMonth(platform::NSDate date);
platform::NSDate startOfDay(platform::NSDate date);

// The day of `date` at that hour and minute (kKeepHourOrMinute for the date's own), at second 0.
// Numbers beyond an hour's or a minute's range carry over: hour 24 is the next day's midnight.
platform::NSDate dateWithHourMinute(platform::NSDate date, std::int64_t hour, std::int64_t minute);

// dateWithHourMinute, or the day after it at that time when it is earlier than now. The day is that
// of `date`: of a date before yesterday the result is still in the past.
platform::NSDate nextHourMinute(platform::NSDate date, std::int64_t hour, std::int64_t minute);

// `date` so many units of `scale` later, or earlier when `offset` is negative. Minutes and hours
// are exact time; the larger units keep the local time of day. An offset of 0 gives `date` itself.
platform::NSDate dateOffsetByScale(platform::NSDate date, std::int64_t offset, std::uint32_t scale);

// The same; with `reverseDirection`, earlier by `offset` instead of later.
platform::NSDate dateOffsetByReverseDirectionScale(platform::NSDate date, std::int64_t offset,
                                                   bool reverseDirection, std::uint32_t scale);

}  // namespace sevrin
