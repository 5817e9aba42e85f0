// What values look like to people: scalars as they are, containers as the platform lays them out.
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "Platform/Value.h"

namespace sevrin::platform {
namespace {

using namespace std::string_view_literals;

class Quoting : public Object {
public:
    std::string description() const override { return "<Quoting \"me\">"; }
};

// How `member` stands within a container.
std::string asMember(const Value& member) {
    const std::string text = Value(ValueArray{member}).description();
    EXPECT_TRUE(text.starts_with("(\n    ") && text.ends_with("\n)")) << text;
    return text.substr(6, text.size() - 8);
}

TEST(ValueDescriptionTest, TextIsAsItIs) {
    EXPECT_EQ(Value("a \"b\"\n\0\xFF"sv).description(), "a \"b\"\n\0\xFF"sv);
    EXPECT_EQ(Value("").description(), "");
}

TEST(ValueDescriptionTest, NullIsNothing) {
    EXPECT_EQ(Value().description(), "(null)");
}

TEST(ValueDescriptionTest, BooleansAreOneAndZero) {
    EXPECT_EQ(Value(true).description(), "1");
    EXPECT_EQ(Value(false).description(), "0");
}

TEST(ValueDescriptionTest, IntegersAreDecimal) {
    EXPECT_EQ(Value(0).description(), "0");
    EXPECT_EQ(Value(std::numeric_limits<std::int64_t>::min()).description(),
              "-9223372036854775808");
    EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).description(),
              "18446744073709551615");
}

TEST(ValueDescriptionTest, RealsHaveTheFewestDigitsThatReadBackEqual) {
    EXPECT_EQ(Value(12.0).description(), "12");
    EXPECT_EQ(Value(0.1).description(), "0.1");
    EXPECT_EQ(Value(-2.5).description(), "-2.5");
    EXPECT_EQ(Value(1.0 / 3).description(), "0.3333333333333333");
    EXPECT_EQ(Value(0.0).description(), "0");
    EXPECT_EQ(Value(-0.0).description(), "-0");
}

TEST(ValueDescriptionTest, OnlyRealsOfUnusualSizeHaveAnExponent) {
    EXPECT_EQ(Value(100000.0).description(), "100000");
    EXPECT_EQ(Value(1e16).description(), "10000000000000000");
    EXPECT_EQ(Value(1e17).description(), "1e+17");
    EXPECT_EQ(Value(0.0001).description(), "0.0001");
    EXPECT_EQ(Value(0.00001).description(), "1e-05");
    EXPECT_EQ(Value(std::numeric_limits<double>::max()).description(), "1.7976931348623157e+308");
    EXPECT_EQ(Value(std::numeric_limits<double>::denorm_min()).description(), "5e-324");
}

TEST(ValueDescriptionTest, RealsThatAreNoNumbersHaveNames) {
    EXPECT_EQ(Value(std::numeric_limits<double>::infinity()).description(), "inf");
    EXPECT_EQ(Value(-std::numeric_limits<double>::infinity()).description(), "-inf");
    EXPECT_EQ(Value(std::numeric_limits<double>::quiet_NaN()).description(), "nan");
    EXPECT_EQ(Value(-std::numeric_limits<double>::quiet_NaN()).description(), "nan");
}

TEST(ValueDescriptionTest, DatesAndObjectsDescribeThemselves) {
    EXPECT_EQ(Value(NSDate::dateWithTimeIntervalSinceReferenceDate(0)).description(),
              "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Value(std::make_shared<Quoting>()).description(), "<Quoting \"me\">");
}

TEST(ValueDescriptionTest, ShortDataIsShownWhole) {
    EXPECT_EQ(Value(Data{""}).description(), "{length = 0, bytes = 0x}");
    EXPECT_EQ(Value(Data{"\x01\x02\xAB\xFF"}).description(), "{length = 4, bytes = 0x0102abff}");
    EXPECT_EQ(Value(Data{std::string(24, 'a')}).description(),
              "{length = 24, bytes = 0x616161616161616161616161616161616161616161616161}");
}

TEST(ValueDescriptionTest, OfLongDataTheBeginningAndTheEndAreShown) {
    const std::string bytes = "0123456789abcdef" + std::string(1000, '.') + "ghijklmn";

    EXPECT_EQ(Value(Data{bytes}).description(),
              "{length = 1024, bytes = 0x30313233 34353637 38396162 63646566 ... "
              "6768696a 6b6c6d6e }");
    EXPECT_EQ(Value(Data{std::string(25, 'a')}).description(),
              "{length = 25, bytes = 0x61616161 61616161 61616161 61616161 ... "
              "61616161 61616161 }");
}

TEST(ValueDescriptionTest, AnArrayHasALineForEachMember) {
    EXPECT_EQ(Value(ValueArray{"a", 2}).description(), "(\n    a,\n    2\n)");
    EXPECT_EQ(Value(ValueArray{"a"}).description(), "(\n    a\n)");
    EXPECT_EQ(Value(ValueArray{}).description(), "(\n)");
}

TEST(ValueDescriptionTest, ADictionaryHasALineForEachKey) {
    EXPECT_EQ(Value(Dictionary{{"b", "x"}, {"a", 1}}).description(),
              "{\n    a = 1;\n    b = x;\n}");
    EXPECT_EQ(Value(Dictionary{{7, true}, {"a b", 1}}).description(),
              "{\n    7 = 1;\n    \"a b\" = 1;\n}");
    EXPECT_EQ(Value(Dictionary{}).description(), "{\n}");
}

TEST(ValueDescriptionTest, ASetHasBracketsOfItsOwn) {
    EXPECT_EQ(Value(Set({"b", "a"})).description(), "{(\n    a,\n    b\n)}");
    EXPECT_EQ(Value(Set()).description(), "{(\n)}");
}

TEST(ValueDescriptionTest, NestedContainersAreIndented) {
    const Value value(Dictionary{{"array", ValueArray{1, ValueArray{2}}},
                                 {"set", Set({3})},
                                 {"dictionary", Dictionary{{"key", Dictionary{}}}}});

    EXPECT_EQ(value.description(), R"({
    array =     (
        1,
                (
            2
        )
    );
    dictionary =     {
        key =         {
        };
    };
    set =     {(
        3
    )};
})");
}

TEST(ValueDescriptionTest, WithinAContainerTextThatIsNoWordIsQuoted) {
    EXPECT_EQ(asMember("Word2"), "Word2");
    EXPECT_EQ(asMember(""), "\"\"");
    EXPECT_EQ(asMember("two words"), "\"two words\"");
    EXPECT_EQ(asMember("com.sevrin"), "\"com.sevrin\"");
    EXPECT_EQ(asMember("Zürich"), "\"Zürich\"");
    EXPECT_EQ(asMember("a\"b\\c\nd\re\tf"), "\"a\\\"b\\\\c\\nd\\re\\tf\"");
}

TEST(ValueDescriptionTest, WithinAContainerOtherKindsAreQuotedLikeText) {
    EXPECT_EQ(asMember(Value()), "\"<null>\"");
    EXPECT_EQ(asMember(true), "1");
    EXPECT_EQ(asMember(-1), "\"-1\"");
    EXPECT_EQ(asMember(0.5), "\"0.5\"");
    EXPECT_EQ(asMember(NSDate::dateWithTimeIntervalSinceReferenceDate(0)),
              "\"2001-01-01 00:00:00 +0000\"");
    EXPECT_EQ(asMember(std::make_shared<Quoting>()), "\"<Quoting \\\"me\\\">\"");
    EXPECT_EQ(asMember(Data{"\x01"}), "{length = 1, bytes = 0x01}");
}

TEST(ValueDescriptionTest, ContainersBeyondThe64thWithinOneAnotherAreOnlyHintedAt) {
    Value deepest(ValueArray{"deepest"});
    for (int level = 0; level < 64; ++level)
        deepest = Value(ValueArray{std::move(deepest)});
    EXPECT_NE(deepest.description().find("deepest"), std::string::npos);

    const Value deeper(ValueArray{deepest});

    const std::string text = deeper.description();
    EXPECT_EQ(text.find("deepest"), std::string::npos);
    EXPECT_NE(text.find("\n" + std::string(65 * 4, ' ') + "...\n"), std::string::npos);
}

}  // namespace
}  // namespace sevrin::platform
