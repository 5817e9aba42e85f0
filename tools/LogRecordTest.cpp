// Taking the bytes of a log file apart.
#include "tools/LogRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace sevrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kLine =
    "2026-11-16 07:12:03.481 +0100 #debug# started Switchboard-2.2.5.12 [8.73957130.412.1]";

// The texts of the records that `bytes` are taken apart into, given in pieces of `size`.
std::vector<std::string> texts(std::string_view bytes, std::size_t size = std::string::npos) {
    std::vector<std::string> found;
    const auto take = [&found](const LogRecord& record) { found.push_back(record.text); };
    LogRecordParser parser;
    for (std::size_t place = 0; place < bytes.size(); place += std::min(size, bytes.size()))
        parser.add(bytes.substr(place, size), take);
    parser.finish(take);
    return found;
}

TEST(LogRecordTest, ALineIsItsDateWordMessageAndIdentifier) {
    const LogRecord record = logRecordFromText(kLine);

    EXPECT_EQ(record.text, kLine);
    EXPECT_EQ(record.time, 1794809523481);
    EXPECT_EQ(record.date, "2026-11-16T07:12:03.481+01:00");
    EXPECT_EQ(record.classification, LogClassification::Debug);
    EXPECT_EQ(record.message, "started Switchboard-2.2.5.12");
    EXPECT_THAT(record.identifier, ElementsAre(8, 73957130, 412, 1));
    EXPECT_EQ(record.identifierText(), "8.73957130.412.1");
}

TEST(LogRecordTest, ANegativeOffsetIsWestOfUtc) {
    EXPECT_EQ(logRecordFromText("2026-11-16 00:12:03.481 -0600 #debug#  [8.1]").time,
              1794809523481);
}

TEST(LogRecordTest, AnEmptyMessageIsOne) {
    const LogRecord record = logRecordFromText("2026-11-16 07:12:03.481 +0100          [8.1.2]");
    EXPECT_EQ(record.classification, LogClassification::Plain);
    EXPECT_EQ(record.message, "");
    EXPECT_THAT(record.identifier, ElementsAre(8, 1, 2));
}

TEST(LogRecordTest, BracketsInTheMessageAreNoIdentifier) {
    const LogRecord record =
        logRecordFromText("2026-11-16 07:12:03.481 +0100 Failure a [1.2] b [x] [8.1.2.3]");
    EXPECT_EQ(record.message, "a [1.2] b [x]");
    EXPECT_THAT(record.identifier, ElementsAre(8, 1, 2, 3));
}

TEST(LogRecordTest, ALineThatWasCutOffHasNoIdentifierAndKeepsItsMessage) {
    const LogRecord record =
        logRecordFromText("2026-11-16 07:12:03.481 +0100 Failure the disk is f");
    EXPECT_TRUE(record.time);
    EXPECT_EQ(record.message, "the disk is f");
    EXPECT_THAT(record.identifier, IsEmpty());
}

TEST(LogRecordTest, AWordThatIsNoneHasNoClassification) {
    EXPECT_EQ(logRecordFromText("2026-11-16 07:12:03.481 +0100 Purpose x [8.1]").classification,
              LogClassification::Preferred);
}

TEST(LogRecordTest, TheEscapesOfTheFileAreUndone) {
    const auto message = [](const std::string& text) {
        return logRecordFromText("2026-11-16 07:12:03.481 +0100 Failure " + text + " [8.1]")
            .message;
    };
    EXPECT_EQ(message("\\u00e4\\u20AC"), "\u00e4\u20ac");
    EXPECT_EQ(message("\\ud83d\\ude00"), "\U0001F600");
    EXPECT_EQ(message("a\\\\u0041"), "a\\u0041");
    EXPECT_EQ(message("\\377\\000"), std::string("\xff\0", 2));
    EXPECT_EQ(message("\\ud83d!"), "\ufffd!");
    EXPECT_EQ(message("\\u12 \\9 \\"), "\\u12 \\9 \\");
}

TEST(LogRecordTest, WhatDoesNotBeginAsARecordHasNoTime) {
    for (const char* text : {"", "hello", "2026-11-16", "2026-11-16 07:12:03.481 +0100 Failure",
                             "2026-11-16T07:12:03.481 +0100 Failure x [8.1]"}) {
        EXPECT_FALSE(logRecordFromText(text).time) << text;
    }
}

TEST(LogRecordTest, IdentifiersAreNumbersWithPoints) {
    EXPECT_THAT(*logIdentifierFromText("8"), ElementsAre(8));
    EXPECT_THAT(*logIdentifierFromText("8.0.18446744073709551615"),
                ElementsAre(8, 0, 18446744073709551615u));
    for (const char* text : {"", ".", "8.", ".8", "8..1", "8.x", "-8", "18446744073709551616"})
        EXPECT_FALSE(logIdentifierFromText(text)) << text;
}

// MARK: Several

TEST(LogRecordParserTest, AMessageGoesOnToTheNextLineThatBeginsOne) {
    const std::string first = "2026-11-16 07:12:03.481 +0100 Failure one [1.2]\ntwo\n\nthree [8.1]";
    EXPECT_THAT(texts(first + "\n" + kLine + "\n"), ElementsAre(first, kLine));
}

TEST(LogRecordParserTest, NothingIsLostThatIsNoRecord) {
    EXPECT_THAT(texts(std::string("stray\nmore\n") + kLine), ElementsAre("stray\nmore", kLine));
    EXPECT_THAT(texts(""), IsEmpty());
}

TEST(LogRecordParserTest, ThePiecesInWhichTheBytesComeDoNotMatter) {
    const std::string all = std::string("stray\n") + kLine + "\nmore\n" + kLine + "\n";
    for (std::size_t size = 1; size < all.size(); ++size)
        EXPECT_EQ(texts(all, size), texts(all)) << size;
}

TEST(LogRecordParserTest, AWholeRecordIsHandedOutBeforeTheNextOneComes) {
    std::vector<std::string> found;
    const auto take = [&found](const LogRecord& record) { found.push_back(record.text); };
    LogRecordParser parser;

    parser.add(std::string(kLine) + "\n2026-11-16 07:12:03.481 +0100 Failure half", take);
    parser.settle(take);
    EXPECT_THAT(found, ElementsAre(kLine));
    parser.add(" a line [8.2]\n", take);
    parser.settle(take);

    EXPECT_THAT(found,
                ElementsAre(kLine, "2026-11-16 07:12:03.481 +0100 Failure half a line [8.2]"));
}

TEST(LogRecordParserTest, AFileWithoutLineEndsIsHandedOutInPieces) {
    LogRecordParser parser;
    std::size_t bytes = 0;
    const auto take = [&bytes](const LogRecord& record) { bytes += record.text.size(); };
    const std::string zeros(std::size_t{1} << 20, '\0');

    for (int i = 0; i < 40; ++i)
        parser.add(zeros, take);

    EXPECT_GE(bytes, LogRecordParser::kRecordBytesMax);
    parser.finish(take);
    EXPECT_EQ(bytes, 40 * zeros.size());
}

}  // namespace
}  // namespace sevrin
