// User info from the command line, and as text.
#include "tools/NotificationText.h"

#include <gtest/gtest.h>

#include "tools/Failure.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::ValueArray;

TEST(NotificationTextTest, WordsBecomeStrings) {
    EXPECT_EQ(userInfoFromText({"a=1", "b=c=d", "e="}, ""),
              (Dictionary{{"a", "1"}, {"b", "c=d"}, {"e", ""}}));
}

TEST(NotificationTextTest, OfEqualKeysTheLastOneCounts) {
    EXPECT_EQ(userInfoFromText({"a=1", "a=2"}, R"({"a":0})"), (Dictionary{{"a", "2"}}));
}

TEST(NotificationTextTest, JsonBringsTypes) {
    EXPECT_EQ(userInfoFromText({"a=1"}, R"({"b":2,"c":[true]})"),
              (Dictionary{{"a", "1"}, {"b", 2}, {"c", ValueArray{true}}}));
}

TEST(NotificationTextTest, WordsWithoutAKeyAreRefused) {
    EXPECT_THROW((void)userInfoFromText({"a"}, ""), Failure);
    EXPECT_THROW((void)userInfoFromText({"=a"}, ""), Failure);
}

TEST(NotificationTextTest, JsonThatIsNoObjectIsRefused) {
    for (const char* const text : {"[]", "1", "{", "{} {}"})
        EXPECT_THROW((void)userInfoFromText({}, text), Failure) << text;
}

TEST(NotificationTextTest, TextIsBareWhereNothingCouldBeMisread) {
    EXPECT_EQ(textOf(Dictionary{{"id", "com.example.clock"}, {"n", 3}, {"ok", true}}),
              "id=com.example.clock n=3 ok=true");
}

TEST(NotificationTextTest, TextIsQuotedWhereItCould) {
    EXPECT_EQ(textOf(Dictionary{{"a b", "c d"}, {"e", ""}, {"f", "g=h"}}),
              R"("a b"="c d" e="" f="g=h")");
}

TEST(NotificationTextTest, NoUserInfoIsToldFromAnEmptyOne) {
    EXPECT_EQ(textOf(std::optional<Dictionary>()), "-");
    EXPECT_EQ(textOf(Dictionary{}), "");
}

TEST(NotificationTextTest, ARecordSaysWhatThereIsNot) {
    Json record;
    addNotification(record, {.name = "a"});

    EXPECT_EQ(lineOf(record), R"({"name":"a","source":null,"info":null})");
}

}  // namespace
}  // namespace sevrin
