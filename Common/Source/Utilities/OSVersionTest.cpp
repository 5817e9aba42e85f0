// Tests of what follows from a packed version: every row of both tables at its edges.
#include "Common/Source/Utilities/OSVersion.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>

namespace sevrin {
namespace {

constexpr OSVersion kLatest = 0xFFFFFFFF;

TEST(OSVersionTest, IsPackedByteByByte) {
    EXPECT_EQ(packedOSVersion(10, 15, 7), 0x000A0F07U);
    EXPECT_EQ(packedOSVersion(10, 11, 6), 0x000A0B06U);
    EXPECT_EQ(packedOSVersion(11, 0, 0), 0x000B0000U);
    EXPECT_EQ(packedOSVersion(0, 0, 0), 0U);
}

struct Flag {
    const char* name;
    bool (*isOrLater)(OSVersion);
    OSVersion first;
};

class OSVersionFlagTest : public testing::TestWithParam<Flag> {};

TEST_P(OSVersionFlagTest, BeginsWithItsReleaseAndStays) {
    const Flag& flag = GetParam();

    EXPECT_FALSE(flag.isOrLater(0));
    EXPECT_FALSE(flag.isOrLater(flag.first - 1));
    EXPECT_TRUE(flag.isOrLater(flag.first));
    EXPECT_TRUE(flag.isOrLater(flag.first + 1));
    EXPECT_TRUE(flag.isOrLater(packedOSVersion(11, 0, 0)));
    EXPECT_TRUE(flag.isOrLater(kLatest));
}

INSTANTIATE_TEST_SUITE_P(
    , OSVersionFlagTest,
    testing::Values(Flag{"Yosemite", isOSVersionYosemiteOrLater, packedOSVersion(10, 10, 0)},
                    Flag{"ElCapitan", isOSVersionElCapitanOrLater, packedOSVersion(10, 11, 0)},
                    Flag{"Sierra", isOSVersionSierraOrLater, packedOSVersion(10, 12, 0)},
                    Flag{"HighSierra", isOSVersionHighSierraOrLater, packedOSVersion(10, 13, 0)},
                    Flag{"Mojave", isOSVersionMojaveOrLater, packedOSVersion(10, 14, 0)},
                    Flag{"Catalina", isOSVersionCatalinaOrLater, packedOSVersion(10, 15, 0)}),
    [](const auto& given) { return given.param.name; });

struct Named {
    OSVersion first;
    OSVersion last;
    std::string_view name;
};

TEST(OSVersionTest, EveryReleaseHasItsNickname) {
    constexpr Named kRows[] = {
        {0, 0x0A03FF, "Panther (or earlier)"}, {0x0A0400, 0x0A04FF, "Tiger"},
        {0x0A0500, 0x0A05FF, "Leopard"},       {0x0A0600, 0x0A06FF, "Snow Leopard"},
        {0x0A0700, 0x0A07FF, "Lion"},          {0x0A0800, 0x0A08FF, "Mountain Lion"},
        {0x0A0900, 0x0A09FF, "Mavericks"},     {0x0A0A00, 0x0A0AFF, "Yosemite"},
        {0x0A0B00, 0x0A0BFF, "El Capitan"},    {0x0A0C00, 0x0A0CFF, "Sierra"},
        {0x0A0D00, 0x0A0DFF, "High Sierra"},   {0x0A0E00, 0x0A0EFF, "Mojave"},
        {0x0A0F00, 0x0A0FFF, "Catalina"},      {0x0A1000, kLatest, "Unknown"},
    };
    for (const Named& row : kRows) {
        EXPECT_EQ(osNickname(row.first), row.name) << std::hex << row.first;
        EXPECT_EQ(osNickname(row.last), row.name) << std::hex << row.last;
    }
}

TEST(OSVersionTest, WhatComesAfterTheLastNamedReleaseIsUnknown) {
    EXPECT_EQ(osNickname(packedOSVersion(10, 16, 0)), "Unknown");
    EXPECT_EQ(osNickname(packedOSVersion(11, 0, 0)), "Unknown");
}

TEST(OSVersionTest, TheSystemChangedItsNameTwice) {
    constexpr Named kRows[] = {
        {0, 0x0A07FF, "Mac OS X "}, {0x0A0800, 0x0A0BFF, "OS X "}, {0x0A0C00, kLatest, "macOS "}};
    for (const Named& row : kRows) {
        EXPECT_EQ(osNamePrefix(row.first), row.name) << std::hex << row.first;
        EXPECT_EQ(osNamePrefix(row.last), row.name) << std::hex << row.last;
    }
    EXPECT_EQ(osNamePrefix(packedOSVersion(10, 12, 0)), "macOS ");
}

TEST(OSVersionTest, TheSixthUpdateOfElCapitanIsThatAndNoMore) {
    constexpr OSVersion kVersion = packedOSVersion(10, 11, 6);

    EXPECT_TRUE(isOSVersionElCapitanOrLater(kVersion));
    EXPECT_FALSE(isOSVersionSierraOrLater(kVersion));
    EXPECT_EQ(osNamePrefix(kVersion), "OS X ");
    EXPECT_EQ(osNickname(kVersion), "El Capitan");
}

}  // namespace
}  // namespace sevrin
