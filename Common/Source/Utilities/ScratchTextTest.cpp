// Tests of the texts that a thread keeps the memory of.
#include "Common/Source/Utilities/ScratchText.h"

#include <gtest/gtest.h>

#include <thread>

namespace sevrin {
namespace {

TEST(ScratchTextTest, IsEmptyWhateverWasInItBefore) {
    { ScratchText()->assign(100, 'x'); }

    ScratchText text;

    EXPECT_TRUE(text->empty());
}

TEST(ScratchTextTest, TheNextTextHasTheMemoryOfTheLast) {
    { ScratchText()->assign(1'000, 'x'); }

    ScratchText text;

    EXPECT_GE(text->capacity(), 1'000U);
}

TEST(ScratchTextTest, NestedTextsAreApart) {
    ScratchText outer;
    *outer = "outer";
    {
        ScratchText inner;
        *inner = "inner";
    }

    EXPECT_EQ(*outer, "outer");
}

TEST(ScratchTextTest, AHugeTextIsNotKept) {
    { ScratchText()->assign(10'000'000, 'x'); }

    ScratchText text;

    EXPECT_LT(text->capacity(), 10'000'000U);
}

// Uses a scratch text when its thread has already given up what it kept.
struct LateUser {
    std::string* result;
    ~LateUser() {
        ScratchText text;
        *text = "still works";
        *result = *text;
    }
};

TEST(ScratchTextTest, WorksUntilTheVeryEndOfAThread) {
    std::string result;
    std::thread([&result] {
        thread_local LateUser user{&result};  // Made first, so it ends last.
        static_cast<void>(user);
        const ScratchText text;
    }).join();

    EXPECT_EQ(result, "still works");
}

}  // namespace
}  // namespace sevrin
