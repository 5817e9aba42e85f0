// Unit tests of reading CBOR item by item: heads, and where the reading ends.
#include "Platform/linux/CborReader.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Platform/linux/RawWire.h"

namespace sevrin::platform {
namespace {

using rawwire::hex;
using Type = CborItem::Type;

TEST(CborReaderTest, AContainerIsItsHeadAlone) {
    const std::string bytes = hex("82 a1 01");
    CborReader reader(bytes);
    CborItem item;

    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.type, Type::Array);
    EXPECT_EQ(item.number, 2u);
    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.type, Type::Map);
    EXPECT_EQ(item.number, 1u);
    EXPECT_EQ(reader.remaining(), 1u);
}

TEST(CborReaderTest, ACountIsReportedHoweverLargeItIs) {
    const std::string bytes = hex("9bffffffffffffffff");
    CborReader reader(bytes);
    CborItem item;

    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.number, 0xffff'ffff'ffff'ffffu);
}

TEST(CborReaderTest, TextAndDataAreViewsOfWhatIsRead) {
    const std::string bytes = hex("63 616263 42 0aff");
    CborReader reader(bytes);
    CborItem item;

    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.type, Type::Text);
    EXPECT_EQ(item.text, "abc");
    EXPECT_EQ(item.text.data(), bytes.data() + 1);
    ASSERT_TRUE(reader.next(item));
    EXPECT_EQ(item.type, Type::Bytes);
    EXPECT_EQ(item.text, "\x0a\xff");
    EXPECT_TRUE(reader.atEnd());
}

TEST(CborReaderTest, NothingIsReadBehindAMalformedItem) {
    const std::string bytes = hex("f7 01");
    CborReader reader(bytes);
    CborItem item;

    EXPECT_FALSE(reader.next(item));
    EXPECT_FALSE(reader.next(item));
    EXPECT_TRUE(reader.atEnd());
}

// Every prefix of a sequence of items gives whole items and then nothing, and never a byte beyond.
TEST(CborReaderTest, BytesCutAnywhereGiveOnlyWholeItems) {
    const std::string bytes = hex("1b0102030405060708 65 68656c6c6f d9c49c fb3ff8000000000000 f5");
    const std::size_t ends[] = {9, 15, 18, 27, 28};
    for (std::size_t size = 0; size <= bytes.size(); ++size) {
        SCOPED_TRACE(size);
        const std::string cut(bytes.data(), size);
        CborReader reader(cut);
        CborItem item;
        std::size_t items = 0;
        while (reader.next(item))
            ++items;
        EXPECT_EQ(items, static_cast<std::size_t>(
                             std::count_if(std::begin(ends), std::end(ends),
                                           [size](std::size_t end) { return end <= size; })));
    }
}

}  // namespace
}  // namespace sevrin::platform
