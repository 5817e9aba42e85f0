// Contract tests of the main thread's run loop.
#include "Platform/NSRunLoop.h"

#include <gtest/gtest.h>

#include <thread>

#include "Platform/DispatchQueue.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

NSRunLoop& loop() {
    return NSRunLoop::currentRunLoop();
}
DispatchQueue& mainQueue() {
    return DispatchQueue::mainQueue();
}

class NSRunLoopDeathTest : public testing::Test {
protected:
    NSRunLoopDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST(NSRunLoopTest, RunReturnsAfterStop) {
    bool ran = false;
    mainQueue().async([&] {
        ran = true;
        loop().stop();
    });

    loop().run();

    EXPECT_TRUE(ran);
}

TEST(NSRunLoopTest, WhatIsQueuedBehindTheStopWaitsForTheNextRun) {
    int ran = 0;
    mainQueue().async([] { loop().stop(); });
    mainQueue().async([&] {
        ++ran;
        loop().stop();
    });

    loop().run();
    EXPECT_EQ(ran, 0);

    loop().run();
    EXPECT_EQ(ran, 1);
}

TEST(NSRunLoopTest, RunUntilDateTellsAStopFromTheDeadline) {
    EXPECT_FALSE(loop().runUntilDate(Clock::now() + 1ms));

    mainQueue().async([] { loop().stop(); });
    EXPECT_TRUE(loop().runUntilDate(Clock::now() + 60s));
}

TEST(NSRunLoopTest, RunUntilDateDoesNotReturnBeforeTheDeadline) {
    const auto deadline = Clock::now() + 20ms;

    EXPECT_FALSE(loop().runUntilDate(deadline));

    EXPECT_GE(Clock::now(), deadline);
}

TEST(NSRunLoopTest, ADeadlineThatHasPassedRunsNoBlock) {
    bool ran = false;
    mainQueue().async([&] {
        ran = true;
        loop().stop();
    });

    EXPECT_FALSE(loop().runUntilDate(Clock::now() - 1s));
    EXPECT_FALSE(ran);

    EXPECT_TRUE(loop().runUntilDate(Clock::now() + 60s));
    EXPECT_TRUE(ran);
}

TEST(NSRunLoopTest, TheLastDateThereIsIsNoDeadline) {
    mainQueue().async([] { loop().stop(); });

    EXPECT_TRUE(loop().runUntilDate(Clock::time_point::max()));
}

TEST(NSRunLoopTest, AStopWithoutARunIsNotRemembered) {
    loop().stop();

    EXPECT_FALSE(loop().runUntilDate(Clock::now() + 1ms));
}

TEST(NSRunLoopTest, ABlockFromAnotherThreadWakesTheLoopWhileItSleeps) {
    std::thread other([] {
        std::this_thread::sleep_for(10ms);  // Most likely asleep by now; right in either case.
        mainQueue().async([] { loop().stop(); });
    });

    EXPECT_TRUE(loop().runUntilDate(Clock::now() + 60s));
    other.join();
}

TEST_F(NSRunLoopDeathTest, RunningTheLoopInsideItselfIsAsserted) {
    EXPECT_DEATH(
        {
            mainQueue().async([] { loop().runUntilDate(Clock::now()); });
            loop().run();
        },
        "the run loop is running already");
}

TEST_F(NSRunLoopDeathTest, AskingForTheLoopOnAnotherThreadIsAsserted) {
    EXPECT_DEATH(std::thread([] { loop(); }).join(), "only the main thread has a run loop");
}

}  // namespace
}  // namespace sevrin::platform
