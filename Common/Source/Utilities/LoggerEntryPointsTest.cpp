// Tests of the entry points for everybody, the root line, and lines remembered by key.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/RootLogLine.h"
#include "Common/Source/Utilities/TestLogger.h"

namespace sevrin {
namespace {

using testing::ElementsAre;

class LoggerEntryPointsTest : public ::testing::Test {
protected:
    // The text of the `number`th line logged in the root since the test began.
    std::string rootChild(std::uint64_t number) const {
        return Logger::rootLogLine()->description() + "." + std::to_string(before_ + number);
    }

    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed_{logger_};
    const LogLineIdentifierPtr line_ = LogLineIdentifier::logLineIdentifierFromString("8.1.2");
    const std::uint64_t before_ = Logger::rootLogLine()->count();
};

TEST_F(LoggerEntryPointsTest, AMessageWithoutALineIsNumberedInTheRoot) {
    const auto first = Logger::logMessage(LogClassification::Failure, "missing --users");
    const auto second = Logger::logInLineMessage(LogClassification::Minutia, nullptr, "more");

    EXPECT_EQ(first->description(), rootChild(1));
    EXPECT_EQ(second->description(), rootChild(2));
    EXPECT_THAT(logger_->lines(), ElementsAre("5 missing --users [" + rootChild(1) + "]",
                                              "6 more [" + rootChild(2) + "]"));
}

TEST_F(LoggerEntryPointsTest, AMessageInALineIsItsChild) {
    const auto written = Logger::logInLineMessage(LogClassification::Details, line_, "detail");

    EXPECT_EQ(written->parent(), line_);
    EXPECT_THAT(logger_->lines(), ElementsAre("7 detail [8.1.2.1]"));
}

TEST_F(LoggerEntryPointsTest, FormatsAreFilledIn) {
    Logger::logFormat(LogClassification::Minutia, "Created folder %@", "/x");
    Logger::logInLineFormat(LogClassification::Debug, line_, "uid: %u", 501U);

    EXPECT_THAT(logger_->lines(),
                ElementsAre("6 Created folder /x [" + rootChild(1) + "]", "9 uid: 501 [8.1.2.1]"));
}

TEST_F(LoggerEntryPointsTest, AValueIsLoggedUnderItsKey) {
    Logger::logInLineKeyValue(LogClassification::Debug, line_, "port", "com.sevrin.switchboard");

    EXPECT_THAT(logger_->lines(), ElementsAre("9 port: com.sevrin.switchboard [8.1.2.1]"));
}

TEST_F(LoggerEntryPointsTest, TheDefaultLoggerIsAskedForAnewEachTime) {
    const auto other = std::make_shared<TestLogger>();
    Logger::logInLineMessage(LogClassification::Details, line_, "one");
    Logger::setDefaultLogger(other);
    Logger::logInLineMessage(LogClassification::Details, line_, "two");

    EXPECT_THAT(logger_->lines(), ElementsAre("7 one [8.1.2.1]"));
    EXPECT_THAT(other->lines(), ElementsAre("7 two [8.1.2.2]"));
}

TEST_F(LoggerEntryPointsTest, ReplacingTheLoggerDoesNotRestartTheNumbering) {
    Logger::logMessage(LogClassification::Details, "one");
    Logger::setDefaultLogger(std::make_shared<TestLogger>());

    EXPECT_EQ(Logger::logMessage(LogClassification::Details, "two")->description(), rootChild(2));
}

TEST_F(LoggerEntryPointsTest, TheRootIsTheSwitchboardsInThisProcess) {
    const auto& root = Logger::rootLogLine();

    EXPECT_EQ(root->depth(), 2U);
    EXPECT_EQ(root->application(), 8);
    EXPECT_EQ(root->sequence(), static_cast<std::uint64_t>(::getpid()));
    EXPECT_EQ(Logger::rootLogLine(), root);
    // The process started today, or yesterday if it is just after midnight.
    const std::uint64_t now = logDayStamp(platform::NSDate::date());
    EXPECT_LE(root->parent()->sequence(), now);
    EXPECT_GE(root->parent()->sequence() + 100, now);
}

TEST(LoggerEntryPointsDeathTest, TheApplicationNumberIsNotChangedAfterTheFirstLine) {
    static_cast<void>(Logger::rootLogLine());

    EXPECT_DEATH(Logger::setApplicationNumber(9), "set before the first line");
}

TEST(LoggerEntryPointsDeathTest, TheProgramSetsItsApplicationNumberBeforeTheFirstLine) {
    // A process of its own, in which no test has made the root line yet.
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";

    EXPECT_EXIT(
        {
            Logger::setApplicationNumber(9);
            std::_Exit(Logger::rootLogLine()->application());
        },
        ::testing::ExitedWithCode(9), "");
}

TEST_F(LoggerEntryPointsTest, ClassificationsAreNamedAndFoundByName) {
    EXPECT_EQ(Logger::nameOfClassification(LogClassification::Plain), "       ");
    EXPECT_EQ(Logger::classificationFromName("Details"), LogClassification::Details);
    EXPECT_EQ(Logger::classificationFromName("#debug#"), LogClassification::Debug);
    EXPECT_EQ(Logger::classificationFromName("details"), LogClassification::Preferred);
}

TEST_F(LoggerEntryPointsTest, ALineIsRememberedUnderItsKey) {
    EXPECT_EQ(Logger::logLineForKey("RememberedKey"), nullptr);

    Logger::setLogLineForKey(line_, "RememberedKey");

    EXPECT_EQ(Logger::logLineForKey("RememberedKey"), line_);
    Logger::setLogLineForKey(nullptr, "RememberedKey");
}

TEST_F(LoggerEntryPointsTest, ALaterLineReplacesTheRememberedOne) {
    Logger::setLogLineForKey(line_, "ReplacedKey");
    const auto other = LogLineIdentifier::next(line_);

    Logger::setLogLineForKey(other, "ReplacedKey");

    EXPECT_EQ(Logger::logLineForKey("ReplacedKey"), other);
    Logger::setLogLineForKey(nullptr, "ReplacedKey");
}

TEST_F(LoggerEntryPointsTest, NoLineForgetsTheKey) {
    Logger::setLogLineForKey(line_, "ForgottenKey");

    Logger::setLogLineForKey(nullptr, "ForgottenKey");
    Logger::setLogLineForKey(nullptr, "NeverRememberedKey");

    EXPECT_EQ(Logger::logLineForKey("ForgottenKey"), nullptr);
    EXPECT_EQ(Logger::logLineForKey("NeverRememberedKey"), nullptr);
}

TEST_F(LoggerEntryPointsTest, APlaceholderIsWrittenOncePerKey) {
    const auto first = Logger::logInLinePlaceholderForKey(LogClassification::Warning, line_,
                                                          "Ignored failures", "OnceKey");
    const auto again = Logger::logInLinePlaceholderForKey(LogClassification::Failure, nullptr,
                                                          "another message", "OnceKey");

    EXPECT_EQ(first, again);
    EXPECT_EQ(Logger::logLineForKey("OnceKey"), first);
    EXPECT_THAT(logger_->lines(), ElementsAre("4 Ignored failures [8.1.2.1]"));
    Logger::setLogLineForKey(nullptr, "OnceKey");
}

TEST_F(LoggerEntryPointsTest, APlaceholderWithoutALineLiesInTheRoot) {
    const auto heading =
        Logger::logPlaceholderForKey(LogClassification::Warning, "Ignored failures", "RootKey");

    EXPECT_THAT(logger_->lines(), ElementsAre("4 Ignored failures [" + rootChild(1) + "]"));
    EXPECT_EQ(heading->description(), rootChild(1));
    Logger::setLogLineForKey(nullptr, "RootKey");
}

TEST_F(LoggerEntryPointsTest, AForgottenPlaceholderIsWrittenAgain) {
    Logger::logInLinePlaceholderForKey(LogClassification::Warning, line_, "heading", "AgainKey");
    Logger::setLogLineForKey(nullptr, "AgainKey");

    Logger::logInLinePlaceholderForKey(LogClassification::Warning, line_, "heading", "AgainKey");

    EXPECT_THAT(logger_->lines(), ElementsAre("4 heading [8.1.2.1]", "4 heading [8.1.2.2]"));
    Logger::setLogLineForKey(nullptr, "AgainKey");
}

TEST_F(LoggerEntryPointsTest, ALineSetByHandIsThePlaceholder) {
    Logger::setLogLineForKey(line_, "ByHandKey");

    EXPECT_EQ(Logger::logPlaceholderForKey(LogClassification::Warning, "heading", "ByHandKey"),
              line_);

    EXPECT_TRUE(logger_->lines().empty());
    Logger::setLogLineForKey(nullptr, "ByHandKey");
}

TEST_F(LoggerEntryPointsTest, ThreadsThatWantTheSamePlaceholderGetOne) {
    std::vector<LogLineIdentifierPtr> headings(4);
    std::vector<std::thread> threads;
    for (auto& heading : headings) {
        threads.emplace_back([&heading] {
            heading =
                Logger::logPlaceholderForKey(LogClassification::Warning, "heading", "ThreadsKey");
        });
    }
    for (auto& thread : threads)
        thread.join();

    for (const auto& heading : headings)
        EXPECT_EQ(heading, headings.front());
    EXPECT_EQ(logger_->lines().size(), 1U);
    Logger::setLogLineForKey(nullptr, "ThreadsKey");
}

}  // namespace
}  // namespace sevrin
