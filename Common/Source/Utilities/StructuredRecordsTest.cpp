// Tests of records of several lines: values under keys, dictionaries, dumps of data.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/NSLogLogger.h"
#include "Common/Source/Utilities/RecordExtent.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/DescriptionScope.h"

namespace sevrin {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::Object;
using platform::Set;
using platform::Value;
using platform::ValueArray;
using testing::ElementsAre;
using testing::IsEmpty;

class StructuredRecordsTest : public ::testing::Test {
protected:
    LogLineIdentifierPtr log(std::string_view key, const Value& value) {
        return logger_.writeInLineKeyValue(LogClassification::Details, line_, key, value);
    }
    void dump(std::string_view data, std::uint64_t tail) {
        logger_.logInLineKeyDataTail(LogClassification::Failure, line_, "data", data, tail);
    }

    TestLogger logger_;
    const LogLineIdentifierPtr line_ = LogLineIdentifier::logLineIdentifierFromString("8.1");
};

TEST_F(StructuredRecordsTest, ASimpleValueIsOneLine) {
    log("text", "some text");
    log("number", 42);
    log("real", 1.5);
    log("yes", true);

    EXPECT_THAT(logger_.lines(), ElementsAre("7 text: some text [8.1.1]", "7 number: 42 [8.1.2]",
                                             "7 real: 1.5 [8.1.3]", "7 yes: 1 [8.1.4]"));
}

TEST_F(StructuredRecordsTest, DataIsOneLineWithItsDescription) {
    const Value data = Data{"\x01\xFF"};

    log("data", data);

    EXPECT_THAT(logger_.lines(), ElementsAre("7 data: " + data.description() + " [8.1.1]"));
}

TEST_F(StructuredRecordsTest, AnObjectIsOneLineWithItsDescription) {
    log("line", LogLineIdentifier::logLineIdentifierFromString("8.5"));

    EXPECT_THAT(logger_.lines(), ElementsAre("7 line: 8.5 [8.1.1]"));
}

TEST_F(StructuredRecordsTest, ASimpleValueGivesItsLine) {
    EXPECT_EQ(log("key", 1)->description(), "8.1.1");
}

TEST_F(StructuredRecordsTest, ADictionaryIsAHeadWithItsEntriesBelow) {
    const auto head = log("info", Dictionary{{"a", 1}, {"b", ValueArray{"x", "y"}}});

    EXPECT_EQ(head->description(), "8.1.1");
    EXPECT_THAT(logger_.lines(),
                ElementsAre("7 info: [8.1.1]", "7 a: 1 [8.1.1.1]", "7 b: [8.1.1.2]",
                            "7 [0]: x [8.1.1.2.1]", "7 [1]: y [8.1.1.2.2]"));
}

TEST_F(StructuredRecordsTest, AnArrayIsAHeadWithItsElementsByIndex) {
    const auto head = log("args", ValueArray{"/usr/libexec/sevrin/switchboard", "--users"});

    EXPECT_EQ(head->description(), "8.1.1");
    EXPECT_THAT(logger_.lines(),
                ElementsAre("7 args: [8.1.1]", "7 [0]: /usr/libexec/sevrin/switchboard [8.1.1.1]",
                            "7 [1]: --users [8.1.1.2]"));
}

TEST_F(StructuredRecordsTest, ASetIsLoggedAsAnArrayIs) {
    log("set", Set(ValueArray{2, 1}));

    EXPECT_THAT(logger_.lines(),
                ElementsAre("7 set: [8.1.1]", "7 [0]: 1 [8.1.1.1]", "7 [1]: 2 [8.1.1.2]"));
}

TEST_F(StructuredRecordsTest, AnEmptyCollectionIsItsHead) {
    log("array", ValueArray{});
    log("dictionary", Dictionary{});

    EXPECT_THAT(logger_.lines(), ElementsAre("7 array: [8.1.1]", "7 dictionary: [8.1.2]"));
}

TEST_F(StructuredRecordsTest, ANestedDictionaryKeepsTheClassification) {
    log("outer", Dictionary{{"inner", Dictionary{{"a", 1}}}});

    EXPECT_THAT(logger_.lines(),
                ElementsAre("7 outer: [8.1.1]", "7 inner: [8.1.1.1]", "7 a: 1 [8.1.1.1.1]"));
}

TEST_F(StructuredRecordsTest, TheMapGivesEntriesTheirClassification) {
    const LogClassificationMap map = {{"Path", LogClassification::Failure}};

    logger_.logMapInLineDictionary(LogClassification::Details, &map, line_,
                                   Dictionary{{"API", "open"}, {"Path", "/x"}});

    EXPECT_THAT(logger_.lines(), ElementsAre("7 API: open [8.1.1]", "5 Path: /x [8.1.2]"));
}

TEST_F(StructuredRecordsTest, AKeyThatBeginsWithAPointIsSubrosaWhateverTheMapSays) {
    const LogClassificationMap map = {{".Error", LogClassification::Failure}};

    logger_.logMapInLineDictionary(LogClassification::Details, &map, line_,
                                   Dictionary{{".Error", 2}});

    EXPECT_THAT(logger_.lines(), ElementsAre("8 .Error: 2 [8.1.1]"));
}

TEST_F(StructuredRecordsTest, TheHelpKeyIsShownAsHelp) {
    logger_.logMapInLineDictionary(LogClassification::Details, nullptr, line_,
                                   Dictionary{{".Help", "disk-full"}, {".Helper", 1}});

    EXPECT_THAT(logger_.lines(), ElementsAre("8 help: disk-full [8.1.1]", "8 .Helper: 1 [8.1.2]"));
}

TEST_F(StructuredRecordsTest, AKeyThatIsNoTextIsShownByItsDescription) {
    const LogClassificationMap map = {{"501", LogClassification::Failure}};

    logger_.logMapInLineDictionary(LogClassification::Details, &map, line_,
                                   Dictionary{{501, "user"}});

    EXPECT_THAT(logger_.lines(), ElementsAre("5 501: user [8.1.1]"));
}

TEST_F(StructuredRecordsTest, WhatIsBelowAPointKeyIsSubrosaToo) {
    logger_.logMapInLineDictionary(LogClassification::Details, nullptr, line_,
                                   Dictionary{{".List", ValueArray{1}}});

    EXPECT_THAT(logger_.lines(), ElementsAre("8 .List: [8.1.1]", "8 [0]: 1 [8.1.1.1]"));
}

TEST_F(StructuredRecordsTest, ACollectionWithoutEndIsCutShort) {
    const ValueArray endless(2 * kRecordLinesMax, 1);
    log("array", endless);

    ASSERT_EQ(logger_.lines().size(), kRecordLinesMax + 1);
    EXPECT_EQ(logger_.lines()[kRecordLinesMax - 1], "7 [9998]: 1 [8.1.1.9999]");
    EXPECT_EQ(logger_.lines()[kRecordLinesMax], "7 ... [8.1.1.10000]");
}

TEST_F(StructuredRecordsTest, ADictionaryWithoutEndIsCutShort) {
    std::vector<Dictionary::Entry> entries;
    for (std::size_t key = 0; key < 2 * kRecordLinesMax; ++key)
        entries.emplace_back(key, "x");
    log("dictionary", Dictionary::fromEntries(std::move(entries)));

    ASSERT_EQ(logger_.lines().size(), kRecordLinesMax + 1);
    EXPECT_EQ(logger_.lines().back(), "7 ... [8.1.1.10000]");
}

TEST_F(StructuredRecordsTest, ValuesOfEnormousSizeAreCutShortAndTheNextRecordStartsAnew) {
    const Value enormous = std::string(platform::kDescriptionBytesMax, 'a');
    log("array", ValueArray(2 * kRecordBytesMax / platform::kDescriptionBytesMax, enormous));
    const std::vector<std::string> cut = logger_.lines();

    log("array", ValueArray{1, 2});

    EXPECT_EQ(cut.back(), "7 ... [8.1.1.17]");
    EXPECT_EQ(logger_.lines().size(), cut.size() + 3);
    EXPECT_EQ(logger_.lines().back(), "7 [1]: 2 [8.1.2.2]");
}

// Its description must not be asked for.
class Undescribed : public Object {
public:
    std::string description() const override {
        ADD_FAILURE() << "a line that is not shown was put together";
        return {};
    }
};

TEST_F(StructuredRecordsTest, ARecordThatIsNotShownIsNumberedButNotPutTogether) {
    NSLogLogger console;

    const auto head = console.writeInLineKeyValue(
        LogClassification::Debug, line_, "info",
        Dictionary{{"a", std::make_shared<Undescribed>()}, {"b", ValueArray{1, 2}}});

    EXPECT_EQ(head->description(), "8.1.1");
    EXPECT_EQ(head->count(), 2U);
    EXPECT_EQ(line_->classifications(), 1U << 9);
}

TEST_F(StructuredRecordsTest, EmptyDataIsItsHead) {
    dump("", 0);

    EXPECT_THAT(logger_.lines(), ElementsAre("5 data: 0 bytes [8.1.1]"));
}

TEST_F(StructuredRecordsTest, ARowIsOffsetBytesAndCharacters) {
    dump(std::string_view("Az \0\x1F\x7F\x80\xFF~", 9), 0);

    EXPECT_THAT(logger_.lines(), ElementsAre("5 data: 9 bytes [8.1.1]",
                                             "7 000000: 417a20001f7f80ff7e |Az _____~| [8.1.1.1]"));
}

TEST_F(StructuredRecordsTest, SixtyFourBytesAreOneRow) {
    dump(std::string(64, 'a'), 0);

    std::string hex;
    for (int i = 0; i < 64; ++i)
        hex += "61";
    EXPECT_THAT(logger_.lines(),
                ElementsAre("5 data: 64 bytes [8.1.1]",
                            "7 000000: " + hex + " |" + std::string(64, 'a') + "| [8.1.1.1]"));
}

TEST_F(StructuredRecordsTest, TheSixtyFifthByteIsInASecondRow) {
    dump(std::string(65, 'a'), 0);

    ASSERT_EQ(logger_.lines().size(), 3U);
    EXPECT_EQ(logger_.lines()[2], "7 000040: 61 |a| [8.1.1.2]");
}

TEST_F(StructuredRecordsTest, ALargeOffsetHasMoreDigits) {
    dump(std::string(0x100'0001, 'a'), 64);

    EXPECT_THAT(logger_.lines().back(), testing::StartsWith("7 ffffc1: "));
    dump(std::string(0x100'0041, 'a'), 64);
    EXPECT_THAT(logger_.lines().back(), testing::StartsWith("7 1000001: "));
}

// The offsets of the rows and the words of what is left out.
class DataTailTest : public StructuredRecordsTest {
protected:
    std::vector<std::string> shown(std::size_t length, std::uint64_t tail) {
        TestLogger logger;
        logger.logInLineKeyDataTail(LogClassification::Failure, line_, "data",
                                    std::string(length, 'a'), tail);
        std::vector<std::string> parts;
        const std::vector<std::string> lines = logger.lines();
        for (std::size_t i = 1; i < lines.size(); ++i) {
            const std::size_t end = lines[i].find_first_of(":[");
            parts.push_back(lines[i].substr(2, end - 2));
        }
        return parts;
    }
};

TEST_F(DataTailTest, LongDataShowsItsFirstAndLastRows) {
    EXPECT_THAT(shown(300, 1), ElementsAre("000000", "... 172 more bytes ... ", "0000ec"));
}

TEST_F(DataTailTest, TheTailIsRoundedUpToWholeRows) {
    EXPECT_THAT(shown(1000, 65),
                ElementsAre("000000", "000040", "... 744 more bytes ... ", "000368", "0003a8"));
    EXPECT_THAT(shown(300, 64), ElementsAre("000000", "... 172 more bytes ... ", "0000ec"));
}

TEST_F(DataTailTest, DataThatIsNotMuchLongerThanBothTailsIsShownWhole) {
    EXPECT_THAT(shown(192, 1), ElementsAre("000000", "000040", "000080"));
    EXPECT_THAT(shown(193, 1), ElementsAre("000000", "... 65 more bytes ... ", "000081"));
}

TEST_F(DataTailTest, WithoutATailEverythingIsShown) {
    EXPECT_EQ(shown(300, 0).size(), 5U);
}

TEST_F(DataTailTest, ATailLongerThanTheDataLeavesNothingOut) {
    EXPECT_EQ(shown(300, 300).size(), 5U);
    EXPECT_EQ(shown(300, UINT64_MAX).size(), 5U);
    EXPECT_EQ(shown(300, UINT64_MAX / 2).size(), 5U);
}

TEST_F(DataTailTest, RowsAreDetailsOfTheHead) {
    dump(std::string(300, 'a'), 1);

    for (std::size_t i = 1; i < logger_.lines().size(); ++i)
        EXPECT_THAT(logger_.lines()[i], testing::StartsWith("7 "));
    EXPECT_THAT(logger_.lines()[2], "7 ... 172 more bytes ... [8.1.1.2]");
}

}  // namespace
}  // namespace sevrin
