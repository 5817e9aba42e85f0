// Contract tests of the date formatter.
#include "Platform/NSDateFormatter.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/TestTimeZone.h"

namespace sevrin::platform {
namespace {

constexpr const char* kLogFormat = "yyyy-MM-dd HH:mm:ss.SSS Z";

std::string format(const char* pattern, NSDate date) {
    return NSDateFormatter(pattern).stringFromDate(date);
}

NSDate dateAt(double seconds) {
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

TEST(NSDateFormatterTest, ALogTimestampIsLocalTimeWithMillisecondsAndOffset) {
    const ScopedTimeZone zone(kCentralEurope);

    EXPECT_EQ(format(kLogFormat, utc(2026, 11, 16, 6, 12, 3.481'5)),
              "2026-11-16 07:12:03.481 +0100");
    EXPECT_EQ(format(kLogFormat, utc(2026, 7, 1, 23, 4, 5)), "2026-07-02 01:04:05.000 +0200");
}

TEST(NSDateFormatterTest, OffsetsWestOfUtcAreNegativeAndCountMinutes) {
    const NSDate date = utc(2026, 1, 1);

    EXPECT_EQ((ScopedTimeZone("NST3:30"), format("Z", date)), "-0330");
    EXPECT_EQ((ScopedTimeZone("<+0545>-5:45"), format("ZZZ", date)), "+0545");
    EXPECT_EQ((ScopedTimeZone("UTC0"), format("ZZ", date)), "+0000");
    EXPECT_EQ((ScopedTimeZone("LMT0:00:30"), format("Z", date)), "+0000");
}

TEST(NSDateFormatterTest, RepeatedLettersPadWithZeros) {
    const ScopedTimeZone zone("UTC0");
    const NSDate date = utc(2026, 3, 4, 5, 6, 7);

    EXPECT_EQ(format("y/M/d H:m:s", date), "2026/3/4 5:6:7");
    EXPECT_EQ(format("yyyyyy/MM/dd HH:mm:ss", date), "002026/03/04 05:06:07");
    EXPECT_EQ(format("yy", utc(2007, 1, 1)), "07");
    EXPECT_EQ(format("yyy yyyy", utc(7, 1, 1)), "007 0007");
    EXPECT_EQ(format("d.M.y H", utc(12026, 10, 11, 12)), "11.10.12026 12");
}

TEST(NSDateFormatterTest, YearsBeforeYearOneAreCountedFromTheirEra) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(format("yyyy", utc(0, 6, 1)), "0001");
    EXPECT_EQ(format("y", utc(-43, 3, 15)), "44");
}

TEST(NSDateFormatterTest, QuotedTextAndOtherCharactersStandForThemselves) {
    const ScopedTimeZone zone("UTC0");
    const NSDate date = utc(2026, 3, 4, 5, 6, 7);

    EXPECT_EQ(format("yyyy-MM-dd'T'HH:mm:ss", date), "2026-03-04T05:06:07");
    EXPECT_EQ(format("H 'o''clock' ''yy''", date), "5 o'clock '26'");
    EXPECT_EQ(format("'ddd' 12 é 'Zürich'", date), "ddd 12 é Zürich");
    EXPECT_EQ(format("''''", date), "''");
    EXPECT_EQ(format("", date), "");
}

TEST(NSDateFormatterTest, WhatIsNoFieldIsRefused) {
    for (const char* pattern :
         {"MMM",  "MMMM", "E",          "EEEE",       "hh",   "a",    "G",   "D",
          "YYYY", "ww",   "u",          "dT",         "zzz",  "X",    "ddd", "HHH",
          "mmm",  "sss",  "SSSSSSSSSS", "yyyyyyyyyy", "ZZZZ", "ZZZZZ"}) {
        EXPECT_THROW(NSDateFormatter{pattern}, std::invalid_argument) << pattern;
    }
}

TEST(NSDateFormatterTest, AnApostropheThatIsNotClosedIsRefused) {
    for (const char* pattern : {"'", "yyyy'T", "'''", "'o''clock"}) {
        EXPECT_THROW(NSDateFormatter{pattern}, std::invalid_argument) << pattern;
    }
}

TEST(NSDateFormatterTest, ASecondFractionIsRefused) {
    EXPECT_THROW(NSDateFormatter("S SSS"), std::invalid_argument);
}

TEST(NSDateFormatterTest, ARefusalNamesThePatternAndTheField) {
    try {
        const NSDateFormatter formatter("d MMM y");
        FAIL() << "not refused";
    } catch (const std::invalid_argument& refusal) {
        EXPECT_STREQ(refusal.what(), "date format 'd MMM y': no field 'MMM'");
    }
}

TEST(NSDateFormatterTest, FractionsAreCutOffAndNeverRounded) {
    EXPECT_EQ(format("s.S", dateAt(0.96875)), "0.9");
    EXPECT_EQ(format("s.SSS", dateAt(0.96875)), "0.968");
    EXPECT_EQ(format("s.SSSSSSSSS", dateAt(0.96875)), "0.968750000");
    EXPECT_EQ(format("s.SSS", dateAt(5.0078125)), "5.007");
    EXPECT_EQ(format("SSS", dateAt(0)), "000");
}

TEST(NSDateFormatterTest, AFractionJustBelowASecondStaysInThatSecond) {
    const double justBelow = std::nextafter(1.0, 0.0);

    EXPECT_EQ(format("ss.SSS", dateAt(justBelow)), "00.999");
    EXPECT_EQ(format("ss.SSSSSSSSS", dateAt(justBelow)), "00.999999999");
    EXPECT_EQ(format("ss.SSS", dateAt(std::nextafter(817'030'843.0, 0.0))), "42.999");
}

TEST(NSDateFormatterTest, AFractionBeforeTheReferenceDateCountsUpToIt) {
    EXPECT_EQ(format("ss.SSS", dateAt(-0.25)), "59.750");
    // So close to the next second that the difference rounds to it.
    EXPECT_EQ(format("ss.SSS", dateAt(-1e-20)), "59.999");
    EXPECT_EQ(format("ss.SSSSSSSSS", dateAt(-1e-20)), "59.999999999");
}

TEST(NSDateFormatterTest, EveryMillisecondOfASecondIsPrintedInOrder) {
    const NSDateFormatter formatter("ss.SSS");
    for (int millisecond = 0; millisecond < 1000; ++millisecond) {
        // The middle of each, so that no neighbour is meant.
        const NSDate date = dateAt(817'030'800 + (millisecond + 0.5) / 1000);
        const std::string digits = std::to_string(1000 + millisecond).substr(1);

        ASSERT_EQ(formatter.stringFromDate(date), "00." + digits);
    }
}

TEST(NSDateFormatterTest, ADateInTheSameSecondDiffersInItsFractionOnly) {
    const ScopedTimeZone zone("UTC0");
    const NSDateFormatter formatter(kLogFormat);
    ASSERT_EQ(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 7.25)),
              "2026-03-04 05:06:07.250 +0000");

    EXPECT_EQ(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 7.5)),
              "2026-03-04 05:06:07.500 +0000");
    EXPECT_EQ(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 8.5)),
              "2026-03-04 05:06:08.500 +0000");
    EXPECT_EQ(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 7.75)),
              "2026-03-04 05:06:07.750 +0000");
}

TEST(NSDateFormatterTest, FormattersDoNotTakeEachOthersTextForTheSameSecond) {
    const ScopedTimeZone zone("UTC0");
    const NSDate date = utc(2026, 3, 4);
    const NSDateFormatter years("yyyy");
    NSDateFormatter months("MM");

    EXPECT_EQ(years.stringFromDate(date), "2026");
    EXPECT_EQ(months.stringFromDate(date), "03");
    EXPECT_EQ(NSDateFormatter(years).stringFromDate(date), "2026");
    months = years;
    EXPECT_EQ(months.stringFromDate(date), "2026");
}

TEST(NSDateFormatterTest, TextOfAnyLengthIsPrintedAlikeEachTime) {
    const ScopedTimeZone zone("UTC0");
    for (std::size_t length = 50; length < 80; ++length) {
        const std::string filler(length, '-');
        const NSDateFormatter formatter(filler + "ss.SSS");

        ASSERT_EQ(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 7.25)), filler + "07.250");
        ASSERT_EQ(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 7.5)), filler + "07.500");
    }
}

TEST(NSDateFormatterTest, TheTextOfTheSecondIsKeptUntilAnotherIsFormatted) {
    const ScopedTimeZone zone("UTC0");
    const NSDateFormatter formatter(kLogFormat);
    std::array<char, NSDateFormatter::kKeptSizeMax> room;
    const auto kept = [&](NSDate date) {
        return std::string(room.data(), formatter.writeStringOfKeptSecond(room, date));
    };
    static_cast<void>(formatter.stringFromDate(utc(2026, 3, 4, 5, 6, 7.5)));

    EXPECT_EQ(kept(utc(2026, 3, 4, 5, 6, 7)), "2026-03-04 05:06:07.000 +0000");
    EXPECT_EQ(kept(utc(2026, 3, 4, 5, 6, 7.999)), "2026-03-04 05:06:07.999 +0000");
    EXPECT_EQ(kept(utc(2026, 3, 4, 5, 6, 8)), "");
    EXPECT_EQ(kept(utc(2026, 3, 4, 5, 6, 6.999)), "");
    EXPECT_EQ(kept(dateAt(std::numeric_limits<double>::quiet_NaN())), "");
    static_cast<void>(NSDateFormatter("ss").stringFromDate(utc(2026, 3, 4, 5, 6, 7)));
    EXPECT_EQ(kept(utc(2026, 3, 4, 5, 6, 7)), "");
}

TEST(NSDateFormatterTest, AppendingKeepsWhatIsThere) {
    const ScopedTimeZone zone("UTC0");
    const NSDateFormatter formatter("S ss");
    std::string out = "at ";

    formatter.appendStringFromDate(out, utc(2026, 3, 4, 5, 6, 7.25));
    formatter.appendStringFromDate(out, utc(2026, 3, 4, 5, 6, 7.5));

    EXPECT_EQ(out, "at 2 075 07");
}

TEST(NSDateFormatterTest, AnAbsurdDateIsAnEndOfTheCalendar) {
    const ScopedTimeZone zone("UTC0");

    EXPECT_EQ(format(kLogFormat, dateAt(std::numeric_limits<double>::infinity())),
              "32766-12-31 23:59:59.000 +0000");
    EXPECT_EQ(format(kLogFormat, dateAt(-1e300)), "32767-01-01 00:00:00.000 +0000");
    EXPECT_EQ(format(kLogFormat, dateAt(std::numeric_limits<double>::quiet_NaN())),
              "32767-01-01 00:00:00.000 +0000");
}

TEST(NSDateFormatterTest, OneFormatterServesAllThreads) {
    // In the machine's own zone, whose file the C library then looks at from every thread.
    const NSDateFormatter formatter("ss.SSS");
    std::vector<int> wrong(4);

    std::vector<std::thread> threads;
    for (int& mistakes : wrong) {
        threads.emplace_back([&] {
            for (int second = 0; second < 60; ++second) {
                const std::string expected = std::to_string(100 + second).substr(1);
                const NSDate date = utc(2026, 3, 4, 5, 6, second);
                mistakes += formatter.stringFromDate(date) != expected + ".000";
                mistakes += formatter.stringFromDate(date.dateByAddingTimeInterval(0.5)) !=
                            expected + ".500";
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrong, std::vector<int>(4));
}

}  // namespace
}  // namespace sevrin::platform
