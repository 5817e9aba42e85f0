// Tests of chains of identifiers that are too long for the stack, as somebody else's text may make
// them: a stack holds some ten thousand calls at best.
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>

#include "Common/Source/Utilities/LogLineIdentifier.h"

namespace sevrin {
namespace {

LogLineIdentifierPtr parse(std::string_view text) {
    return LogLineIdentifier::logLineIdentifierFromString(text);
}

class LogLineIdentifierLongTest : public ::testing::Test {
protected:
    static constexpr std::size_t kPoints = 1'000'000;

    static std::string longText() {
        std::string text = "8";
        for (std::size_t i = 0; i < kPoints; ++i)
            text += ".1";
        return text;
    }

    const std::string text_ = longText();
    LogLineIdentifierPtr line_ = parse(text_);
};

TEST_F(LogLineIdentifierLongTest, IsPrinted) {
    EXPECT_TRUE(line_->description() == text_);  // Not _EQ: two megabytes are no message.
    EXPECT_EQ(line_->depth(), kPoints);
    EXPECT_EQ(line_->application(), 8);
}

TEST_F(LogLineIdentifierLongTest, IsComparedAndHashed) {
    const auto other = parse(text_);
    const auto before = parse("7" + text_.substr(1));

    EXPECT_EQ(line_->compare(other), 0);
    EXPECT_EQ(line_->compare(before), 1);
    EXPECT_EQ(line_->hash(), other->hash());
    EXPECT_TRUE(LogLineIdentifier::parentIdentifierWithDepth(line_, 0)->containsIdentifier(other));
}

TEST_F(LogLineIdentifierLongTest, IsDestroyedToItsTop) {
    const std::weak_ptr<LogLineIdentifier> top =
        LogLineIdentifier::parentIdentifierWithDepth(line_, 0);

    line_.reset();

    EXPECT_TRUE(top.expired());
}

TEST_F(LogLineIdentifierLongTest, IsDestroyedOnlyUpToWhereItIsStillHeld) {
    const auto held = LogLineIdentifier::parentIdentifierWithDepth(line_, kPoints / 2);
    const std::weak_ptr<LogLineIdentifier> below =
        LogLineIdentifier::parentIdentifierWithDepth(line_, kPoints / 2 + 1);

    line_.reset();

    EXPECT_TRUE(below.expired());
    EXPECT_EQ(held->depth(), kPoints / 2);
    EXPECT_EQ(held->application(), 8);
}

}  // namespace
}  // namespace sevrin
