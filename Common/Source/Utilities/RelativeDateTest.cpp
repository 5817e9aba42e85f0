// Tests of relative dates. What depends on the current time is compared with the calendar's own
// answer, so that it holds at any time of day, midnight included.
#include "Common/Source/Utilities/RelativeDate.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <utility>

#include "Platform/NSCalendar.h"
#include "Platform/TestTimeZone.h"

namespace sevrin {
namespace {

using platform::kCentralEurope;
using platform::NSCalendar;
using platform::NSCalendarUnit;
using platform::NSDate;
using platform::NSDateComponents;
using platform::ScopedTimeZone;
using platform::utc;

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

class RelativeDateTest : public testing::Test {
protected:
    const ScopedTimeZone zone_{kCentralEurope};
    const NSDate date_ = utc(2026, 11, 21, 9, 20, 37.5);  // 10:20:37.5 in winter time.
};

NSDateComponents hourAndMinute(NSDate date) {
    return NSCalendar::currentCalendar().componentsFromDate(
        NSCalendarUnit::Hour | NSCalendarUnit::Minute | NSCalendarUnit::Second, date);
}

// What `makeDate` gives and the start of the day on which it was asked, even if a day began
// between.
template <typename MakeDate>
std::pair<NSDate, NSDate> onOneDay(MakeDate makeDate) {
    while (true) {
        const NSDate today = NSCalendar::currentCalendar().startOfDayForDate(NSDate::date());
        const NSDate result = makeDate();
        const NSDate after = NSCalendar::currentCalendar().startOfDayForDate(NSDate::date());
        if (today == after) return {result, today};
    }
}

TEST_F(RelativeDateTest, TheScalesArePartOfTheContract) {
    EXPECT_EQ(kScaleMinute, 0U);
    EXPECT_EQ(kScaleHour, 1U);
    EXPECT_EQ(kScaleDay, 2U);
    EXPECT_EQ(kScaleWeek, 3U);
    EXPECT_EQ(kScaleMonth, 4U);
    EXPECT_EQ(kScaleYear, 5U);
    EXPECT_EQ(kKeepHourOrMinute, -1);
}

TEST_F(RelativeDateTest, TodayStartsWithTheCurrentLocalDay) {
    const auto [start, today] = onOneDay(startOfToday);

    EXPECT_EQ(start, today);
    EXPECT_EQ(hourAndMinute(start).hour, 0);
}

TEST_F(RelativeDateTest, TodayWithHourAndMinuteLiesOnTheCurrentDay) {
    const auto [noon, today] = onOneDay([] { return todayWithHourMinute(12, 34); });

    EXPECT_EQ(startOfDay(noon), today);
    EXPECT_EQ(hourAndMinute(noon).hour, 12);
    EXPECT_EQ(hourAndMinute(noon).minute, 34);
    EXPECT_EQ(hourAndMinute(noon).second, 0);
}

TEST_F(RelativeDateTest, TheEraStartsWithItsFirstYear) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(startOfEra(date_), utc(1, 1, 1));
    EXPECT_EQ(startOfEra(utc(-43, 3, 15)), utc(0, 1, 1));
}

TEST_F(RelativeDateTest, TheYearStartsAtMidnightOfTheFirstOfJanuary) {
    EXPECT_EQ(startOfYear(date_), utc(2025, 12, 31, 23));
    EXPECT_EQ(startOfYear(utc(2025, 12, 31, 23)), utc(2025, 12, 31, 23));
    EXPECT_EQ(startOfYear(utc(2025, 12, 31, 22, 59, 59)), utc(2024, 12, 31, 23));
}

TEST_F(RelativeDateTest, TheYearOfADateBeforeChristIsAYearOfItsOwnEra) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(startOfYear(utc(-43, 3, 15)), utc(-43, 1, 1));
    EXPECT_EQ(startOfMonth(utc(-43, 3, 15)), utc(-43, 3, 1));
}

TEST_F(RelativeDateTest, TheMonthStartsAtMidnightOfItsFirst) {
    EXPECT_EQ(startOfMonth(date_), utc(2026, 10, 31, 23));
    EXPECT_EQ(startOfMonth(utc(2026, 8, 31, 21, 59, 59)), utc(2026, 7, 31, 22));
}

TEST_F(RelativeDateTest, TheDayStartsAtItsFirstMoment) {
    EXPECT_EQ(startOfDay(date_), utc(2026, 11, 20, 23));
}

TEST_F(RelativeDateTest, ADayWithoutMidnightStartsAtTheFirstMomentThatExists) {
    const ScopedTimeZone zone(platform::kSkipsMidnight);

    EXPECT_EQ(startOfDay(utc(2026, 4, 24, 12)), utc(2026, 4, 23, 22));
}

TEST_F(RelativeDateTest, HourAndMinuteAreSetOnTheSameDayAndTheSecondIsZero) {
    EXPECT_EQ(dateWithHourMinute(date_, 23, 59), utc(2026, 11, 21, 22, 59));
    EXPECT_EQ(dateWithHourMinute(date_, 0, 0), utc(2026, 11, 20, 23));
}

TEST_F(RelativeDateTest, AnHourOfMinusOneKeepsTheDatesHour) {
    EXPECT_EQ(dateWithHourMinute(date_, -1, 30), utc(2026, 11, 21, 9, 30));
}

TEST_F(RelativeDateTest, AMinuteOfMinusOneKeepsTheDatesMinute) {
    EXPECT_EQ(dateWithHourMinute(date_, 3, -1), utc(2026, 11, 21, 2, 20));
}

TEST_F(RelativeDateTest, KeepingHourAndMinuteStillClearsTheSecond) {
    EXPECT_EQ(dateWithHourMinute(date_, -1, -1), utc(2026, 11, 21, 9, 20));
}

TEST_F(RelativeDateTest, HoursAndMinutesBeyondTheirRangeCarryOver) {
    EXPECT_EQ(dateWithHourMinute(date_, 24, 0), utc(2026, 11, 21, 23));
    EXPECT_EQ(dateWithHourMinute(date_, 0, 90), utc(2026, 11, 21, 0, 30));
    EXPECT_EQ(dateWithHourMinute(date_, -2, 0), utc(2026, 11, 20, 21));
}

TEST_F(RelativeDateTest, AnHourThatIsSkippedMovesForward) {
    EXPECT_EQ(dateWithHourMinute(utc(2026, 3, 29, 12), 2, 30), utc(2026, 3, 29, 1, 30));
}

TEST_F(RelativeDateTest, AbsurdHoursAndMinutesDoNoHarm) {
    EXPECT_GT(dateWithHourMinute(date_, kMost, kMost), utc(32'766, 12, 1));
    EXPECT_LT(dateWithHourMinute(date_, kLeast, kLeast), utc(-32'766, 2, 1));
}

TEST_F(RelativeDateTest, TheNextHourAndMinuteIsOnTheSameDayWhenStillToCome) {
    const NSDate tomorrow = dateOffsetByScale(NSDate::date(), 1, kScaleDay);

    EXPECT_EQ(nextHourMinute(tomorrow, 23, 59), dateWithHourMinute(tomorrow, 23, 59));
}

TEST_F(RelativeDateTest, TheNextHourAndMinuteIsOnTheNextDayWhenPast) {
    const auto [next, today] = onOneDay([] { return nextHourMinute(NSDate::date(), 0, 0); });
    const NSDate tomorrow = dateOffsetByScale(today, 1, kScaleDay);

    EXPECT_EQ(next, tomorrow);
    EXPECT_FALSE(next.inThePast());
}

TEST_F(RelativeDateTest, TheNextHourAndMinuteAfterAnOldDateIsTheDayAfterThatDate) {
    EXPECT_EQ(nextHourMinute(utc(2020, 3, 28, 9), 2, 15), utc(2020, 3, 29, 1, 15));
    EXPECT_EQ(nextHourMinute(utc(2020, 3, 28, 9), 12, 0), utc(2020, 3, 29, 10));  // 23 hours on.
}

TEST_F(RelativeDateTest, AnOffsetCountsUnitsOfItsScale) {
    EXPECT_EQ(dateOffsetByScale(date_, 90, kScaleMinute), utc(2026, 11, 21, 10, 50, 37.5));
    EXPECT_EQ(dateOffsetByScale(date_, -25, kScaleHour), utc(2026, 11, 20, 8, 20, 37.5));
    EXPECT_EQ(dateOffsetByScale(date_, 10, kScaleDay), utc(2026, 12, 1, 9, 20, 37.5));
    EXPECT_EQ(dateOffsetByScale(date_, 2, kScaleWeek), utc(2026, 12, 5, 9, 20, 37.5));
    EXPECT_EQ(dateOffsetByScale(date_, 3, kScaleMonth), utc(2027, 2, 21, 9, 20, 37.5));
    EXPECT_EQ(dateOffsetByScale(date_, -1, kScaleYear), utc(2025, 11, 21, 9, 20, 37.5));
}

TEST_F(RelativeDateTest, ThreeMonthsInReverseAreThreeMonthsEarlier) {
    EXPECT_EQ(dateOffsetByReverseDirectionScale(date_, 3, true, kScaleMonth),
              utc(2026, 8, 21, 8, 20, 37.5));  // 10:20:37.5 in summer time.
    EXPECT_EQ(dateOffsetByReverseDirectionScale(date_, -3, true, kScaleMonth),
              dateOffsetByScale(date_, 3, kScaleMonth));
    EXPECT_EQ(dateOffsetByReverseDirectionScale(date_, 3, false, kScaleMonth),
              dateOffsetByScale(date_, 3, kScaleMonth));
}

TEST_F(RelativeDateTest, AnUnknownScaleAddsNothing) {
    EXPECT_EQ(dateOffsetByReverseDirectionScale(date_, 3, true, 9), date_);
    EXPECT_EQ(dateOffsetByScale(date_, 3, 6), date_);
    EXPECT_EQ(dateOffsetByScale(date_, 3, std::numeric_limits<std::uint32_t>::max()), date_);
}

TEST_F(RelativeDateTest, AnOffsetOfZeroIsTheDateItself) {
    const NSDate infinite =
        NSDate::dateWithTimeIntervalSinceReferenceDate(std::numeric_limits<double>::infinity());
    for (std::uint32_t scale = 0; scale < 7; ++scale) {
        EXPECT_EQ(dateOffsetByScale(date_, 0, scale), date_);
        EXPECT_EQ(dateOffsetByReverseDirectionScale(infinite, 0, true, scale), infinite);
    }
}

TEST_F(RelativeDateTest, AMonthFromTheThirtyFirstIsTheLastOfAShorterMonth) {
    EXPECT_EQ(dateOffsetByScale(utc(2026, 1, 31, 12), 1, kScaleMonth), utc(2026, 2, 28, 12));
    EXPECT_EQ(dateOffsetByScale(utc(2028, 2, 29, 12), 1, kScaleYear), utc(2029, 2, 28, 12));
}

TEST_F(RelativeDateTest, TheNextMidnightIsADayAfterTheStartOfTheDayHoweverLongItIs) {
    EXPECT_EQ(dateOffsetByScale(startOfDay(utc(2026, 3, 29, 12)), 1, kScaleDay),
              utc(2026, 3, 29, 22));  // 23 hours on.
    EXPECT_EQ(dateOffsetByScale(startOfDay(utc(2026, 10, 25, 12)), 1, kScaleDay),
              utc(2026, 10, 25, 23));  // 25 hours on.
}

TEST_F(RelativeDateTest, AbsurdOffsetsLeadToAnEndOfTheCalendar) {
    for (const std::uint32_t scale :
         {kScaleMinute, kScaleHour, kScaleDay, kScaleWeek, kScaleMonth, kScaleYear}) {
        EXPECT_GT(dateOffsetByScale(date_, kMost, scale), utc(32'766, 11, 30)) << scale;
        EXPECT_LT(dateOffsetByScale(date_, kLeast, scale), utc(-32'766, 2, 1)) << scale;
        EXPECT_GT(dateOffsetByReverseDirectionScale(date_, kLeast, true, scale),
                  utc(32'766, 11, 30))
            << scale;
    }
}

}  // namespace
}  // namespace sevrin
