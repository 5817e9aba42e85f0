// How long a client waits before it tries again.
#include "client/RetryDelay.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

using Code = platform::XPCError::Code;
using namespace std::chrono_literals;

TEST(RetryDelayTest, AnAbsentSwitchboardIsTriedAfterTenMillisecondsThenTwiceThatUpToASecond) {
    for (const Code code : {Code::NoService, Code::Disconnected, Code::DeadlinePassed}) {
        RetryDelay delay;
        for (const auto wait : {10ms, 20ms, 40ms, 80ms, 160ms, 320ms, 640ms, 1'000ms, 1'000ms})
            EXPECT_EQ(delay.after(code, 0s), wait);
    }
}

TEST(RetryDelayTest, OneThatTurnsAwayIsTriedAfterASecondThenTwiceThatUpToAMinute) {
    for (const Code code :
         {Code::Refused, Code::VersionMismatch, Code::Untrusted, Code::BadAnswer}) {
        RetryDelay delay;
        for (const auto wait : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s})
            EXPECT_EQ(delay.after(code, 0s), wait);
    }
}

TEST(RetryDelayTest, AGoodConnectionMakesTheWaitsShortAgain) {
    RetryDelay delay;
    (void)delay.after(Code::NoService, 0s);
    (void)delay.after(Code::NoService, 0s);

    EXPECT_EQ(delay.after(Code::Disconnected, 1s), 10ms);
}

TEST(RetryDelayTest, AConnectionThatBrokeAtOnceCountsAsAFailure) {
    RetryDelay delay;
    (void)delay.after(Code::NoService, 0s);

    EXPECT_EQ(delay.after(Code::Disconnected, 999ms), 20ms);
}

TEST(RetryDelayTest, AnAbsenceEndsTheSeriesOfRefusals) {
    RetryDelay delay;
    (void)delay.after(Code::Refused, 0s);
    (void)delay.after(Code::NoService, 0s);

    EXPECT_EQ(delay.after(Code::Refused, 0s), 1s);
}

}  // namespace
}  // namespace sevrin
