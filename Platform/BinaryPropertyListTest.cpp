// Tests of reading binary property lists: every kind of object, and every way to be none.
#include "Platform/BinaryPropertyList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "Platform/PropertyListBytes.h"

namespace sevrin::platform {
namespace {

using testing::HasSubstr;

// What a list with these bytes is refused for; empty when it is not refused.
std::string refusalOf(const std::string& bytes) {
    try {
        static_cast<void>(propertyListFromData(bytes));
    } catch (const PropertyListError& error) {
        return error.what();
    }
    return "";
}

Value valueOf(const std::vector<std::string>& objects) {
    return propertyListFromData(listOf(objects));
}

std::string digitsOf(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string digits;
    for (const char byte : bytes) {
        digits += kDigits[static_cast<unsigned char>(byte) >> 4];
        digits += kDigits[static_cast<unsigned char>(byte) & 0xF];
    }
    return digits;
}

TEST(BinaryPropertyListTest, IntegersOfUpToFourBytesAreUnsignedLongerOnesSigned) {
    EXPECT_EQ(valueOf({"10 FF"}), Value(255));
    EXPECT_EQ(valueOf({"11 FFFF"}), Value(65'535));
    EXPECT_EQ(valueOf({"12 FFFFFFFF"}), Value(4'294'967'295));
    EXPECT_EQ(valueOf({"13 FFFFFFFFFFFFFFFF"}), Value(-1));
    EXPECT_EQ(valueOf({"13 8000000000000000"}), Value(std::numeric_limits<std::int64_t>::min()));
    EXPECT_EQ(valueOf({"14 0000000000000000 FFFFFFFFFFFFFFFF"}),
              Value(std::numeric_limits<std::uint64_t>::max()));
    EXPECT_EQ(valueOf({"14 FFFFFFFFFFFFFFFF FFFFFFFFFFFFFFFE"}), Value(-2));
}

TEST(BinaryPropertyListTest, AnIntegerMayBeWiderThanItNeeds) {
    EXPECT_EQ(valueOf({"12 00000007"}), Value(7));
    EXPECT_EQ(valueOf({"14 0000000000000000 0000000000000007"}), Value(7));
}

TEST(BinaryPropertyListTest, RealsHaveFourOrEightBytesAndStayReals) {
    EXPECT_EQ(valueOf({"22 3FC00000"}), Value(1.5));
    EXPECT_EQ(valueOf({"23 3FF0000000000000"}), Value(1.0));
    EXPECT_NE(valueOf({"23 3FF0000000000000"}), Value(1));
    EXPECT_TRUE(std::signbit(*valueOf({"23 8000000000000000"}).ifDouble()));
}

TEST(BinaryPropertyListTest, BooleansAreNoIntegers) {
    EXPECT_EQ(valueOf({"09"}), Value(true));
    EXPECT_EQ(valueOf({"08"}), Value(false));
}

TEST(BinaryPropertyListTest, DatesCountSecondsSince2001) {
    EXPECT_EQ(valueOf({"33 3FF8000000000000"}),
              Value(NSDate::dateWithTimeIntervalSinceReferenceDate(1.5)));
}

TEST(BinaryPropertyListTest, DataAndTextAreTwoKinds) {
    EXPECT_EQ(valueOf({"42 6162"}), Value(Data{"ab"}));
    EXPECT_EQ(valueOf({"52 6162"}), Value("ab"));
    EXPECT_EQ(valueOf({"40"}), Value(Data{}));
    EXPECT_EQ(valueOf({"50"}), Value(""));
}

TEST(BinaryPropertyListTest, TextMayBeUtf16AndHoldNul) {
    EXPECT_EQ(valueOf({"62 00E9 20AC"}), Value("\u00e9\u20ac"));
    EXPECT_EQ(valueOf({"62 D83D DE00"}), Value("\U0001F600"));
    EXPECT_EQ(valueOf({"53 610062"}), Value(std::string("a\0b", 3)));
}

TEST(BinaryPropertyListTest, ALengthOfFifteenAndMoreFollowsAsANumber) {
    const std::string letters(20, 'x');
    std::string digits;
    for (std::size_t i = 0; i < letters.size(); ++i)
        digits += "78";

    EXPECT_EQ(valueOf({"5F 10 14" + digits}), Value(letters));
    EXPECT_EQ(valueOf({"5F 13 0000000000000014" + digits}), Value(letters));
}

TEST(BinaryPropertyListTest, ArraysAndDictionariesHoldWhatTheyReferTo) {
    const Value value = valueOf({"D1 01 02", "51 6B", "A2 03 04", "09", "10 05"});

    EXPECT_EQ(value, Value(Dictionary{{"k", ValueArray{true, 5}}}));
}

TEST(BinaryPropertyListTest, KeysOutsideAsciiAreToldApart) {
    EXPECT_EQ(valueOf({"D3 01 02 03 04 04 04", "61 00E4", "61 00F6", "51 61", "09"}),
              Value(Dictionary{{"\u00E4", true}, {"\u00F6", true}, {"a", true}}));
}

TEST(BinaryPropertyListTest, TheTopObjectNeedNotBeTheFirst) {
    EXPECT_EQ(propertyListFromData(listOf({"09", "10 05"}, {.top = 1})), Value(5));
}

TEST(BinaryPropertyListTest, ReferencesMayHaveUpToEightBytes) {
    for (std::uint8_t width = 1; width <= 8; ++width) {
        const std::string zeros(2 * (width - std::size_t{1}), '0');
        EXPECT_EQ(propertyListFromData(listOf({"A1 " + zeros + "01", "09"}, {.refBytes = width})),
                  Value(ValueArray{true}));
    }
}

TEST(BinaryPropertyListTest, OffsetsMayHaveUpToEightBytes) {
    for (std::size_t width = 1; width <= 8; ++width) {
        std::string bytes = "bplist00\x09";
        bytes += bigEndian(8).substr(8 - width) + std::string(6, '\0');
        bytes += static_cast<char>(width);
        bytes += '\1' + bigEndian(1) + bigEndian(0) + bigEndian(9);

        EXPECT_EQ(propertyListFromData(bytes), Value(true)) << width;
    }
}

TEST(BinaryPropertyListTest, TheVersionInTheHeaderMayBeAny) {
    EXPECT_EQ(propertyListFromData(listOf({"09"}, {.header = "bplist0Z"})), Value(true));
}

TEST(BinaryPropertyListTest, AContainerMetTwiceIsOnePayload) {
    const Value value = valueOf({"A2 01 01", "A1 02", "09"});

    const ValueArray& outer = *value.ifArray();
    EXPECT_EQ(outer[0].ifArray(), outer[1].ifArray());
}

TEST(BinaryPropertyListTest, LongTextMetTwiceIsOnePayload) {
    const Value value = valueOf({"A2 01 01", "5F 10 10 30313233343536373839303132333435"});

    const ValueArray& outer = *value.ifArray();
    EXPECT_EQ(outer[0].ifString(), outer[1].ifString());
}

TEST(BinaryPropertyListTest, AUIDIsFoundByReadersOfArchivesOnly) {
    const std::string bytes = listOf({"83 FFFFFFFF"});

    EXPECT_EQ(BinaryPropertyList(bytes).uid(0), 4'294'967'295U);
    EXPECT_THAT(refusalOf(bytes), HasSubstr("UID"));
    const std::string wide = listOf({"8F 0000000000000000 00000000 00000007"});
    EXPECT_EQ(BinaryPropertyList(wide).uid(0), 7U);
}

TEST(BinaryPropertyListTest, FindLooksForTextInEitherForm) {
    const std::string bytes = listOf({"D2 01 02 03 04", "51 6B", "61 00E9", "09", "08"});
    const BinaryPropertyList list(bytes);

    EXPECT_EQ(list.find(0, "k"), 3U);
    EXPECT_EQ(list.find(0, "\u00e9"), 4U);
    EXPECT_EQ(list.find(0, "K"), std::nullopt);
}

struct Refusal {
    const char* name;
    std::string bytes;
    const char* reason;
};

void PrintTo(const Refusal& refusal, std::ostream* out) {
    *out << refusal.name;
}

class BinaryPropertyListRefusalTest : public testing::TestWithParam<Refusal> {};

TEST_P(BinaryPropertyListRefusalTest, IsRefusedWithItsReason) {
    EXPECT_THAT(refusalOf(GetParam().bytes), HasSubstr(GetParam().reason));
}

// One text, with the table behind byte 255 and one byte for the offset in it.
std::string listWithShortOffsets() {
    const std::string text = hex("5F 11 0100") + std::string(256, '3');
    return "bplist00" + text + hex("08") + std::string(6, '\0') + "\1\1" + bigEndian(1) +
           bigEndian(0) + bigEndian(8 + text.size());
}

std::vector<Refusal> refusals() {
    const std::string right = listOf({"A1 01", "09"});
    std::string noOffsetBytes = right;
    noOffsetBytes[noOffsetBytes.size() - 26] = '\0';
    // One byte for each offset, as many as they would need with four.
    const std::string elsewhere = "bplist00\x09" + hex("63") + std::string(6, '\0') + "\1\1" +
                                  bigEndian(1) + bigEndian(0) + bigEndian(9);
    return {
        {"Nothing", "", "no binary property list"},
        {"Text", "<?xml version=\"1.0\"?><plist/>, and some more of it", "no binary property list"},
        {"OnlyAHeader", "bplist00", "too early"},
        {"CutInHalf", right.substr(0, right.size() / 2), ""},
        {"CutByOne", right.substr(0, right.size() - 1), ""},
        {"OneByteMore", right + '\0', ""},
        {"TrailerNotZero", listOf({"09"}, {.unused = "\1\0\0\0\0\0"}), "trailer"},
        {"OffsetsWithoutSize", noOffsetBytes, "offset of no possible size"},
        {"ReferencesWithoutSize", listOf({"09"}, {.refBytes = 0}), "reference of no possible"},
        {"ReferencesOfNineBytes", listOf({"09"}, {.refBytes = 9}), "reference of no possible"},
        {"OneObjectMore", listOf({"09"}, {.countError = 1}), "number of objects"},
        {"NoObject", listOf({}), "number of objects"},
        {"ObjectsWithoutEnd", listOf({"09"}, {.countError = INT64_MAX - 1}), "number of objects"},
        {"TableBeyondTheEnd", listOf({"09"}, {.tableError = 1'000}), "table of offsets"},
        {"TableInTheHeader", listOf({"09"}, {.tableError = -2}), "table of offsets"},
        {"TopBeyondTheEnd", listOf({"09"}, {.top = 1}), "top object"},
        {"AnOffsetElsewhere", elsewhere, "offset leads outside"},
        {"OffsetsTooSmall", listWithShortOffsets(), "offsets too small"},
        {"ReferencesTooSmall", listOf(std::vector<std::string>(256, "09")), "references too small"},
        {"TwoObjectsInOnePlace",
         "bplist00\x09" + hex("08 08") + std::string(6, '\0') + "\1\1" + bigEndian(2) +
             bigEndian(0) + bigEndian(9),
         "over each other"},
        {"NullObject", listOf({"00"}), "no known kind"},
        {"UnknownMarker", listOf({"70"}), "no known kind"},
        {"SetMarker", listOf({"C1 01", "09"}), "no known kind"},
        {"IntegerOf32Bytes", listOf({"15" + std::string(64, '0')}), "no known kind"},
        {"RealOfTwoBytes", listOf({"21 0000"}), "no known kind"},
        {"DateOfFourBytes", listOf({"32 00000000"}), "no known kind"},
        {"IntegerBeyond64Bits", listOf({"14 0000000000000001 0000000000000000"}), "64 bits"},
        {"NegativeBeyond64Bits", listOf({"14 FFFFFFFFFFFFFFFF 7FFFFFFFFFFFFFFF"}), "64 bits"},
        {"IntegerCutShort", listOf({"13 00"}), "longer than the list"},
        {"UIDAbove32Bits", listOf({"87 0000000100000000"}), "UID above"},
        {"UIDAbove64Bits", listOf({"8F 01" + std::string(30, '0')}), "UID above"},
        {"UIDOf64BitsAndOne", listOf({"8B 00000001 0000000000000000"}), "UID above"},
        {"DateNotANumber", listOf({"33 7FF8000000000000"}), "not a number"},
        {"LengthNoNumber", listOf({"5F 51 61"}), "length that is no number"},
        {"LengthOf16Bytes", listOf({"5F 14" + std::string(32, '0')}), "length that is no number"},
        {"LengthCutShort", listOf({"5F 13 00"}), "cut short"},
        {"LengthCutOff", listOf({"5F 10"}), "cut short"},
        {"LengthMissing", listOf({"5F"}), "length that is no number"},
        {"LengthNegative", listOf({"5F 13 FFFFFFFFFFFFFFFF"}), "longer than the list"},
        {"LengthHuge", listOf({"AF 13 4000000000000000"}), "longer than the list"},
        {"TextTooLong", listOf({"53 6162"}), "longer than the list"},
        {"Utf16TooLong", listOf({"62 0041 00"}), "longer than the list"},
        {"DictionaryTooLong", listOf({"D2 01 01 01", "51 6B"}), ""},
        {"AsciiWithHighBit", listOf({"52 61E9"}), "outside ASCII"},
        {"AsciiWithHighBitEarly", listOf({"5A E9616263646566676869"}), "outside ASCII"},
        {"HighSurrogateAlone", listOf({"62 D83D 0041"}), "surrogate"},
        {"HighSurrogateLast", listOf({"61 D83D"}), "surrogate"},
        {"LowSurrogateAlone", listOf({"61 DE00"}), "surrogate"},
    };
}

// What is wrong with how objects hang together.
std::vector<Refusal> graphRefusals() {
    return {
        {"ReferenceToNothing", listOf({"A1 01"}), "reference to no object"},
        {"ReferenceToNothingWhereNothingLeads", listOf({"09", "A1 07"}), "reference to no object"},
        {"ArrayInItself", listOf({"A1 00"}), "holds itself"},
        {"TwoArraysInEachOther", listOf({"A1 01", "A1 00"}), "holds itself"},
        {"DictionaryInItself", listOf({"D1 01 00", "51 6B"}), "holds itself"},
        {"KeyANumber", listOf({"D1 01 01", "10 05"}), "key that is no text"},
        {"KeyTwice", listOf({"D2 01 01 02 02", "51 6B", "09"}), "stands twice"},
        {"KeyTwiceAsTwoObjects", listOf({"D2 01 02 03 03", "51 6B", "51 6B", "09"}), "twice"},
        {"KeyTwiceInTwoForms", listOf({"D2 01 02 03 03", "51 6B", "61 006B", "09"}), "twice"},
        {"ReferenceToNothingInTheFirstObject", listOf({"A1 07", "09"}, {.top = 1}), "no object"},
        {"AnyKeyANumber", listOf({"D2 01 02 03 03", "51 6B", "10 05", "09"}), "no text"},
        {"AnyKeyTwice", listOf({"D3 01 02 03 04 04 04", "51 61", "51 62", "51 62", "09"}), "twice"},
        {"WideKeyTwice", listOf({"D2 01 02 03 03", "61 00E4", "61 00E4", "09"}), "twice"},
    };
}

INSTANTIATE_TEST_SUITE_P(Lists, BinaryPropertyListRefusalTest, testing::ValuesIn(refusals()),
                         [](const auto& test) { return std::string(test.param.name); });
INSTANTIATE_TEST_SUITE_P(Graphs, BinaryPropertyListRefusalTest, testing::ValuesIn(graphRefusals()),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(BinaryPropertyListRefusalTest, EveryCutAndEveryRefusalIsMeant) {
    for (const auto& all : {refusals(), graphRefusals()}) {
        for (const Refusal& refusal : all)
            EXPECT_NE(refusalOf(refusal.bytes), "") << refusal.name;
    }
}

TEST(BinaryPropertyListTest, ARefusalNamesTheByte) {
    try {
        static_cast<void>(propertyListFromData(listOf({"A1 01", "70"})));
        FAIL() << "nothing was refused";
    } catch (const PropertyListError& error) {
        EXPECT_EQ(error.offset(), 10U);
        EXPECT_EQ(error.reason(), "an object of no known kind");
        EXPECT_STREQ(error.what(), "an object of no known kind at byte 10");
    }
}

TEST(BinaryPropertyListTest, AmongManyKeysOneThatStandsTwiceIsFound) {
    std::string keys;
    std::string values;
    std::vector<std::string> objects = {""};
    for (int i = 0; i < 20; ++i) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        const auto number = static_cast<std::size_t>(i + 1);
        keys += std::string(1, kDigits[number / 16]) + kDigits[number % 16];
        values += "01";
        objects.push_back(std::string("51 6") + kDigits[static_cast<std::size_t>(i % 16)]);
    }
    objects[0] = "DF 10 14" + keys + values;

    EXPECT_THAT(refusalOf(listOf(objects)), HasSubstr("stands twice"));
}

TEST(BinaryPropertyListTest, OfManyKeysInOrderEachOneIsDifferentInEitherForm) {
    std::vector<std::string> objects = {"DC 010203040506070809 0A0B0C 0D0D0D0D0D0D0D0D0D0D0D0D"};
    for (const std::string_view digit : {"1", "2", "3", "4", "5", "6", "7", "8", "9", "A", "B"})
        objects.push_back("51 6" + std::string(digit));
    objects.emplace_back("51 6C");
    objects.emplace_back("09");
    EXPECT_EQ(valueOf(objects).ifDictionary()->size(), 12U);

    objects[12] = "61 006B";
    EXPECT_THAT(refusalOf(listOf(objects)), HasSubstr("stands twice"));
    objects[11] = "61 006B";
    EXPECT_THAT(refusalOf(listOf(objects)), HasSubstr("stands twice"));
}

TEST(BinaryPropertyListTest, AListOfFourGigabytesIsRefusedUnread) {
    constexpr std::size_t kSize = std::size_t{1} << 32;
    void* const room = ::mmap(nullptr, kSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (room == MAP_FAILED) GTEST_SKIP() << "no room for 4 GB of addresses";
    std::memcpy(room, "bplist00", 8);

    std::string refusal;
    try {
        const BinaryPropertyList list({static_cast<const char*>(room), kSize});
    } catch (const PropertyListError& error) {
        refusal = error.what();
    }
    ::munmap(room, kSize);

    EXPECT_EQ(refusal, "a list of 4 GB and more is not read at byte 0");
}

TEST(BinaryPropertyListTest, EveryPlaceOfATextIsCheckedAndNoneBehindIt) {
    for (std::size_t size = 1; size < 30; ++size) {
        const std::string length = digitsOf(bigEndian(size).substr(7));
        const std::string head = size < 15 ? "5" + length.substr(1) : "5F 10" + length;
        const auto listWith = [&](const std::string& text) {
            return listOf({head + digitsOf(text), "48 FFFFFFFFFFFFFFFF"});
        };
        const std::string right(size, 'a');
        EXPECT_EQ(propertyListFromData(listWith(right)), Value(right));
        for (std::size_t place = 0; place < size; ++place) {
            std::string wrong = right;
            wrong[place] = '\x80';
            EXPECT_THAT(refusalOf(listWith(wrong)), HasSubstr("outside ASCII")) << size << place;
        }
    }
}

TEST(BinaryPropertyListTest, AListMayHaveMoreObjectsThanAReaderHasRoomFor) {
    constexpr std::size_t kCount = 1'000;
    std::vector<std::string> objects = {"AF 11 03E8"};
    ValueArray expected;
    for (std::size_t i = 1; i <= kCount; ++i) {
        const std::string digits = digitsOf(bigEndian(i).substr(6));
        objects[0] += digits;
        objects.push_back("11" + digits);
        expected.emplace_back(i);
    }
    EXPECT_EQ(propertyListFromData(listOf(objects, {.refBytes = 2})), Value(expected));
}

// Arrays within arrays, `levels` of them, without anything in the innermost.
std::string nested(std::size_t levels) {
    std::vector<std::string> objects;
    for (std::size_t level = 1; level < levels; ++level) {
        objects.push_back("A1" + [&] {
            constexpr std::string_view kDigits = "0123456789ABCDEF";
            std::string digits;
            for (int shift = 12; shift >= 0; shift -= 4)
                digits += kDigits[level >> shift & 0xF];
            return digits;
        }());
    }
    objects.emplace_back("A0");
    return listOf(objects, {.refBytes = 2});
}

TEST(BinaryPropertyListTest, TheDeepestNestingAllowedIsRead) {
    EXPECT_EQ(refusalOf(nested(kPropertyListDepthMax)), "");
}

TEST(BinaryPropertyListTest, NestingOneDeeperIsRefused) {
    EXPECT_THAT(refusalOf(nested(kPropertyListDepthMax + 1)), HasSubstr("too deep"));
}

TEST(BinaryPropertyListTest, DepthIsThatOfTheLongestWayNotOfTheFirst) {
    // The top refers to the second level first, then to the whole chain that leads there too.
    std::vector<std::string> objects = {"A2 0002 0001"};
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    for (std::size_t level = 1; level <= kPropertyListDepthMax; ++level) {
        std::string digits;
        for (int shift = 12; shift >= 0; shift -= 4)
            digits += kDigits[(level + 1) >> shift & 0xF];
        objects.push_back(level == kPropertyListDepthMax ? "A0" : "A1" + digits);
    }

    EXPECT_THAT(refusalOf(listOf(objects, {.refBytes = 2})), HasSubstr("too deep"));
}

// Each array holds the next one twice: a walk doubles with every level.
std::string doubling(unsigned levels) {
    std::vector<std::string> objects;
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    for (unsigned level = 1; level <= levels; ++level) {
        const std::string digits = {kDigits[level / 16], kDigits[level % 16]};
        objects.push_back("A2" + digits + digits);
    }
    objects.emplace_back("A0");
    return listOf(objects);
}

TEST(BinaryPropertyListTest, SharingThatStaysSmallWhenWalkedIsRead) {
    EXPECT_EQ(refusalOf(doubling(18)), "");
}

TEST(BinaryPropertyListTest, SharingThatGrowsBeyondAnyUseIsRefused) {
    EXPECT_THAT(refusalOf(doubling(20)), HasSubstr("grow beyond any use"));
    EXPECT_THAT(refusalOf(doubling(60)), HasSubstr("grow beyond any use"));
}

}  // namespace
}  // namespace sevrin::platform
