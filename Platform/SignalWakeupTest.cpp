// Contract tests of the bridge from a signal handler to the main queue, with real signals.
#include "Platform/SignalWakeup.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <thread>

#include "Platform/DispatchQueue.h"
#include "Platform/NSRunLoop.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;

NSRunLoop& loop() {
    return NSRunLoop::currentRunLoop();
}

[[nodiscard]] bool runUntilStopped() {
    return loop().runUntilDate(std::chrono::steady_clock::now() + 60s);
}

std::ptrdiff_t openDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

const SignalWakeup* wakeupOfHandler = nullptr;

// Sends SIGUSR1 to `wakeup` as long as it lives.
class HandlerInstalled {
public:
    explicit HandlerInstalled(const SignalWakeup& wakeup) {
        wakeupOfHandler = &wakeup;
        former_ = std::signal(SIGUSR1, [](int) { wakeupOfHandler->trigger(); });
    }
    ~HandlerInstalled() { std::signal(SIGUSR1, former_); }

    HandlerInstalled(const HandlerInstalled&) = delete;
    HandlerInstalled& operator=(const HandlerInstalled&) = delete;

private:
    void (*former_)(int);
};

TEST(SignalWakeupTest, ASignalMakesTheBlockRunOnTheMainThread) {
    bool ranOnMain = false;
    const SignalWakeup wakeup([&] {
        ranOnMain = isMainThread();
        loop().stop();
    });
    const HandlerInstalled handler(wakeup);

    std::raise(SIGUSR1);
    ASSERT_TRUE(runUntilStopped());

    EXPECT_TRUE(ranOnMain);
}

TEST(SignalWakeupTest, TheBlockDoesNotRunInTheHandlerItself) {
    bool ran = false;
    const SignalWakeup wakeup([&] {
        ran = true;
        loop().stop();
    });
    const HandlerInstalled handler(wakeup);

    std::raise(SIGUSR1);

    EXPECT_FALSE(ran);
    EXPECT_TRUE(runUntilStopped());
}

TEST(SignalWakeupTest, WithoutATriggerTheBlockDoesNotRun) {
    bool ran = false;
    const SignalWakeup wakeup([&] { ran = true; });

    EXPECT_FALSE(loop().runUntilDate(std::chrono::steady_clock::now() + 5ms));

    EXPECT_FALSE(ran);
}

TEST(SignalWakeupTest, ATriggerThatComesWhileTheBlockRunsMakesItRunAgain) {
    int runs = 0;
    std::optional<SignalWakeup> wakeup;
    wakeup.emplace([&] {
        if (++runs == 3) return loop().stop();
        wakeup->trigger();
    });

    wakeup->trigger();
    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(runs, 3);
}

TEST(SignalWakeupTest, AFloodOfTriggersNeitherBlocksNorQueuesARunEach) {
    int runs = 0;
    const SignalWakeup wakeup([&] { ++runs; });

    for (int trigger = 0; trigger < 100'000; ++trigger)
        wakeup.trigger();
    EXPECT_FALSE(loop().runUntilDate(std::chrono::steady_clock::now() + 5ms));

    EXPECT_EQ(runs, 1);
}

TEST(SignalWakeupTest, ATriggerOnAnotherThreadWakesTheLoop) {
    const SignalWakeup wakeup([] { loop().stop(); });
    std::thread other([&] { wakeup.trigger(); });

    EXPECT_TRUE(runUntilStopped());
    other.join();
}

TEST(SignalWakeupTest, ErrnoIsLeftAsItWas) {
    const SignalWakeup wakeup([] { loop().stop(); });

    errno = EDOM;
    wakeup.trigger();

    EXPECT_EQ(errno, EDOM);
    EXPECT_TRUE(runUntilStopped());
}

TEST(SignalWakeupTest, NothingRunsAndNothingStaysOpenAfterTheObjectIsGone) {
    DispatchQueue::mainQueue().after(0ns, [] { loop().stop(); });
    ASSERT_TRUE(runUntilStopped());  // The loop's own descriptors exist from here on.
    const std::ptrdiff_t before = openDescriptors();
    bool ran = false;
    {
        const SignalWakeup wakeup([&] { ran = true; });
        wakeup.trigger();
    }

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_FALSE(loop().runUntilDate(std::chrono::steady_clock::now() + 5ms));
    EXPECT_FALSE(ran);
}

TEST(SignalWakeupTest, TheBlockMayDestroyItsOwnWakeup) {
    std::optional<SignalWakeup> wakeup;
    wakeup.emplace([&] {
        wakeup.reset();
        loop().stop();
    });

    wakeup->trigger();

    EXPECT_TRUE(runUntilStopped());
    EXPECT_FALSE(wakeup.has_value());
}

TEST(SignalWakeupDeathTest, AnExceptionThatLeavesTheBlockEndsTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            const SignalWakeup wakeup([] { throw std::runtime_error("boom"); });
            wakeup.trigger();
            loop().run();
        },
        "an exception left a block: boom");
}

}  // namespace
}  // namespace sevrin::platform
