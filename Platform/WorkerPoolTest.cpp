// Tests of how the pools of the global queues use threads, seen through the queues.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iterator>
#include <latch>
#include <thread>

#include "Platform/DispatchQueue.h"
#include "Platform/linux/WorkerPoolLimits.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using Priority = DispatchQueue::Priority;

DispatchQueue& globalQueue() {
    return DispatchQueue::globalQueue(Priority::Default);
}

std::size_t threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

int niceness() {
    errno = 0;
    return ::getpriority(PRIO_PROCESS, 0);
}

class WorkerPoolDeathTest : public testing::Test {
protected:
    WorkerPoolDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST(WorkerPoolTest, AsManyBlocksAsTheLimitAllowsRunSideBySide) {
    constexpr auto kBlocks = static_cast<std::ptrdiff_t>(kThreadsPerPoolMax);
    std::barrier met(kBlocks);
    std::latch done(kBlocks);
    for (std::ptrdiff_t block = 0; block < kBlocks; ++block) {
        globalQueue().async([&] {
            met.arrive_and_wait();  // Each waits for all the others.
            done.count_down();
        });
    }

    done.wait();
}

TEST(WorkerPoolTest, NoMoreBlocksThanTheLimitAllowsRunSideBySideAndAllOfThemRun) {
    constexpr std::ptrdiff_t kBlocks = 500;
    std::atomic<std::size_t> running = 0;
    std::atomic<std::size_t> runningMost = 0;
    std::latch done(kBlocks);
    for (std::ptrdiff_t block = 0; block < kBlocks; ++block) {
        globalQueue().async([&] {
            const std::size_t now = ++running;
            std::size_t most = runningMost;
            while (most < now && !runningMost.compare_exchange_weak(most, now)) {
            }
            std::this_thread::yield();
            --running;
            done.count_down();
        });
    }

    done.wait();

    EXPECT_LE(runningMost, kThreadsPerPoolMax);
}

TEST(WorkerPoolTest, BackgroundThreadsAreNicerThanTheProcess) {
    const int own = niceness();
    if (own >= 19) GTEST_SKIP() << "this process is as nice as can be already";
    std::promise<int> background;
    std::promise<int> ordinary;
    DispatchQueue::globalQueue(Priority::Background).async([&] {
        background.set_value(niceness());
    });
    globalQueue().async([&] { ordinary.set_value(niceness()); });

    EXPECT_GT(background.get_future().get(), own);
    EXPECT_EQ(ordinary.get_future().get(), own);
}

TEST(WorkerPoolTest, ThreadsThatStayIdleGo) {
    std::latch done(1);
    globalQueue().async([&] { done.count_down(); });
    done.wait();
    const std::size_t threadsInUse = threadCount();

    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (threadCount() >= threadsInUse && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(20ms);
    }

    EXPECT_LT(threadCount(), threadsInUse);
}

TEST_F(WorkerPoolDeathTest, NoThreadIsStartedBeforeTheFirstBlock) {
    EXPECT_EXIT(
        {
            const std::size_t before = threadCount();
            globalQueue();
            static_cast<void>(DispatchQueue::globalQueue(Priority::Background));
            DispatchQueue::mainQueue().async([] {});
            std::exit(threadCount() == before ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(WorkerPoolDeathTest, ABlockThatRunsWhenTheProcessExitsMayFinish) {
    EXPECT_EXIT(
        {
            static std::latch exiting(1);
            std::latch running(1);
            globalQueue().async([&] {
                running.count_down();
                exiting.wait();
                static_cast<void>(::write(STDERR_FILENO, "finished", 8) == 8);
            });
            running.wait();
            std::atexit([] { exiting.count_down(); });
            std::exit(0);
        },
        testing::ExitedWithCode(0), "finished");
}

}  // namespace
}  // namespace sevrin::platform
