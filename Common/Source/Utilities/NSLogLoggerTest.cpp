// Tests of the console logger: what it shows, and in which form.
#include "Common/Source/Utilities/NSLogLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sevrin {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

// The same logger with a list for a console.
class ListedConsole : public NSLogLogger {
public:
    using NSLogLogger::logMessage;
    using NSLogLogger::NSLogLogger;
    void logMessage(const std::string& text) override { lines.emplace_back(text); }
    void reopen() override { ++reopenings; }
    std::vector<std::string> lines;
    int reopenings = 0;
};

LogLineIdentifierPtr someLine() {
    return LogLineIdentifier::logLineIdentifierFromString("8.1.2");
}

TEST(NSLogLoggerTest, AMessageFollowsItsWordInParentheses) {
    ListedConsole logger;

    logger.writeInLineMessage(LogClassification::Failure, someLine(), "missing --users");

    EXPECT_THAT(logger.lines, ElementsAre("(Failure) missing --users"));
}

TEST(NSLogLoggerTest, APlainMessageStandsAlone) {
    ListedConsole logger;

    logger.writeInLineMessage(LogClassification::Plain, someLine(), "heading");

    EXPECT_THAT(logger.lines, ElementsAre("heading"));
}

TEST(NSLogLoggerTest, SubrosaAndDebugAreNotShownButCount) {
    ListedConsole logger;
    const auto line = someLine();

    const auto first = logger.writeInLineMessage(LogClassification::Subrosa, line, "hidden");
    const auto second = logger.writeInLineMessage(LogClassification::Debug, line, "hidden");

    EXPECT_THAT(logger.lines, IsEmpty());
    EXPECT_EQ(first->description(), "8.1.2.1");
    EXPECT_EQ(second->description(), "8.1.2.2");
    EXPECT_EQ(line->classifications(), 1U << 8 | 1U << 9);
}

TEST(NSLogLoggerTest, EverythingElseIsShown) {
    ListedConsole logger;

    for (int number = 0; number < 8; ++number)
        logger.writeInLineMessage(LogClassification{number}, someLine(), "x");

    EXPECT_THAT(logger.lines,
                ElementsAre("x", "(-------) x", "(Curious) x", "(Caution) x", "(Warning) x",
                            "(Failure) x", "(Minutia) x", "(Details) x"));
}

TEST(NSLogLoggerTest, AMessageIsNotEscaped) {
    ListedConsole logger;

    logger.writeInLineMessage(LogClassification::Plain, someLine(), "\xC3\xA4\\");

    EXPECT_THAT(logger.lines, ElementsAre("\xC3\xA4\\"));
}

TEST(NSLogLoggerTest, AnObjectIsShownWhateverItsClassificationAndTakesNoNumber) {
    ListedConsole logger;
    const std::uint64_t before = Logger::rootLogLine()->count();

    logger.logMessage(LogClassification::Debug, platform::Value(42));
    logger.logMessage(LogClassification::Failure, "text");

    EXPECT_THAT(logger.lines, ElementsAre("#debug# - 42", "Failure - text"));
    EXPECT_EQ(Logger::rootLogLine()->count(), before);
}

TEST(NSLogLoggerTest, NeverReopensByItself) {
    int days = 0;
    ListedConsole logger([&days] {
        return platform::NSDate::dateWithTimeIntervalSinceReferenceDate(86'400.0 * 2 * days++);
    });

    for (int line = 0; line < 3; ++line)
        logger.writeInLineMessage(LogClassification::Failure, someLine(), "x");

    EXPECT_EQ(logger.reopenings, 0);
}

TEST(NSLogLoggerTest, FlushingAndRotatingShowNothing) {
    ListedConsole logger;

    logger.flush();
    logger.rotateLogKeeping(3);

    EXPECT_THAT(logger.lines, IsEmpty());
    EXPECT_THAT(logger.logFiles(), IsEmpty());
}

TEST(NSLogLoggerTest, TheConsoleIsThePlatforms) {
    NSLogLogger logger;
    ::testing::internal::CaptureStderr();

    logger.writeInLineMessage(LogClassification::Failure, someLine(), "missing --users");

    EXPECT_THAT(::testing::internal::GetCapturedStderr(),
                EndsWith("] (Failure) missing --users\n"));
}

}  // namespace
}  // namespace sevrin
