// Contract tests of the clocks that run since the start of the system.
#include "Platform/MachTime.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace sevrin::platform {
namespace {

double seconds(std::uint64_t ticks) {
    mach_timebase_info_data_t info;
    EXPECT_EQ(mach_timebase_info(info), kKernSuccess);
    return static_cast<double>(ticks) * info.numer / info.denom / 1e9;
}

TEST(MachTimeTest, ATickHasALength) {
    mach_timebase_info_data_t info;

    EXPECT_EQ(mach_timebase_info(info), kKernSuccess);

    EXPECT_GT(info.numer, 0U);
    EXPECT_GT(info.denom, 0U);
}

TEST(MachTimeTest, NoClockGoesBack) {
    for (const auto clock :
         {&mach_absolute_time, &mach_approximate_time, &mach_continuous_approximate_time}) {
        std::uint64_t before = clock();
        for (int i = 0; i < 10'000; ++i) {
            const std::uint64_t now = clock();
            ASSERT_GE(now, before);
            before = now;
        }
        EXPECT_GT(before, 0U);
    }
}

TEST(MachTimeTest, TheApproximateTimeIsNotAheadAndLittleBehind) {
    const std::uint64_t before = mach_absolute_time();
    const std::uint64_t approximate = mach_approximate_time();
    const std::uint64_t after = mach_absolute_time();

    EXPECT_LE(approximate, after);
    EXPECT_GT(seconds(approximate), seconds(before) - 1.0);
}

TEST(MachTimeTest, TheContinuousTimeLacksNothingOfTheOthers) {
    const std::uint64_t awake = mach_approximate_time();

    EXPECT_GE(mach_continuous_approximate_time(), awake);
}

}  // namespace
}  // namespace sevrin::platform
