// Tests of the order of names, in both of its ways and where they meet.
#include "Platform/FinderCompare.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "Platform/Collation.h"

namespace sevrin::platform {
namespace {

// Names of up to `lengthMax` of the given pieces, the same in every run.
std::vector<std::string> namesOf(const std::vector<std::string>& pieces, std::size_t lengthMax,
                                 std::size_t count) {
    std::mt19937 random(20261121);  // NOLINT: a test that differs every time helps nobody.
    std::vector<std::string> names;
    for (std::size_t i = 0; i < count; ++i) {
        std::string name;
        for (std::size_t length = random() % (lengthMax + 1); length > 0; --length)
            name += pieces[random() % pieces.size()];
        names.push_back(name);
    }
    return names;
}

std::vector<std::string> printableCharacters() {
    std::vector<std::string> pieces;
    for (char character = ' '; character <= '~'; ++character)
        pieces.emplace_back(1, character);
    return pieces;
}

// Few different pieces, so that names share beginnings, numbers and case.
const std::vector<std::string> kAlikePieces = {"0", "1", "00", "12", "a", "A", "b", " ", "-", "."};
const std::vector<std::string> kForeignPieces = {"a",  "A",  "1",    "0",  "9",    "é",
                                                 "é",  "ß",  "ж",    "中", "\xff", "\xc3",
                                                 "\t", "\n", "\x7f", "٣",  "l",    "·"};

void expectSorted(const std::vector<std::string>& names) {
    for (std::size_t i = 0; i < names.size(); ++i) {
        for (std::size_t j = 0; j < names.size(); ++j) {
            const int expected = i < j ? -1 : i > j ? 1 : 0;
            EXPECT_EQ(finderLikeCompare(names[i], names[j]), expected)
                << names[i] << " and " << names[j];
        }
    }
}

TEST(FinderCompareTest, NumbersAreComparedByTheirValue) {
    expectSorted({"a", "a1", "a2", "a9", "a10", "a11b2", "a11b10", "a100"});
}

TEST(FinderCompareTest, CaseDecidesOnlyBetweenNamesThatAreElseEqual) {
    expectSorted({"a", "A", "ab", "aB", "Ab", "AB", "b", "B", "ba"});
}

TEST(FinderCompareTest, ZerosBeforeANumberDecideLast) {
    expectSorted({"a0", "a00", "a01", "a1", "A01", "a1b", "a02", "a2"});
}

TEST(FinderCompareTest, PunctuationComesBeforeNumbersAndLetters) {
    expectSorted({"", " a", "_a", "-a", ".a", "~a", "$a", "1a", "aa"});
}

TEST(FinderCompareTest, AShorterNameComesFirst) {
    expectSorted({"", "a", "a ", "a b", "ab"});
}

TEST(FinderCompareTest, AccentsDecideOnlyBetweenNamesThatAreElseEqual) {
    if (!collate("a", "b")) GTEST_SKIP() << "no collation is installed";

    expectSorted({"cafe", "café", "cafe 2", "cafes", "cafés", "caffe", "жук", "中"});
}

TEST(FinderCompareTest, OnlyTheSameBytesAreTheSameName) {
    EXPECT_EQ(finderLikeCompare("\xff", "\xff"), 0);
    EXPECT_NE(finderLikeCompare("\xff", "\xfe"), 0);
    EXPECT_NE(finderLikeCompare("caf\xc3\xa9", "cafe\xcc\x81"), 0);
    EXPECT_NE(finderLikeCompare("a\x01", "a"), 0);
}

TEST(FinderCompareTest, NumbersOfAnyLengthAreCompared) {
    const std::string nines(254, '9');
    for (const std::string& larger : {"1" + std::string(254, '0'), std::string(300, '1')}) {
        EXPECT_EQ(finderLikeCompare(nines, larger), -finderLikeCompare(larger, nines));
        EXPECT_NE(finderLikeCompare(nines, larger), 0);
    }
    EXPECT_EQ(finderLikeCompare(std::string(70, '1'), std::string(69, '1') + "2"), -1);
    EXPECT_EQ(finderLikeCompare(std::string(62, '2'), std::string(63, '1')), -1);
}

TEST(FinderCompareTest, TheComparisonOfASCIIAgreesWithTheCollation) {
    if (!collate("a", "b")) GTEST_SKIP() << "no collation is installed";
    for (const auto& names :
         {namesOf(printableCharacters(), 5, 2000), namesOf(printableCharacters(), 1, 2000),
          namesOf(kAlikePieces, 8, 2000)}) {
        for (std::size_t i = 0; i + 60 < names.size(); ++i) {
            for (std::size_t j = i + 1; j < i + 60; ++j) {
                const int collated = *collate(names[i], names[j]);
                const int compared = finderLikeCompare(names[i], names[j]);
                if (collated != 0) {
                    ASSERT_EQ(compared, collated) << names[i] << " and " << names[j];
                }
            }
        }
    }
}

TEST(FinderCompareTest, TheKeysDecideAsTheNamesDo) {
    std::vector<std::string> names = namesOf(printableCharacters(), 4, 300);
    for (const auto& more : {namesOf(kAlikePieces, 30, 300), namesOf(kForeignPieces, 5, 100)})
        names.insert(names.end(), more.begin(), more.end());
    for (const std::size_t size : {61U, 62U, 63U, 64U, 200U})
        names.push_back("a" + std::string(size, '7'));

    for (const std::string& left : names) {
        for (const std::string& right : names) {
            ASSERT_EQ(finderLikeCompare(finderSortKey(left), left, finderSortKey(right), right),
                      finderLikeCompare(left, right))
                << left << " and " << right;
        }
    }
}

// What sorting stands on: comparing either way round fits, and so do three names among each other.
void expectOrder(const std::vector<std::string>& names,
                 int (*compare)(std::string_view, std::string_view)) {
    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end(), [&](const std::string& left, const std::string& right) {
        return compare(left, right) < 0;
    });
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        for (std::size_t j = i + 1; j < sorted.size(); ++j) {
            const int expected = sorted[i] == sorted[j] ? 0 : -1;
            ASSERT_EQ(compare(sorted[i], sorted[j]), expected) << sorted[i] << ", " << sorted[j];
            ASSERT_EQ(compare(sorted[j], sorted[i]), -expected) << sorted[i] << ", " << sorted[j];
        }
    }
}

TEST(FinderCompareTest, TheOrderHoldsAcrossASCIIAndEverythingElse) {
    expectOrder(namesOf(kForeignPieces, 4, 700), &finderLikeCompare);
}

TEST(FinderCompareTest, TheOrderHoldsWithoutACollation) {
    expectOrder(namesOf(kForeignPieces, 4, 700), &finderLikeCompareByCodePoint);
    EXPECT_EQ(finderLikeCompareByCodePoint("z", "é"), -1);
    EXPECT_EQ(finderLikeCompareByCodePoint("é2", "é10"), -1);
    EXPECT_EQ(finderLikeCompareByCodePoint("ж", "中"), -1);
}

TEST(FinderCompareTest, TextThatLooksAlikeIsEqualToTheCollation) {
    if (!collate("a", "b")) GTEST_SKIP() << "no collation is installed";

    EXPECT_EQ(collate("caf\xc3\xa9", "cafe\xcc\x81"), 0);
    EXPECT_EQ(collate("\xff", "\xfe"), 0);
    EXPECT_EQ(collate("", ""), 0);
}

}  // namespace
}  // namespace sevrin::platform
