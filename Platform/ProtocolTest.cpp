// Tests of protocols: which method a selector leads to, which values fit it, and what is said of
// those that do not.
#include "Platform/Protocol.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/NSXPCListener.h"
#include "Platform/NSXPCListenerEndpoint.h"

namespace sevrin::platform {
namespace {

class Endpoint : public NSXPCListenerEndpoint {};

using Kind = ArgumentType::Kind;

constexpr ArgumentType kString{Kind::String};
constexpr ArgumentType kStringOrNull{Kind::String, true};
constexpr ArgumentType kDictionary{Kind::Dictionary};
constexpr ArgumentType kDictionaryOrNull{Kind::Dictionary, true};
constexpr ArgumentType kEndpoint{Kind::Endpoint};
constexpr ArgumentType kEndpointOrNull{Kind::Endpoint, true};
constexpr ArgumentType kUnsigned{Kind::UnsignedInt32};

MethodDescription oneWay(std::string selector, std::vector<ArgumentType> arguments = {}) {
    return {std::move(selector), std::move(arguments), false, {}, true};
}

std::vector<std::string> selectorsOf(const Protocol& protocol) {
    std::vector<std::string> result;
    for (const MethodDescription* method : protocol.allMethods())
        result.push_back(method->selector);
    std::sort(result.begin(), result.end());
    return result;
}

TEST(ArgumentTypeTest, NullIsAcceptedOnlyWhereItIsAllowed) {
    for (const Kind kind : {Kind::String, Kind::Dictionary, Kind::Endpoint, Kind::UnsignedInt32}) {
        EXPECT_FALSE((ArgumentType{kind, false}.accepts(nullptr)));
        EXPECT_TRUE((ArgumentType{kind, true}.accepts(nullptr)));
    }
}

TEST(ArgumentTypeTest, AStringIsAStringAndNothingElse) {
    EXPECT_TRUE(kString.accepts(""));
    EXPECT_TRUE(kStringOrNull.accepts("text"));

    for (const Value& other :
         {Value(true), Value(7), Value(0.5), Value(Data{"text"}), Value(ValueArray{"text"}),
          Value(Dictionary()), Value(Set()), Value(std::make_shared<Endpoint>())})
        EXPECT_FALSE(kStringOrNull.accepts(other));
}

TEST(ArgumentTypeTest, AnUnsignedIntegerLiesWithin32Bits) {
    EXPECT_TRUE(kUnsigned.accepts(0));
    EXPECT_TRUE(kUnsigned.accepts(std::numeric_limits<std::uint32_t>::max()));

    EXPECT_FALSE(kUnsigned.accepts(-1));
    EXPECT_FALSE(kUnsigned.accepts(std::int64_t{1} << 32));
    EXPECT_FALSE(kUnsigned.accepts(std::numeric_limits<std::int64_t>::min()));
    EXPECT_FALSE(kUnsigned.accepts(std::numeric_limits<std::uint64_t>::max()));
}

TEST(ArgumentTypeTest, ABooleanOrARealIsNoInteger) {
    EXPECT_FALSE(kUnsigned.accepts(true));
    EXPECT_FALSE(kUnsigned.accepts(1.0));
    EXPECT_FALSE(kUnsigned.accepts("1"));
}

TEST(ArgumentTypeTest, AnEndpointIsAnObjectOfThatClass) {
    const auto listener = NSXPCListener::anonymousListener();

    EXPECT_TRUE(kEndpoint.accepts(listener->endpoint()));
    EXPECT_TRUE(kEndpointOrNull.accepts(std::make_shared<Endpoint>()));

    EXPECT_FALSE(kEndpoint.accepts(std::make_shared<Object>()));
    EXPECT_FALSE(kEndpointOrNull.accepts("endpoint"));
}

TEST(ArgumentTypeTest, ADictionaryHoldsEveryKindOfPropertyList) {
    const Dictionary all{{"boolean", true},
                         {"integer", -1},
                         {"large", std::numeric_limits<std::uint64_t>::max()},
                         {"real", std::nan("")},
                         {"string", "text"},
                         {"data", Data{"bytes"}},
                         {"date", NSDate::dateWithTimeIntervalSince1970(0)},
                         {"array", ValueArray{1, ValueArray{"two"}}},
                         {"dictionary", Dictionary{{"key", Dictionary()}}}};

    EXPECT_TRUE(kDictionary.accepts(all));
    EXPECT_TRUE(kDictionary.accepts(Dictionary()));
    EXPECT_FALSE(kDictionary.accepts(ValueArray()));
}

TEST(ArgumentTypeTest, ADictionaryHoldsNoNullSetOrObjectAtAnyDepth) {
    const Value improper[] = {nullptr, Set(), std::make_shared<Object>(),
                              std::make_shared<Endpoint>()};
    for (const Value& value : improper) {
        EXPECT_FALSE(kDictionaryOrNull.accepts(Dictionary{{"key", value}}));
        EXPECT_FALSE(kDictionaryOrNull.accepts(Dictionary{{"key", ValueArray{1, value}}}));
        EXPECT_FALSE(kDictionaryOrNull.accepts(
            Dictionary{{"key", ValueArray{Dictionary{{"inner", value}}}}}));
    }
}

TEST(ArgumentTypeTest, ADictionaryHasOnlyStringsAsKeysAtAnyDepth) {
    EXPECT_FALSE(kDictionary.accepts(Dictionary{{1, "one"}}));
    EXPECT_FALSE(kDictionary.accepts(Dictionary{{nullptr, "none"}}));
    EXPECT_FALSE(kDictionary.accepts(Dictionary{{"key", Dictionary{{true, "inner"}}}}));
}

TEST(ArgumentTypeTest, NamesItself) {
    EXPECT_EQ(kString.description(), "string");
    EXPECT_EQ(kDictionaryOrNull.description(), "dictionary or null");
    EXPECT_EQ(kEndpointOrNull.description(), "endpoint or null");
    EXPECT_EQ(kUnsigned.description(), "uint32");
}

TEST(MethodDescriptionTest, FittingArgumentsLeaveNothingToSay) {
    const MethodDescription publish =
        oneWay("publishEndpoint:forIdentifier:", {kEndpointOrNull, kString});

    EXPECT_EQ(publish.whyNotArguments({nullptr, "id"}), "");
    EXPECT_EQ(publish.whyNotArguments({std::make_shared<Endpoint>(), "id"}), "");
    EXPECT_EQ(oneWay("removeAllObservers").whyNotArguments({}), "");
}

TEST(MethodDescriptionTest, CountsTheArgumentsFirst) {
    const MethodDescription publish =
        oneWay("publishEndpoint:forIdentifier:", {kEndpointOrNull, kString});

    EXPECT_EQ(publish.whyNotArguments({1, 2, 3}),
              "3 arguments where publishEndpoint:forIdentifier: takes 2");
    EXPECT_EQ(publish.whyNotArguments({nullptr}),
              "1 argument where publishEndpoint:forIdentifier: takes 2");
    EXPECT_EQ(oneWay("removeObserver:", {kString}).whyNotArguments({}),
              "0 arguments where removeObserver: takes 1");
}

TEST(MethodDescriptionTest, NamesTheFirstArgumentThatDoesNotFit) {
    const MethodDescription publish =
        oneWay("publishEndpoint:forIdentifier:", {kEndpointOrNull, kString});

    EXPECT_EQ(publish.whyNotArguments({nullptr, Dictionary()}),
              "argument 2 is a dictionary where string is wanted");
    EXPECT_EQ(publish.whyNotArguments({"endpoint", nullptr}),
              "argument 1 is a string where endpoint or null is wanted");
    EXPECT_EQ(publish.whyNotArguments({std::make_shared<Object>(), "id"}),
              "argument 1 is an object where endpoint or null is wanted");
}

TEST(MethodDescriptionTest, SaysWhatAMisfitIs) {
    const auto asUserID = [](const Value& value) {
        return oneWay("setUser:", {kUnsigned}).whyNotArguments({value});
    };

    EXPECT_EQ(asUserID(nullptr), "argument 1 is null where uint32 is wanted");
    EXPECT_EQ(asUserID(true), "argument 1 is a boolean where uint32 is wanted");
    EXPECT_EQ(asUserID(-1), "argument 1 is the integer -1 where uint32 is wanted");
    EXPECT_EQ(asUserID(std::numeric_limits<std::uint64_t>::max()),
              "argument 1 is the integer 18446744073709551615 where uint32 is wanted");
    EXPECT_EQ(asUserID(0.5), "argument 1 is a real where uint32 is wanted");
    EXPECT_EQ(asUserID(Data()), "argument 1 is data where uint32 is wanted");
    EXPECT_EQ(asUserID(NSDate::date()), "argument 1 is a date where uint32 is wanted");
    EXPECT_EQ(asUserID(ValueArray()), "argument 1 is an array where uint32 is wanted");
    EXPECT_EQ(asUserID(Set()), "argument 1 is a set where uint32 is wanted");
}

TEST(MethodDescriptionTest, SaysWhenADictionaryHoldsTheWrongThings) {
    EXPECT_EQ(oneWay("post:", {kDictionaryOrNull}).whyNotArguments({Dictionary{{"key", Set()}}}),
              "argument 1 is a dictionary that is no property list where dictionary or null is "
              "wanted");
}

TEST(MethodDescriptionTest, JudgesRepliesByTheirOwnTypes) {
    const MethodDescription query{"query:withReply:", {kString}, true, {kEndpointOrNull}, true};

    EXPECT_EQ(query.whyNotReplies({nullptr}), "");
    EXPECT_EQ(query.whyNotReplies({"text"}),
              "reply value 1 is a string where endpoint or null is wanted");
    EXPECT_EQ(query.whyNotReplies({}), "0 reply values where query:withReply: takes 1");
}

class ProtocolTest : public testing::Test {
protected:
    const Protocol base_{"Base", {}, {oneWay("base"), oneWay("base:", {kString})}};
    const Protocol other_{"Other", {}, {oneWay("other")}};
    const Protocol derived_{"Derived", {&base_, &other_}, {oneWay("derived")}};
    const Protocol most_{"Most", {&derived_}, {}};
};

TEST_F(ProtocolTest, FindsOwnAndInheritedMethodsByTheExactSelector) {
    ASSERT_NE(derived_.method("derived"), nullptr);
    EXPECT_EQ(derived_.method("derived")->selector, "derived");
    ASSERT_NE(most_.method("base:"), nullptr);
    EXPECT_EQ(most_.method("base:"), base_.method("base:"));
    EXPECT_EQ(most_.method("base:")->arguments.size(), 1U);
    EXPECT_EQ(most_.method("other"), other_.method("other"));
}

TEST_F(ProtocolTest, FindsNothingUnderAnyOtherText) {
    using namespace std::string_view_literals;

    for (const std::string_view other : {""sv, "bas"sv, "base::"sv, "Base"sv, "base\0"sv, "basf"sv})
        EXPECT_EQ(most_.method(other), nullptr) << other;
    EXPECT_EQ(base_.method("derived"), nullptr);
}

TEST_F(ProtocolTest, FindsEachOfManyMethods) {
    std::vector<MethodDescription> methods;
    for (int number = 0; number < 500; ++number)
        methods.push_back(oneWay("method" + std::to_string(number) + ":"));
    const Protocol many("Many", {}, methods);

    for (const MethodDescription& method : methods) {
        ASSERT_NE(many.method(method.selector), nullptr);
        EXPECT_EQ(many.method(method.selector)->selector, method.selector);
    }
    EXPECT_EQ(many.method("method500:"), nullptr);
}

TEST_F(ProtocolTest, ListsOwnAndInheritedMethods) {
    EXPECT_EQ(selectorsOf(most_), (std::vector<std::string>{"base", "base:", "derived", "other"}));
    EXPECT_EQ(selectorsOf(other_), (std::vector<std::string>{"other"}));
}

TEST_F(ProtocolTest, ConformsToItselfAndToWhatItInherits) {
    EXPECT_TRUE(base_.conformsTo(base_));
    EXPECT_TRUE(most_.conformsTo(derived_));
    EXPECT_TRUE(most_.conformsTo(other_));

    EXPECT_FALSE(base_.conformsTo(derived_));
    EXPECT_FALSE(base_.conformsTo(other_));
}

TEST_F(ProtocolTest, AMethodInheritedAlongTwoWaysIsOneMethod) {
    const Protocol side("Side", {&base_}, {});
    const Protocol both("Both", {&most_, &side}, {});

    EXPECT_EQ(selectorsOf(both), selectorsOf(most_));
}

TEST(ProtocolDeathTest, ASelectorOfTwoMethodsIsABug) {
    const Protocol base("Base", {}, {oneWay("base")});

    EXPECT_DEATH(Protocol("Twice", {&base}, {oneWay("base")}), "a selector stands once");
}

}  // namespace
}  // namespace sevrin::platform
