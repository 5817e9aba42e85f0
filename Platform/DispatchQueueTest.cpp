// Contract tests of the dispatch queues. Each serves the main queue by itself; what ends the
// process runs in a fresh child, because a forked one would share the loop of this process.
#include "Platform/DispatchQueue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <future>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Platform/NSRunLoop.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using Priority = DispatchQueue::Priority;

DispatchQueue& mainQueue() {
    return DispatchQueue::mainQueue();
}
DispatchQueue& globalQueue() {
    return DispatchQueue::globalQueue(Priority::Default);
}

void stopMainLoop() {
    NSRunLoop::currentRunLoop().stop();
}

// Serves the main queue until something stops it. Far beyond any sane time it gives up.
[[nodiscard]] bool runUntilStopped() {
    return NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() + 60s);
}

// Runs what the main queue holds at this moment.
[[nodiscard]] bool runWhatIsQueued() {
    mainQueue().async(stopMainLoop);
    return runUntilStopped();
}

class DispatchQueueDeathTest : public testing::Test {
protected:
    DispatchQueueDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST(DispatchQueueTest, TheThreadThatRunsTheTestsIsTheMainThreadAndAnotherIsNot) {
    bool isMainElsewhere = true;
    std::thread([&] { isMainElsewhere = isMainThread(); }).join();

    EXPECT_TRUE(isMainThread());
    EXPECT_FALSE(isMainElsewhere);
}

TEST(DispatchQueueTest, BlocksOfTheMainQueueRunOnTheMainThreadInTheOrderGiven) {
    std::vector<int> order;
    bool isMain = true;
    for (int number = 0; number < 100; ++number) {
        mainQueue().async([&, number] {
            order.push_back(number);
            isMain = isMain && isMainThread();
        });
    }

    ASSERT_TRUE(order.empty());
    ASSERT_TRUE(runWhatIsQueued());

    ASSERT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
    EXPECT_TRUE(isMain);
}

TEST(DispatchQueueTest, ABlockQueuedByABlockRunsBehindThoseThatWaitAlready) {
    std::string order;
    mainQueue().async([&] {
        order += "a";
        mainQueue().async([&] {
            order += "c";
            stopMainLoop();
        });
    });
    mainQueue().async([&] { order += "b"; });

    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(order, "abc");
}

TEST(DispatchQueueTest, BlocksOfManyThreadsAllReachTheMainQueue) {
    constexpr int kThreads = 4;
    constexpr int kBlocksEach = 250;
    int ran = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int block = 0; block < kBlocksEach; ++block) {
                mainQueue().async([&] {
                    if (++ran == kThreads * kBlocksEach) stopMainLoop();
                });
            }
        });
    }

    const bool allRan = runUntilStopped();
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_TRUE(allRan);
    EXPECT_EQ(ran, kThreads * kBlocksEach);
}

TEST(DispatchQueueTest, SyncOnTheMainQueueReturnsAfterTheBlockRanOnTheMainThread) {
    std::promise<bool> hasRunOnReturn;
    std::thread caller([&] {
        bool ranOnMain = false;
        mainQueue().sync([&] { ranOnMain = isMainThread(); });
        hasRunOnReturn.set_value(ranOnMain);
        mainQueue().async(stopMainLoop);
    });

    const bool stopped = runUntilStopped();
    caller.join();

    EXPECT_TRUE(stopped);
    EXPECT_TRUE(hasRunOnReturn.get_future().get());
}

TEST(DispatchQueueTest, AfterOnTheMainQueueRunsTheShorterDelayFirst) {
    std::string order;
    mainQueue().after(30ms, [&] {
        order += "later";
        stopMainLoop();
    });
    mainQueue().after(1ms, [&] { order += "sooner "; });

    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(order, "sooner later");
}

TEST(DispatchQueueTest, AfterDoesNotRunBeforeItsDelayHasPassed) {
    const auto start = std::chrono::steady_clock::now();
    mainQueue().after(20ms, stopMainLoop);

    ASSERT_TRUE(runUntilStopped());

    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(DispatchQueueTest, ADelayThatIsNotPositiveRunsAtOnce) {
    int ran = 0;
    mainQueue().after(0ns, [&] { ++ran; });
    mainQueue().after(std::chrono::nanoseconds::min(), [&] {
        ++ran;
        mainQueue().after(0ns, stopMainLoop);
    });

    ASSERT_TRUE(runUntilStopped());

    EXPECT_EQ(ran, 2);
}

TEST(DispatchQueueTest, TheLongestDelayDoesNotWrapRoundToNow) {
    static bool ran = false;  // Outlives the test, as the block that never runs does.
    mainQueue().after(std::chrono::nanoseconds::max(), [] { ran = true; });
    mainQueue().after(1ms, stopMainLoop);

    ASSERT_TRUE(runUntilStopped());

    EXPECT_FALSE(ran);
}

TEST(DispatchQueueTest, BlocksOfAGlobalQueueRunOffTheMainThread) {
    for (const Priority priority : {Priority::Default, Priority::Background}) {
        std::promise<bool> isMain;
        DispatchQueue::globalQueue(priority).async([&] { isMain.set_value(isMainThread()); });

        EXPECT_FALSE(isMain.get_future().get());
    }
}

TEST(DispatchQueueTest, ADelayedBlockOfAGlobalQueueRunsWhileAnotherBlockWaitsForIt) {
    std::latch delayedRan(1);
    std::latch done(1);
    globalQueue().after(5ms, [&] { delayedRan.count_down(); });
    globalQueue().async([&] {
        delayedRan.wait();
        done.count_down();
    });

    done.wait();
}

TEST(DispatchQueueTest, ADelayedBlockMayOccupyThePoolsOnlyThreadWhileAnotherIsDue) {
    std::latch firstRuns(1);
    std::latch secondRan(1);
    std::latch done(1);
    globalQueue().after(1ms, [&] {
        firstRuns.count_down();
        secondRan.wait();
        done.count_down();
    });
    globalQueue().after(2ms, [&] {
        firstRuns.wait();
        secondRan.count_down();
    });

    done.wait();
}

TEST(DispatchQueueTest, SyncOnAGlobalQueueRunsOnTheCallersOwnThread) {
    std::thread::id runner;
    globalQueue().sync([&] { runner = std::this_thread::get_id(); });

    EXPECT_EQ(runner, std::this_thread::get_id());
}

TEST_F(DispatchQueueDeathTest, SyncOnTheMainQueueFromTheMainThreadIsAsserted) {
    EXPECT_DEATH(mainQueue().sync([] {}), "the main thread would wait for itself");
}

TEST_F(DispatchQueueDeathTest, AnEmptyBlockIsAsserted) {
    EXPECT_DEATH(mainQueue().async(nullptr), "empty block");
    EXPECT_DEATH(mainQueue().after(1ms, nullptr), "empty block");
    EXPECT_DEATH(globalQueue().async(nullptr), "empty block");
    EXPECT_DEATH(globalQueue().after(1ms, nullptr), "empty block");
}

TEST_F(DispatchQueueDeathTest, AnExceptionThatLeavesABlockOfTheMainQueueEndsTheProcess) {
    EXPECT_DEATH(
        {
            mainQueue().async([] { throw std::runtime_error("boom"); });
            NSRunLoop::currentRunLoop().run();
        },
        "an exception left a block: boom");
}

TEST_F(DispatchQueueDeathTest, AnExceptionThatLeavesADelayedBlockEndsTheProcess) {
    EXPECT_DEATH(
        {
            mainQueue().after(1ms, [] { throw std::runtime_error("boom"); });
            NSRunLoop::currentRunLoop().run();
        },
        "an exception left a block: boom");
}

TEST_F(DispatchQueueDeathTest, AnExceptionThatLeavesABlockOfAGlobalQueueEndsTheProcess) {
    EXPECT_DEATH(
        {
            globalQueue().async([] { throw std::runtime_error("boom"); });
            NSRunLoop::currentRunLoop().run();
        },
        "an exception left a block: boom");
}

TEST_F(DispatchQueueDeathTest, AnExceptionThatLeavesASynchronousBlockEndsTheProcess) {
    EXPECT_DEATH(globalQueue().sync([] { throw std::runtime_error("boom"); }),
                 "an exception left a block: boom");
}

TEST_F(DispatchQueueDeathTest, AnythingElseThatIsThrownOutOfABlockEndsTheProcessToo) {
    EXPECT_DEATH(globalQueue().sync([] { throw 7; }), "exception of no known type left a block");
}

TEST_F(DispatchQueueDeathTest, ExitInAMainBlockIsSafeWhileAGlobalBlockNeverEnds) {
    EXPECT_EXIT(
        {
            globalQueue().async([] {
                mainQueue().async([] { std::exit(7); });
                for (;;)
                    ::pause();
            });
            NSRunLoop::currentRunLoop().run();
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(DispatchQueueDeathTest, ExitInAMainBlockIsSafeWhileGlobalBlocksComeAndGo) {
    EXPECT_EXIT(
        {
            static std::function<void()> chain = [] {
                globalQueue().async(chain);
                DispatchQueue::globalQueue(Priority::Background).async([] {});
            };
            for (int start = 0; start < 4; ++start)
                globalQueue().async(chain);
            mainQueue().after(10ms, [] { std::exit(7); });
            NSRunLoop::currentRunLoop().run();
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(DispatchQueueDeathTest, ExitInAGlobalBlockIsSafeWhileTheLoopRuns) {
    EXPECT_EXIT(
        {
            DispatchQueue::globalQueue(Priority::Background).async([] { std::exit(7); });
            NSRunLoop::currentRunLoop().run();
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(DispatchQueueDeathTest, NoBlockStartsOnceTheProcessExits) {
    EXPECT_EXIT(
        {
            std::atexit([] {  // Registered before the pool begins, so it runs after its end.
                globalQueue().async([] { std::_Exit(9); });
                globalQueue().after(0ns, [] { std::_Exit(9); });
                std::this_thread::sleep_for(20ms);
            });
            std::latch done(1);
            globalQueue().async([&] { done.count_down(); });
            done.wait();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace sevrin::platform
