// Contract tests of the limits of a connection: each at its maximum and one beyond, and the
// mistakes of our own that are asserted.
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCLimits.h"
#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace xpctest;

using Code = XPCError::Code;

const MethodDescription& echoMethod() {
    return serviceMethod("echo:withReply:");
}

// A text that makes the message `selector` with it as its only argument `bytes` bytes long: the
// array's head, the selector's (both short), the text's head of five bytes.
std::string textFilling(std::size_t bytes, const std::string& selector) {
    return std::string(bytes - 1 - 1 - selector.size() - 5, 'x');
}

Dictionary nested(unsigned depth) {
    Value inner = 1;
    for (; depth > 1; --depth)
        inner = Dictionary{{"k", inner}};
    return Dictionary{{"k", inner}};
}

TEST(NSXPCConnectionLimitTest, AClientsLargestMessageArrives) {
    Mailbox<std::size_t> sizes;
    TestServer server;
    server.service->onNote = [&](const std::string& text) { sizes.put(text.size()); };
    const auto client = server.connect();
    const std::string largest = textFilling(kFrameBodyBytesMax, "note:");

    note(*client, largest);

    EXPECT_EQ(sizes.take(), largest.size());
}

TEST(NSXPCConnectionLimitTest, OneByteMoreIsRefusedAtTheClientAndNothingIsSent) {
    TestServer server;
    const auto client = server.connect();
    const std::string tooLong = textFilling(kFrameBodyBytesMax, "note:") + "x";

    EXPECT_THROW(note(*client, tooLong), std::length_error);
    EXPECT_THROW((void)ask(*client, tooLong), std::length_error);
    EXPECT_THROW(client->request(echoMethod(), std::vector<Value>{tooLong}, [](const auto&) {}),
                 std::length_error);

    EXPECT_EQ(textOf(ask(*client, "still here?")), "still here?");
}

TEST(NSXPCConnectionLimitTest, AListenerMaySendWhatARelayAddsAndOneByteMoreIsRefused) {
    TestServer server;
    const auto client = server.client();
    const auto exported = std::make_shared<TestClient>();
    Mailbox<std::size_t> sizes;
    exported->onPush = [&](const std::string& text) { sizes.put(text.size()); };
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(exported);
    client->resume();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);
    const std::string largest = textFilling(kFrameBodyBytesMax + kRelayBytesMax, "push:");

    EXPECT_THROW(push(*connection, largest + "x"), std::length_error);
    push(*connection, largest);

    EXPECT_EQ(sizes.take(), largest.size());
    client->invalidate();
}

TEST(NSXPCConnectionLimitTest, AReplyIsHeldToTheSameLimitWhereItIsGiven) {
    Mailbox<TestService::StringReply> held;
    Mailbox<std::size_t> sizes;
    TestServer server;
    server.service->onEcho = [&](const std::string&, TestService::StringReply reply) {
        held.put(std::move(reply));
    };
    const auto client = server.connect();
    for (int i = 0; i < 2; ++i) {
        client->request(echoMethod(), std::vector<Value>{"?"},
                        [&](const auto& answer) { sizes.put(textOf(answer).size()); });
    }
    // The array's head and the text's.
    const std::string largest(kFrameBodyBytesMax + kRelayBytesMax - 1 - 5, 'x');

    EXPECT_THROW((*held.take())(largest + "x"), std::length_error);
    (*held.take())(largest);

    EXPECT_EQ(sizes.take(), largest.size());
    EXPECT_FALSE(client->failure());
}

TEST(NSXPCConnectionLimitTest, AClientsReplyMayNotBeLargerThanItsMessages) {
    TestServer server;
    const auto client = server.client();
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(std::make_shared<TestClient>());
    client->resume();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);
    const auto askClient = [&](std::size_t size) {
        return connection->requestAndWait(clientMethod("ask:withReply:"),
                                          std::vector<Value>{std::string(size, 'x')}, patience());
    };
    // The client answers with eight bytes more.
    const std::size_t largest = kFrameBodyBytesMax - 1 - 5 - 8;

    EXPECT_EQ(textOf(askClient(largest)).size(), largest + 8);
    EXPECT_EQ(codeOf(askClient(largest + 1)), Code::Disconnected);
    EXPECT_TRUE(client->failure());
}

TEST(NSXPCConnectionLimitTest, ContainersNestToTheLimitAndOneDeeperIsRefusedAtTheSender) {
    Mailbox<Value> dictionaries;
    TestServer server;
    server.service->onDictionary = [&](const Value& value) { dictionaries.put(value); };
    const auto client = server.connect();
    const MethodDescription& method = serviceMethod("noteDictionary:");
    const Value deepest = nested(kNestingMax);
    const Value tooDeep = nested(kNestingMax + 1);

    EXPECT_THROW(client->send(method, std::vector<Value>{tooDeep}), std::length_error);
    EXPECT_THROW(EncodedArguments(std::vector<Value>{tooDeep}), std::length_error);
    client->send(method, std::vector<Value>{deepest});

    EXPECT_EQ(dictionaries.take(), deepest);
}

TEST(NSXPCConnectionLimitTest, AsManyRequestsMayWaitAsTheLimitSays) {
    Mailbox<TestService::StringReply> held;
    TestServer server;
    server.service->onEcho = [&](const std::string& text, TestService::StringReply reply) {
        if (text == "answer all") {
            for (const auto& each : held.takeAll())
                each("");
            return reply("");
        }
        held.put(std::move(reply));
    };
    FaultLog log;
    const auto client = server.connect();
    Event answered;
    for (std::size_t i = 0; i + 1 < kUnansweredRequestsMax; ++i) {
        client->request(echoMethod(), std::vector<Value>{"wait"},
                        [&](const auto&) { answered.happen(); });
    }

    EXPECT_EQ(textOf(ask(*client, "answer all")), "");

    EXPECT_TRUE(answered.wait(kUnansweredRequestsMax - 1));
    EXPECT_TRUE(log.faults().empty());
}

TEST(NSXPCConnectionLimitTest, OneUnansweredRequestMoreCostsTheConnection) {
    Mailbox<TestService::StringReply> held;
    TestServer server;
    server.service->onEcho = [&](const std::string&, TestService::StringReply reply) {
        held.put(std::move(reply));
    };
    FaultLog log;
    const auto client = server.connect();
    Event ended;
    client->setInvalidationHandler([&] { ended.happen(); });

    for (std::size_t i = 0; i <= kUnansweredRequestsMax; ++i)
        client->request(echoMethod(), std::vector<Value>{"wait"}, [](const auto&) {});

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(held.size(), kUnansweredRequestsMax);
    EXPECT_EQ(log.faults(), std::vector<std::string>{"too many requests at once"});
}

// Each of these is a program that gets its own contract wrong.
class NSXPCConnectionDeathTest : public testing::Test {
protected:
    NSXPCConnectionDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void send(const char* selector, const std::vector<Value>& arguments) {
        TestServer server;
        server.connect()->send(serviceMethod(selector), arguments);
    }
};

TEST_F(NSXPCConnectionDeathTest, AMissingOrSurplusArgumentIsABug) {
    EXPECT_DEATH(send("note:", {}), "has the arguments of its method");
    EXPECT_DEATH(send("note:", {"a", "b"}), "has the arguments of its method");
}

TEST_F(NSXPCConnectionDeathTest, AnArgumentOfAnotherTypeIsABug) {
    EXPECT_DEATH(send("note:", {1}), "of the types that its method takes");
    EXPECT_DEATH(send("note:", {nullptr}), "of the types that its method takes");
    EXPECT_DEATH(send("noteNumber:", {-1}), "of the types that its method takes");
    EXPECT_DEATH(send("noteNumber:", {0x1'0000'0000}), "of the types that its method takes");
    EXPECT_DEATH(send("noteDictionary:", {Value(ValueArray{})}),
                 "of the types that its method takes");
    EXPECT_DEATH(send("noteDictionary:", {Dictionary{{"null", nullptr}}}),
                 "of the types that its method takes");
    EXPECT_DEATH(send("keepEndpoint:", {std::make_shared<Object>()}),
                 "of the types that its method takes");
}

TEST_F(NSXPCConnectionDeathTest, SendingWhatWantsAReplyIsABugAndSoIsTheReverse) {
    EXPECT_DEATH(send("echo:withReply:", {"?"}), "a method with a reply block is a request");
    EXPECT_DEATH(
        {
            TestServer server;
            server.connect()->request(serviceMethod("note:"), std::vector<Value>{"?"},
                                      [](const auto&) {});
        },
        "a method with a reply block is a request");
}

}  // namespace
}  // namespace sevrin::platform
