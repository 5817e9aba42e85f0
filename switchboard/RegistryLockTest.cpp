// Tests of the registry's lock: that it excludes other threads and admits its own again.
#include "switchboard/RegistryLock.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace sevrin {
namespace {

TEST(RegistryLockTest, IsHeldFromTheFirstToTheLastOfAThread) {
    EXPECT_FALSE(RegistryLock::isHeldByThisThread());
    {
        const RegistryLock outer;
        {
            const RegistryLock inner;
            EXPECT_TRUE(RegistryLock::isHeldByThisThread());
        }
        EXPECT_TRUE(RegistryLock::isHeldByThisThread());
    }
    EXPECT_FALSE(RegistryLock::isHeldByThisThread());
}

TEST(RegistryLockTest, AnotherThreadDoesNotHoldIt) {
    const RegistryLock lock;
    bool isHeldThere = true;

    std::thread([&] { isHeldThere = RegistryLock::isHeldByThisThread(); }).join();

    EXPECT_FALSE(isHeldThere);
}

TEST(RegistryLockTest, ExcludesOtherThreadsAlsoWhenTakenAgain) {
    constexpr int kRounds = 20'000;
    int count = 0;
    std::vector<std::thread> threads;

    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                const RegistryLock outer;
                const RegistryLock inner;
                ++count;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(count, 4 * kRounds);
}

}  // namespace
}  // namespace sevrin
