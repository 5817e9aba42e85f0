// Formats: what each kind of argument looks like, how arguments are found, and that whatever does
// not fit is said and never read.
#include "Platform/Format.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <concepts>
#include <cstdio>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Platform/Value.h"

namespace sevrin::platform {
namespace {

using namespace std::string_literals;
using namespace std::string_view_literals;
using testing::HasSubstr;

class Person : public Object {
public:
    explicit Person(std::string name) : name_(std::move(name)) {}
    std::string description() const override { return name_; }

private:
    const std::string name_;
};

class Unspeakable : public Object {
public:
    std::string description() const override { throw std::runtime_error("no words"); }
};

// What the error says of a format that does not fit; "no error" when there is none.
template <typename... Arguments>
std::string errorOf(std::string_view format, const Arguments&... arguments) {
    try {
        static_cast<void>(stringWithFormat(format, arguments...));
    } catch (const FormatError& error) {
        return error.what();
    }
    return "no error";
}

TEST(FormatTest, TextWithoutConversionsIsKept) {
    EXPECT_EQ(stringWithFormat(""), "");
    EXPECT_EQ(stringWithFormat("plain"), "plain");
}

TEST(FormatTest, TwoPercentSignsAreOneAndTakeNoArgument) {
    EXPECT_EQ(stringWithFormat("100%% of %d%%", 5), "100% of 5%");
}

TEST(FormatTest, AppendingKeepsWhatWasThere) {
    std::string text = "before ";
    const FormatArgument arguments[] = {1, "x"};

    appendFormat(text, "%d%@", arguments);

    EXPECT_EQ(text, "before 1x");
}

TEST(FormatTest, ValuesAreDescribed) {
    EXPECT_EQ(stringWithFormat("%@ %@ %@", Value(12), Value(true), Value(0.5)), "12 1 0.5");
    EXPECT_EQ(stringWithFormat("%@", Value("text")), "text");
    EXPECT_EQ(stringWithFormat("%@", Value(ValueArray{1})), "(\n    1\n)");
    EXPECT_EQ(stringWithFormat("%@", Value(std::make_shared<Person>("Ada"))), "Ada");
}

TEST(FormatTest, ObjectsAreDescribedHoweverTheyAreHeld) {
    const auto person = std::make_shared<Person>("Ada");
    const std::shared_ptr<const Object> object = person;

    EXPECT_EQ(stringWithFormat("%@ %@ %@ %@", person, object, *person, person.get()),
              "Ada Ada Ada Ada");
}

TEST(FormatTest, DatesAreDescribed) {
    EXPECT_EQ(stringWithFormat("%@", NSDate::dateWithTimeIntervalSinceReferenceDate(0)),
              "2001-01-01 00:00:00 +0000");
}

TEST(FormatTest, TextIsTakenAsItIsByBothOfItsConversions) {
    const std::string text = "100%d";
    for (const char* format : {"%@", "%s"}) {
        EXPECT_EQ(stringWithFormat(format, text), text);
        EXPECT_EQ(stringWithFormat(format, std::string_view(text)), text);
        EXPECT_EQ(stringWithFormat(format, text.c_str()), text);
        EXPECT_EQ(stringWithFormat(format, "100%d"), text);
        EXPECT_EQ(stringWithFormat(format, std::optional(text)), text);
    }
}

TEST(FormatTest, NothingIsNull) {
    EXPECT_EQ(stringWithFormat("%@", nullptr), "(null)");
    EXPECT_EQ(stringWithFormat("%@", Value()), "(null)");
    EXPECT_EQ(stringWithFormat("%@", ObjectPtr()), "(null)");
    EXPECT_EQ(stringWithFormat("%@", static_cast<const Person*>(nullptr)), "(null)");
    EXPECT_EQ(stringWithFormat("%@", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(stringWithFormat("%@", std::optional<std::string>()), "(null)");
    EXPECT_EQ(stringWithFormat("%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(stringWithFormat("%s", std::optional<std::string>()), "(null)");
}

TEST(FormatTest, EmbeddedNulsAreText) {
    EXPECT_EQ(stringWithFormat("a\0b%@c\0"sv, "x\0y"s), "a\0bx\0yc\0"s);
    EXPECT_EQ(stringWithFormat("%s", "x\0y"sv), "x\0y"s);
    EXPECT_EQ(stringWithFormat("%c", 0), "\0"s);
}

TEST(FormatTest, TextInWidthAndPrecisionEqualsPrintf) {
    for (const char* format : {"%s", "%9s", "%-9s|", "%2s", "%.3s", "%9.3s", "%-9.0s|", "%.s"}) {
        char expected[32];
        std::snprintf(expected, sizeof expected, format, "Zürich");
        EXPECT_EQ(stringWithFormat(format, "Zürich"), expected) << format;
    }
}

TEST(FormatTest, ObjectsAreMeasuredInCharacters) {
    EXPECT_EQ(stringWithFormat("%8@|", "Zürich"), "  Zürich|");
    EXPECT_EQ(stringWithFormat("%-8@|", "Zürich"), "Zürich  |");
    EXPECT_EQ(stringWithFormat("%.2@", "Zürich"), "Zü");
    EXPECT_EQ(stringWithFormat("%4.2@", Value("日本語")), "  日本");
    EXPECT_EQ(stringWithFormat("%.9@", "\xFFx"), "\xFFx");
}

TEST(FormatTest, ATextWithoutEndIsReadNoFurtherThanThePrecision) {
    const char text[] = {'a', 'b', 'c'};

    EXPECT_EQ(stringWithFormat("%.3s", text), "abc");
    EXPECT_EQ(stringWithFormat("%.*s", 2, text), "ab");
}

TEST(FormatTest, ACharacterIsOneByte) {
    EXPECT_EQ(stringWithFormat("%c%c", 'a', 98), "ab");
    EXPECT_EQ(stringWithFormat("%3c%-3c|", 'a', 'b'), "  ab  |");
    EXPECT_EQ(stringWithFormat("%c", 0x141), "A");
    EXPECT_EQ(stringWithFormat("%.0c", 'a'), "a");
}

TEST(FormatTest, ObjectsAndTextHaveAddresses) {
    const auto person = std::make_shared<Person>("Ada");
    const char* const text = "x";

    EXPECT_EQ(stringWithFormat("%p", person),
              stringWithFormat("%p", static_cast<const void*>(person.get())));
    EXPECT_EQ(stringWithFormat("%p", text), stringWithFormat("%p", static_cast<const void*>(text)));
}

TEST(FormatTest, WidthAndPrecisionMayBeArguments) {
    EXPECT_EQ(stringWithFormat("%*d|%-*d|%.*f", 5, 1, 5, 2, 2, 0.125), "    1|2    |0.12");
}

TEST(FormatTest, ANegativeWidthAlignsLeftAndANegativePrecisionIsNone) {
    EXPECT_EQ(stringWithFormat("%*d|", -5, 1), "1    |");
    EXPECT_EQ(stringWithFormat("%.*f", -1, 0.5), "0.500000");
}

TEST(FormatTest, ArgumentsMayBeTakenByPosition) {
    EXPECT_EQ(stringWithFormat("%2$@ %1$@ %2$@", "a", "b"), "b a b");
    EXPECT_EQ(stringWithFormat("%1$*2$d|%1$-*2$d|%3$.*4$f", 7, 3, 0.25, 1), "  7|7  |0.2");
}

TEST(FormatTest, TheGroupingFlagGroupsNothing) {
    EXPECT_EQ(stringWithFormat("%'d", 1000000), "1000000");
}

TEST(FormatTest, AnErrorNamesFormatAndPlace) {
    EXPECT_EQ(errorOf("ab %d", "x"), "format \"ab %d\" at 3: %d takes an integer, not text");
}

TEST(FormatTest, ArgumentsOfAnotherTypeAreRefused) {
    EXPECT_THAT(errorOf("%@", 1), HasSubstr("%@ takes a value, an object, a date or text, not an"));
    EXPECT_THAT(errorOf("%@", 0.5), HasSubstr("not a real"));
    EXPECT_THAT(errorOf("%s", 1), HasSubstr("%s takes text, not an integer"));
    EXPECT_THAT(errorOf("%s", Value("text")), HasSubstr("%s takes text, not a value"));
    EXPECT_THAT(errorOf("%d", 0.5), HasSubstr("%d takes an integer, not a real"));
    EXPECT_THAT(errorOf("%d", Value(1)), HasSubstr("not a value"));
    EXPECT_THAT(errorOf("%d", nullptr), HasSubstr("not nothing"));
    EXPECT_THAT(errorOf("%c", "x"), HasSubstr("%c takes an integer, not text"));
    EXPECT_THAT(errorOf("%f", 1), HasSubstr("%f takes a real, not an integer"));
    EXPECT_THAT(errorOf("%p", 1), HasSubstr("%p takes a pointer or an object, not an integer"));
    EXPECT_THAT(errorOf("%s", static_cast<const void*>("x")), HasSubstr("not a pointer"));
    EXPECT_THAT(errorOf("%x", Person("Ada")), HasSubstr("not an object"));
    EXPECT_THAT(errorOf("%u", NSDate::date()), HasSubstr("not a date"));
    EXPECT_THAT(errorOf("%*d", "x", 1), HasSubstr("* takes an integer, not text"));
}

TEST(FormatTest, AMissingArgumentIsRefused) {
    EXPECT_THAT(errorOf("%d"), HasSubstr("at 0: argument 1 is wanted of 0"));
    EXPECT_THAT(errorOf("%d %d", 1), HasSubstr("at 3: argument 2 is wanted of 1"));
    EXPECT_THAT(errorOf("%*d", 1), HasSubstr("argument 2 is wanted of 1"));
    EXPECT_THAT(errorOf("%3$d", 1, 2), HasSubstr("argument 3 is wanted of 2"));
}

TEST(FormatTest, ASuperfluousArgumentIsRefused) {
    EXPECT_THAT(errorOf("text", 1), HasSubstr("at 4: argument 1 of 1 is not used"));
    EXPECT_THAT(errorOf("%d", 1, 2), HasSubstr("argument 2 of 2 is not used"));
    EXPECT_THAT(errorOf("%3$d %1$d", 1, 2, 3), HasSubstr("argument 2 of 3 is not used"));
}

TEST(FormatTest, PositionsAreForAllConversionsOrNone) {
    EXPECT_THAT(errorOf("%1$d %d", 1, 2), HasSubstr("at 5: arguments are taken in order or by"));
    EXPECT_THAT(errorOf("%d %2$d", 1, 2), HasSubstr("at 3: arguments are taken in order or by"));
    EXPECT_THAT(errorOf("%1$*d", 1, 2), HasSubstr("in order or by position"));
    EXPECT_THAT(errorOf("%0$d", 1), HasSubstr("positions count from 1"));
}

TEST(FormatTest, AnUnknownConversionIsRefused) {
    for (const char* format : {"%y", "%n", "%C", "%S", "%b", "%-", "%5%", "%hlld", "%$d", "%.-1d"})
        EXPECT_THAT(errorOf(format, 1), HasSubstr("at 0: ")) << format;
    EXPECT_THAT(errorOf("%y", 1), HasSubstr("there is no conversion y"));
}

TEST(FormatTest, AConversionWithoutEndIsRefused) {
    for (const char* format : {"%", "%5", "%-", "%.", "%l", "%1$"})
        EXPECT_THAT(errorOf(format, 1), HasSubstr("the conversion has no end")) << format;
}

TEST(FormatTest, ANumberThatNoIntHoldsIsRefused) {
    EXPECT_THAT(errorOf("%2147483648d", 1), HasSubstr("a number is too large"));
    EXPECT_THAT(errorOf("%.99999999999d", 1), HasSubstr("a number is too large"));
    EXPECT_THAT(errorOf("%99999999999$d", 1), HasSubstr("a number is too large"));
    EXPECT_THAT(errorOf("%*d", 2147483648LL, 1), HasSubstr("a number is too large"));
    EXPECT_THAT(errorOf("%*d", UINT64_MAX, 1), HasSubstr("a number is too large"));
}

TEST(FormatTest, NothingIsAppendedWhenFormattingFails) {
    std::string text = "before";
    const FormatArgument wrong[] = {1, 2};
    const Unspeakable object;
    const FormatArgument throwing[] = {1, object};

    EXPECT_THROW(appendFormat(text, "%d %@", wrong), FormatError);
    EXPECT_THROW(appendFormat(text, "%d %@", throwing), std::runtime_error);

    EXPECT_EQ(text, "before");
}

enum class Scoped { One };

// What has no place in a format does not compile. A dictionary converts to a Value, which would be
// gone before it is described.
static_assert(!std::constructible_from<FormatArgument, Scoped>);
static_assert(!std::constructible_from<FormatArgument, Dictionary>);
static_assert(!std::constructible_from<FormatArgument, std::unique_ptr<Object>>);
static_assert(!std::constructible_from<FormatArgument, std::shared_ptr<int>>);
static_assert(!std::constructible_from<FormatArgument, std::optional<int>>);
static_assert(!std::constructible_from<FormatArgument, void (*)()>);

}  // namespace
}  // namespace sevrin::platform
