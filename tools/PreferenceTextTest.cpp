// Tests of preference values as words.
#include "tools/PreferenceText.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string>

namespace sevrin {
namespace {

using platform::Data;
using platform::Dictionary;
using platform::NSDate;
using platform::Value;
using platform::ValueArray;

TEST(PreferenceTextTest, EachKindIsReadFromItsWords) {
    EXPECT_EQ(preferenceValue("string", "true"), Value("true"));
    EXPECT_EQ(preferenceValue("boolean", "true"), Value(true));
    EXPECT_EQ(preferenceValue("boolean", "no"), Value(false));
    EXPECT_EQ(preferenceValue("integer", "-5"), Value(-5));
    EXPECT_EQ(preferenceValue("integer", "18446744073709551615"),
              Value(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(preferenceValue("real", "2.5e3"), Value(2500.0));
    EXPECT_EQ(preferenceValue("data", "AAEC"), Value(Data{std::string("\0\1\2", 3)}));
    EXPECT_EQ(preferenceValue("data", "AAE="), Value(Data{std::string("\0\1", 2)}));
    EXPECT_EQ(preferenceValue("data", ""), Value(Data{}));
    EXPECT_EQ(preferenceValue("json", "[1, true, {\"a\": \"b\"}]"),
              Value(ValueArray{1, true, Dictionary{{"a", "b"}}}));
}

TEST(PreferenceTextTest, ADateHasAnOffsetAndPerhapsAFraction) {
    const auto date = [](double seconds) {
        return Value(NSDate::dateWithTimeIntervalSinceReferenceDate(seconds));
    };
    EXPECT_EQ(preferenceValue("date", "2001-01-01T00:00:00Z"), date(0));
    EXPECT_EQ(preferenceValue("date", "2001-01-01T01:00:00.5+01:00"), date(0.5));
    EXPECT_EQ(preferenceValue("date", "2000-12-31T19:00:00-05:00"), date(0));
}

TEST(PreferenceTextTest, WordsOfAnotherKindAreRefused) {
    const std::pair<const char*, const char*> wrong[] = {
        {"boolean", "maybe"},
        {"integer", "1.5"},
        {"integer", ""},
        {"integer", "18446744073709551616"},
        {"integer", "5 "},
        {"real", "x"},
        {"real", "inf"},
        {"date", "2001-01-01"},
        {"date", "2001-02-30T00:00:00Z"},
        {"date", "2001-01-01T25:00:00Z"},
        {"date", "2001-01-01T00:00:00"},
        {"date", "2001-01-01T00:00:00.Z"},
        {"date", "2001-01-01T00:00:00+1:00"},
        {"data", "AA"},
        {"data", "A*=="},
        {"json", "{"},
        {"json", "null"},
        {"colour", "red"},
    };
    for (const auto& [type, text] : wrong)
        EXPECT_THROW(static_cast<void>(preferenceValue(type, text)), std::invalid_argument)
            << type << " " << text;
}

TEST(PreferenceTextTest, ValuesAreShownOnOneLine) {
    EXPECT_EQ(preferenceText("a b"), "a b");
    EXPECT_EQ(preferenceText(true), "true");
    EXPECT_EQ(preferenceText(-5), "-5");
    EXPECT_EQ(preferenceText(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
    EXPECT_EQ(preferenceText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(preferenceText(Data{"abc"}), "YWJj");
    EXPECT_EQ(preferenceText(ValueArray{1, "b"}), "[1,\"b\"]");
}

TEST(PreferenceTextTest, EveryKindHasAName) {
    EXPECT_EQ(preferenceType("a"), "string");
    EXPECT_EQ(preferenceType(false), "boolean");
    EXPECT_EQ(preferenceType(1), "integer");
    EXPECT_EQ(preferenceType(1.5), "real");
    EXPECT_EQ(preferenceType(Data{}), "data");
    EXPECT_EQ(preferenceType(NSDate::date()), "date");
    EXPECT_EQ(preferenceType(ValueArray{}), "array");
    EXPECT_EQ(preferenceType(Dictionary{}), "dictionary");
}

}  // namespace
}  // namespace sevrin
