// Tests of a notification's bytes: what they are to the last one, and what is refused.
#include "Platform/linux/NotificationDatagram.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/XPCLimits.h"

namespace sevrin::platform {
namespace {

constexpr std::size_t kBytesMax = NSDistributedNotificationCenter::kNotificationBytesMax;

// [1, "n", "o", {"k": 7}, 3]
const std::string kExample("\x85\x01\x61n\x61o\xa1\x61k\x07\x03", 11);

PostedNotification withData(std::size_t bytes) {
    return {{"n", std::nullopt, Dictionary{{"k", Data{std::string(bytes, 'x')}}}}, 0};
}

Value nested(unsigned depth) {
    return depth == 0 ? Value("leaf") : Value(Dictionary{{"k", nested(depth - 1)}});
}

long residentMostKiB() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(NotificationDatagramTest, TheBytesAreTheDocumentedOnes) {
    EXPECT_EQ(encodeNotification({{"n", "o", Dictionary{{"k", 7}}}, 3}), kExample);
    EXPECT_EQ(encodeNotification({{"n", std::nullopt, Value()}, 0}),
              std::string("\x85\x01\x61n\xf6\xf6\x00", 7));
}

TEST(NotificationDatagramTest, WhatWasEncodedIsDecoded) {
    const auto posted = decodeNotification(kExample);

    ASSERT_TRUE(posted.has_value());
    EXPECT_EQ(posted->notification.name, "n");
    EXPECT_EQ(posted->notification.object, "o");
    EXPECT_EQ(posted->notification.userInfo, Value(Dictionary{{"k", 7}}));
    EXPECT_EQ(posted->options, 3U);
}

TEST(NotificationDatagramTest, EveryCutOfAnExampleIsRefused) {
    for (std::size_t size = 0; size < kExample.size(); ++size) {
        EXPECT_FALSE(decodeNotification(kExample.substr(0, size)).has_value()) << size;
    }
}

TEST(NotificationDatagramTest, WhatIsNotExactlyOneNotificationOfThisVersionIsRefused) {
    const std::vector<std::pair<const char*, std::string>> malformed{
        {"another byte behind", kExample + '\0'},
        {"no array", std::string("\x01", 1)},
        {"four fields", std::string("\x84\x01\x61n\xf6\xf6", 6)},
        {"six fields", std::string("\x86\x01\x61n\xf6\xf6\x00\x00", 8)},
        {"another version", std::string("\x85\x02\x61n\xf6\xf6\x00", 7)},
        {"a version that is no number", std::string("\x85\x61"
                                                    "1\x61n\xf6\xf6\x00",
                                                    8)},
        {"no name", std::string("\x85\x01\xf6\xf6\xf6\x00", 6)},
        {"a name that is no UTF-8", std::string("\x85\x01\x61\xff\xf6\xf6\x00", 7)},
        {"a number as the object", std::string("\x85\x01\x61n\x05\xf6\x00", 7)},
        {"an array as the user info", std::string("\x85\x01\x61n\xf6\x80\x00", 7)},
        {"text as the options", std::string("\x85\x01\x61n\xf6\xf6\x60", 7)},
        {"negative options", std::string("\x85\x01\x61n\xf6\xf6\x20", 7)},
        {"options of 33 bits", std::string("\x85\x01\x61n\xf6\xf6\x1b\0\0\0\1\0\0\0\0", 15)},
        {"an indefinite array", std::string("\x9f\x01\x61n\xf6\xf6\x00\xff", 8)},
    };

    for (const auto& [what, bytes] : malformed) {
        EXPECT_FALSE(decodeNotification(bytes).has_value()) << what;
    }
}

TEST(NotificationDatagramTest, TheLargestNotificationIsEncodedAndOneByteMoreThrows) {
    const std::size_t overhead = encodeNotification(withData(0x8000)).size() - 0x8000;

    EXPECT_EQ(encodeNotification(withData(kBytesMax - overhead)).size(), kBytesMax);
    EXPECT_THROW(static_cast<void>(encodeNotification(withData(kBytesMax - overhead + 1))),
                 std::invalid_argument);
}

TEST(NotificationDatagramTest, TheDeepestUserInfoIsEncodedAndOneDeeperThrows) {
    const NSNotification deepest{"n", std::nullopt, nested(kNestingMax)};
    const NSNotification tooDeep{"n", std::nullopt, nested(kNestingMax + 1)};

    EXPECT_TRUE(decodeNotification(encodeNotification({deepest, 0})).has_value());
    EXPECT_THROW(static_cast<void>(encodeNotification({tooDeep, 0})), std::invalid_argument);
}

TEST(NotificationDatagramDeathTest, ContainersThatClaimManyMembersTakeNoMemoryForThem) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // A process whose memory nothing else filled.
    std::string bytes("\x85\x01\x61n\xf6\xa1\x61k", 8);
    for (unsigned depth = 1; depth < kNestingMax; ++depth) {
        const std::size_t claim = kBytesMax - bytes.size() - 3;  // All the bytes that follow.
        bytes += '\x99';
        bytes += static_cast<char>(claim >> 8);
        bytes += static_cast<char>(claim & 0xff);
    }
    bytes.resize(kBytesMax, '\x80');

    EXPECT_EXIT(
        {
            const long before = residentMostKiB();
            const bool isDecoded = decodeNotification(bytes).has_value();
            std::exit(!isDecoded && residentMostKiB() - before < 16 * 1024 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(NotificationDatagramTest, TextThatIsNotUtf8ArrivesEscaped) {
    const auto posted =
        decodeNotification(encodeNotification({{"n\xff", std::nullopt, Value()}, 0}));

    ASSERT_TRUE(posted.has_value());
    EXPECT_NE(posted->notification.name, "n\xff");
    EXPECT_EQ(posted->notification.name.substr(0, 1), "n");
}

}  // namespace
}  // namespace sevrin::platform
