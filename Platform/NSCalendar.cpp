// Calendar arithmetic on local time: std::chrono supplies the civil dates, LocalTime.h the zone.
//
// Numbers are anybody's: each is held to more than the calendar spans before it is calculated with,
// so that no sum overflows, and what comes out is held to the calendar.
#include "Platform/NSCalendar.h"

#include <algorithm>
#include <chrono>

#include "Platform/CivilTime.h"
#include "Platform/LocalTime.h"

namespace sevrin::platform {
namespace {

using std::chrono::local_days;
using std::chrono::local_seconds;
using std::chrono::seconds;
using std::chrono::sys_seconds;

constexpr std::int64_t kEraBC = 0;
constexpr std::int64_t kEraAD = 1;
constexpr std::int64_t kMonthsPerYear = 12;

// The months from January of the year 0 to the calendar's first and last.
constexpr std::int64_t kFirstMonth = static_cast<int>(kFirstYear) * kMonthsPerYear;
constexpr std::int64_t kLastMonth = static_cast<int>(kLastYear) * kMonthsPerYear + 11;

// A number of years or months, held to more than the calendar has of either.
std::int64_t heldMonths(std::int64_t number) {
    constexpr std::int64_t kMost = kLastMonth - kFirstMonth + 1;
    return std::clamp(number, -kMost, kMost);
}

// A number of `unit` as seconds, held to more than the calendar has of them.
seconds heldSeconds(std::int64_t number, seconds unit) {
    const std::int64_t most = (kLastSecond - kFirstSecond) / unit + 1;
    return std::clamp(number, -most, most) * unit;
}

// The month that lies `months` after January of the year 0, held to the calendar.
std::chrono::year_month monthAt(std::int64_t months) {
    return std::chrono::year(0) / 1 +
           std::chrono::months(std::clamp(months, kFirstMonth, kLastMonth));
}

local_seconds heldToCalendar(local_seconds local) {
    return std::clamp(local, local_seconds(kFirstSecond), local_seconds(kLastSecond));
}

// `local` so many months later: on its day, or on the month's last where it has no such day.
local_seconds addMonths(local_seconds local, std::int64_t months) {
    if (months == 0) return local;

    const local_days midnight = std::chrono::floor<std::chrono::days>(local);
    const std::chrono::year_month_day date(midnight);
    const std::int64_t month =
        static_cast<int>(date.year()) * kMonthsPerYear + static_cast<unsigned>(date.month()) - 1;

    const std::chrono::year_month target = monthAt(month + months);
    const std::chrono::year_month_day_last last = target / std::chrono::last;
    const local_days day(target / std::min(date.day(), last.day()));
    return day + (local - midnight);
}

}  // namespace

NSDateComponents NSCalendar::componentsFromDate(NSCalendarUnit units, NSDate date) const {
    followTimeZone();
    const CivilTime time = civilTime(localTime(wholeSecond(date)));
    const bool isAD = time.year > 0;

    NSDateComponents components;
    if (contains(units, NSCalendarUnit::Era)) components.era = isAD ? kEraAD : kEraBC;
    if (contains(units, NSCalendarUnit::Year)) components.year = isAD ? time.year : 1 - time.year;
    if (contains(units, NSCalendarUnit::Month)) components.month = time.month;
    if (contains(units, NSCalendarUnit::Day)) components.day = time.day;
    if (contains(units, NSCalendarUnit::Hour)) components.hour = time.hour;
    if (contains(units, NSCalendarUnit::Minute)) components.minute = time.minute;
    if (contains(units, NSCalendarUnit::Second)) components.second = time.second;
    return components;
}

NSDate NSCalendar::dateFromComponents(const NSDateComponents& components) const {
    const std::int64_t yearOfEra = heldMonths(components.year.value_or(1));
    const std::int64_t year = components.era.value_or(kEraAD) == kEraBC ? 1 - yearOfEra : yearOfEra;
    const std::int64_t month = heldMonths(components.month.value_or(1)) - 1;

    const local_seconds local =
        local_days(monthAt(year * kMonthsPerYear + month) / 1) - std::chrono::days(1) +
        heldSeconds(components.day.value_or(1), std::chrono::days(1)) +
        heldSeconds(components.hour.value_or(0), std::chrono::hours(1)) +
        heldSeconds(components.minute.value_or(0), std::chrono::minutes(1)) +
        heldSeconds(components.second.value_or(0), seconds(1));
    followTimeZone();
    const sys_seconds moment = momentOfLocalTime(heldToCalendar(local), Skipped::MovesForward);
    return NSDate::dateWithTimeIntervalSince1970(
        static_cast<double>(moment.time_since_epoch().count()));
}

NSDate NSCalendar::startOfDayForDate(NSDate date) const {
    followTimeZone();
    const local_seconds local = localTime(wholeSecond(date));
    const sys_seconds moment =
        momentOfLocalTime(std::chrono::floor<std::chrono::days>(local), Skipped::IsCut);
    return NSDate::dateWithTimeIntervalSince1970(
        static_cast<double>(moment.time_since_epoch().count()));
}

NSDate NSCalendar::dateByAddingComponentsToDate(const NSDateComponents& components,
                                                NSDate date) const {
    followTimeZone();
    const sys_seconds start = wholeSecond(date);
    const local_seconds startLocal = localTime(start);

    local_seconds local = addMonths(startLocal, heldMonths(components.year.value_or(0)) * 12);
    local = addMonths(local, heldMonths(components.month.value_or(0)));
    local += heldSeconds(components.weekOfYear.value_or(0), std::chrono::weeks(1));
    local += heldSeconds(components.day.value_or(0), std::chrono::days(1));

    // The way back from local time takes the first of two moments; no amount must not take it.
    sys_seconds moment = start;
    if (local != startLocal) {
        moment = momentOfLocalTime(heldToCalendar(local), Skipped::MovesForward);
    }
    moment += heldSeconds(components.hour.value_or(0), std::chrono::hours(1)) +
              heldSeconds(components.minute.value_or(0), std::chrono::minutes(1)) +
              heldSeconds(components.second.value_or(0), seconds(1));
    return date.dateByAddingTimeInterval(static_cast<double>((moment - start).count()));
}

std::optional<std::int64_t> NSCalendar::ordinalityOfUnitInUnitForDate(NSCalendarUnit smaller,
                                                                      NSCalendarUnit larger,
                                                                      NSDate date) const {
    followTimeZone();
    const local_seconds local = localTime(wholeSecond(date));
    const local_days midnight = std::chrono::floor<std::chrono::days>(local);

    if (smaller == NSCalendarUnit::Day && larger == NSCalendarUnit::Era) {
        constexpr local_days kFirstDay(std::chrono::year(1) / 1 / 1);
        if (midnight < kFirstDay) return std::nullopt;
        return (midnight - kFirstDay).count() + 1;
    }
    if (smaller == NSCalendarUnit::Minute && larger == NSCalendarUnit::Day) {
        return std::chrono::floor<std::chrono::minutes>(local - midnight).count() + 1;
    }
    return std::nullopt;
}

}  // namespace sevrin::platform
