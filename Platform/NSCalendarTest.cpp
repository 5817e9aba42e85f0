// Contract tests of the calendar. Zones are given as rules where rules can say it; the zones with a
// history come from the machine's zone files (Debian's tzdata).
#include "Platform/NSCalendar.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <limits>
#include <tuple>

#include "Platform/TestTimeZone.h"

namespace sevrin::platform {
namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
constexpr NSCalendarUnit kAllUnits =
    NSCalendarUnit::Era | NSCalendarUnit::Year | NSCalendarUnit::Month | NSCalendarUnit::Day |
    NSCalendarUnit::Hour | NSCalendarUnit::Minute | NSCalendarUnit::Second;

const NSCalendar kCalendar = NSCalendar::currentCalendar();

NSDate add(NSDate date, NSDateComponents amounts) {
    return kCalendar.dateByAddingComponentsToDate(amounts, date);
}

NSDate startOfDay(NSDate date) {
    return kCalendar.startOfDayForDate(date);
}

NSDate absurd(double seconds) {
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

const NSDate kAbsurdDates[] = {absurd(std::numeric_limits<double>::infinity()),
                               absurd(-std::numeric_limits<double>::infinity()),
                               absurd(std::numeric_limits<double>::quiet_NaN()),
                               absurd(1e300),
                               absurd(-1e300),
                               absurd(1e13),
                               absurd(-1e13)};

// Whether this machine has the zones with a history; a test that needs one fails without them.
bool hasZoneFiles() {
    return ::access("/usr/share/zoneinfo/Pacific/Apia", R_OK) == 0;
}

TEST(NSCalendarTest, TheUnitBitsArePartOfTheContract) {
    EXPECT_EQ(static_cast<std::uint64_t>(NSCalendarUnit::Era | NSCalendarUnit::Year), 6U);
    EXPECT_EQ(static_cast<std::uint64_t>(kAllUnits), 2U + 4 + 8 + 16 + 32 + 64 + 128);
}

TEST(NSCalendarTest, ASetOfUnitsContainsItsUnitsOnly) {
    constexpr NSCalendarUnit kSet = NSCalendarUnit::Era | NSCalendarUnit::Month;

    EXPECT_TRUE(contains(kSet, NSCalendarUnit::Era));
    EXPECT_TRUE(contains(kSet, NSCalendarUnit::Month));
    EXPECT_FALSE(contains(kSet, NSCalendarUnit::Year));
}

TEST(NSCalendarTest, ComponentsAreLocalTime) {
    const ScopedTimeZone zone(kCentralEurope);

    const NSDateComponents components =
        kCalendar.componentsFromDate(kAllUnits, utc(2026, 7, 31, 22, 20, 37.9));

    EXPECT_EQ(components.era, 1);
    EXPECT_EQ(components.year, 2026);
    EXPECT_EQ(components.month, 8);
    EXPECT_EQ(components.day, 1);
    EXPECT_EQ(components.hour, 0);
    EXPECT_EQ(components.minute, 20);
    EXPECT_EQ(components.second, 37);
    EXPECT_FALSE(components.weekOfYear.has_value());
}

TEST(NSCalendarTest, OnlyTheComponentsAskedForAreSet) {
    const NSDateComponents components = kCalendar.componentsFromDate(
        NSCalendarUnit::Year | NSCalendarUnit::Minute, utc(2026, 6, 1));

    EXPECT_TRUE(components.year.has_value());
    EXPECT_TRUE(components.minute.has_value());
    EXPECT_FALSE(components.era.has_value());
    EXPECT_FALSE(components.month.has_value());
    EXPECT_FALSE(components.day.has_value());
    EXPECT_FALSE(components.hour.has_value());
    EXPECT_FALSE(components.second.has_value());
}

TEST(NSCalendarTest, TheYearBeforeOneADIsOneBC) {
    const ScopedTimeZone zone("UTC0");

    const NSDateComponents components =
        kCalendar.componentsFromDate(kAllUnits, utc(0, 12, 31, 23, 59, 59));
    EXPECT_EQ(components.era, 0);
    EXPECT_EQ(components.year, 1);
    EXPECT_EQ(components.month, 12);

    EXPECT_EQ(kCalendar.componentsFromDate(kAllUnits, utc(-43, 3, 15)).year, 44);
}

TEST(NSCalendarTest, MissingComponentsTakeTheirFirstValues) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(kCalendar.dateFromComponents({}), utc(0, 12, 31, 23));
    EXPECT_EQ(kCalendar.dateFromComponents({.era = 1}), utc(0, 12, 31, 23));
    EXPECT_EQ(kCalendar.dateFromComponents({.era = 1, .year = 2026}), utc(2025, 12, 31, 23));
    EXPECT_EQ(kCalendar.dateFromComponents({.year = 2026, .month = 7}), utc(2026, 6, 30, 22));
    EXPECT_EQ(kCalendar.dateFromComponents({.year = 2026, .month = 7, .day = 9, .hour = 12}),
              utc(2026, 7, 9, 10));
}

TEST(NSCalendarTest, TheFirstYearOfTheEraBeforeChristIsTheLastBeforeYearOne) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(kCalendar.dateFromComponents({.era = 0}), utc(0, 1, 1));
    EXPECT_EQ(kCalendar.dateFromComponents({.era = 0, .year = 44, .month = 3, .day = 15}),
              utc(-43, 3, 15));
}

TEST(NSCalendarTest, ComponentsBeyondTheirRangeCarryOver) {
    const ScopedTimeZone zone("UTC0");
    const auto date = [](NSDateComponents components) {
        components.year = 2026;
        return kCalendar.dateFromComponents(components);
    };

    EXPECT_EQ(date({.month = 13}), utc(2027, 1, 1));
    EXPECT_EQ(date({.month = 0}), utc(2025, 12, 1));
    EXPECT_EQ(date({.month = 3, .day = 0}), utc(2026, 2, 28));
    EXPECT_EQ(date({.month = 2, .day = 30}), utc(2026, 3, 2));
    EXPECT_EQ(date({.hour = 24}), utc(2026, 1, 2));
    EXPECT_EQ(date({.hour = 1, .minute = -61}), utc(2025, 12, 31, 23, 59));
    EXPECT_EQ(date({.second = 86'400}), utc(2026, 1, 2));
}

TEST(NSCalendarTest, ComponentsOfADateMakeADateWithTheSameComponents) {
    const auto fields = [](const NSDateComponents& components) {
        return std::tuple(components.era, components.year, components.month, components.day,
                          components.hour, components.minute, components.second);
    };

    for (const char* name : {kCentralEurope, kRepeatsMidnight, kSkipsAcrossMidnight, "NST3:30"}) {
        const ScopedTimeZone zone(name);
        for (int day = -800'000; day < 800'000; day += 97) {
            const NSDate date = utc(2000, 1, 1).dateByAddingTimeInterval(day * 86'413.0);
            const NSDateComponents components = kCalendar.componentsFromDate(kAllUnits, date);

            const NSDate again = kCalendar.dateFromComponents(components);

            ASSERT_EQ(fields(kCalendar.componentsFromDate(kAllUnits, again)), fields(components));
            ASSERT_LE(again, date) << name;  // Only the first of two moments is made again.
        }
    }
}

TEST(NSCalendarTest, ALocalTimeThatIsSkippedMovesForward) {
    const ScopedTimeZone zone(kCentralEurope);

    const NSDate skipped = kCalendar.dateFromComponents(
        {.year = 2026, .month = 3, .day = 29, .hour = 2, .minute = 30});

    EXPECT_EQ(skipped, utc(2026, 3, 29, 1, 30));  // 03:30 in summer time.
}

TEST(NSCalendarTest, ALocalTimeThatOccursTwiceIsTheFirst) {
    const ScopedTimeZone zone(kCentralEurope);

    const NSDate repeated = kCalendar.dateFromComponents(
        {.year = 2026, .month = 10, .day = 25, .hour = 2, .minute = 30});

    EXPECT_EQ(repeated, utc(2026, 10, 25, 0, 30));  // 02:30 in summer time.
}

TEST(NSCalendarTest, TheStartOfDayIsLocalMidnight) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(startOfDay(utc(2026, 11, 21, 9, 20, 37.5)), utc(2026, 11, 20, 23));
    EXPECT_EQ(startOfDay(utc(2026, 11, 20, 23)), utc(2026, 11, 20, 23));
    EXPECT_EQ(startOfDay(utc(2026, 11, 20, 22, 59, 59.999)), utc(2026, 11, 19, 23));
}

TEST(NSCalendarTest, TheStartOfADayWithAChangeOfClocksIsStillItsMidnight) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(startOfDay(utc(2026, 3, 29, 12)), utc(2026, 3, 28, 23));
    EXPECT_EQ(startOfDay(utc(2026, 10, 25, 12)), utc(2026, 10, 24, 22));
}

TEST(NSCalendarTest, ADayWhoseMidnightIsSkippedStartsAtTheFirstMomentThatExists) {
    const ScopedTimeZone zone(kSkipsMidnight);

    EXPECT_EQ(startOfDay(utc(2026, 4, 24, 12)), utc(2026, 4, 23, 22));  // 01:00 in summer time.
    EXPECT_EQ(startOfDay(utc(2026, 4, 23, 22)), utc(2026, 4, 23, 22));
    EXPECT_EQ(startOfDay(utc(2026, 4, 23, 21, 59, 59)), utc(2026, 4, 22, 22));
}

TEST(NSCalendarTest, ADayThatBeginsInTheMiddleOfWhatIsSkippedStartsWhereClocksGoOn) {
    const ScopedTimeZone zone(kSkipsAcrossMidnight);

    EXPECT_EQ(startOfDay(utc(2026, 3, 30, 12)), utc(2026, 3, 30, 4, 30));  // 00:30 in summer time.
    EXPECT_EQ(startOfDay(utc(2026, 3, 30, 4, 29, 59)), utc(2026, 3, 29, 5));
}

TEST(NSCalendarTest, ARepeatedMidnightIsTheFirst) {
    const ScopedTimeZone zone(kRepeatsMidnight);

    EXPECT_EQ(startOfDay(utc(2026, 11, 1, 12)), utc(2026, 11, 1, 4));  // 00:00 in summer time.
    EXPECT_EQ(startOfDay(utc(2026, 11, 1, 5, 30)),
              utc(2026, 11, 1, 4));  // 00:30 for the second time.
}

TEST(NSCalendarTest, AMidnightThatFollowsARepeatedHourIsNotRepeated) {
    const ScopedTimeZone zone(kSkipsMidnight);

    EXPECT_EQ(startOfDay(utc(2026, 10, 30, 12)), utc(2026, 10, 29, 22));
    EXPECT_EQ(startOfDay(utc(2026, 10, 29, 21, 30)), utc(2026, 10, 28, 21));  // 23:30, second time.
}

TEST(NSCalendarTest, AZoneWithAHistoryHasTheMidnightsOfItsYears) {
    ASSERT_TRUE(hasZoneFiles()) << "install the package tzdata";
    const ScopedTimeZone zone("America/Sao_Paulo");

    EXPECT_EQ(startOfDay(utc(2018, 11, 4, 12)), utc(2018, 11, 4, 3));  // Midnight is skipped.
    EXPECT_EQ(startOfDay(utc(2019, 2, 17, 12)), utc(2019, 2, 17, 3));  // 23:00 is repeated.
    EXPECT_EQ(startOfDay(utc(2019, 11, 3, 12)), utc(2019, 11, 3, 3));  // Clocks stay as they are.
}

TEST(NSCalendarTest, ADayThatAZoneLeftOutMovesForwardToTheNext) {
    ASSERT_TRUE(hasZoneFiles()) << "install the package tzdata";
    const ScopedTimeZone zone("Pacific/Apia");  // From 29 to 31 December 2011.

    EXPECT_EQ(add(utc(2011, 12, 29, 22), {.day = 1}), utc(2011, 12, 30, 22));  // Both at noon.
    EXPECT_EQ(startOfDay(utc(2011, 12, 30, 22)), utc(2011, 12, 30, 10));
}

TEST(NSCalendarTest, AddingMonthsKeepsTheDayOrTakesTheLast) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(add(utc(2026, 1, 31), {.month = 1}), utc(2026, 2, 28));
    EXPECT_EQ(add(utc(2028, 1, 31), {.month = 1}), utc(2028, 2, 29));
    EXPECT_EQ(add(utc(2026, 3, 31), {.month = -1}), utc(2026, 2, 28));
    EXPECT_EQ(add(utc(2026, 1, 31), {.month = 2}), utc(2026, 3, 31));
    EXPECT_EQ(add(utc(2026, 11, 30), {.month = 3}), utc(2027, 2, 28));
    EXPECT_EQ(add(utc(2026, 2, 15), {.month = -14}), utc(2024, 12, 15));
}

TEST(NSCalendarTest, AddingYearsToALeapDayGivesTheLastOfFebruary) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(add(utc(2028, 2, 29), {.year = 1}), utc(2029, 2, 28));
    EXPECT_EQ(add(utc(2028, 2, 29), {.year = -4}), utc(2024, 2, 29));
    EXPECT_EQ(add(utc(2096, 2, 29), {.year = 4}), utc(2100, 2, 28));
}

TEST(NSCalendarTest, AddingYearsCrossesFromBCToAD) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(add(utc(0, 5, 6), {.year = 1}), utc(1, 5, 6));
    EXPECT_EQ(add(utc(1, 5, 6), {.year = -2}), utc(-1, 5, 6));
    EXPECT_EQ(add(utc(1, 1, 1), {.month = -1}), utc(0, 12, 1));
}

TEST(NSCalendarTest, TheLargestUnitIsAddedFirst) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(add(utc(2028, 2, 29), {.year = 1, .month = 1}), utc(2029, 3, 28));
    EXPECT_EQ(add(utc(2026, 1, 31), {.month = 1, .day = 1}), utc(2026, 3, 1));
}

TEST(NSCalendarTest, ADayIsADayOfTheCalendarHoweverLong) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(add(utc(2026, 3, 28, 11), {.day = 1}), utc(2026, 3, 29, 10));    // 23 hours later.
    EXPECT_EQ(add(utc(2026, 10, 24, 10), {.day = 1}), utc(2026, 10, 25, 11));  // 25 hours later.
    EXPECT_EQ(add(utc(2026, 3, 29, 10), {.day = -1}), utc(2026, 3, 28, 11));
    EXPECT_EQ(add(utc(2026, 3, 22, 11), {.weekOfYear = 1}), utc(2026, 3, 29, 10));
    EXPECT_EQ(add(utc(2026, 1, 15, 11), {.month = 6}), utc(2026, 7, 15, 10));
}

TEST(NSCalendarTest, HoursMinutesAndSecondsAreExactTime) {
    const ScopedTimeZone zone(kCentralEurope);
    const NSDate beforeTheChange = utc(2026, 3, 29, 0, 30);

    EXPECT_EQ(add(beforeTheChange, {.hour = 24}), utc(2026, 3, 30, 0, 30));
    EXPECT_EQ(add(beforeTheChange, {.minute = 60}), utc(2026, 3, 29, 1, 30));
    EXPECT_EQ(add(beforeTheChange, {.second = -1}), utc(2026, 3, 29, 0, 29, 59));
}

TEST(NSCalendarTest, ADayThatLeadsToASkippedTimeMovesForward) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(add(utc(2026, 3, 28, 1, 30), {.day = 1}),
              utc(2026, 3, 29, 1, 30));  // 02:30 to 03:30.
}

TEST(NSCalendarTest, AddingNothingLeavesARepeatedTimeWhereItIs) {
    const ScopedTimeZone zone(kCentralEurope);
    const NSDate second = utc(2026, 10, 25, 1, 30);  // 02:30 for the second time.

    EXPECT_EQ(add(second, {}), second);
    EXPECT_EQ(add(second, {.month = 0, .day = 0}), second);
    EXPECT_EQ(add(second, {.era = 1}), second);
    EXPECT_EQ(add(second, {.minute = 1}), utc(2026, 10, 25, 1, 31));
}

TEST(NSCalendarTest, AddingKeepsTheFractionOfTheSecond) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(add(utc(2026, 3, 28, 11, 0, 0.25), {.day = 1}), utc(2026, 3, 29, 10, 0, 0.25));
    EXPECT_EQ(add(utc(1999, 3, 15, 11, 0, 0.75), {.month = 1}), utc(1999, 4, 15, 10, 0, 0.75));
}

TEST(NSCalendarTest, TheDayOfTheEraCountsFromTheFirstOfJanuaryOfYearOne) {
    const ScopedTimeZone zone(kCentralEurope);
    const auto dayOfEra = [](NSDate date) {
        return kCalendar.ordinalityOfUnitInUnitForDate(NSCalendarUnit::Day, NSCalendarUnit::Era,
                                                       date);
    };

    EXPECT_EQ(dayOfEra(utc(1, 1, 1)), 1);
    EXPECT_EQ(dayOfEra(utc(1, 12, 31)), 365);
    EXPECT_EQ(dayOfEra(utc(2026, 11, 15, 22, 59, 59)), 739'935);  // 23:59:59, the local day before.
    EXPECT_EQ(dayOfEra(utc(2026, 11, 15, 23)), 739'936);
    EXPECT_EQ(dayOfEra(utc(0, 12, 31, 22)), std::nullopt);
}

TEST(NSCalendarTest, TheMinuteOfTheDayRunsFromOneToFourteenHundredAndForty) {
    const ScopedTimeZone zone(kCentralEurope);
    const auto minuteOfDay = [](NSDate date) {
        return kCalendar.ordinalityOfUnitInUnitForDate(NSCalendarUnit::Minute, NSCalendarUnit::Day,
                                                       date);
    };

    EXPECT_EQ(minuteOfDay(utc(2026, 11, 20, 23, 0, 59.9)), 1);
    EXPECT_EQ(minuteOfDay(utc(2026, 11, 21, 6, 12)), 433);
    EXPECT_EQ(minuteOfDay(utc(2026, 11, 21, 22, 59, 59.9)), 1440);
    EXPECT_EQ(minuteOfDay(utc(2026, 10, 25, 22, 59)), 1440);  // The day has 1500 minutes.
}

TEST(NSCalendarTest, NoOtherPairOfUnitsHasAnOrdinality) {
    EXPECT_EQ(kCalendar.ordinalityOfUnitInUnitForDate(NSCalendarUnit::Era, NSCalendarUnit::Day,
                                                      utc(2026, 1, 1)),
              std::nullopt);
    EXPECT_EQ(kCalendar.ordinalityOfUnitInUnitForDate(NSCalendarUnit::Hour, NSCalendarUnit::Day,
                                                      utc(2026, 1, 1)),
              std::nullopt);
}

TEST(NSCalendarTest, AbsurdAmountsStopAtTheEndsOfTheCalendar) {
    const ScopedTimeZone zone(kCentralEurope);
    const NSDate date = utc(2026, 11, 21, 9, 20, 37);
    using Field = std::optional<std::int64_t> NSDateComponents::*;

    for (const Field field :
         {&NSDateComponents::year, &NSDateComponents::month, &NSDateComponents::weekOfYear,
          &NSDateComponents::day, &NSDateComponents::hour, &NSDateComponents::minute,
          &NSDateComponents::second}) {
        NSDateComponents amounts;
        amounts.*field = kMost;
        EXPECT_GT(add(date, amounts), utc(32'766, 11, 30));
        amounts.*field = kLeast;
        EXPECT_LT(add(date, amounts), utc(-32'766, 2, 1));
    }
}

TEST(NSCalendarTest, AbsurdComponentsStopAtTheEndsOfTheCalendar) {
    const ScopedTimeZone zone(kCentralEurope);
    const auto all = [](std::int64_t value) {
        return kCalendar.dateFromComponents({.year = value,
                                             .month = value,
                                             .day = value,
                                             .hour = value,
                                             .minute = value,
                                             .second = value});
    };

    EXPECT_EQ(all(kMost), utc(32'766, 12, 31, 22, 59, 59));
    EXPECT_EQ(all(kLeast).description(), absurd(-1e300).description());
    EXPECT_EQ(kCalendar.dateFromComponents({.era = 0, .year = kLeast}), utc(32'766, 11, 30, 23));
    EXPECT_EQ(kCalendar.dateFromComponents({.era = 0, .year = kMost}), utc(-32'767, 12, 31, 23));
}

TEST(NSCalendarTest, AnAbsurdDateHasTheComponentsOfAnEndOfTheCalendar) {
    for (const char* name : {kCentralEurope, kRepeatsMidnight}) {
        const ScopedTimeZone zone(name);
        for (const NSDate date : kAbsurdDates) {
            const NSDateComponents components = kCalendar.componentsFromDate(kAllUnits, date);
            EXPECT_GE(components.year, 32'766) << name;
            EXPECT_LE(components.year, 32'768) << name;
            EXPECT_GE(startOfDay(date), utc(-32'767, 12, 30)) << name;
            EXPECT_LE(startOfDay(date), utc(32'767, 1, 2)) << name;
        }
    }
}

TEST(NSCalendarTest, AddingNothingToAnAbsurdDateGivesThatDate) {
    for (const char* name : {kCentralEurope, kRepeatsMidnight}) {
        const ScopedTimeZone zone(name);
        for (const NSDate date : kAbsurdDates) {
            EXPECT_TRUE(std::is_eq(add(date, {}).compare(date)));
        }
    }
}

TEST(NSCalendarTest, AChangedZoneIsFollowedAtTheNextCall) {
    const ScopedTimeZone zone("UTC0");
    ASSERT_EQ(startOfDay(utc(2026, 7, 1, 12)), utc(2026, 7, 1));

    ::setenv("TZ", kCentralEurope, 1);

    EXPECT_EQ(startOfDay(utc(2026, 7, 1, 12)), utc(2026, 6, 30, 22));
}

TEST(NSCalendarTest, TheGregorianCalendarCountsAsTheCurrentOne) {
    const NSDate date = utc(2026, 11, 21, 9);

    EXPECT_EQ(NSCalendar::gregorianCalendar().startOfDayForDate(date), startOfDay(date));
}

}  // namespace
}  // namespace sevrin::platform
