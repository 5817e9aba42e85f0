// Tests of copies and joins of texts that end with NUL.
#include "Common/Source/Utilities/CString.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

TEST(CStringTest, ACopyHasTheSameBytes) {
    EXPECT_STREQ(makeCString("a\xFF").get(), "a\xFF");
}

TEST(CStringTest, ACopyEndsAtTheFirstNul) {
    EXPECT_STREQ(makeCString(std::string_view("a\0b", 3)).get(), "a");
}

TEST(CStringTest, NothingIsAnEmptyText) {
    EXPECT_STREQ(makeCString("").get(), "");
}

TEST(CStringTest, TheRootAndANameHaveOneSeparatorBetweenThem) {
    EXPECT_STREQ(makeJoinedCString("/", "a").get(), "/a");
}

TEST(CStringTest, ASeparatorAtTheEndOfTheParentIsNotDoubled) {
    EXPECT_STREQ(makeJoinedCString("/x/", "a").get(), "/x/a");
}

TEST(CStringTest, AnEmptyParentAddsNoSeparator) {
    EXPECT_STREQ(makeJoinedCString("", "a").get(), "a");
}

TEST(CStringTest, AnyOtherParentIsFollowedByOneSeparator) {
    EXPECT_STREQ(makeJoinedCString("/x", "a").get(), "/x/a");
}

}  // namespace
}  // namespace sevrin
