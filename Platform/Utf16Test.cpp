// Tests of UTF-16: what is well-formed, and both ways of converting.
#include "Platform/Utf16.h"

#include <gtest/gtest.h>

#include <string>

#include "Platform/PropertyListBytes.h"

namespace sevrin::platform {
namespace {

TEST(Utf16Test, OnlyWholeSurrogatePairsAreWellFormed) {
    EXPECT_TRUE(isValidUtf16BigEndian(""));
    EXPECT_TRUE(isValidUtf16BigEndian(hex("0000 D7FF D800 DC00 DBFF DFFF E000 FFFF")));
    for (const char* const wrong :
         {"D800", "DC00", "D800 0041", "D800 D800 DC00", "DC00 D800", "00"})
        EXPECT_FALSE(isValidUtf16BigEndian(hex(wrong))) << wrong;
}

TEST(Utf16Test, CharactersOfEveryLengthConvertBothWays) {
    const std::string text("a\0\u007f\u0080\u07ff\u0800\uffff\U00010000\U0010ffff", 21);
    const std::string units = hex("0061 0000 007F 0080 07FF 0800 FFFF D800 DC00 DBFF DFFF");
    std::string converted;

    appendUtf16BigEndian(converted, text);

    EXPECT_EQ(converted, units);
    EXPECT_EQ(utf8FromUtf16BigEndian(units), text);
}

}  // namespace
}  // namespace sevrin::platform
