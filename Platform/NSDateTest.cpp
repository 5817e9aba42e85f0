// Contract tests of the date value.
#include "Platform/NSDate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <type_traits>

namespace sevrin::platform {
namespace {

static_assert(std::is_trivially_copyable_v<NSDate> && sizeof(NSDate) == sizeof(double));

constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

NSDate dateAt(double seconds) {
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

TEST(NSDateTest, TheReferenceDateIsTheFirstMomentOf2001) {
    EXPECT_EQ(dateAt(0).description(), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(dateAt(0).timeIntervalSince1970(), 978'307'200.0);
}

TEST(NSDateTest, BothEpochsNameTheSameMoment) {
    EXPECT_EQ(NSDate::dateWithTimeIntervalSince1970(978'307'200.25), dateAt(0.25));
    EXPECT_EQ(NSDate::dateWithTimeIntervalSince1970(0).timeIntervalSinceReferenceDate(),
              -978'307'200.0);
}

TEST(NSDateTest, NowLiesBetweenTwoReadingsOfTheClock) {
    const auto clock = [] {
        const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
        return std::chrono::duration<double>(sinceEpoch).count();
    };

    const double before = clock();
    const double now = NSDate::date().timeIntervalSince1970();
    const double after = clock();

    EXPECT_GE(now, before - 1e-6);  // A double cannot tell less than that apart.
    EXPECT_LE(now, after + 1e-6);
}

TEST(NSDateTest, AnIntervalIsPositiveWhenTheOtherDateIsEarlier) {
    EXPECT_EQ(dateAt(10).timeIntervalSinceDate(dateAt(4)), 6);
    EXPECT_EQ(dateAt(4).timeIntervalSinceDate(dateAt(10)), -6);
}

TEST(NSDateTest, AddingAnIntervalMovesByThatManySeconds) {
    EXPECT_EQ(dateAt(10).dateByAddingTimeInterval(0.5), dateAt(10.5));
    EXPECT_EQ(dateAt(10).dateByAddingTimeInterval(-11), dateAt(-1));
}

TEST(NSDateTest, EarlierDatesAreLess) {
    EXPECT_LT(dateAt(1), dateAt(2));
    EXPECT_GT(dateAt(-1), dateAt(-2));
    EXPECT_EQ(dateAt(3), dateAt(3));
    EXPECT_NE(dateAt(3), dateAt(4));
    EXPECT_EQ(dateAt(0), dateAt(-0.0));
}

TEST(NSDateTest, CompareAgreesWithTheOperators) {
    EXPECT_TRUE(std::is_lt(dateAt(1).compare(dateAt(2))));
    EXPECT_TRUE(std::is_gt(dateAt(2).compare(dateAt(1))));
    EXPECT_TRUE(std::is_eq(dateAt(2).compare(dateAt(2))));
    EXPECT_TRUE(std::is_eq(dateAt(0).compare(dateAt(-0.0))));
}

TEST(NSDateTest, CompareOrdersEvenADateThatIsNotANumber) {
    EXPECT_TRUE(std::is_eq(dateAt(kNotANumber).compare(dateAt(kNotANumber))));
    EXPECT_TRUE(std::is_neq(dateAt(kNotANumber).compare(dateAt(0))));
    EXPECT_NE(dateAt(kNotANumber), dateAt(kNotANumber));
}

TEST(NSDateTest, YesterdayIsInThePastAndTomorrowIsNot) {
    EXPECT_TRUE(NSDate::date().dateByAddingTimeInterval(-86'400).inThePast());
    EXPECT_FALSE(NSDate::date().dateByAddingTimeInterval(86'400).inThePast());
}

TEST(NSDateTest, TheDescriptionIsInUtcAndDropsTheFraction) {
    EXPECT_EQ(NSDate::dateWithTimeIntervalSince1970(1'795'252'837.999).description(),
              "2026-11-21 09:20:37 +0000");
}

TEST(NSDateTest, TheDescriptionOfAFractionBeforeTheReferenceDateIsTheSecondItLiesIn) {
    EXPECT_EQ(dateAt(-0.25).description(), "2000-12-31 23:59:59 +0000");
    EXPECT_EQ(dateAt(-1e-20).description(), "2000-12-31 23:59:59 +0000");
}

TEST(NSDateTest, TheDescriptionCountsYearsThroughZero) {
    const double yearOne = -63'113'904'000.0;  // 0001-01-01

    EXPECT_EQ(dateAt(yearOne).description(), "0001-01-01 00:00:00 +0000");
    EXPECT_EQ(dateAt(yearOne - 1).description(), "0000-12-31 23:59:59 +0000");
    EXPECT_EQ(dateAt(yearOne - 367.0 * 86'400).description(), "-0001-12-31 00:00:00 +0000");
}

TEST(NSDateTest, TheDescriptionOfAnAbsurdDateIsAnEndOfTheCalendar) {
    EXPECT_EQ(dateAt(kInfinity).description(), "32766-12-31 23:59:59 +0000");
    EXPECT_EQ(dateAt(1e300).description(), "32766-12-31 23:59:59 +0000");
    EXPECT_EQ(dateAt(-kInfinity).description(), "-32766-01-01 00:00:00 +0000");
    EXPECT_EQ(dateAt(kNotANumber).description(), "-32766-01-01 00:00:00 +0000");
}

}  // namespace
}  // namespace sevrin::platform
