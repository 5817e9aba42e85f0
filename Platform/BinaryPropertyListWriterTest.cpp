// Tests of writing binary property lists: widths, sharing, and what none can hold.
#include "Platform/BinaryPropertyListWriter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "Platform/BinaryPropertyList.h"
#include "Platform/Class.h"
#include "Platform/PropertyListBytes.h"

namespace sevrin::platform {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// The bytes of the one object that a list of a scalar holds.
std::string objectBytes(const Value& scalar) {
    const std::string bytes = dataFromPropertyList(scalar);
    return bytes.substr(8, bytes.size() - 8 - 1 - 32);
}

std::size_t objectCount(const Value& value) {
    return BinaryPropertyList(dataFromPropertyList(value)).count();
}

std::string refusalOf(const Value& value) {
    try {
        static_cast<void>(dataFromPropertyList(value));
    } catch (const PropertyListError& error) {
        EXPECT_EQ(error.offset(), std::nullopt);
        return error.what();
    }
    return "";
}

TEST(BinaryPropertyListWriterTest, IntegersTakeTheSmallestWidth) {
    EXPECT_EQ(objectBytes(0), hex("10 00"));
    EXPECT_EQ(objectBytes(255), hex("10 FF"));
    EXPECT_EQ(objectBytes(256), hex("11 0100"));
    EXPECT_EQ(objectBytes(65'536), hex("12 00010000"));
    EXPECT_EQ(objectBytes(4'294'967'296), hex("13 0000000100000000"));
    EXPECT_EQ(objectBytes(-1), hex("13 FFFFFFFFFFFFFFFF"));
    EXPECT_EQ(objectBytes(std::uint64_t{1} << 63), hex("14 0000000000000000 8000000000000000"));
}

TEST(BinaryPropertyListWriterTest, ASmallIntegerIsOneObjectWhicheverCallAddsIt) {
    BinaryPropertyListWriter writer;

    EXPECT_EQ(writer.addUnsigned(7), writer.addInteger(7));
    EXPECT_EQ(writer.addUnsigned(INT64_MAX), writer.addInteger(INT64_MAX));
}

TEST(BinaryPropertyListWriterTest, TextIsUtf16OnlyWhenItIsNotAscii) {
    EXPECT_EQ(objectBytes("ab"), hex("52 6162"));
    EXPECT_EQ(objectBytes("a\u20ac"), hex("62 0061 20AC"));
    EXPECT_EQ(objectBytes("\U0001F600"), hex("62 D83D DE00"));
    EXPECT_EQ(objectBytes(std::string("\0", 1)), hex("51 00"));
}

TEST(BinaryPropertyListWriterTest, LengthsOfFifteenAndMoreFollow) {
    EXPECT_THAT(objectBytes(std::string(14, 'x')), StartsWith(hex("5E 78")));
    EXPECT_THAT(objectBytes(std::string(15, 'x')), StartsWith(hex("5F 10 0F 78")));
    EXPECT_THAT(objectBytes(Data{std::string(300, 'x')}), StartsWith(hex("4F 11 012C 78")));
}

TEST(BinaryPropertyListWriterTest, ContainersOfEverySizeReadBackEqual) {
    for (const int size : {0, 1, 14, 15, 16, 255, 256, 300}) {
        ValueArray array;
        Dictionary dictionary;
        for (int i = 0; i < size; ++i) {
            array.emplace_back(i);
            dictionary.set(std::to_string(i), i);
        }
        const Value value = ValueArray{array, dictionary, array};

        EXPECT_EQ(propertyListFromData(dataFromPropertyList(value)), value) << size;
    }
    const std::string fourteen = dataFromPropertyList(ValueArray(14, true));
    EXPECT_EQ(fourteen.substr(8, 2), hex("AE 01"));
    const std::string fifteen = dataFromPropertyList(ValueArray(15, true));
    EXPECT_EQ(fifteen.substr(8, 4), hex("AF 100F 01"));
}

TEST(BinaryPropertyListWriterTest, UIDsTakeTheSmallestWidth) {
    BinaryPropertyListWriter writer;
    std::vector<std::uint32_t> elements;
    const auto top = writer.reserve();
    for (const std::uint32_t uid : {255U, 256U, 65'536U})
        elements.push_back(writer.addUID(uid));
    writer.setArray(top, elements);

    EXPECT_THAT(writer.finish(top), HasSubstr(hex("80 FF 81 0100 83 00010000")));
}

TEST(BinaryPropertyListWriterTest, EveryKindReadsBackEqual) {
    const Value value = Dictionary{
        {"boolean", ValueArray{true, false}},
        {"integers", ValueArray{0, -1, std::numeric_limits<std::int64_t>::min(),
                                std::numeric_limits<std::uint64_t>::max()}},
        {"reals", ValueArray{0.1, 1e300, std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::quiet_NaN()}},
        {"text", ValueArray{"", "caf\u00e9", std::string("a\0b", 3), std::string(70'000, 'x')}},
        {"data", ValueArray{Data{}, Data{std::string("\0\xff", 2)}}},
        {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(700'000'000.25)},
        {"nested", ValueArray{ValueArray{}, Dictionary{}, ValueArray{Dictionary{{"k", 1}}}}}};

    EXPECT_EQ(propertyListFromData(dataFromPropertyList(value)), value);
}

TEST(BinaryPropertyListWriterTest, EqualScalarsAreOneObject) {
    EXPECT_EQ(objectCount(ValueArray{"ab", "ab", 7, 7, Data{"ab"}, Data{"ab"}, 0.5, 0.5}), 1U + 4U);
}

TEST(BinaryPropertyListWriterTest, KindsThatLookAlikeAreNotShared) {
    EXPECT_EQ(objectCount(ValueArray{1, true, 1.0, "1", Data{"1"}}), 1U + 5U);
}

TEST(BinaryPropertyListWriterTest, TheTwoZerosAreTwoObjects) {
    const Value value = propertyListFromData(dataFromPropertyList(ValueArray{0.0, -0.0}));

    EXPECT_FALSE(std::signbit(*value.ifArray()->at(0).ifDouble()));
    EXPECT_TRUE(std::signbit(*value.ifArray()->at(1).ifDouble()));
}

TEST(BinaryPropertyListWriterTest, AsManyObjectsAsNeedWiderReferencesReadBack) {
    for (const int count : {254, 255, 256, 65'534, 65'535, 65'536}) {
        ValueArray numbers;
        for (int number = 0; number < count; ++number)
            numbers.emplace_back(number);

        const Value value = numbers;
        EXPECT_EQ(propertyListFromData(dataFromPropertyList(value)), value) << count;
        EXPECT_EQ(objectCount(value), static_cast<std::size_t>(count) + 1);
    }
}

TEST(BinaryPropertyListWriterTest, TheOutermostContainerIsTheFirstObject) {
    const std::string bytes = dataFromPropertyList(ValueArray{1, 2});

    EXPECT_EQ(BinaryPropertyList(bytes).top(), 0U);
}

TEST(BinaryPropertyListWriterTest, WhatNoListCanHoldIsRefusedWithItsPlace) {
    EXPECT_EQ(refusalOf(nullptr), "null is in no property list");
    EXPECT_EQ(refusalOf(Dictionary{{"a", ValueArray{1, Set()}}}),
              "a set is in no property list at \"a\"[1]");
    EXPECT_EQ(
        refusalOf(ValueArray{std::make_shared<Object>()}),
        "an object of class " + Object::classObject().name() + " is in no property list at [0]");
    EXPECT_EQ(refusalOf(ValueArray{ValueArray{1}, Dictionary{{"k", 1}}, nullptr}),
              "null is in no property list at [2]");
    EXPECT_THAT(refusalOf(Dictionary{{1, 2}}), HasSubstr("key that is no text"));
    EXPECT_EQ(refusalOf(ValueArray{"\xff"}), "text that is not UTF-8 at [0]");
    EXPECT_EQ(refusalOf("\x80"), "text that is not UTF-8");
    EXPECT_EQ(refusalOf(Dictionary{{"\xed\xa0\x80", 2}}).substr(0, 22), "text that is not UTF-8");
    EXPECT_THAT(refusalOf(NSDate::dateWithTimeIntervalSinceReferenceDate(std::nan(""))),
                HasSubstr("not a number"));
}

Value nested(std::size_t levels) {
    Value value = ValueArray();
    for (std::size_t level = 1; level < levels; ++level)
        value = ValueArray{value};
    return value;
}

TEST(BinaryPropertyListWriterTest, WhatIsWrittenCanBeReadHoweverDeep) {
    const Value deepest = nested(kPropertyListDepthMax);

    EXPECT_EQ(propertyListFromData(dataFromPropertyList(deepest)), deepest);
    EXPECT_THAT(refusalOf(nested(kPropertyListDepthMax + 1)), HasSubstr("too deep"));
}

}  // namespace
}  // namespace sevrin::platform
