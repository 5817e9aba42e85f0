// Tests of the keyed hash: what it depends on, and that it spreads texts that look alike.
#include "Platform/KeyedHash.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sevrin::platform {
namespace {

TEST(KeyedHashTest, IsTheSameForTheSameText) {
    const std::string text = "com.example.clock";

    EXPECT_EQ(KeyedHash::of(text), KeyedHash::of(std::string(text)));
    EXPECT_EQ(KeyedHash(77)(text), KeyedHash(77)(text));
}

TEST(KeyedHashTest, DependsOnTheKey) {
    EXPECT_NE(KeyedHash(77)("com.example.clock"), KeyedHash(78)("com.example.clock"));
}

TEST(KeyedHashTest, UselessKeysAreReplaced) {
    const std::uint64_t prime = (std::uint64_t{1} << 61) - 1;
    for (const std::uint64_t key : {std::uint64_t{0}, std::uint64_t{1}, prime, prime + 1}) {
        const KeyedHash hash(key);

        EXPECT_NE(hash("a"), hash("b")) << key;
        EXPECT_NE(hash("12345671234568"), hash("12345681234567")) << key;
    }
}

TEST(KeyedHashTest, DependsOnEveryByteAtEveryLength) {
    const KeyedHash hash(0x0123456789ABCDEF);
    for (std::size_t length = 1; length <= 32; ++length) {
        const std::string text(length, 'x');
        std::set<std::uint32_t> hashes{hash(text)};
        for (std::size_t place = 0; place < length; ++place) {
            std::string changed = text;
            changed[place] = 'y';
            hashes.insert(hash(changed));
        }
        EXPECT_EQ(hashes.size(), length + 1) << length;
    }
}

TEST(KeyedHashTest, TrailingZeroBytesCount) {
    const KeyedHash hash(0x0123456789ABCDEF);
    std::set<std::uint32_t> hashes;

    for (std::size_t length = 0; length < 32; ++length)
        hashes.insert(hash(std::string(length, '\0')));

    EXPECT_EQ(hashes.size(), 32U);
}

// With as many places as texts, the fullest place of a good hash holds about nine of 65,536.
TEST(KeyedHashTest, IdentifiersThatLookAlikeSpreadOverTheLowBits) {
    constexpr std::size_t kTexts = 1 << 16;
    const KeyedHash hash(0x0123456789ABCDEF);
    std::vector<int> places(kTexts);

    for (std::size_t number = 0; number < kTexts; ++number) {
        ++places[hash("com.example.service." + std::to_string(number)) % kTexts];
    }

    EXPECT_LE(*std::max_element(places.begin(), places.end()), 16);
}

}  // namespace
}  // namespace sevrin::platform
