// Unit tests of values on the wire: what comes back unchanged, and which bytes are no value.
#include "Platform/linux/WireValue.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "Platform/XPCLimits.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/RawWire.h"

namespace sevrin::platform {
namespace {

using namespace rawwire;

constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLargestSigned = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

// The one value that `bytes` are, read without endpoints; nothing when they are none or more.
std::optional<Value> decode(std::string_view bytes) {
    CborReader reader(bytes);
    Value value;
    if (!wire::readValue(reader, value, nullptr) || !reader.atEnd()) return std::nullopt;
    return value;
}

std::string encode(const Value& value) {
    std::string bytes;
    wire::appendValue(bytes, value, nullptr);
    return bytes;
}

// `inner` inside `depth` arrays.
Value nestedArrays(Value inner, unsigned depth) {
    for (; depth > 0; --depth)
        inner = Value(ValueArray{inner});
    return inner;
}

Value nestedDictionaries(Value inner, unsigned depth) {
    for (; depth > 0; --depth)
        inner = Value(Dictionary{{"k", inner}});
    return inner;
}

TEST(WireValueTest, EveryKindComesBackUnchanged) {
    const Value values[] = {
        nullptr,
        false,
        true,
        0,
        23,
        24,
        255,
        256,
        65'535,
        65'536,
        0xffff'ffffu,
        0x1'0000'0000,
        kLargestSigned,
        static_cast<std::uint64_t>(kLargestSigned) + 1,
        kLargest,
        -1,
        -24,
        -25,
        -256,
        -257,
        -65'537,
        kSmallest + 1,
        kSmallest,
        0.0,
        -0.0,
        1.0,
        0.1,
        std::numeric_limits<double>::max(),
        std::numeric_limits<double>::denorm_min(),
        std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(),
        "",
        "text",
        std::string("a\0b", 3),
        "\xf0\x9f\x98\x80",
        std::string(70'000, 'x'),
        Data{""},
        Data{std::string("\0\x80\xff", 3)},
        NSDate::dateWithTimeIntervalSinceReferenceDate(0),
        NSDate::dateWithTimeIntervalSinceReferenceDate(-63'114'076'800.25),
        ValueArray{},
        ValueArray{1, "two", nullptr, ValueArray{3.0}},
        Dictionary{},
        Dictionary{{"", 1}, {"b", Dictionary{{"c", Data{"d"}}}}},
    };
    for (const Value& value : values) {
        SCOPED_TRACE(testing::PrintToString(encode(value)));
        const auto decoded = decode(encode(value));
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->kind(), value.kind());
        EXPECT_EQ(*decoded, value);
    }
}

TEST(WireValueTest, TheEncodingIsTheShortestAndTheDocumentedOne) {
    const std::pair<Value, std::string> cases[] = {
        {nullptr, hex("f6")},
        {false, hex("f4")},
        {true, hex("f5")},
        {23, hex("17")},
        {24, hex("1818")},
        {65'536, hex("1a00010000")},
        {kLargest, hex("1bffffffffffffffff")},
        {-1, hex("20")},
        {kSmallest, hex("3b7fffffffffffffff")},
        {1.5, hex("fb3ff8000000000000")},
        {"z", hex("617a")},
        {Data{"z"}, hex("417a")},
        {NSDate::dateWithTimeIntervalSinceReferenceDate(1.5), hex("d9c49c fb3ff8000000000000")},
        {ValueArray{1, 2}, hex("820102")},
        {Dictionary{{"b", 2}, {"a", 1}}, hex("a2 616101 616202")},
    };
    for (const auto& [value, bytes] : cases) {
        SCOPED_TRACE(testing::PrintToString(encode(value)));
        EXPECT_EQ(encode(value), bytes);
    }
}

TEST(WireValueTest, OtherFormsOfTheSameValueAreAccepted) {
    const std::pair<std::string, Value> cases[] = {
        {hex("1817"), 23},
        {hex("1b0000000000000001"), 1},
        {hex("3800"), -1},
        {hex("3b0000000000000000"), -1},
        {hex("f93e00"), 1.5},
        {hex("f90001"), std::ldexp(1.0, -24)},
        {hex("f97c00"), std::numeric_limits<double>::infinity()},
        {hex("fa3fc00000"), 1.5},
        {hex("7a00000001 61"), "a"},
        {hex("9b0000000000000001 05"), ValueArray{5}},
        {hex("ba00000001 6161 05"), Dictionary{{"a", 5}}},
        {hex("da0000c49c f93e00"), NSDate::dateWithTimeIntervalSinceReferenceDate(1.5)},
    };
    for (const auto& [bytes, value] : cases) {
        SCOPED_TRACE(testing::PrintToString(encode(value)));
        const auto decoded = decode(bytes);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(*decoded, value);
    }
}

struct BadBytes {
    const char* what;
    std::string bytes;
};

TEST(WireValueTest, BytesThatAreNoValueAreRefused) {
    const BadBytes cases[] = {
        {"nothing", ""},
        {"undefined", hex("f7")},
        {"a simple value", hex("e0")},
        {"a simple value in a byte", hex("f8ff")},
        {"true in a byte", hex("f815")},
        {"a lone break", hex("ff")},
        {"a reserved integer length", hex("1c")},
        {"a reserved negative length", hex("3d")},
        {"a reserved data length", hex("5e")},
        {"a reserved array length", hex("9c")},
        {"data without a length", hex("5f 4161 ff")},
        {"text without a length", hex("7f 6161 ff")},
        {"an array without a length", hex("9f 01 ff")},
        {"a dictionary without a length", hex("bf 6161 01 ff")},
        {"an integer cut short", hex("1b00000000000000")},
        {"a real cut short", hex("fb3ff80000000000")},
        {"half a real cut short", hex("f93c")},
        {"text cut short", hex("6261")},
        {"data cut short", hex("420a")},
        {"text of the largest length", hex("7bffffffffffffffff 61")},
        {"data of the largest length", hex("5bffffffffffffffff 61")},
        {"an array that claims more than there is", hex("83 0102")},
        {"an array of the largest count", hex("9bffffffffffffffff 01")},
        {"a dictionary that claims more than there is", hex("a2 6161 01")},
        {"a dictionary of the largest count", hex("bbffffffffffffffff 616101")},
        {"a dictionary of half the largest count", hex("bb7fffffffffffffff 616101")},
        {"a key without a value", hex("a1 6161")},
        {"an integer as key", hex("a1 01 02")},
        {"null as key", hex("a1 f6 02")},
        {"data as key", hex("a1 4161 02")},
        {"an array as key", hex("a1 80 02")},
        {"a key that comes twice", hex("a2 616101 616102")},
        {"a key that comes twice further down", hex("81a2 616101 616101")},
        {"a negative number beyond 64 bits", hex("3b8000000000000000")},
        {"the most negative number of all", hex("3bffffffffffffffff")},
        {"text that is no UTF-8", hex("61ff")},
        {"a surrogate as text", hex("63eda080")},
        {"an overlong form as text", hex("62c080")},
        {"a key that is no UTF-8", hex("a1 61ff 01")},
        {"an unknown tag", hex("c0 6161")},
        {"a bignum", hex("c2 4101")},
        {"the tag before ours", hex("d9c49a 00")},
        {"the tag after ours", hex("d9c49d fb3ff8000000000000")},
        {"a tag around nothing", hex("d9c49c")},
        {"a date of an integer", hex("d9c49c 01")},
        {"a date of a date", hex("d9c49c d9c49c fb3ff8000000000000")},
        {"an endpoint where none may be", hex("d9c49b 00")},
        {"an endpoint of a text", hex("d9c49b 6130")},
        {"an endpoint of a negative number", hex("d9c49b 20")},
        {"one array too deep", repeated(hex("81"), kNestingMax + 1) + hex("00")},
        {"one dictionary too deep", repeated(hex("a16161"), kNestingMax + 1) + hex("00")},
        {"arrays without end", repeated(hex("81"), 500'000)},
        {"arrays that each claim everything", repeated(hex("9a0000ffff"), 13'000)},
    };
    for (const BadBytes& each : cases) {
        SCOPED_TRACE(each.what);
        CborReader reader(each.bytes);
        Value value;
        EXPECT_FALSE(wire::readValue(reader, value, nullptr));
    }
}

TEST(WireValueTest, ContainersNestToTheLimitAndNotOneDeeper) {
    EXPECT_TRUE(decode(repeated(hex("81"), kNestingMax) + hex("00")));
    EXPECT_TRUE(decode(repeated(hex("a16161"), kNestingMax) + hex("00")));
    EXPECT_TRUE(decode(encode(nestedArrays("leaf", kNestingMax))));
    EXPECT_TRUE(decode(encode(nestedDictionaries("leaf", kNestingMax))));

    EXPECT_THROW((void)encode(nestedArrays("leaf", kNestingMax + 1)), std::length_error);
    EXPECT_THROW((void)encode(nestedDictionaries("leaf", kNestingMax + 1)), std::length_error);
    EXPECT_THROW((void)encode(nestedArrays(ValueArray{}, kNestingMax)), std::length_error);
}

TEST(WireValueTest, ReadingStopsBehindTheValue) {
    const std::string bytes = hex("8201 02 6161");
    CborReader reader(bytes);
    Value value;

    EXPECT_TRUE(wire::readValue(reader, value, nullptr));
    EXPECT_EQ(value, Value(ValueArray{1, 2}));
    EXPECT_EQ(reader.remaining(), 2u);
    EXPECT_TRUE(wire::readValue(reader, value, nullptr));
    EXPECT_EQ(value, Value("a"));
    EXPECT_TRUE(reader.atEnd());
}

TEST(WireValueTest, StrayBytesOfTextAreSpelledOut) {
    EXPECT_EQ(encode("a\xff"), hex("65 61") + "\\xff");
    EXPECT_EQ(encode(Dictionary{{"\x80", "\xc3"}}), hex("a1 64") + "\\x80" + hex("64") + "\\xc3");
}

TEST(WireValueTest, WhatCannotTravelIsRefusedAtTheSender) {
    EXPECT_THROW((void)encode(Set(ValueArray{1})), std::invalid_argument);
    EXPECT_THROW((void)encode(std::make_shared<Object>()), std::invalid_argument);
    EXPECT_THROW((void)encode(Dictionary{{1, 2}}), std::invalid_argument);
    EXPECT_THROW((void)encode(bootstrap::listenAnonymously().endpoint), std::invalid_argument);
}

TEST(WireValueTest, EndpointsAreNumberedInTheirOrder) {
    const auto first = bootstrap::listenAnonymously().endpoint;
    const auto second = bootstrap::listenAnonymously().endpoint;
    std::string bytes;
    wire::Endpoints endpoints;

    wire::appendValue(bytes, first, &endpoints);
    wire::appendValue(bytes, ValueArray{second}, &endpoints);

    EXPECT_EQ(bytes, hex("d9c49b 00 81 d9c49b 01"));
    EXPECT_EQ(endpoints, (wire::Endpoints{first, second}));
}

TEST(WireValueTest, AnEndpointIsAskedForByItsIndex) {
    const std::shared_ptr<NSXPCListenerEndpoint> there = bootstrap::listenAnonymously().endpoint;
    std::vector<std::uint64_t> asked;
    const wire::TakeEndpoint take = [&](std::uint64_t index) {
        asked.push_back(index);
        return index == 5 ? there : nullptr;
    };
    const std::string bytes = hex("82 d9c49b 05 d9c49b 1bffffffffffffffff");
    CborReader reader(bytes);
    Value value;

    EXPECT_FALSE(wire::readValue(reader, value, &take));
    EXPECT_EQ(asked, (std::vector<std::uint64_t>{5, kLargest}));
}

}  // namespace
}  // namespace sevrin::platform
