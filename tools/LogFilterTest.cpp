// Which records of a log somebody wants to see.
#include "tools/LogFilter.h"

#include <gtest/gtest.h>

#include "Platform/TestTimeZone.h"

namespace sevrin {
namespace {

constexpr LogMoment kNow = 1794809523481;

LogRecord record(const std::string& rest) {
    return logRecordFromText("2026-11-16 07:12:03.481 +0100 " + rest);
}

TEST(LogFilterTest, WithoutWishesEverythingIsWanted) {
    EXPECT_TRUE(LogFilter().wants(record("Failure x [8.1.2.3]")));
    EXPECT_TRUE(LogFilter().wants(logRecordFromText("stray")));
}

TEST(LogFilterTest, StrayTextIsNotWantedWithAnyWish) {
    EXPECT_FALSE((LogFilter{.words = "stray"}.wants(logRecordFromText("stray"))));
    EXPECT_FALSE((LogFilter{.since = 0}.wants(logRecordFromText("stray"))));
}

TEST(LogFilterTest, TimesIncludeTheirLimits) {
    const LogRecord moment = record("Failure x [8.1.2.3]");
    EXPECT_TRUE((LogFilter{.since = kNow, .until = kNow}.wants(moment)));
    EXPECT_FALSE((LogFilter{.since = kNow + 1}.wants(moment)));
    EXPECT_FALSE((LogFilter{.until = kNow - 1}.wants(moment)));
}

TEST(LogFilterTest, ALineIsWantedWithThoseBelowIt) {
    const LogFilter filter{.line = {{8, 1, 2, 3}}};
    EXPECT_TRUE(filter.wants(record("Failure x [8.1.2.3]")));
    EXPECT_TRUE(filter.wants(record("Failure x [8.1.2.3.7.1]")));
    EXPECT_FALSE(filter.wants(record("Failure x [8.1.2.31]")));
    EXPECT_FALSE(filter.wants(record("Failure x [8.1.2]")));
}

TEST(LogFilterTest, ProgramAndProcessAreTheFirstAndTheThirdNumber) {
    EXPECT_TRUE((LogFilter{.program = 8, .process = 2}.wants(record("Failure x [8.1.2.3]"))));
    EXPECT_FALSE((LogFilter{.program = 9}.wants(record("Failure x [8.1.2.3]"))));
    EXPECT_FALSE((LogFilter{.process = 2}.wants(record("Failure x [8.1]"))));
}

TEST(LogFilterTest, OfClassificationsAnyOneIsEnough) {
    const LogFilter filter{.classifications = *logClassificationsFromText("warning,5")};
    EXPECT_TRUE(filter.wants(record("Failure x [8.1]")));
    EXPECT_TRUE(filter.wants(record("Warning x [8.1]")));
    EXPECT_FALSE(filter.wants(record("#debug# x [8.1]")));
    EXPECT_FALSE(filter.wants(record("Purpose x [8.1]")));
}

TEST(LogFilterTest, WordsAreLookedForInTheMessageWithItsEscapesUndone) {
    const LogFilter filter{.words = "\u00e4x"};
    EXPECT_TRUE(filter.wants(record("Failure \\u00e4x [8.1]")));
    EXPECT_FALSE(filter.wants(record("Failure ax [8.1]")));
    EXPECT_FALSE((LogFilter{.words = "Failure"}.wants(record("Failure x [8.1]"))));
}

// MARK: From text

TEST(LogMomentTest, ASpanIsThatLongAgo) {
    EXPECT_EQ(logMomentFromText("10m", kNow), kNow - 600'000);
    EXPECT_EQ(logMomentFromText("0", kNow), kNow);
}

TEST(LogMomentTest, ADateMayHaveAnOffset) {
    for (const char* text : {"2026-11-16 07:12:03.481 +0100", "2026-11-16T06:12:03.481Z",
                             "2026-11-16t00:12:03.481-06:00"})
        EXPECT_EQ(logMomentFromText(text, 0), kNow) << text;
}

TEST(LogMomentTest, ADateWithoutOneIsLocal) {
    const platform::ScopedTimeZone zone("Europe/Berlin");
    EXPECT_EQ(logMomentFromText("2026-11-16 07:12:03.481", 0), kNow);
    EXPECT_EQ(logMomentFromText("2026-11-16 07:12", 0), kNow - 3'481);
    EXPECT_EQ(logMomentFromText("2026-11-16", 0), kNow - 3'481 - (7 * 60 + 12) * 60'000);
    EXPECT_EQ(logMomentFromText("2026-07-01 02:00", 0), 1782864000000);  // Summer time.
}

TEST(LogMomentTest, WhatIsNoTimeIsNone) {
    for (const char* text :
         {"", "yesterday", "2026-13-01", "2026-02-29", "2026-11-16 7:12", "2026-11-16 24:00",
          "2026-11-16 07:12 +1", "2026-11-16 07:12:03.481 +0100x"})
        EXPECT_FALSE(logMomentFromText(text, kNow)) << text;
}

TEST(LogClassificationsTest, AreNumbersOrWords) {
    EXPECT_EQ(logClassificationsFromText("0,9"), std::bitset<10>(0b1000000001));
    EXPECT_EQ(logClassificationsFromText("DEBUG,#debug#,caution"), std::bitset<10>(0b1000001000));
    for (const char* text : {"", ",", "5,", "10", "-1", "debu", "Preferred"})
        EXPECT_FALSE(logClassificationsFromText(text)) << text;
}

}  // namespace
}  // namespace sevrin
