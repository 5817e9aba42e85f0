// The local time zone through localtime_r. The way back does without mktime, whose answer for a
// repeated time depends on what it was asked before.
#include "Platform/LocalTime.h"

#include <time.h>

#include <algorithm>
#include <mutex>

#include "Platform/Assertion.h"

namespace sevrin::platform {
namespace {

using std::chrono::local_seconds;
using std::chrono::seconds;
using std::chrono::sys_seconds;

// One thread at a time reads or changes the C library's zone: its own lock is not promised
// everywhere, nor known to the tools that look for races.
std::mutex zoneMutex;

// The moment of `local` on a clock that is `offset` ahead of UTC.
sys_seconds onClock(local_seconds local, seconds offset) {
    return sys_seconds(local.time_since_epoch() - offset);
}

// The first moment after `early` and not after `late` whose offset is not `offset`, early's own.
sys_seconds changeOfOffset(sys_seconds early, sys_seconds late, seconds offset) {
    while (late - early > seconds(1)) {
        const sys_seconds middle = early + (late - early) / 2;
        (utcOffset(middle) == offset ? early : late) = middle;
    }
    return late;
}

}  // namespace

void followTimeZone() noexcept {
    const std::lock_guard<std::mutex> lock(zoneMutex);
    ::tzset();
}

seconds utcOffset(sys_seconds moment) {
    const std::time_t time = moment.time_since_epoch().count();
    std::tm fields{};
    const std::lock_guard<std::mutex> lock(zoneMutex);
    const bool isExpressible = ::localtime_r(&time, &fields) != nullptr;
    SEVRIN_ASSERT(isExpressible, "a moment beyond the years of the calendar");
    return seconds(fields.tm_gmtoff);
}

local_seconds localTime(sys_seconds moment) {
    return local_seconds(moment.time_since_epoch() + utcOffset(moment));
}

sys_seconds momentOfLocalTime(local_seconds local, Skipped skipped) {
    // No zone is a day away from UTC, so these are in force before and after the moment sought, and
    // clocks are changed at most once between them.
    constexpr std::chrono::days kDay(1);
    const seconds before = utcOffset(onClock(local, kDay));
    const seconds after = utcOffset(onClock(local, -kDay));
    const sys_seconds byBefore = onClock(local, before);
    const sys_seconds byAfter = onClock(local, after);
    const bool existsBefore = utcOffset(byBefore) == before;
    const bool existsAfter = utcOffset(byAfter) == after;

    if (existsBefore && existsAfter) return std::min(byBefore, byAfter);
    if (existsBefore) return byBefore;
    if (existsAfter) return byAfter;
    if (skipped == Skipped::MovesForward) return byBefore;
    return changeOfOffset(byAfter, byBefore, before);
}

}  // namespace sevrin::platform
