// Contract tests of the assertion, compiled as a release build would be: NDEBUG must not matter.
#ifndef NDEBUG
#define NDEBUG
#endif
#include "Platform/Assertion.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace sevrin::platform {
namespace {

void failInANamedFunction() {
    SEVRIN_ASSERT(1 + 1 == 3, "sums went wrong");
}

TEST(AssertionDeathTest, AFailureNamesFileLineFunctionAndMessageOnOneLine) {
    EXPECT_DEATH(failInANamedFunction(),
                 "^Platform/AssertionTest.cpp:[0-9]+: failInANamedFunction: sums went wrong\n");
}

TEST(AssertionDeathTest, AFailureAborts) {
    EXPECT_EXIT(failInANamedFunction(), testing::KilledBySignal(SIGABRT), "sums went wrong");
}

TEST(AssertionDeathTest, TheMessageMayBeAnOwnedString) {
    const std::string tried = "A, B";

    EXPECT_DEATH(SEVRIN_ASSERT(tried.empty(), "tried " + tried), ": tried A, B\n");
}

TEST(AssertionTest, AConditionThatHoldsIsEvaluatedOnceAndTheMessageNever) {
    int conditions = 0;
    int messages = 0;

    SEVRIN_ASSERT(++conditions == 1, (++messages, "unused"));

    EXPECT_EQ(conditions, 1);
    EXPECT_EQ(messages, 0);
}

}  // namespace
}  // namespace sevrin::platform
