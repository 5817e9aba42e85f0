// Tests of the day stamp and the root line made from it.
#include "Common/Source/Utilities/RootLogLine.h"

#include <gtest/gtest.h>

#include "Platform/TestTimeZone.h"

namespace sevrin {
namespace {

using platform::kCentralEurope;
using platform::ScopedTimeZone;
using platform::utc;

TEST(RootLogLineTest, TheStampIsTheDayOfTheEraAndItsElapsedHundredths) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(logDayStamp(utc(1, 1, 1, 0, 0)), 100U);
    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 0, 0)), 73'993'600U);
    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 12, 0)), 73'993'650U);
    EXPECT_EQ(logDayStamp(utc(2026, 11, 17, 0, 0)), 73'993'700U);
}

TEST(RootLogLineTest, HundredthsAreCutOffNotRounded) {
    const ScopedTimeZone zone("UTC0");

    // The minute that counts is the one under way: 07:12 is the 433rd, 43300 / 1440 is 30.07.
    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 7, 12, 3.481)) % 100, 30U);
    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 7, 10)) % 100, 29U);
    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 7, 11)) % 100, 30U);
}

TEST(RootLogLineTest, TheLastMinuteOfADayIsStillItsLastHundredth) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 23, 58)), 73'993'699U);
    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 23, 59, 59.9)), 73'993'699U);
}

TEST(RootLogLineTest, TheDayIsTheLocalOne) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(logDayStamp(utc(2026, 11, 16, 23, 30)), 73'993'702U);
}

TEST(RootLogLineTest, TheRootIsApplicationStampAndProcess) {
    const ScopedTimeZone zone("UTC0");

    const auto root = makeRootLogLine(8, utc(2026, 11, 16, 7, 12), 412);

    EXPECT_EQ(root->description(), "8.73993630.412");
    EXPECT_EQ(LogLineIdentifier::next(root)->description(), "8.73993630.412.1");
}

TEST(RootLogLineTest, TheApplicationIsUnsigned) {
    const auto root = makeRootLogLine(4'294'967'295, utc(2026, 11, 16), 1);

    EXPECT_EQ(LogLineIdentifier::parentIdentifierWithDepth(root, 0)->description(), "4294967295");
}

}  // namespace
}  // namespace sevrin
