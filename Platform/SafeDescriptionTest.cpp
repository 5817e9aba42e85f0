// Tests of descriptions for reports: they come about whatever the values hold.
#include "Platform/SafeDescription.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "Platform/DescriptionScope.h"

namespace sevrin::platform {
namespace {

// Says what the test wants, or throws what it wants.
template <typename Thrown>
class Thrower : public Object {
public:
    explicit Thrower(Thrown thrown) : thrown_(thrown) {}
    std::string description() const override { throw thrown_; }

private:
    const Thrown thrown_;
};

TEST(SafeDescriptionTest, IsTheDescriptionWhereThereIsOne) {
    EXPECT_EQ(safeDescription("a b"), "a b");
    EXPECT_EQ(safeDescription(1.5), "1.5");
    EXPECT_EQ(safeDescription(Value()), "(null)");
}

TEST(SafeDescriptionTest, AFailureIsShownInstead) {
    EXPECT_EQ(safeDescription(std::make_shared<Thrower<std::runtime_error>>(
                  std::runtime_error("out of order"))),
              "(no description: out of order)");
    EXPECT_EQ(safeDescription(std::make_shared<Thrower<int>>(5)), "(no description)");
}

TEST(SafeDescriptionTest, EnormousTextIsCut) {
    const std::string text = safeDescription(std::string(2 * kDescriptionBytesMax, 'a'));

    EXPECT_EQ(text, std::string(kDescriptionBytesMax, 'a') + "...");
}

}  // namespace
}  // namespace sevrin::platform
