// Unit tests of the frame header and the greeting, byte by byte.
#include "Platform/linux/XPCFrame.h"

#include <gtest/gtest.h>

#include <limits>

#include "Platform/XPCLimits.h"
#include "Platform/linux/RawWire.h"

namespace sevrin::platform {
namespace {

using namespace rawwire;

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

struct HeaderCase {
    const char* what;
    std::string bytes;
    bool isAccepted;
};

TEST(XPCFrameTest, AHeaderIsAcceptedOrRefusedFieldByField) {
    const std::size_t bytesMax = kFrameBodyBytesMax;
    const HeaderCase cases[] = {
        {"greeting", header(13, 1, 0, 0), true},
        {"message", header(13, 2, 0, 0), true},
        {"request", header(13, 3, 0, 1), true},
        {"reply", header(13, 4, 0, 1), true},
        {"no body", header(0, 2, 0, 0), true},
        {"the largest body", header(bytesMax, 2, 0, 0), true},
        {"a byte too much", header(bytesMax + 1, 2, 0, 0), false},
        {"the largest length there is", header(0xffff'ffff, 2, 0, 0), false},
        {"kind 0", header(13, 0, 0, 0), false},
        {"kind 5", header(13, 5, 0, 0), false},
        {"the largest kind", header(13, 0xffff, 0, 0), false},
        {"kind 1 in the wrong byte", header(13, 0x0100, 0, 0), false},
        {"all descriptors allowed", header(13, 2, 8, 0), true},
        {"a descriptor too many", header(13, 2, 9, 0), false},
        {"the largest descriptor count", header(13, 2, 0xffff, 0), false},
        {"greeting with a serial", header(13, 1, 0, 1), false},
        {"message with a serial", header(13, 2, 0, 1), false},
        {"request without a serial", header(13, 3, 0, 0), false},
        {"reply without a serial", header(13, 4, 0, 0), false},
        {"request with the largest serial", header(13, 3, 0, kLargest), true},
    };
    for (const HeaderCase& each : cases) {
        SCOPED_TRACE(each.what);
        ASSERT_EQ(each.bytes.size(), FrameHeader::kBytes);
        EXPECT_EQ(FrameHeader::parse(each.bytes, bytesMax).has_value(), each.isAccepted);
    }
}

TEST(XPCFrameTest, TheReceiverSaysHowLargeABodyMayBe) {
    EXPECT_TRUE(FrameHeader::parse(header(100, 2, 0, 0), 100));
    EXPECT_FALSE(FrameHeader::parse(header(101, 2, 0, 0), 100));
}

TEST(XPCFrameTest, EveryFieldIsReadLittleEndian) {
    const auto parsed = FrameHeader::parse(
        hex("04 03 02 00  03 00  08 00  08 07 06 05 04 03 02 01"), kFrameBodyBytesMax);

    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->bodyBytes, 0x0002'0304u);
    EXPECT_EQ(parsed->kind, FrameKind::Request);
    EXPECT_EQ(parsed->descriptors, 8);
    EXPECT_EQ(parsed->serial, 0x0102'0304'0506'0708u);
}

TEST(XPCFrameTest, WhatIsWrittenIsReadBack) {
    FrameHeader written;
    written.bodyBytes = 0x000a'0b0c;
    written.kind = FrameKind::Reply;
    written.descriptors = 7;
    written.serial = kLargest - 1;
    std::string bytes(FrameHeader::kBytes, 'x');

    written.write(bytes.data());
    const auto read = FrameHeader::parse(bytes, kFrameBodyBytesMax);

    EXPECT_EQ(bytes, header(0x000a'0b0c, 4, 7, kLargest - 1));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->bodyBytes, written.bodyBytes);
    EXPECT_EQ(read->kind, written.kind);
    EXPECT_EQ(read->descriptors, written.descriptors);
    EXPECT_EQ(read->serial, written.serial);
}

TEST(XPCFrameTest, OurGreetingIsTheDocumentedOneToTheByte) {
    std::string bytes = "before";

    appendGreeting(bytes);

    EXPECT_EQ(bytes, "before" + hex("0d000000 0100 0000 0000000000000000 "
                                    "82 6a 736576 72696e 2d 787063 01"));
}

struct GreetingCase {
    const char* what;
    std::string body;
    std::optional<std::uint64_t> version;
};

TEST(XPCFrameTest, AGreetingIsReadOrRefusedWhateverItsBytes) {
    const std::string word = text("sevrin-xpc");
    const GreetingCase cases[] = {
        {"ours", array(2, word + hex("01")), 1},
        {"a later version", array(2, word + hex("18ff")), 255},
        {"the largest version", array(2, word + hex("1bffffffffffffffff")), kLargest},
        {"members of a later version", array(4, word + hex("01 f6") + text("more")), 1},
        {"nothing", "", std::nullopt},
        {"no array", word, std::nullopt},
        {"too short an array", array(1, word), std::nullopt},
        {"an array that ends early", array(2, word), std::nullopt},
        {"another word", array(2, text("sevrin-xpd") + hex("01")), std::nullopt},
        {"a longer word", array(2, text("sevrin-xpc2") + hex("01")), std::nullopt},
        {"the word as data", array(2, head(2, 10) + "sevrin-xpc" + hex("01")), std::nullopt},
        {"a negative version", array(2, word + hex("20")), std::nullopt},
        {"the version as text", array(2, word + text("1")), std::nullopt},
        {"the version as a real", array(2, word + hex("f93c00")), std::nullopt},
        {"an array without a length", hex("9f") + word + hex("01ff"), std::nullopt},
        {"a cut word", array(2, word.substr(0, 9)), std::nullopt},
    };
    for (const GreetingCase& each : cases) {
        SCOPED_TRACE(each.what);
        EXPECT_EQ(readGreeting(each.body), each.version);
    }
}

}  // namespace
}  // namespace sevrin::platform
