// Contract tests of the text helpers.
#include "Platform/Text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace sevrin::platform {
namespace {

using namespace std::string_literals;

// The ways in which bytes fail to be UTF-8; the first byte of each begins no character.
const std::vector<std::pair<const char*, std::string>> kMalformed = {
    {"a lone continuation byte", "\x80"},
    {"the other end of the continuation bytes", "\xBF"},
    {"a two-byte form of NUL", "\xC0\x80"},
    {"a two-byte form of ASCII", "\xC1\xBF"},
    {"a three-byte form of U+07FF", "\xE0\x9F\xBF"},
    {"a four-byte form of U+FFFF", "\xF0\x8F\xBF\xBF"},
    {"the first surrogate", "\xED\xA0\x80"},
    {"the last surrogate", "\xED\xBF\xBF"},
    {"one beyond U+10FFFF", "\xF4\x90\x80\x80"},
    {"a five-byte lead", "\xF8\x88\x80\x80\x80"},
    {"the byte FE", "\xFE"},
    {"the byte FF", "\xFF"},
    {"a two-byte character cut short", "\xC3"},
    {"a three-byte character cut short", "\xE2\x82"},
    {"a four-byte character cut short", "\xF0\x9F\x98"},
    {"a character broken off by ASCII", "\xE2\x82z"},
};

// Written without the decoder under test, from the definition of the encoding.
std::string encoded(char32_t character) {
    const auto byte = [](char32_t value) { return static_cast<char>(value); };
    if (character < 0x80) return {byte(character)};
    if (character < 0x800) return {byte(0xC0 | character >> 6), byte(0x80 | (character & 0x3F))};
    if (character < 0x10000) {
        return {byte(0xE0 | character >> 12), byte(0x80 | (character >> 6 & 0x3F)),
                byte(0x80 | (character & 0x3F))};
    }
    return {byte(0xF0 | character >> 18), byte(0x80 | (character >> 12 & 0x3F)),
            byte(0x80 | (character >> 6 & 0x3F)), byte(0x80 | (character & 0x3F))};
}

bool isSurrogate(char32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

TEST(TextTest, EveryCodePointIsEncodedAsItIsDecoded) {
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (isSurrogate(character)) continue;
        const std::string text = encoded(character);
        std::size_t position = 0;

        ASSERT_EQ(decodeUtf8(text, position), character);
        ASSERT_EQ(position, text.size());
        std::string appended;
        appendUtf8(appended, character);
        ASSERT_EQ(appended, text);
    }
}

TEST(TextTest, DecodingAMalformedByteMovesByThatByteOnly) {
    for (const auto& [what, bytes] : kMalformed) {
        std::size_t position = 1;

        EXPECT_EQ(decodeUtf8("a" + bytes, position), kInvalidUtf8) << what;
        EXPECT_EQ(position, 2U) << what;
    }
}

TEST(TextTest, DecodingNeverReadsBeyondTheEndOfTheText) {
    const std::string whole = "\xF0\x9F\x98\x80";
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const std::vector<char> exactly(whole.begin(), whole.begin() + static_cast<long>(size));
        std::size_t position = 0;

        EXPECT_EQ(decodeUtf8({exactly.data(), exactly.size()}, position), kInvalidUtf8);
    }
}

TEST(TextTest, WellFormedTextIsValid) {
    EXPECT_TRUE(isValidUtf8(""));
    EXPECT_TRUE(isValidUtf8("plain"));
    EXPECT_TRUE(isValidUtf8("\0"s));
    EXPECT_TRUE(isValidUtf8("Zürich, Ελλάδα, 日本, \xF0\x9F\x98\x80, \xF4\x8F\xBF\xBF"));
}

TEST(TextTest, MalformedTextIsNotValid) {
    for (const auto& [what, bytes] : kMalformed) {
        EXPECT_FALSE(isValidUtf8(bytes)) << what;
        EXPECT_FALSE(isValidUtf8("before " + bytes + " after, well beyond a word")) << what;
    }
}

TEST(TextTest, OneBadByteIsFoundWhereverItStands) {
    for (std::size_t size = 1; size <= 40; ++size) {
        for (std::size_t bad = 0; bad < size; ++bad) {
            std::string text(size, 'x');
            text[bad] = '\x80';
            ASSERT_FALSE(isValidUtf8(text)) << size << " bytes, bad at " << bad;
        }
    }
}

TEST(TextTest, AsManyByteTriplesAreCharactersAsThereAreCodePointsOfThatLength) {
    int valid = 0;
    for (int triple = 0xE00000; triple <= 0xEFFFFF; ++triple) {
        const std::array bytes{static_cast<char>(triple >> 16), static_cast<char>(triple >> 8),
                               static_cast<char>(triple)};
        valid += isValidUtf8({bytes.data(), bytes.size()});
    }

    EXPECT_EQ(valid, 0x10000 - 0x800 - 0x800);  // Without the shorter forms and the surrogates.
}

TEST(TextTest, EscapingInvalidBytesLeavesValidTextAlone) {
    EXPECT_EQ(escapeInvalidUtf8(""), "");
    EXPECT_EQ(escapeInvalidUtf8("a\\x41 \n\t\0 Zürich \xF0\x9F\x98\x80"s),
              "a\\x41 \n\t\0 Zürich \xF0\x9F\x98\x80"s);
}

TEST(TextTest, EachInvalidByteIsEscapedByItself) {
    EXPECT_EQ(escapeInvalidUtf8("caf\xE9"), "caf\\xe9");
    EXPECT_EQ(escapeInvalidUtf8("\xE2\x82z\xC3\xA9\x0A\xFF"), "\\xe2\\x82z\xC3\xA9\n\\xff");
    EXPECT_EQ(escapeInvalidUtf8("\xED\xA0\x80"), "\\xed\\xa0\\x80");
}

TEST(TextTest, EscapedTextIsAlwaysValid) {
    for (const auto& [what, bytes] : kMalformed) {
        EXPECT_TRUE(isValidUtf8(escapeInvalidUtf8("ü" + bytes + "ü"))) << what;
    }
}

TEST(TextTest, PlainAsciiPassesThroughUnchanged) {
    EXPECT_EQ(nonLossyAscii(""), "");
    EXPECT_EQ(nonLossyAscii("#debug# started [8.73957130.412.1]"),
              "#debug# started [8.73957130.412.1]");
}

TEST(TextTest, ControlCharactersOtherThanNulPassThrough) {
    EXPECT_EQ(nonLossyAscii("a\tb\nc\rd\x1B[0m\x7F"), "a\tb\nc\rd\x1B[0m\x7F");
}

TEST(TextTest, ANulIsEscapedSoThatItCannotCutACString) {
    EXPECT_EQ(nonLossyAscii("ab\0cd"s), "ab\\u0000cd");
}

TEST(TextTest, ABackslashIsDoubled) {
    EXPECT_EQ(nonLossyAscii("C:\\n"), "C:\\\\n");
}

TEST(TextTest, ACharacterOutsideAsciiBecomesFourLowercaseHexDigits) {
    EXPECT_EQ(nonLossyAscii("Zürich"), "Z\\u00fcrich");
    EXPECT_EQ(nonLossyAscii("\xEF\xBF\xBD"), "\\ufffd");
}

TEST(TextTest, ACharacterBeyondTheBasicPlaneBecomesTwoUtf16Units) {
    EXPECT_EQ(nonLossyAscii("\xF0\x9F\x98\x80"), "\\ud83d\\ude00");
    EXPECT_EQ(nonLossyAscii("\xF0\x90\x80\x80"), "\\ud800\\udc00");
    EXPECT_EQ(nonLossyAscii("\xF4\x8F\xBF\xBF"), "\\udbff\\udfff");
}

TEST(TextTest, AStrayByteBecomesThreeOctalDigits) {
    EXPECT_EQ(nonLossyAscii("caf\xE9"), "caf\\351");
    EXPECT_EQ(nonLossyAscii("\x80\xFF"), "\\200\\377");
}

TEST(TextTest, AnEscapeIsFoundAnywhereInLongText) {
    std::string text(10'000, 'x');
    ASSERT_TRUE(isNonLossyAscii(text));

    for (std::size_t place = 0; place < text.size(); ++place) {
        text[place] = static_cast<char>(0x80);
        ASSERT_FALSE(isNonLossyAscii(text)) << place;
        text[place] = 'x';
    }
}

TEST(TextTest, AnEscapeIsFoundWhereverItStands) {
    for (const auto& [character, escape] : std::vector<std::pair<std::string, std::string>>{
             {"\\", "\\\\"}, {"\0"s, "\\u0000"}, {"é", "\\u00e9"}, {"\xFF", "\\377"}}) {
        for (std::size_t before = 0; before <= 40; ++before) {
            for (std::size_t after = 0; after <= 20; ++after) {
                const std::string head(before, '[');  // Next to the backslash in ASCII.
                const std::string tail(after, '\x01');

                ASSERT_EQ(nonLossyAscii(head + character + tail), head + escape + tail);
                ASSERT_FALSE(isNonLossyAscii(head + character + tail));
                ASSERT_TRUE(isNonLossyAscii(head + tail));
            }
        }
    }
}

TEST(TextTest, TheAppendingFormKeepsWhatIsThere) {
    std::string out = "é ";

    appendNonLossyAscii(out, "é");

    EXPECT_EQ(out, "é \\u00e9");
}

TEST(TextTest, ExactlySevenCharactersAreNewlines) {
    std::u32string newlines;
    for (char32_t character = 0; character <= 0x10FFFF; ++character) {
        if (isNewline(character)) newlines += character;
    }

    EXPECT_EQ(newlines, U"\n\v\f\r\u0085\u2028\u2029");
    EXPECT_FALSE(isNewline(kInvalidUtf8));
}

std::string named(char32_t character) {
    return "code point " + std::to_string(static_cast<std::uint32_t>(character));
}

TEST(TextTest, ControlAndFormatCharactersAreControl) {
    constexpr char32_t kControls[] = {0x00,   0x09,    0x1F,    0x7F,    0x80,
                                      0x9F,   0xAD,    0x200B,  0x200F,  0x202E,
                                      0xFEFF, 0x13430, 0xE0001, 0xE0020, 0xE007F};
    for (const char32_t character : kControls) {
        EXPECT_TRUE(isControlOrIllegal(character)) << named(character);
    }
}

TEST(TextTest, SurrogatesNoncharactersAndNoCodePointsAreIllegal) {
    constexpr char32_t kIllegal[] = {0xD800, 0xDFFF,  0xFDD0,   0xFDEF,   0xFFFE,
                                     0xFFFF, 0x1FFFE, 0x10FFFF, 0x110000, kInvalidUtf8};
    for (const char32_t character : kIllegal) {
        EXPECT_TRUE(isControlOrIllegal(character)) << named(character);
    }
}

TEST(TextTest, LettersSpacesAndUnassignedCodePointsAreLegal) {
    constexpr char32_t kLegal[] = {0x20,   0x7E,   0xA0,    0xAC,   0xAE,   0xFC,
                                   0x200A, 0x2010, 0x3042,  0xD7FF, 0xE000, 0xFDCF,
                                   0xFDF0, 0xFFFD, 0x1F600, 0x3FFF0};
    for (const char32_t character : kLegal) {
        EXPECT_FALSE(isControlOrIllegal(character)) << named(character);
    }
}

}  // namespace
}  // namespace sevrin::platform
