// The attributes of file-system items in words.
#include "tools/ItemText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <limits>

namespace sevrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr timespec kMoment{1'234'567'890, 12'345'678};

TEST(ItemTextTest, ModesAreSpelledAsListingsDo) {
    EXPECT_EQ(modeText(platform::VDIR, 0755), "drwxr-xr-x");
    EXPECT_EQ(modeText(platform::VREG, 0), "----------");
    EXPECT_EQ(modeText(platform::VLNK, 0777), "lrwxrwxrwx");
    EXPECT_EQ(modeText(platform::VBLK, 0660), "brw-rw----");
    EXPECT_EQ(modeText(platform::VCHR, 0204), "c-w----r--");
    EXPECT_EQ(modeText(platform::VSOCK, 0100), "s--x------");
    EXPECT_EQ(modeText(platform::VFIFO, 0010), "p-----x---");
    EXPECT_EQ(modeText(200, 0), "?---------");
}

TEST(ItemTextTest, SetIdAndStickyBitsStandInThePlaceOfExecution) {
    EXPECT_EQ(modeText(platform::VREG, 07777), "-rwsrwsrwt");
    EXPECT_EQ(modeText(platform::VREG, 07000), "---S--S--T");
}

TEST(ItemTextTest, FlagsHaveTheirNamesAndOtherBitsAreANumber) {
    EXPECT_THAT(flagNames(0), IsEmpty());
    EXPECT_THAT(flagNames(platform::UF_NODUMP | platform::SF_IMMUTABLE),
                ElementsAre("nodump", "schg"));
    EXPECT_THAT(flagNames(platform::UF_APPEND | 0x4000'0100u), ElementsAre("uappnd", "0x40000100"));
}

TEST(ItemTextTest, WhatTheCallerMayDoIsThreeLetters) {
    EXPECT_EQ(accessText(R_OK | X_OK), "r-x");
    EXPECT_EQ(accessText(0), "---");
}

TEST(ItemTextTest, UsersAndGroupsWithoutANameAreNumbers) {
    EXPECT_EQ(ownerName(0), "root");
    EXPECT_EQ(ownerName(3'999'999'999), "3999999999");
    EXPECT_EQ(groupName(3'999'999'999), "3999999999");
}

class ItemTimeTest : public testing::Test {
protected:
    void SetUp() override { setZone("UTC"); }
    void TearDown() override {
        ::unsetenv("TZ");
        ::tzset();
    }
    static void setZone(const char* zone) {
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
};

TEST_F(ItemTimeTest, TimesAreLocalAndExactToTheNanosecond) {
    EXPECT_EQ(shortTime(kMoment), "2009-02-13 23:31:30");
    EXPECT_EQ(exactTime(kMoment), "2009-02-13T23:31:30.012345678+00:00");

    setZone("<+0545>-5:45");
    EXPECT_EQ(exactTime(kMoment), "2009-02-14T05:16:30.012345678+05:45");

    setZone("<-0330>3:30");
    EXPECT_EQ(exactTime(kMoment), "2009-02-13T20:01:30.012345678-03:30");
}

TEST_F(ItemTimeTest, TimesBeforeTheEpochAndInTheLastYearHaveADate) {
    EXPECT_EQ(exactTime({-1, 999'999'999}), "1969-12-31T23:59:59.999999999+00:00");
    EXPECT_EQ(shortTime({253'402'300'799, 0}), "9999-12-31 23:59:59");
}

TEST_F(ItemTimeTest, TimesThatNoCalendarReachesAreSeconds) {
    constexpr auto kLast = std::numeric_limits<time_t>::max();
    EXPECT_EQ(exactTime({kLast, 0}), "@" + std::to_string(kLast));
    EXPECT_EQ(shortTime({253'402'300'800, 0}), "@253402300800");
}

TEST_F(ItemTimeTest, OnlyATimeOfZeroIsNone) {
    EXPECT_FALSE(isKept({0, 0}));
    EXPECT_TRUE(isKept({0, 1}));
    EXPECT_TRUE(isKept({-1, 0}));
}

}  // namespace
}  // namespace sevrin
