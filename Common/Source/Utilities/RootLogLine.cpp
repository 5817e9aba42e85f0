// The numbering of the root line.
#include "Common/Source/Utilities/RootLogLine.h"

#include <algorithm>
#include <utility>

#include "Platform/NSCalendar.h"

namespace sevrin {

using platform::NSCalendar;
using platform::NSCalendarUnit;

std::uint64_t logDayStamp(platform::NSDate date) {
    constexpr std::int64_t kMinutesPerDay = 1440;
    // Not the user's calendar: everybody's lines are numbered alike.
    const NSCalendar calendar = NSCalendar::gregorianCalendar();
    const std::int64_t day =
        calendar.ordinalityOfUnitInUnitForDate(NSCalendarUnit::Day, NSCalendarUnit::Era, date)
            .value_or(0);
    const std::int64_t minute =
        calendar.ordinalityOfUnitInUnitForDate(NSCalendarUnit::Minute, NSCalendarUnit::Day, date)
            .value_or(1);
    // The last minute counts as the one before it, or it would be a hundredth of the next day.
    const std::int64_t hundredths = std::min(minute, kMinutesPerDay - 1) * 100 / kMinutesPerDay;
    return static_cast<std::uint64_t>(day * 100 + hundredths);
}

LogLineIdentifierPtr makeRootLogLine(std::uint32_t application, platform::NSDate date,
                                     std::uint64_t process) {
    auto line = LogLineIdentifier::initExtendingWithID(nullptr, application);
    line = LogLineIdentifier::initExtendingWithID(std::move(line), logDayStamp(date));
    return LogLineIdentifier::initExtendingWithID(std::move(line), process);
}

}  // namespace sevrin
