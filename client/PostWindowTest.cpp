// How much may be posted before the switchboard has caught up.
#include "client/PostWindow.h"

#include <gtest/gtest.h>

namespace sevrin {
namespace {

constexpr std::size_t kMax = PostWindow::kBytesMax;

TEST(PostWindowTest, AWindowIsFilledToItsLastByteAndNoFurther) {
    PostWindow window;
    window.add(kMax - 1);

    EXPECT_TRUE(window.hasRoomFor(1));
    EXPECT_FALSE(window.hasRoomFor(2));
}

TEST(PostWindowTest, WhatIsLargerThanTheWindowGoesAlone) {
    PostWindow window;
    EXPECT_TRUE(window.hasRoomFor(kMax + 1));

    window.add(kMax + 1);

    EXPECT_FALSE(window.hasRoomFor(1));
}

TEST(PostWindowTest, EachQuarterIsMarkedOnce) {
    PostWindow window;
    window.add(kMax / 4 - 1);
    EXPECT_EQ(window.takeMark(), std::nullopt);
    window.add(1);

    EXPECT_EQ(window.takeMark(), kMax / 4);
    EXPECT_EQ(window.takeMark(), std::nullopt);
}

TEST(PostWindowTest, WhatIsHandledMakesRoom) {
    PostWindow window;
    window.add(kMax / 2);
    const std::uint64_t mark = window.takeMark().value();
    window.add(kMax / 2);
    ASSERT_FALSE(window.hasRoomFor(1));

    window.handled(mark);

    EXPECT_TRUE(window.hasRoomFor(kMax / 2));
    EXPECT_FALSE(window.hasRoomFor(kMax / 2 + 1));
}

TEST(PostWindowTest, AWindowThatIsFullAlwaysHasAMarkUnderWay) {
    PostWindow window;
    std::uint64_t mark = 0;
    while (window.hasRoomFor(1'000)) {
        window.add(1'000);
        mark = window.takeMark().value_or(mark);
    }

    EXPECT_GT(mark, 0u);
}

}  // namespace
}  // namespace sevrin
