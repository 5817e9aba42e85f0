// Tests of the owned descriptor: closed once, by its last owner, and never behind anybody's back.
#include "Platform/UniqueFd.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <type_traits>
#include <utility>

namespace sevrin::platform {
namespace {

static_assert(!std::is_copy_constructible_v<UniqueFd>);
static_assert(!std::is_copy_assignable_v<UniqueFd>);
static_assert(std::is_nothrow_move_constructible_v<UniqueFd>);
static_assert(!std::is_convertible_v<int, UniqueFd>);

// The writing end of a pipe, whose reader sees its end when the last owner has closed it. Asking
// the reader is safe beside other tests: the number of a closed descriptor may be taken at once.
class UniqueFdTest : public testing::Test {
protected:
    void SetUp() override {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        reader_.reset(ends[0]);
        written_ = ends[1];
        ASSERT_NE(::fcntl(ends[0], F_SETFL, O_NONBLOCK), -1);
    }

    [[nodiscard]] bool isClosed() const {
        char byte;
        return ::read(reader_.get(), &byte, 1) == 0;
    }

    UniqueFd reader_;
    int written_ = -1;
};

TEST_F(UniqueFdTest, HoldsNothingByDefault) {
    const UniqueFd none;

    EXPECT_EQ(none.get(), -1);
    EXPECT_FALSE(none);
    EXPECT_EQ(::close(written_), 0);
}

TEST_F(UniqueFdTest, ClosesWhatItHoldsWhenItEnds) {
    {
        const UniqueFd owner(written_);
        EXPECT_EQ(owner.get(), written_);
        EXPECT_TRUE(owner);
        EXPECT_FALSE(isClosed());
    }
    EXPECT_TRUE(isClosed());
}

TEST_F(UniqueFdTest, MovingPassesTheOwnership) {
    UniqueFd first(written_);
    {
        const UniqueFd second(std::move(first));
        EXPECT_EQ(second.get(), written_);
        EXPECT_FALSE(isClosed());
    }
    EXPECT_TRUE(isClosed());
}

TEST_F(UniqueFdTest, AssigningClosesWhatWasHeld) {
    UniqueFd owner(written_);

    owner = UniqueFd();

    EXPECT_FALSE(owner);
    EXPECT_TRUE(isClosed());
}

TEST_F(UniqueFdTest, AssigningToItselfKeepsWhatIsHeld) {
    UniqueFd owner(written_);
    UniqueFd& same = owner;

    owner = std::move(same);

    EXPECT_EQ(owner.get(), written_);
    EXPECT_FALSE(isClosed());
}

TEST_F(UniqueFdTest, ReleasingHandsTheDescriptorOver) {
    {
        UniqueFd owner(written_);
        EXPECT_EQ(owner.release(), written_);
        EXPECT_FALSE(owner);
        EXPECT_EQ(owner.release(), -1);
    }
    EXPECT_FALSE(isClosed());
    EXPECT_EQ(::close(written_), 0);
}

TEST_F(UniqueFdTest, ResettingClosesAndTakesOver) {
    UniqueFd owner(::dup(reader_.get()));

    owner.reset(written_);
    EXPECT_EQ(owner.get(), written_);
    EXPECT_FALSE(isClosed());

    owner.reset();
    EXPECT_FALSE(owner);
    EXPECT_TRUE(isClosed());
}

TEST_F(UniqueFdTest, ResettingToWhatIsHeldKeepsItOpen) {
    UniqueFd owner(written_);

    owner.reset(written_);

    EXPECT_EQ(owner.get(), written_);
    EXPECT_FALSE(isClosed());
}

TEST_F(UniqueFdTest, ClosingLeavesErrnoAsItWas) {
    errno = E2BIG;
    UniqueFd(1 << 20).reset();  // No such descriptor: closing it fails.

    EXPECT_EQ(errno, E2BIG);
    EXPECT_EQ(::close(written_), 0);
}

TEST_F(UniqueFdTest, DescriptorZeroIsADescriptor) {
    UniqueFd zero(0);

    EXPECT_TRUE(zero);
    EXPECT_EQ(zero.release(), 0);
    EXPECT_EQ(::close(written_), 0);
}

}  // namespace
}  // namespace sevrin::platform
