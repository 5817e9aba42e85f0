// Spans and moments as deadlines, up to the ends of what a clock can hold.
#include "client/Deadline.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

using Clock = Deadline::Clock;
using namespace std::chrono_literals;

TEST(DeadlineTest, ASpanCountsFromNow) {
    const auto before = Clock::now();
    const Deadline deadline = 250ms;
    const auto after = Clock::now();

    EXPECT_GE(deadline.at(), before + 250ms);
    EXPECT_LE(deadline.at(), after + 250ms);
}

TEST(DeadlineTest, AMomentStaysAsItIs) {
    const auto moment = Clock::now() + 5s;

    EXPECT_EQ(Deadline(moment).at(), moment);
}

TEST(DeadlineTest, ASpanTooLongForTheClockIsAHundredYears) {
    const auto before = Clock::now();

    for (const Deadline& deadline :
         {Deadline(std::chrono::hours::max()), Deadline(Clock::duration::max()),
          Deadline(std::chrono::duration<double>(1e300))}) {
        EXPECT_GE(deadline.at(), before + Deadline::kSpanMax);
        EXPECT_FALSE(deadline.hasPassed());
    }
}

TEST(DeadlineTest, ASpanThatIsNotPositiveHasPassed) {
    EXPECT_TRUE(Deadline(0s).hasPassed());
    EXPECT_TRUE(Deadline(-1ns).hasPassed());
    EXPECT_TRUE(Deadline(std::chrono::hours::min()).hasPassed());
}

}  // namespace
}  // namespace sevrin
