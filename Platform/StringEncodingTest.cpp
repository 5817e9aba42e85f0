// Tests of text from bytes in the platform's encodings.
#include "Platform/StringEncoding.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace sevrin::platform {
namespace {

// What `bytes` are in the encoding of that number; "nothing" when they do not decode.
std::string text(std::string_view bytes, std::uint64_t encoding) {
    return textFromBytes(bytes, encoding).value_or("nothing");
}

// The bytes from `first` to `last`, both included.
std::string bytesFrom(int first, int last) {
    std::string bytes;
    for (int byte = first; byte <= last; ++byte)
        bytes += static_cast<char>(byte);
    return bytes;
}

TEST(StringEncodingTest, NoBytesAreEmptyTextInAll) {
    for (const std::uint64_t encoding :
         {1ULL, 4ULL, 5ULL, 10ULL, 12ULL, 30ULL, 0x90000100ULL, 0x94000100ULL})
        EXPECT_EQ(textFromBytes("", encoding), "") << encoding;
}

TEST(StringEncodingTest, ASCIIIsTheSameInAllThatHaveOneByteForIt) {
    const std::string ascii = bytesFrom(0, 127);

    for (const std::uint64_t encoding : {1U, 4U, 5U, 12U, 30U})
        EXPECT_EQ(textFromBytes(ascii, encoding), ascii) << encoding;
}

TEST(StringEncodingTest, AnUnknownNumberDecodesNothing) {
    for (const std::uint64_t encoding : {0ULL, 2ULL, 31ULL, 0x100000001ULL, 0x90000101ULL, ~0ULL})
        EXPECT_EQ(textFromBytes("a", encoding), std::nullopt) << encoding;
}

TEST(StringEncodingTest, ASCIIHasSevenBits) {
    EXPECT_EQ(text("a\x80", 1), "nothing");
    EXPECT_EQ(text("\xFF", 1), "nothing");
}

TEST(StringEncodingTest, UTF8IsCheckedAndKept) {
    EXPECT_EQ(text("na\xC3\xAFve \xF0\x9F\x98\x80", 4), "na\xC3\xAFve \xF0\x9F\x98\x80");
    EXPECT_EQ(text("\xEF\xBB\xBFmarked", 4), "\xEF\xBB\xBFmarked");

    EXPECT_EQ(text("cut \xC3", 4), "nothing");
    EXPECT_EQ(text("overlong \xC0\x80", 4), "nothing");
    EXPECT_EQ(text("surrogate \xED\xA0\x80", 4), "nothing");
    EXPECT_EQ(text("latin \xE9", 4), "nothing");
}

TEST(StringEncodingTest, ISOLatin1HasACharacterForEveryByte) {
    EXPECT_EQ(text("\xE9t\xE9 \xFF", 5), "été ÿ");
    EXPECT_EQ(text("\x80\x9F\xA0", 5), "\xC2\x80\xC2\x9F\xC2\xA0");
}

TEST(StringEncodingTest, WindowsHasPunctuationWhereLatin1HasControls) {
    EXPECT_EQ(text("\x80\x82\x83\x84\x85\x86\x87\x88\x89\x8A\x8B\x8C\x8E", 12), "€‚ƒ„…†‡ˆ‰Š‹ŒŽ");
    EXPECT_EQ(text("\x91\x92\x93\x94\x95\x96\x97\x98\x99\x9A\x9B\x9C\x9E\x9F", 12),
              "‘’“”•–—˜™š›œžŸ");
    EXPECT_EQ(text("\xA0\xE9\xFF", 12), "\xC2\xA0éÿ");
}

TEST(StringEncodingTest, WindowsLeavesFiveBytesWithoutACharacter) {
    for (const char* byte : {"\x81", "\x8D", "\x8F", "\x90", "\x9D"})
        EXPECT_EQ(textFromBytes(byte, 12), std::nullopt);
}

TEST(StringEncodingTest, MacOSRomanHasACharacterForEveryByte) {
    EXPECT_EQ(text(bytesFrom(0x80, 0xAF), 30), "ÄÅÇÉÑÖÜáàâäãåçéèêëíìîïñóòôöõúùûü†°¢£§•¶ß®©™´¨≠ÆØ");
    EXPECT_EQ(text(bytesFrom(0xB0, 0xC9), 30), "∞±≤≥¥µ∂∑∏π∫ªº\xCE\xA9æø¿¡¬√ƒ≈\xE2\x88\x86«»…");
    EXPECT_EQ(text(bytesFrom(0xCA, 0xEF), 30), "\xC2\xA0ÀÃÕŒœ–—“”‘’÷◊ÿŸ⁄€‹›ﬁﬂ‡·‚„‰ÂÊÁËÈÍÎÏÌÓÔ");
    EXPECT_EQ(text(bytesFrom(0xF0, 0xFF), 30), "\xEF\xA3\xBFÒÚÛÙıˆ˜¯˘˙˚¸˝˛ˇ");
}

TEST(StringEncodingTest, UTF16InBothOrders) {
    EXPECT_EQ(text(std::string_view("\0a\x20\xAC\xD8\x3D\xDE\x00", 8), 0x90000100), "a€😀");
    EXPECT_EQ(text(std::string_view("a\0\xAC\x20\x3D\xD8\x00\xDE", 8), 0x94000100), "a€😀");
}

TEST(StringEncodingTest, UTF16WithAMarkIsInItsOrderAndWithoutOneBigEndian) {
    EXPECT_EQ(text(std::string_view("\xFE\xFF\0a", 4), 10), "a");
    EXPECT_EQ(text(std::string_view("\xFF\xFE\x61\0", 4), 10), "a");
    EXPECT_EQ(text(std::string_view("\0a", 2), 10), "a");
    EXPECT_EQ(text("\xFE\xFF", 10), "");
    EXPECT_EQ(text("\xFF\xFE", 10), "");
}

TEST(StringEncodingTest, AMarkThatSaysNothingNewIsACharacter) {
    EXPECT_EQ(text("\xFE\xFF", 0x90000100), "\xEF\xBB\xBF");
    EXPECT_EQ(text("\xFF\xFE", 0x94000100), "\xEF\xBB\xBF");
    EXPECT_EQ(text("\xFE\xFF\xFE\xFF", 10), "\xEF\xBB\xBF");
}

TEST(StringEncodingTest, UTF16HasTheWholeOfUnicode) {
    EXPECT_EQ(text(std::string_view("\xD8\x00\xDC\x00", 4), 10), "\xF0\x90\x80\x80");
    EXPECT_EQ(text("\xDB\xFF\xDF\xFF", 10), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(text("\xFF\xFD", 0x90000100), "\xEF\xBF\xBD");
}

TEST(StringEncodingTest, HalfAUnitDecodesNothing) {
    EXPECT_EQ(text(std::string_view("\0a\0", 3), 10), "nothing");
    EXPECT_EQ(text("a", 0x90000100), "nothing");
    EXPECT_EQ(text(std::string_view("a\0b", 3), 0x94000100), "nothing");
}

TEST(StringEncodingTest, ALoneSurrogateDecodesNothing) {
    EXPECT_EQ(text("\xD8\x3D", 10), "nothing");
    EXPECT_EQ(text(std::string_view("\xD8\x3D\0a", 4), 10), "nothing");
    EXPECT_EQ(text(std::string_view("\xDE\x00\xD8\x3D", 4), 10), "nothing");
    EXPECT_EQ(text(std::string_view("\xD8\x3D\xD8\x3D", 4), 10), "nothing");
    EXPECT_EQ(text(std::string_view("\xD8\x3D\xE0\x00", 4), 10), "nothing");
}

}  // namespace
}  // namespace sevrin::platform
