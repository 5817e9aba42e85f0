// Tests of what every logger does with a message.
#include "Common/Source/Utilities/Logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/TestTimeZone.h"

namespace sevrin {
namespace {

using platform::kCentralEurope;
using platform::ScopedTimeZone;
using platform::utc;
using testing::ElementsAre;

LogLineIdentifierPtr someLine() {
    return LogLineIdentifier::logLineIdentifierFromString("8.1.2");
}

// Keeps the bytes of its lines, in the base class's format.
class ByteLogger : public Logger {
public:
    using Logger::Logger;

    void logCString(const char* bytes) override {
        const std::lock_guard guard(lock);
        lines.emplace_back(bytes);
    }

    std::mutex lock;
    std::vector<std::string> lines;
};

TEST(LoggerTest, ALineIsDateWordMessageAndIdentifier) {
    const ScopedTimeZone zone(kCentralEurope);
    ByteLogger logger([] { return utc(2026, 11, 16, 6, 12, 3.4815); });

    logger.writeInLineMessage(LogClassification::Debug, someLine(), "started Switchboard-2.2.5.12");

    EXPECT_THAT(logger.lines, ElementsAre("2026-11-16 07:12:03.481 +0100 #debug# started "
                                          "Switchboard-2.2.5.12 [8.1.2.1]"));
}

TEST(LoggerTest, APlainLineHasSevenBlanksForAWord) {
    const ScopedTimeZone zone("UTC0");
    ByteLogger logger([] { return utc(2026, 11, 16); });

    logger.writeInLineMessage(LogClassification::Plain, someLine(), "heading");

    EXPECT_THAT(logger.lines,
                ElementsAre("2026-11-16 00:00:00.000 +0000         heading [8.1.2.1]"));
}

TEST(LoggerTest, CharactersOutsideAsciiAndBackslashesAreEscaped) {
    const ScopedTimeZone zone("UTC0");
    ByteLogger logger([] { return utc(2026, 11, 16); });

    logger.writeInLineMessage(LogClassification::Failure, someLine(),
                              "C:\\\xC3\xA4 \xF0\x9F\x98\x80");

    EXPECT_THAT(logger.lines,
                ElementsAre("2026-11-16 00:00:00.000 +0000 Failure C:\\\\\\u00e4 \\ud83d\\ude00 "
                            "[8.1.2.1]"));
}

TEST(LoggerTest, AMessageIsWrittenAsItIsLineBreaksIncluded) {
    const ScopedTimeZone zone("UTC0");
    ByteLogger logger([] { return utc(2026, 11, 16); });

    logger.writeInLineMessage(LogClassification::Failure, someLine(), "one\ntwo");

    EXPECT_THAT(logger.lines,
                ElementsAre("2026-11-16 00:00:00.000 +0000 Failure one\ntwo [8.1.2.1]"));
}

TEST(LoggerTest, ANulInAMessageDoesNotCutTheLine) {
    const ScopedTimeZone zone("UTC0");
    ByteLogger logger([] { return utc(2026, 11, 16); });

    logger.writeInLineMessage(LogClassification::Failure, someLine(), std::string_view("a\0b", 3));

    EXPECT_THAT(logger.lines,
                ElementsAre("2026-11-16 00:00:00.000 +0000 Failure a\\u0000b [8.1.2.1]"));
}

TEST(LoggerTest, MessagesInALineAreItsChildren) {
    TestLogger logger;
    const auto line = someLine();

    const auto first = logger.writeInLineMessage(LogClassification::Warning, line, "one");
    logger.writeInLineMessage(LogClassification::Details, line, "two");
    logger.writeInLineMessage(LogClassification::Details, first, "below one");

    EXPECT_THAT(logger.lines(),
                ElementsAre("4 one [8.1.2.1]", "7 two [8.1.2.2]", "7 below one [8.1.2.1.1]"));
}

TEST(LoggerTest, ALineRemembersWhatWasLoggedInIt) {
    TestLogger logger;
    const auto line = someLine();

    logger.writeInLineMessage(LogClassification::Warning, line, "one");
    const auto second = logger.writeInLineMessage(LogClassification::Debug, line, "two");
    logger.writeInLineMessage(LogClassification::Plain, second, "below");

    EXPECT_EQ(line->classifications(), 1U << 4 | 1U << 9);
    EXPECT_EQ(second->classifications(), 1U << 0);
}

TEST(LoggerTest, AMessageWithoutALineLiesInTheRoot) {
    TestLogger logger;
    const std::uint64_t before = Logger::rootLogLine()->count();

    const auto line = logger.writeInLineMessage(LogClassification::Debug, nullptr, "one");

    EXPECT_EQ(line->parent(), Logger::rootLogLine());
    EXPECT_EQ(line->sequence(), before + 1);
    EXPECT_NE(Logger::rootLogLine()->classifications() & 1U << 9, 0U);
}

TEST(LoggerTest, TheBaseLoggerWritesNothingButCounts) {
    Logger logger;
    const auto line = someLine();

    const auto written = logger.writeInLineMessage(LogClassification::Failure, line, "message");

    EXPECT_EQ(written->description(), "8.1.2.1");
    EXPECT_EQ(line->count(), 1U);
    EXPECT_EQ(line->classifications(), 1U << 5);
}

TEST(LoggerTest, TheBaseLoggerHasNothingToFlushRotateOrList) {
    Logger logger;

    logger.flush();
    logger.reopen();
    logger.rotateLogKeeping(9);

    EXPECT_TRUE(logger.logFiles().empty());
}

TEST(LoggerTest, AFormatIsFilledIn) {
    TestLogger logger;

    logger.writeInLineFormat(LogClassification::Minutia, someLine(), "%@: %u of %d%%", "key", 7U,
                             -3);

    EXPECT_THAT(logger.lines(), ElementsAre("6 key: 7 of -3% [8.1.2.1]"));
}

TEST(LoggerTest, AMessageIsNoFormat) {
    TestLogger logger;

    logger.writeInLineMessage(LogClassification::Minutia, someLine(), "100%@");

    EXPECT_THAT(logger.lines(), ElementsAre("6 100%@ [8.1.2.1]"));
}

// Never shows Debug; gives no text for anything.
class SilentLogger : public TestLogger {
public:
    bool suppressesClassification(LogClassification classification) const override {
        return classification == LogClassification::Debug;
    }
    bool formatMessageInLineClassClassString(std::string&, std::string_view,
                                             const LogLineIdentifier&, LogClassification,
                                             std::string_view) override {
        return false;
    }
};

TEST(LoggerTest, ALineWithoutTextIsNotWrittenButCounts) {
    SilentLogger logger;

    const auto written =
        logger.writeInLineMessage(LogClassification::Failure, someLine(), "message");

    EXPECT_EQ(written->description(), "8.1.2.1");
    EXPECT_TRUE(logger.lines().empty());
}

// Counts how often it is described.
class Described : public platform::Object {
public:
    std::string description() const override {
        ++count;
        return "object";
    }
    mutable int count = 0;
};

TEST(LoggerTest, ALineThatIsNeverShownIsNumberedButNotFormatted) {
    SilentLogger logger;
    const auto line = someLine();
    const Described object;

    const auto written = logger.writeInLineFormat(LogClassification::Debug, line, "%@", object);
    EXPECT_EQ(written->description(), "8.1.2.1");
    EXPECT_EQ(line->classifications(), 1U << 9);
    EXPECT_EQ(object.count, 0);

    logger.writeInLineFormat(LogClassification::Failure, line, "%@", object);
    EXPECT_EQ(object.count, 1);
}

TEST(LoggerTest, ThreadsThatLogAtOnceGetWholeLinesWithDifferentNumbers) {
    constexpr int kThreads = 4;
    constexpr int kLinesPerThread = 500;
    ByteLogger logger([] { return utc(2026, 11, 16); });
    const auto line = someLine();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&logger, &line] {
            for (int i = 0; i < kLinesPerThread; ++i)
                logger.writeInLineMessage(LogClassification::Debug, line, "message");
        });
    }
    for (auto& thread : threads)
        thread.join();

    std::set<std::string> numbers;
    for (const std::string& text : logger.lines) {
        const std::size_t start = text.find(" #debug# message [8.1.2.");
        ASSERT_NE(start, std::string::npos) << text;
        numbers.insert(text.substr(start));
    }
    EXPECT_EQ(numbers.size(), std::size_t{kThreads} * kLinesPerThread);
}

}  // namespace
}  // namespace sevrin
