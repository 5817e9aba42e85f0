// Contract tests of the write of several pieces.
#include "Platform/GatheringWrite.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

iovec piece(std::string& bytes) {
    return {bytes.data(), bytes.size()};
}

TEST(GatheringWriteTest, ThePiecesArriveInOneInTheirOrder) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const UniqueFd out(ends[0]);
    const UniqueFd in(ends[1]);
    std::string first = "first";
    std::string second = ", second";

    EXPECT_EQ(gatheringWrite(in.get(), std::array{piece(first), piece(second)}), 13);

    std::array<char, 32> bytes{};
    EXPECT_EQ(::read(out.get(), bytes.data(), bytes.size()), 13);
    EXPECT_STREQ(bytes.data(), "first, second");
}

TEST(GatheringWriteTest, AFailureIsToldByItsNumber) {
    std::string text = "lost";

    EXPECT_EQ(gatheringWrite(-1, std::array{piece(text)}), -1);
    EXPECT_EQ(errno, EBADF);
}

}  // namespace
}  // namespace sevrin::platform
