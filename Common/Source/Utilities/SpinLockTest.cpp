// Tests of the small lock: it excludes, and who sleeps on it wakes.
#include "Common/Source/Utilities/SpinLock.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace sevrin {
namespace {

TEST(SpinLockTest, IsOneByte) {
    EXPECT_EQ(sizeof(SpinLock), 1U);
}

TEST(SpinLockTest, IsNotGivenTwice) {
    SpinLock lock;
    lock.lock();

    EXPECT_FALSE(lock.try_lock());
    lock.unlock();
    EXPECT_TRUE(lock.try_lock());
    lock.unlock();
}

TEST(SpinLockTest, NoIncrementOfManyThreadsIsLost) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 20'000;
    SpinLock lock;
    int count = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const std::lock_guard guard(lock);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(count, kThreads * kRounds);
}

TEST(SpinLockTest, AThreadThatSleepsOnItGetsItInTheEnd) {
    SpinLock lock;
    std::atomic<bool> hasBegun = false;
    bool hadIt = false;
    lock.lock();
    std::thread waiter([&] {
        hasBegun = true;
        hasBegun.notify_one();
        const std::lock_guard guard(lock);
        hadIt = true;
    });
    hasBegun.wait(false);

    lock.unlock();
    waiter.join();

    EXPECT_TRUE(hadIt);
}

}  // namespace
}  // namespace sevrin
