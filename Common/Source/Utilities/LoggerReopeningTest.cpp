// Tests of the daily reopening of a logger, under a clock of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/RelativeDate.h"
#include "Platform/TestTimeZone.h"

namespace sevrin {
namespace {

using platform::kCentralEurope;
using platform::NSDate;
using platform::ScopedTimeZone;
using platform::utc;
using testing::ElementsAre;

LogLineIdentifierPtr someLine() {
    return LogLineIdentifier::logLineIdentifierFromString("8.1.2");
}

// Keeps the bytes of its lines, and counts how often it is reopened.
class ByteLogger : public Logger {
public:
    using Logger::Logger;

    void logCString(const char* bytes) override {
        const std::lock_guard guard(lock);
        lines.emplace_back(bytes);
    }
    void reopen() override { ++reopenings; }

    std::mutex lock;
    std::vector<std::string> lines;
    std::atomic<int> reopenings = 0;
};

class LoggerReopeningTest : public ::testing::Test {
protected:
    std::string lastNumber() const {
        return Logger::rootLogLine()->description() + "." +
               std::to_string(Logger::rootLogLine()->count());
    }

    const ScopedTimeZone zone_{kCentralEurope};
    NSDate now_ = utc(2026, 11, 16, 22, 59, 59);  // 23:59:59 on the clocks.
    ByteLogger logger_{[this] { return now_; }};
};

TEST_F(LoggerReopeningTest, TheDateIsTheNextLocalMidnight) {
    EXPECT_EQ(logger_.reopenDate(), utc(2026, 11, 16, 23));
}

TEST_F(LoggerReopeningTest, TheDateStaysWhenTheDayPassesUntilALineIsLogged) {
    const NSDate date = logger_.reopenDate();

    now_ = utc(2026, 11, 18, 12);

    EXPECT_EQ(logger_.reopenDate(), date);
}

TEST_F(LoggerReopeningTest, NothingIsReopenedBeforeMidnight) {
    logger_.writeInLineMessage(LogClassification::Details, someLine(), "first");
    now_ = utc(2026, 11, 16, 22, 59, 59.999);
    logger_.writeInLineMessage(LogClassification::Details, someLine(), "second");

    EXPECT_EQ(logger_.reopenings, 0);
    EXPECT_EQ(logger_.lines.size(), 2U);
}

TEST_F(LoggerReopeningTest, TheFirstLineOfADayIsPrecededByOneInTheRootThatSaysSo) {
    logger_.writeInLineMessage(LogClassification::Details, someLine(), "yesterday");
    now_ = utc(2026, 11, 16, 23);

    logger_.writeInLineMessage(LogClassification::Details, someLine(), "today");

    EXPECT_EQ(logger_.reopenings, 1);
    EXPECT_THAT(logger_.lines,
                ElementsAre("2026-11-16 23:59:59.000 +0100 Details yesterday [8.1.2.1]",
                            "2026-11-17 00:00:00.000 +0100 #debug# Reopened log file [" +
                                lastNumber() + "]",
                            "2026-11-17 00:00:00.000 +0100 Details today [8.1.2.1]"));
}

TEST_F(LoggerReopeningTest, TheDayIsOverOnlyOnce) {
    static_cast<void>(logger_.reopenDate());
    now_ = utc(2026, 11, 17, 12);

    logger_.writeInLineMessage(LogClassification::Details, someLine(), "first");
    logger_.writeInLineMessage(LogClassification::Details, someLine(), "second");

    EXPECT_EQ(logger_.reopenings, 1);
    EXPECT_EQ(logger_.lines.size(), 3U);
    EXPECT_EQ(logger_.reopenDate(), utc(2026, 11, 17, 23));
}

TEST_F(LoggerReopeningTest, EveryMidnightReopens) {
    for (int day = 0; day < 3; ++day) {
        logger_.writeInLineMessage(LogClassification::Details, someLine(), "line");
        now_ = dateOffsetByScale(now_, 1, kScaleDay);
    }

    EXPECT_EQ(logger_.reopenings, 2);
}

TEST_F(LoggerReopeningTest, BothLinesCarryTheirOwnTime) {
    int readings = 0;
    // A second passes with each reading: the first is for the date, the second meets midnight.
    ByteLogger logger([&readings] { return utc(2026, 11, 16, 22, 59, 59 + readings++); });
    static_cast<void>(logger.reopenDate());

    logger.writeInLineMessage(LogClassification::Details, someLine(), "today");

    ASSERT_EQ(logger.lines.size(), 2U);
    EXPECT_EQ(logger.lines[0].substr(0, 23), "2026-11-17 00:00:01.000");
    EXPECT_EQ(logger.lines[1].substr(0, 23), "2026-11-17 00:00:00.000");
}

TEST_F(LoggerReopeningTest, OfThreadsThatMeetMidnightOneReopens) {
    std::atomic<double> seconds = now_.timeIntervalSinceReferenceDate();
    ByteLogger logger(
        [&seconds] { return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds); });
    static_cast<void>(logger.reopenDate());
    seconds = seconds + 60;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&logger] {
            logger.writeInLineMessage(LogClassification::Details, someLine(), "line");
        });
    }
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(logger.reopenings, 1);
    EXPECT_EQ(logger.lines.size(), 5U);
}

// Logs in itself while it reopens, as one that has something to report does.
class TalkativeLogger : public ByteLogger {
public:
    using ByteLogger::ByteLogger;
    void reopen() override {
        ByteLogger::reopen();
        writeInLineMessage(LogClassification::Failure, nullptr, "trouble");
    }
};

TEST_F(LoggerReopeningTest, AReopeningThatLogsDoesNotReopenAgain) {
    TalkativeLogger logger([this] { return now_; });
    static_cast<void>(logger.reopenDate());
    now_ = utc(2026, 11, 17, 12);

    logger.writeInLineMessage(LogClassification::Details, someLine(), "today");

    EXPECT_EQ(logger.reopenings, 1);
    EXPECT_EQ(logger.lines.size(), 3U);
}

}  // namespace
}  // namespace sevrin
