// Tests of the default logger's slot: a logger lives as long as a call uses it, and no longer.
#include "Common/Source/Utilities/LoggerInUse.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/LoggerRegistry.h"
#include "Common/Source/Utilities/TestLogger.h"

namespace sevrin {
namespace {

// Does something in its lines, counts itself, and is worthless when it has ended.
class CountedLogger : public Logger {
public:
    explicit CountedLogger(std::function<void()> work = nullptr) : work_(std::move(work)) {
        ++alive;
    }
    ~CountedLogger() override {
        isAlive_ = false;
        --alive;
    }
    void logMessage(const std::string&) override {
        if (work_) work_();
        if (isAlive_) ++lines;
    }

    static inline std::atomic<int> alive = 0;
    static inline std::atomic<int> lines = 0;

private:
    const std::function<void()> work_;
    std::atomic<bool> isAlive_ = true;
};

// Whichever logger is chosen is one that counts.
class LoggerInUseTest : public testing::Test {
protected:
    LoggerInUseTest() {
        const auto make = [] { return std::make_shared<CountedLogger>(); };
        standard_ = LoggerRegistry::setFactory(LoggerRegistry::kStandardLogger, make);
        console_ = LoggerRegistry::setFactory("NSLogLogger", make);
    }
    ~LoggerInUseTest() override {
        Logger::releaseDefaultLogger();
        LoggerRegistry::setFactory(LoggerRegistry::kStandardLogger, standard_);
        LoggerRegistry::setFactory("NSLogLogger", console_);
    }

    static void log() { Logger::logMessage(LogClassification::Failure, "line"); }

private:
    LoggerRegistry::Factory standard_;
    LoggerRegistry::Factory console_;
};

TEST_F(LoggerInUseTest, ALoggerThatNobodyUsesEndsWhenItIsReleased) {
    Logger::setDefaultLogger(std::make_shared<CountedLogger>());
    log();

    Logger::releaseDefaultLogger();

    EXPECT_EQ(CountedLogger::alive, 0);
}

TEST_F(LoggerInUseTest, ALoggerThatIsReleasedInItsOwnCallEndsWithIt) {
    int aliveThen = 0;
    Logger::setDefaultLogger(std::make_shared<CountedLogger>([&] {
        Logger::releaseDefaultLogger();
        aliveThen = CountedLogger::alive;
    }));

    log();

    EXPECT_EQ(aliveThen, 1);
    EXPECT_EQ(CountedLogger::alive, 0);
}

TEST_F(LoggerInUseTest, ACallWithinACallHasTheLoggerThatIsInstalledByThen) {
    const auto second = std::make_shared<TestLogger>();
    Logger::setDefaultLogger(std::make_shared<CountedLogger>([&] {
        Logger::setDefaultLogger(second);
        log();
    }));

    log();

    EXPECT_EQ(second->lines().size(), 1U);
    EXPECT_EQ(CountedLogger::alive, 0);
}

TEST_F(LoggerInUseTest, AThreadThatEndsWhileTheLoggerIsInstalledHoldsNothing) {
    Logger::setDefaultLogger(std::make_shared<CountedLogger>());
    std::thread(log).join();

    Logger::releaseDefaultLogger();

    EXPECT_EQ(CountedLogger::alive, 0);
}

// Logs when the thread's other objects are gone.
struct LogsAtTheEnd {
    ~LogsAtTheEnd() { Logger::logMessage(LogClassification::Failure, "last"); }
};

TEST_F(LoggerInUseTest, AThreadLogsToItsVeryEnd) {
    const auto logger = std::make_shared<TestLogger>();
    Logger::setDefaultLogger(logger);

    std::thread([] {
        thread_local const LogsAtTheEnd first;
        static_cast<void>(first);
        log();
    }).join();

    EXPECT_EQ(logger->lines().size(), 2U);
}

TEST_F(LoggerInUseTest, ThreadsThatLogWhileLoggersComeAndGoFindALivingOneEachTime) {
    constexpr int kThreads = 3;
    constexpr int kLoggers = 2000;
    CountedLogger::lines = 0;
    Logger::setDefaultLogger(std::make_shared<CountedLogger>());
    std::atomic<bool> isEnded = false;
    std::atomic<int> logged = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (; !isEnded; ++logged)
                LoggerInUse()->logMessage(std::string("line"));
        });
    }

    for (int logger = 0; logger < kLoggers; ++logger)
        Logger::setDefaultLogger(std::make_shared<CountedLogger>());
    isEnded = true;
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(CountedLogger::lines, logged);
    Logger::releaseDefaultLogger();
    EXPECT_EQ(CountedLogger::alive, 0);
}

}  // namespace
}  // namespace sevrin
