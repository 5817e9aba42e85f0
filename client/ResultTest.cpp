// A result is an answer or an error, and never passes for the other.
#include "client/Result.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace sevrin {
namespace {

const CallError kError{CallError::Code::Refused, "not you"};

TEST(ResultTest, AnAnswerIsReadAndMovedOut) {
    Result<std::unique_ptr<int>> result = std::make_unique<int>(7);

    ASSERT_TRUE(result);
    EXPECT_EQ(**result, 7);
    EXPECT_EQ(*result->get(), 7);
    const std::unique_ptr<int> taken = *std::move(result);
    EXPECT_EQ(*taken, 7);
}

TEST(ResultTest, AnErrorIsNoAnswer) {
    const Result<std::string> result = kError;

    EXPECT_FALSE(result);
    EXPECT_EQ(result.error().code, CallError::Code::Refused);
    EXPECT_EQ(result.error().description, "not you");
}

TEST(ResultTest, ANullAnswerIsAnAnswer) {
    const Result<std::shared_ptr<int>> result = std::shared_ptr<int>();

    EXPECT_TRUE(result);
}

TEST(ResultTest, DoneAndNotDoneAreTold) {
    EXPECT_TRUE(Result<void>());
    EXPECT_FALSE(Result<void>(kError));
    EXPECT_EQ(Result<void>(kError).error().description, "not you");
}

TEST(ResultDeathTest, AskingForWhatIsNotThereIsABug) {
    const Result<int> answer = 1;
    const Result<int> error = kError;

    EXPECT_DEATH((void)*error, "only if it has one");
    EXPECT_DEATH((void)answer.error(), "has an error");
    EXPECT_DEATH((void)Result<void>().error(), "has an error");
}

}  // namespace
}  // namespace sevrin
