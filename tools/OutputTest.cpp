// Who has the last word about colour.
#include "tools/Output.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

TEST(OutputTest, TheOptionBeatsTheEnvironmentAndTheTerminal) {
    EXPECT_TRUE(wantsColor(ColorWish::Always, "1", false));
    EXPECT_FALSE(wantsColor(ColorWish::Never, nullptr, true));
}

TEST(OutputTest, TheEnvironmentBeatsTheTerminal) {
    EXPECT_FALSE(wantsColor(ColorWish::Auto, "1", true));
}

TEST(OutputTest, AnEmptyNoColorSaysNothing) {
    EXPECT_TRUE(wantsColor(ColorWish::Auto, "", true));
    EXPECT_TRUE(wantsColor(ColorWish::Auto, nullptr, true));
    EXPECT_FALSE(wantsColor(ColorWish::Auto, nullptr, false));
}

}  // namespace
}  // namespace sevrin
