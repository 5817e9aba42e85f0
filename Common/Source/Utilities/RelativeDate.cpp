// Relative dates in terms of the user's calendar.
#include "Common/Source/Utilities/RelativeDate.h"

#include <limits>

#include "Platform/NSCalendar.h"

namespace sevrin {

using platform::NSCalendar;
using platform::NSCalendarUnit;
using platform::NSDate;
using platform::NSDateComponents;

namespace {

constexpr NSCalendarUnit kEraYear = NSCalendarUnit::Era | NSCalendarUnit::Year;
constexpr NSCalendarUnit kEraYearMonth = kEraYear | NSCalendarUnit::Month;
constexpr NSCalendarUnit kEraYearMonthDay = kEraYearMonth | NSCalendarUnit::Day;

// The first moment of the units that `units` names, in which `date` lies.
NSDate startOf(NSCalendarUnit units, NSDate date) {
    const NSCalendar calendar = NSCalendar::currentCalendar();
    return calendar.dateFromComponents(calendar.componentsFromDate(units, date));
}

// The least number has no opposite; the greatest is as good a substitute as any, for the calendar
// ends long before either.
std::int64_t opposite(std::int64_t number) {
    using Limits = std::numeric_limits<std::int64_t>;
    return number == Limits::min() ? Limits::max() : -number;
}

NSDateComponents amountOf(std::int64_t offset, std::uint32_t scale) {
    switch (scale) {
        case kScaleMinute:
            return {.minute = offset};
        case kScaleHour:
            return {.hour = offset};
        case kScaleDay:
            return {.day = offset};
        case kScaleWeek:
            return {.weekOfYear = offset};
        case kScaleMonth:
            return {.month = offset};
        case kScaleYear:
            return {.year = offset};
        default:
            return {};
    }
}

}  // namespace

NSDate startOfToday() {
    return startOfDay(NSDate::date());
}

NSDate todayWithHourMinute(std::int64_t hour, std::int64_t minute) {
    return dateWithHourMinute(NSDate::date(), hour, minute);
}

NSDate startOfEra(NSDate date) {
    return startOf(NSCalendarUnit::Era, date);
}

NSDate startOfYear(NSDate date) {
    return startOf(kEraYear, date);
}

NSDate startOfMonth(NSDate date) {
    return startOf(kEraYearMonth, date);
}

NSDate startOfDay(NSDate date) {
    return NSCalendar::currentCalendar().startOfDayForDate(date);
}

NSDate dateWithHourMinute(NSDate date, std::int64_t hour, std::int64_t minute) {
    NSCalendarUnit units = kEraYearMonthDay;
    if (hour == kKeepHourOrMinute) units = units | NSCalendarUnit::Hour;
    if (minute == kKeepHourOrMinute) units = units | NSCalendarUnit::Minute;

    const NSCalendar calendar = NSCalendar::currentCalendar();
    NSDateComponents components = calendar.componentsFromDate(units, date);
    if (hour != kKeepHourOrMinute) components.hour = hour;
    if (minute != kKeepHourOrMinute) components.minute = minute;
    components.second = 0;
    return calendar.dateFromComponents(components);
}

NSDate nextHourMinute(NSDate date, std::int64_t hour, std::int64_t minute) {
    const NSDate sameDay = dateWithHourMinute(date, hour, minute);
    return sameDay.inThePast() ? dateOffsetByScale(sameDay, 1, kScaleDay) : sameDay;
}

NSDate dateOffsetByScale(NSDate date, std::int64_t offset, std::uint32_t scale) {
    return dateOffsetByReverseDirectionScale(date, offset, false, scale);
}

NSDate dateOffsetByReverseDirectionScale(NSDate date, std::int64_t offset, bool reverseDirection,
                                         std::uint32_t scale) {
    if (offset == 0) return date;
    const NSDateComponents amount = amountOf(reverseDirection ? opposite(offset) : offset, scale);
    return NSCalendar::currentCalendar().dateByAddingComponentsToDate(amount, date);
}

}  // namespace sevrin
