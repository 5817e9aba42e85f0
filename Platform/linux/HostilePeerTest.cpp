// Peers that break the rules of frames and bodies. What every such test holds true besides is in
// HostilePeerFixture.h; descriptors have HostileDescriptorTest.cpp, behaviour over time
// HostileConductTest.cpp.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "Platform/XPCLimits.h"
#include "Platform/linux/HostilePeerFixture.h"

namespace sevrin::platform {
namespace {

using namespace rawwire;
using namespace xpctest;

class HostilePeerTest : public HostilePeerFixture {};

TEST_F(HostilePeerTest, ARawPeerThatKeepsTheRulesIsServed) {
    HostilePeer peer = connect();
    peer.greet();
    expectServed(peer);
    expectNoFault();
}

// MARK: The greeting

TEST_F(HostilePeerTest, GarbageInsteadOfAGreeting) {
    for (const std::string& garbage :
         {std::string("GET / HTTP/1.1\r\n\r\n"), std::string(4096, '\0'), std::string(4096, '\xff'),
          std::string("\x01") + std::string(15, '\0')}) {
        const std::size_t faultsBefore = log_.faults().size();
        HostilePeer peer = connect();
        peer.send(garbage);
        EXPECT_TRUE(isGoodClientServed());
        EXPECT_TRUE(peer.isClosed());
        expectFault(faultsBefore, "");
    }
}

TEST_F(HostilePeerTest, NoGreetingAtAll) {
    HostilePeer silent = connect();
    HostilePeer leaving = connect();
    leaving.close();

    EXPECT_TRUE(isGoodClientServed());
    EXPECT_TRUE(silent.hasReceived(29));  // Ours comes nevertheless.
    expectNoFault();
}

TEST_F(HostilePeerTest, AMessageBeforeTheGreeting) {
    HostilePeer peer = connect();
    peer.send(request(1, "echo:withReply:", text("hi")));

    EXPECT_TRUE(peer.isClosed());
    expectFault(0, "before the greeting");
}

TEST_F(HostilePeerTest, AnotherVersionOfTheProtocol) {
    for (const unsigned version : {0u, 2u, 23u}) {
        const std::size_t faultsBefore = log_.faults().size();
        HostilePeer peer = connect();
        peer.send(greeting(version));
        EXPECT_TRUE(isGoodClientServed());
        EXPECT_TRUE(peer.isClosed());
        EXPECT_EQ(peer.received().size(), 29u);  // It learns our version before it is dropped.
        expectFault(faultsBefore, "version " + std::to_string(version) + " ");
    }
}

TEST_F(HostilePeerTest, AGreetingThatIsNone) {
    for (const std::string& body :
         {std::string(), text("sevrin-xpc"), array(2, text("sevrin-xpd") + hex("01")),
          array(1, text("sevrin-xpc")), hex("9f") + text("sevrin-xpc") + hex("01ff")}) {
        const std::size_t faultsBefore = log_.faults().size();
        HostilePeer peer = connect();
        peer.send(frame(kGreeting, 0, body));
        EXPECT_TRUE(peer.isClosed());
        expectFault(faultsBefore, "no greeting");
    }
}

TEST_F(HostilePeerTest, ASecondGreeting) {
    expectBreach(greeting(), "a second greeting");
}

TEST_F(HostilePeerTest, AGreetingWithADescriptor) {
    HostilePeer peer = connect();
    const UniqueFd file(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    peer.send(frame(kGreeting, 0, array(2, text("sevrin-xpc") + hex("01")), 1), {file.get()});

    EXPECT_TRUE(peer.isClosed());
    expectFault(0, "a greeting with descriptors");
}

// MARK: Frames

TEST_F(HostilePeerTest, HeadersThatAreNone) {
    expectBreach(header(kFrameBodyBytesMax + 1, kMessage, 0, 0), "no frame");
    expectBreach(header(0xffff'ffff, kMessage, 0, 0), "no frame");
    expectBreach(header(4, 0, 0, 0), "no frame");
    expectBreach(header(4, 5, 0, 0), "no frame");
    expectBreach(header(4, kMessage, 9, 0), "no frame");
    expectBreach(header(4, kMessage, 0, 1), "no frame");
    expectBreach(header(4, kRequest, 0, 0), "no frame");
    expectBreach(header(4, kReply, 0, 0), "no frame");
}

TEST_F(HostilePeerTest, AFrameWithoutABody) {
    expectBreach(frame(kMessage, 0, ""), "no message");
}

TEST_F(HostilePeerTest, FramesWhoseLengthsLie) {
    const std::string whole = message("note:", text("x"));
    const std::size_t bodyBytes = whole.size() - FrameHeader::kBytes;
    const std::string body = whole.substr(FrameHeader::kBytes);

    // One byte short: the message is cut, and its last byte begins the next frame.
    expectBreach(header(bodyBytes - 1, kMessage, 0, 0) + body, "");
    // One byte long: the next frame's first byte stands behind the message.
    expectBreach(header(bodyBytes + 1, kMessage, 0, 0) + body + whole, "");
}

TEST_F(HostilePeerTest, BytesBehindAMessage) {
    expectBreach(frame(kMessage, 0, array(2, text("note:") + text("x")) + hex("00")),
                 "after the end");
}

TEST_F(HostilePeerTest, HalfAMessageAndThenSilence) {
    const std::string whole = message("note:", text(std::string(100'000, 'x')));
    HostilePeer inHeader = connect();
    HostilePeer inBody = connect();
    inHeader.greet();
    inBody.greet();

    inHeader.send(std::string_view(whole).substr(0, 7));
    inBody.send(std::string_view(whole).substr(0, whole.size() / 2));

    EXPECT_TRUE(isGoodClientServed());
    inHeader.close();
    inBody.shutDownSending();
    EXPECT_TRUE(inBody.isClosed());
    expectNoFault();
}

TEST_F(HostilePeerTest, OneByteAtATime) {
    HostilePeer peer = connect();
    const std::string frames =
        greeting() + message("note:", text("slow")) + request(7, "echo:withReply:", text("hi"));

    ASSERT_TRUE(peer.sendByteByByte(frames));

    EXPECT_TRUE(isGoodClientServed());
    EXPECT_TRUE(peer.hasReceived(29 + FrameHeader::kBytes + 4));
    expectNoFault();
}

TEST_F(HostilePeerTest, AFrameOfTheLargestSizeInSmallPieces) {
    HostilePeer peer = connect();
    peer.greet();
    const std::size_t around = array(2, text("note:") + text("")).size();
    const std::string largest =
        message("note:", text(std::string(kFrameBodyBytesMax - around, 'x')));
    ASSERT_EQ(largest.size(), FrameHeader::kBytes + kFrameBodyBytesMax);

    for (std::size_t at = 0; at < largest.size(); at += 10'007)
        ASSERT_TRUE(peer.send(std::string_view(largest).substr(at, 10'007)));

    expectServed(peer);
    expectNoFault();
}

// MARK: Bodies

TEST_F(HostilePeerTest, BodiesThatAreNoMessage) {
    expectBreach(frame(kMessage, 0, text("note:")), "no message");
    expectBreach(frame(kMessage, 0, array(0, "")), "no message");
    expectBreach(frame(kMessage, 0, array(2, hex("01") + text("x"))), "no message");
    expectBreach(frame(kMessage, 0, map(1, text("note:") + text("x"))), "no message");
    expectBreach(frame(kMessage, 0, hex("9f") + text("note:") + text("x") + hex("ff")),
                 "no message");
}

TEST_F(HostilePeerTest, SelectorsThatAreUnknown) {
    expectBreach(message("format:disk:", text("x")), "an unknown selector");
    expectBreach(message("", text("x")), "an unknown selector");
    expectBreach(message("note", text("x")), "an unknown selector");
    expectBreach(message(std::string("note:\0", 6), text("x")), "an unknown selector");
    expectBreach(message("note:\xff", text("x")), "an unknown selector");
    expectBreach(message(std::string(100'000, ':'), text("x")), "an unknown selector");
}

TEST_F(HostilePeerTest, AMethodOfTheOtherSide) {
    expectBreach(message("push:", text("x")), "an unknown selector");
}

TEST_F(HostilePeerTest, TooFewOrTooManyArguments) {
    expectBreach(frame(kMessage, 0, array(1, text("note:"))), "note:: 0 values where 1");
    expectBreach(frame(kMessage, 0, array(3, text("note:") + text("a") + text("b"))),
                 "note:: 2 values where 1");
    expectBreach(frame(kMessage, 0, array(0xffff'ffff, text("note:") + text("a"))), "note:: ");
    expectBreach(frame(kMessage, 0, hex("9bffffffffffffffff") + text("note:")), "note:: ");
}

TEST_F(HostilePeerTest, ArgumentsOfTheWrongType) {
    expectBreach(message("note:", hex("01")), "argument 1 is the integer 1 where string");
    expectBreach(message("note:", hex("f6")), "argument 1 is null where string");
    expectBreach(message("note:", head(2, 1) + "x"), "argument 1 is data where string");
    expectBreach(message("noteNumber:", hex("20")), "argument 1 is the integer -1 where uint32");
    expectBreach(message("noteNumber:", hex("1b0000000100000000")), "where uint32");
    expectBreach(message("noteNumber:", hex("f93c00")), "argument 1 is a real where uint32");
    expectBreach(message("noteDictionary:", array(0, "")), "an array where dictionary or null");
    expectBreach(message("noteDictionary:", map(1, text("k") + hex("f6"))), "where dictionary");
    expectBreach(message("keepEndpoint:", hex("00")), "the integer 0 where endpoint or null");
}

TEST_F(HostilePeerTest, ValuesThatAreMalformed) {
    for (const char* bytes :
         {"f7", "e0", "ff", "61ff", "5f4161ff", "d9c49a00", "c0613f", "1c", "a10102"}) {
        expectBreach(message("note:", hex(bytes)), "malformed or nested too deep");
    }
    expectBreach(message("noteDictionary:", map(2, text("k") + hex("01") + text("k") + hex("02"))),
                 "malformed");
    expectBreach(message("note:", head(3, 1000) + "x"), "malformed");
}

TEST_F(HostilePeerTest, NestingBeyondTheLimitAndWithoutEnd) {
    const std::string inner = map(1, text("k") + hex("01"));
    const auto nested = [&](std::size_t depth) {
        return repeated(head(5, 1) + text("k"), depth) + hex("01");
    };
    HostilePeer peer = connect();
    peer.greet();
    peer.send(message("noteDictionary:", nested(kNestingMax)));
    expectServed(peer);
    expectNoFault();

    expectBreach(message("noteDictionary:", nested(kNestingMax + 1)), "nested too deep");
    expectBreach(message("noteDictionary:", repeated(hex("81"), 1'000'000)), "nested too deep");
    expectBreach(message("noteDictionary:", repeated(hex("d9c49c"), 300'000)), "malformed");
    expectBreach(message("noteDictionary:", repeated(hex("9a000fffff"), 200'000)),
                 "nested too deep");
}

// MARK: Requests and replies

TEST_F(HostilePeerTest, ARequestForAOneWayMethodAndTheReverse) {
    expectBreach(request(1, "note:", text("x")), "as a request, though it has no reply");
    expectBreach(message("echo:withReply:", text("x")), "without wanting its reply");
}

TEST_F(HostilePeerTest, AReplyToNoQuestion) {
    expectBreach(frame(kReply, 1, array(1, text("x"))), "a reply to no question");
}

// Has the server ask a raw peer, who answers with `body`.
TEST_F(HostilePeerTest, AnswersThatAreNone) {
    struct Answer {
        const char* what;
        std::string body;
        const char* why;
    };
    const Answer answers[] = {
        {"no array", text("x"), "a body that is no reply"},
        {"nothing", "", "a body that is no reply"},
        {"too few", array(0, ""), "0 values where 1"},
        {"too many", array(2, text("x") + text("y")), "2 values where 1"},
        {"another type", array(1, hex("01")), "is the integer 1 where string"},
        {"malformed", array(1, hex("61ff")), "malformed"},
    };
    (void)server_.accepted();  // The good client's.
    for (const Answer& answer : answers) {
        SCOPED_TRACE(answer.what);
        const std::size_t faultsBefore = log_.faults().size();
        HostilePeer peer = connect();
        peer.greet();
        const auto connection = server_.accepted();
        ASSERT_TRUE(connection);
        Mailbox<std::optional<XPCError::Code>> codes;
        connection->request(clientMethod("ask:withReply:"), std::vector<Value>{"?"},
                            [&](const auto& reply) { codes.put(codeOf(reply)); });

        ASSERT_TRUE(peer.hasReceived(29 + FrameHeader::kBytes));
        peer.send(frame(kReply, 1, answer.body));

        EXPECT_EQ(codes.take(), XPCError::Code::BadAnswer);
        EXPECT_TRUE(peer.isClosed());
        expectFault(faultsBefore, answer.why);
    }
}

TEST_F(HostilePeerTest, ASecondAnswerToOneQuestion) {
    (void)server_.accepted();
    HostilePeer peer = connect();
    peer.greet();
    const auto connection = server_.accepted();
    ASSERT_TRUE(connection);
    Mailbox<std::string> answers;
    connection->request(clientMethod("ask:withReply:"), std::vector<Value>{"?"},
                        [&](const auto& reply) { answers.put(textOf(reply)); });
    ASSERT_TRUE(peer.hasReceived(29 + FrameHeader::kBytes));

    peer.send(frame(kReply, 1, array(1, text("one"))));
    peer.send(frame(kReply, 1, array(1, text("two"))));

    EXPECT_EQ(answers.take(), "one");
    EXPECT_TRUE(peer.isClosed());
    expectFault(0, "a reply to no question");
}

TEST_F(HostilePeerTest, MoreRequestsThanMayBeUnanswered) {
    std::vector<TestService::StringReply> held;
    server_.service->onEcho = [&](const std::string& text, TestService::StringReply reply) {
        if (text == "good") return reply(text);
        held.push_back(std::move(reply));
    };
    std::string requests;
    for (std::uint64_t serial = 1; serial <= kUnansweredRequestsMax + 1; ++serial)
        requests += request(serial, "echo:withReply:", text("hold"));

    expectBreach(requests, "too many requests at once");

    EXPECT_EQ(held.size(), kUnansweredRequestsMax);
    EXPECT_TRUE(isGoodClientServed());
    waitForXPCThread();
    held.clear();
}

}  // namespace
}  // namespace sevrin::platform
