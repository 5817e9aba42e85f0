// Tests of UUIDs as bytes and as text.
#include "Platform/NSUUID.h"

#include <gtest/gtest.h>

namespace sevrin::platform {
namespace {

TEST(NSUUIDTest, HasExactlySixteenBytes) {
    EXPECT_TRUE(NSUUID::initWithUUIDBytes("0123456789abcdef"));
    EXPECT_FALSE(NSUUID::initWithUUIDBytes("0123456789abcde"));
    EXPECT_FALSE(NSUUID::initWithUUIDBytes("0123456789abcdefg"));
}

TEST(NSUUIDTest, SpellsItsBytesInFiveGroups) {
    EXPECT_EQ(NSUUID::initWithUUIDBytes("\xE6!\xE1\xF8\xC3lIZ\x93\xFC\x0C$z>n_")->UUIDString(),
              "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
}

TEST(NSUUIDTest, EqualsThoseWithTheSameBytes) {
    const auto uuid = NSUUID::initWithUUIDBytes("0123456789abcdef");
    const auto same = NSUUID::initWithUUIDBytes("0123456789abcdef");
    const auto other = NSUUID::initWithUUIDBytes("0123456789abcdeF");

    EXPECT_TRUE(uuid->isEqual(*same));
    EXPECT_EQ(uuid->hash(), same->hash());
    EXPECT_FALSE(uuid->isEqual(*other));
}

}  // namespace
}  // namespace sevrin::platform
