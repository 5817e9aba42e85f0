// Tests of descriptors whose file is exchanged.
#include "Platform/DescriptorNumber.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

namespace sevrin::platform {
namespace {

struct Pipe {
    Pipe() {
        int ends[2];
        if (::pipe(ends) != 0) return;
        out.reset(ends[0]);
        in.reset(ends[1]);
    }
    [[nodiscard]] std::string read() const {
        char bytes[16];
        const auto count = ::read(out.get(), bytes, sizeof bytes);
        return {bytes, count > 0 ? static_cast<std::size_t>(count) : 0};
    }

    UniqueFd out;
    UniqueFd in;
};

TEST(DescriptorNumberTest, ANumberLeadsToTheOtherFileAfterwardsAndIsNotInherited) {
    const Pipe before;
    Pipe after;
    const int number = before.in.get();

    ASSERT_TRUE(moveDescriptorToNumber(std::move(after.in), number));

    ASSERT_EQ(::write(number, "new", 3), 3);
    EXPECT_EQ(after.read(), "new");
    EXPECT_EQ(before.read(), "");  // Nobody can write to it any more.
    EXPECT_NE(::fcntl(number, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(DescriptorNumberTest, ADuplicateOutlivesTheExchange) {
    const Pipe before;
    Pipe after;

    const UniqueFd duplicate = duplicateDescriptor(before.in.get());
    ASSERT_TRUE(moveDescriptorToNumber(std::move(after.in), before.in.get()));

    ASSERT_EQ(::write(duplicate.get(), "old", 3), 3);
    EXPECT_EQ(before.read(), "old");
    EXPECT_NE(::fcntl(duplicate.get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(DescriptorNumberTest, NothingCanBeWrittenToNothing) {
    const UniqueFd nothing = openNothing();

    ASSERT_TRUE(nothing);
    EXPECT_EQ(::write(nothing.get(), "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(DescriptorNumberTest, ThereIsNoDuplicateOfWhatIsNotOpen) {
    EXPECT_FALSE(duplicateDescriptor(-1));
    EXPECT_FALSE(moveDescriptorToNumber(UniqueFd(), STDOUT_FILENO));
}

}  // namespace
}  // namespace sevrin::platform
