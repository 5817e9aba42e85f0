// Tests of keeping descriptions finite: cycles, depth, amounts of text.
#include "Platform/DescriptionScope.h"

#include <gtest/gtest.h>

#include "Platform/Value.h"

namespace sevrin::platform {
namespace {

TEST(DescriptionScopeTest, WhatIsBeingDescribedIsNotDescribedWithinItself) {
    const int subject = 0;
    const int other = 0;
    const DescriptionScope outer(&subject);
    EXPECT_TRUE(outer.mayDescribeContents());

    EXPECT_TRUE(DescriptionScope(&other).mayDescribeContents());
    EXPECT_FALSE(DescriptionScope(&subject).mayDescribeContents());
}

TEST(DescriptionScopeTest, WhatHasBeenDescribedMayBeDescribedAgain) {
    const int subject = 0;
    const DescriptionScope outer(nullptr);
    { const DescriptionScope first(&subject); }

    EXPECT_TRUE(DescriptionScope(&subject).mayDescribeContents());
}

bool mayDescribeBelow(int levels) {
    const DescriptionScope scope(nullptr);
    return levels == 0 ? scope.mayDescribeContents() : mayDescribeBelow(levels - 1);
}

TEST(DescriptionScopeTest, OnlySoManyLevelsAreFollowed) {
    EXPECT_TRUE(mayDescribeBelow(kDescriptionLevelsMax - 1));
    EXPECT_FALSE(mayDescribeBelow(kDescriptionLevelsMax));
}

TEST(DescriptionScopeTest, TextCountsUntilTheOutermostDescriptionEnds) {
    {
        const DescriptionScope outer(nullptr);
        DescriptionScope::noteText(kDescriptionBytesMax);
        EXPECT_FALSE(DescriptionScope::isFull());
        DescriptionScope::noteText(1);
        EXPECT_FALSE(DescriptionScope(nullptr).mayDescribeContents());
    }
    EXPECT_TRUE(DescriptionScope(nullptr).mayDescribeContents());
}

TEST(DescriptionScopeTest, ExcessIsCutBetweenCharacters) {
    EXPECT_EQ(withoutExcess("text"), "text");
    EXPECT_EQ(withoutExcess(std::string(kDescriptionBytesMax, 'a')).size(), kDescriptionBytesMax);

    const std::string cut = withoutExcess(std::string(kDescriptionBytesMax - 1, 'a') + "\xC3\xA4");

    EXPECT_EQ(cut, std::string(kDescriptionBytesMax - 1, 'a') + "...");
}

// An array of two arrays of two arrays ... is small in memory and would be 2^60 members of text.
TEST(DescriptionScopeTest, AContainerThatUnfoldsWithoutEndIsCutShort) {
    Value value = "x";
    for (int i = 0; i < 60; ++i)
        value = ValueArray{value, value};
    Value entries = "x";
    for (int i = 0; i < 60; ++i)
        entries = Dictionary{{"a", entries}, {"b", entries}};

    EXPECT_LT(value.description().size(), 4 * kDescriptionBytesMax);
    EXPECT_NE(value.description().find("..."), std::string::npos);
    EXPECT_LT(entries.description().size(), 4 * kDescriptionBytesMax);
}

TEST(DescriptionScopeTest, ALongArrayIsDescribedWhole) {
    const Value value = ValueArray(10'000, Value("member"));

    EXPECT_EQ(value.description().find("..."), std::string::npos);
}

}  // namespace
}  // namespace sevrin::platform
