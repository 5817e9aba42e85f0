// Tests of choosing, installing and releasing the default logger.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/LoggerRegistry.h"
#include "Common/Source/Utilities/NSLogLogger.h"
#include "Common/Source/Utilities/TestLogger.h"

namespace sevrin {
namespace {

using LoggerRegistry::kStandardLogger;
using testing::ElementsAre;
using testing::EndsWith;

// Has loggers of a name made as the test wants, and as before at its end.
class ScopedFactory {
public:
    ScopedFactory(std::string_view name, LoggerRegistry::Factory factory)
        : name_(name), before_(LoggerRegistry::setFactory(name, std::move(factory))) {}
    ScopedFactory(const ScopedFactory&) = delete;
    ScopedFactory& operator=(const ScopedFactory&) = delete;
    ~ScopedFactory() { LoggerRegistry::setFactory(name_, std::move(before_)); }

private:
    const std::string_view name_;
    LoggerRegistry::Factory before_;
};

// A console logger whose console is a list.
class ListedConsole : public NSLogLogger {
public:
    void logMessage(const std::string& text) override { lines.emplace_back(text); }
    std::vector<std::string> lines;
};

// Does something when it is reopened, and counts.
class ReopeningLogger : public TestLogger {
public:
    explicit ReopeningLogger(std::function<void()> onReopen = {})
        : onReopen_(std::move(onReopen)) {}
    void reopen() override {
        ++reopenings;
        if (onReopen_) onReopen_();
    }
    std::atomic<int> reopenings = 0;

private:
    const std::function<void()> onReopen_;
};

class LoggerSelectionTest : public ::testing::Test {
protected:
    LoggerSelectionTest() { Logger::releaseDefaultLogger(); }
    ~LoggerSelectionTest() override { Logger::releaseDefaultLogger(); }

    const std::shared_ptr<ListedConsole> console_ = std::make_shared<ListedConsole>();
    const ScopedFactory consoleFactory_{"NSLogLogger", [this] { return console_; }};
    const ScopedFactory noStandard_{kStandardLogger, nullptr};
};

TEST_F(LoggerSelectionTest, TheConsoleServesWhereThereIsNoStandardLogger) {
    EXPECT_EQ(Logger::defaultLogger(), console_);
}

TEST_F(LoggerSelectionTest, TheStandardLoggerReplacesTheFallback) {
    const auto standard = std::make_shared<ReopeningLogger>();
    const ScopedFactory factory(kStandardLogger, [&] { return standard; });

    EXPECT_EQ(Logger::defaultLogger(), standard);

    EXPECT_EQ(standard->reopenings, 1);
    EXPECT_TRUE(console_->lines.empty());
}

TEST_F(LoggerSelectionTest, TheFallbackServesWhileTheStandardLoggerIsMade) {
    const ScopedFactory factory(kStandardLogger, [] {
        Logger::logMessage(LogClassification::Minutia, "making one");
        return std::make_shared<TestLogger>();
    });

    static_cast<void>(Logger::defaultLogger());

    EXPECT_THAT(console_->lines, ElementsAre("(Minutia) making one"));
}

TEST_F(LoggerSelectionTest, AnInstalledLoggerIsNotChosenAgain) {
    const LoggerPtr first = Logger::defaultLogger();
    const ScopedFactory factory(kStandardLogger, [] { return std::make_shared<TestLogger>(); });

    EXPECT_EQ(Logger::defaultLogger(), first);
}

TEST_F(LoggerSelectionTest, RootWouldRatherBeSilent) {
    EXPECT_THAT(LoggerRegistry::fallbackLoggers(true), ElementsAre("NullLogger", "NSLogLogger"));
    EXPECT_THAT(LoggerRegistry::fallbackLoggers(false), ElementsAre("NSLogLogger", "NullLogger"));
}

TEST_F(LoggerSelectionTest, RootHasTheConsoleAllTheSameUntilTheStandardLoggerIsMade) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root would rather be silent";
    const auto standard = std::make_shared<TestLogger>();
    const ScopedFactory factory(kStandardLogger, [&] {
        Logger::logMessage(LogClassification::Minutia, "making one");
        return standard;
    });

    EXPECT_EQ(Logger::defaultLogger(), standard);

    EXPECT_THAT(console_->lines, ElementsAre("(Minutia) making one"));
}

TEST_F(LoggerSelectionTest, TheFirstCandidateThatExistsIsTaken) {
    const auto silent = std::make_shared<TestLogger>();
    const ScopedFactory factory("NullLogger", [&] { return silent; });

    const LoggerPtr expected = ::geteuid() == 0 ? LoggerPtr(silent) : LoggerPtr(console_);
    EXPECT_EQ(Logger::defaultLogger(), expected);
}

TEST_F(LoggerSelectionTest, ALoggerThatDiscardsEverythingDoesNotExist) {
    EXPECT_EQ(LoggerRegistry::make("NullLogger"), nullptr);
}

TEST_F(LoggerSelectionTest, AStandardLoggerThatCannotBeMadeIsReportedOnTheConsole) {
    const ScopedFactory factory(
        kStandardLogger, []() -> LoggerPtr { throw std::runtime_error("cannot open log file"); });

    EXPECT_EQ(Logger::defaultLogger(), console_);

    EXPECT_THAT(console_->lines,
                ElementsAre("(Failure) could not create standard logger; logging to console",
                            "(Failure) cannot open log file"));
}

TEST_F(LoggerSelectionTest, AStandardLoggerThatCannotBeReopenedLeavesTheConsoleInstalled) {
    const ScopedFactory factory(kStandardLogger, [] {
        return std::make_shared<ReopeningLogger>(
            [] { throw std::runtime_error("cannot open log file"); });
    });

    EXPECT_EQ(Logger::defaultLogger(), console_);

    EXPECT_EQ(Logger::defaultLogger(), console_);
    EXPECT_THAT(console_->lines,
                ElementsAre("(Failure) could not create standard logger; logging to console",
                            "(Failure) cannot open log file"));
}

TEST_F(LoggerSelectionTest, OnlyAConsoleIsToldOfAStandardLoggerThatCannotBeMade) {
    const auto fallback = std::make_shared<TestLogger>();
    const ScopedFactory notAConsole("NSLogLogger", [&] { return fallback; });
    const ScopedFactory factory(kStandardLogger,
                                []() -> LoggerPtr { throw std::runtime_error("no"); });

    EXPECT_EQ(Logger::defaultLogger(), fallback);

    EXPECT_TRUE(fallback->lines().empty());
}

TEST_F(LoggerSelectionTest, ALineLoggedWhileALoggerReopensChoosesAfresh) {
    const auto nested = std::make_shared<TestLogger>();
    int made = 0;
    const ScopedFactory factory(kStandardLogger, [&]() -> LoggerPtr {
        if (++made > 1) return nested;
        return std::make_shared<ReopeningLogger>(
            [] { Logger::logMessage(LogClassification::Minutia, "Created folder /x"); });
    });

    const LoggerPtr chosen = Logger::defaultLogger();

    EXPECT_NE(chosen, nested);
    ASSERT_EQ(nested->lines().size(), 1U);
    EXPECT_THAT(nested->lines()[0], testing::StartsWith("6 Created folder /x ["));
    EXPECT_TRUE(console_->lines.empty());
}

TEST_F(LoggerSelectionTest, AStandardLoggerThatLogsWheneverItReopensEndsAtTheConsole) {
    int made = 0;
    const ScopedFactory factory(kStandardLogger, [&made] {
        ++made;
        return std::make_shared<ReopeningLogger>(
            [] { Logger::logMessage(LogClassification::Failure, "no folder"); });
    });

    static_cast<void>(Logger::defaultLogger());

    EXPECT_EQ(made, 2);
    EXPECT_THAT(console_->lines, ElementsAre("(Failure) no folder"));
}

TEST_F(LoggerSelectionTest, WhileALoggerReopensTheOneBeforeItIsReleased) {
    const auto before = std::make_shared<TestLogger>();
    Logger::setDefaultLogger(before);
    const auto after = std::make_shared<ReopeningLogger>(
        [] { Logger::logMessage(LogClassification::Failure, "reopening"); });

    Logger::setDefaultLogger(after);

    EXPECT_EQ(Logger::defaultLogger(), after);
    EXPECT_TRUE(before->lines().empty());
    EXPECT_THAT(console_->lines, ElementsAre("(Failure) reopening"));
}

TEST_F(LoggerSelectionTest, InstallingTheInstalledLoggerKeepsItAlive) {
    Logger::setDefaultLogger(std::make_shared<ReopeningLogger>());

    Logger::setDefaultLogger(Logger::defaultLogger());

    const auto installed = std::dynamic_pointer_cast<ReopeningLogger>(Logger::defaultLogger());
    ASSERT_TRUE(installed);
    EXPECT_EQ(installed->reopenings, 2);
}

TEST_F(LoggerSelectionTest, AfterAReleaseTheNextLineChoosesAndGoesOnCounting) {
    const auto first = std::make_shared<TestLogger>();
    Logger::setDefaultLogger(first);
    const auto before = Logger::logMessage(LogClassification::Failure, "before");

    Logger::releaseDefaultLogger();
    const auto after = Logger::logMessage(LogClassification::Failure, "after");

    EXPECT_EQ(after->parent(), before->parent());
    EXPECT_EQ(after->sequence(), before->sequence() + 1);
    EXPECT_EQ(first->lines().size(), 1U);
    EXPECT_THAT(console_->lines, ElementsAre("(Failure) after"));
}

// Gives itself up with its first line, as one whose file cannot be written does.
class FailingLogger : public TestLogger {
public:
    explicit FailingLogger(std::atomic<bool>& ended) : ended_(ended) {}
    ~FailingLogger() override { ended_ = true; }
    void logMessage(const std::string& text) override {
        Logger::releaseDefaultLogger();
        EXPECT_FALSE(ended_);
        TestLogger::logMessage(text);
    }

private:
    std::atomic<bool>& ended_;
};

TEST_F(LoggerSelectionTest, ALoggerThatReleasesItselfLivesUntilItsCallReturns) {
    std::atomic<bool> ended = false;
    Logger::setDefaultLogger(std::make_shared<FailingLogger>(ended));

    Logger::logMessage(LogClassification::Failure, "lost");
    Logger::logMessage(LogClassification::Failure, "shown");

    EXPECT_TRUE(ended);
    EXPECT_THAT(console_->lines, ElementsAre("(Failure) shown"));
}

TEST_F(LoggerSelectionTest, ThreadsThatLogFirstChooseOnce) {
    std::atomic<int> made = 0;
    const auto standard = std::make_shared<ReopeningLogger>();
    const ScopedFactory factory(kStandardLogger, [&] {
        ++made;
        return standard;
    });
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([] { static_cast<void>(Logger::defaultLogger()); });
    }
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(made, 1);
    EXPECT_EQ(Logger::defaultLogger(), standard);
}

TEST(LoggerSelectionDeathTest, WithoutAnyFallbackTheProgramEnds) {
    Logger::releaseDefaultLogger();
    const ScopedFactory noConsole("NSLogLogger", nullptr);
    const char* const words =
        ::geteuid() == 0 ? "could not create fallback Logger; tried NullLogger, NSLogLogger"
                         : "could not create fallback Logger; tried NSLogLogger, NullLogger";

    EXPECT_DEATH(static_cast<void>(Logger::defaultLogger()),
                 std::string("Common/Source/Utilities/Logger.*") + words);
}

TEST(LoggerRegistryTest, AConsoleLoggerIsMadeAnewEachTime) {
    const LoggerPtr one = LoggerRegistry::make("NSLogLogger");

    EXPECT_TRUE(std::dynamic_pointer_cast<NSLogLogger>(one));
    EXPECT_NE(LoggerRegistry::make("NSLogLogger"), one);
}

TEST(LoggerRegistryTest, AnUnknownNameMakesNothing) {
    EXPECT_EQ(LoggerRegistry::make("NoSuchLogger"), nullptr);
    EXPECT_EQ(LoggerRegistry::make(""), nullptr);
}

}  // namespace
}  // namespace sevrin
