// Tests of the command line: the whole grammar as a table, and the number that each text is.
#include "switchboard/CommandLine.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace sevrin {
namespace {

using Mode = CommandLine::Mode;
using Users = std::vector<std::uint32_t>;

struct Case {
    std::string claim;
    std::vector<const char*> arguments;
    uid_t realUserID;
    Mode mode;
    Users users;  // Not looked at when an error is expected.
    std::string error;
};

std::ostream& operator<<(std::ostream& out, const Case& example) {
    return out << example.claim;
}

class CommandLineTest : public testing::TestWithParam<Case> {};

TEST_P(CommandLineTest, IsReadAsClaimed) {
    const Case& expected = GetParam();

    const CommandLine result = CommandLine::parse(expected.arguments, expected.realUserID);

    EXPECT_EQ(result.error, expected.error);
    if (!expected.error.empty()) return;
    EXPECT_EQ(result.mode, expected.mode);
    EXPECT_EQ(result.users, expected.users);
}

const std::string kEmptyList = "empty --users list";
const std::string kNotRoot = "system switchboard must run as root";
const std::string kNoList = "missing --users";

INSTANTIATE_TEST_SUITE_P(
    UserMode, CommandLineTest,
    testing::Values(
        Case{"NoArgumentsServeTheUserWhoStartedIt", {}, 501, Mode::User, {501}, ""},
        Case{"ArgumentsThatOpenNoListAreSkipped", {"501", "-x", ""}, 502, Mode::User, {502}, ""},
        Case{"TheOptionIsCaseSensitive", {"--Users", "501"}, 502, Mode::User, {502}, ""},
        Case{"TheOptionIsMatchedWhole", {"--users=501", "--use"}, 502, Mode::User, {502}, ""},
        Case{"RootMustGiveAList", {}, 0, Mode::User, {}, kNoList},
        Case{"RootMustGiveAListWhateverElseIsGiven", {"501"}, 0, Mode::User, {}, kNoList}),
    [](const auto& example) { return example.param.claim; });

INSTANTIATE_TEST_SUITE_P(
    SystemMode, CommandLineTest,
    testing::Values(
        Case{"ListedUsersComeFirstAndRootLast",
             {"--users", "501", "502"},
             0,
             Mode::System,
             {501, 502, 0},
             ""},
        Case{"WordsBeforeTheListAreSkipped",
             {"foo", "--users", "501"},
             0,
             Mode::System,
             {501, 0},
             ""},
        Case{"AnOptionEndsTheList",
             {"--users", "501", "--verbose", "502"},
             0,
             Mode::System,
             {501, 0},
             ""},
        Case{"ASecondUsersOptionEndsTheList",
             {"--users", "501", "--users", "502"},
             0,
             Mode::System,
             {501, 0},
             ""},
        Case{"AWordEndsTheList", {"--users", "501", "abc", "502"}, 0, Mode::System, {501, 0}, ""},
        Case{
            "AnEmptyWordEndsTheList", {"--users", "501", "", "502"}, 0, Mode::System, {501, 0}, ""},
        Case{"ZeroEndsTheList", {"--users", "501", "0", "502"}, 0, Mode::System, {501, 0}, ""},
        Case{"ANegativeNumberEndsTheList",
             {"--users", "501", "-5", "502"},
             0,
             Mode::System,
             {501, 0},
             ""},
        Case{"DuplicatesStay", {"--users", "501", "501"}, 0, Mode::System, {501, 501, 0}, ""},
        Case{"WhatFollowsTheDigitsIsIgnored", {"--users", "501x"}, 0, Mode::System, {501, 0}, ""},
        Case{"BlanksAndAPlusMayPrecedeTheDigits",
             {"--users", " \t+501"},
             0,
             Mode::System,
             {501, 0},
             ""},
        Case{"OnlyTheFirstCharacterIsLookedAtForASign",
             {"--users", " -5"},
             0,
             Mode::System,
             {0xFFFFFFFBU, 0},
             ""}),
    [](const auto& example) { return example.param.claim; });

INSTANTIATE_TEST_SUITE_P(
    Refusal, CommandLineTest,
    testing::Values(
        Case{"AListNeedsAUser", {"--users"}, 0, Mode::System, {}, kEmptyList},
        Case{"AListOfRootAloneIsEmpty", {"--users", "0"}, 0, Mode::System, {}, kEmptyList},
        Case{"AListOfANegativeNumberIsEmpty", {"--users", "-1"}, 0, Mode::System, {}, kEmptyList},
        Case{"AListOfAWordIsEmpty", {"--users", "abc", "501"}, 0, Mode::System, {}, kEmptyList},
        Case{"OnlyRootMayGiveAList", {"--users", "501"}, 501, Mode::System, {}, kNotRoot},
        Case{"AnEmptyListIsReportedBeforeTheMissingPrivilege",
             {"--users"},
             501,
             Mode::System,
             {},
             kEmptyList}),
    [](const auto& example) { return example.param.claim; });

struct Number {
    const char* text;
    std::uint32_t userID;
};

TEST(UserIDFromTextTest, ReadsWhatANumberBeginsWith) {
    const Number numbers[] = {
        {"501", 501},
        {"0501", 501},
        {"501 502", 501},
        {"0x1F5", 0},
        {"", 0},
        {"+", 0},
        {"--1", 0},
        {"abc", 0},
        {"\v\f501", 501},
        {"4294967294", 4294967294U},
        {"-1", 0xFFFFFFFFU},
    };

    for (const Number& number : numbers) {
        EXPECT_EQ(CommandLine::userIDFromText(number.text), number.userID) << number.text;
    }
}

TEST(UserIDFromTextTest, ANumberTooLargeIsTheIdThatNoProcessHas) {
    EXPECT_EQ(CommandLine::userIDFromText("4294967296"), 0xFFFFFFFFU);
    EXPECT_EQ(CommandLine::userIDFromText("4294967797"), 0xFFFFFFFFU);
    EXPECT_EQ(CommandLine::userIDFromText("99999999999999999999999999"), 0xFFFFFFFFU);
}

TEST(UserIDFromTextTest, ANumberTooSmallStaysAtTheSmallest) {
    EXPECT_EQ(CommandLine::userIDFromText("-99999999999999999999999999"), 0x80000000U);
}

}  // namespace
}  // namespace sevrin
