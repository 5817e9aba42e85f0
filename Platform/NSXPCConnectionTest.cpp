// Contract tests of a connection: messages both ways, their order, and the answers to requests.
#include "Platform/NSXPCConnection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <thread>

#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace xpctest;

using Deadline = NSXPCConnection::Deadline;

const MethodDescription& echoMethod() {
    return serviceMethod("echo:withReply:");
}

TEST(NSXPCConnectionTest, ARequestIsAnsweredWithTheReplyOfTheOtherSide) {
    TestServer server;
    const auto client = server.connect();

    EXPECT_EQ(textOf(ask(*client, "hello")), "hello");
}

TEST(NSXPCConnectionTest, MessagesSentBeforeResumeArriveInOrderAfterIt) {
    Mailbox<std::string> notes;
    TestServer server;
    server.service->onNote = [&](const std::string& text) { notes.put(text); };
    const auto client = server.client();

    note(*client, "1");
    note(*client, "2");
    client->resume();
    note(*client, "3");

    EXPECT_EQ(notes.take(), "1");
    EXPECT_EQ(notes.take(), "2");
    EXPECT_EQ(notes.take(), "3");
}

TEST(NSXPCConnectionTest, ARequestMadeBeforeResumeIsAnsweredAfterIt) {
    TestServer server;
    const auto client = server.client();
    Mailbox<std::string> answers;

    client->request(echoMethod(), std::vector<Value>{"early"},
                    [&](const auto& answer) { answers.put(textOf(answer)); });
    client->resume();

    EXPECT_EQ(answers.take(), "early");
}

TEST(NSXPCConnectionTest, ShortAnswersGivenAtOnceAllArrive) {
    Mailbox<TestService::StringReply> replies;
    TestServer server;
    server.service->onEcho = [&](const std::string&, TestService::StringReply reply) {
        replies.put(std::move(reply));
        if (replies.size() < 3) return;
        for (const auto& each : replies.takeAll())
            each("");
    };
    const auto client = server.connect();
    Mailbox<std::string> answers;

    for (int i = 0; i < 3; ++i) {
        client->request(echoMethod(), std::vector<Value>{"x"},
                        [&](const auto& answer) { answers.put(textOf(answer)); });
    }

    EXPECT_EQ(answers.take(), "");
    EXPECT_EQ(answers.take(), "");
    EXPECT_EQ(answers.take(), "");
}

TEST(NSXPCConnectionTest, TheAnswerFollowsTheHandlingOfEverythingSentBefore) {
    TestServer server;
    std::vector<std::string> handled;
    server.service->onNote = [&](const std::string& text) { handled.push_back(text); };
    const auto client = server.connect();

    for (int i = 0; i < 1000; ++i)
        note(*client, std::to_string(i));
    const auto answer =
        client->requestAndWait(serviceMethod("barrierWithCompletion:"), {}, patience());

    ASSERT_TRUE(std::holds_alternative<ValueArray>(answer));
    EXPECT_TRUE(std::get<ValueArray>(answer).empty());
    ASSERT_EQ(handled.size(), 1000u);
    for (std::size_t i = 0; i < handled.size(); ++i)
        EXPECT_EQ(handled[i], std::to_string(i));
}

TEST(NSXPCConnectionTest, MessagesPushedBeforeTheAnswerAreHandledBeforeItIsThere) {
    TestServer server;
    server.service->onEcho = [&](const std::string& text, const TestService::StringReply& reply) {
        const auto connection = server.accepted();
        for (int i = 0; i < 100; ++i)
            push(*connection, text + std::to_string(i));
        reply(text);
    };
    const auto client = server.client();
    const auto exported = std::make_shared<TestClient>();
    std::vector<std::string> pushed;
    exported->onPush = [&](const std::string& text) { pushed.push_back(text); };
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(exported);
    client->resume();

    EXPECT_EQ(textOf(ask(*client, "n")), "n");

    ASSERT_EQ(pushed.size(), 100u);
    for (std::size_t i = 0; i < pushed.size(); ++i)
        EXPECT_EQ(pushed[i], "n" + std::to_string(i));
    client->invalidate();
}

TEST(NSXPCConnectionTest, AServerMayAskItsClientToo) {
    TestServer server;
    const auto client = server.client();
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(std::make_shared<TestClient>());
    client->resume();

    const auto connection = server.accepted();
    ASSERT_TRUE(connection);
    EXPECT_EQ(textOf(connection->requestAndWait(clientMethod("ask:withReply:"),
                                                std::vector<Value>{"you?"}, patience())),
              "client: you?");
    client->invalidate();
}

TEST(NSXPCConnectionTest, MessagesAndAnswersAreHandledOnTheXPCThread) {
    Mailbox<bool> isOnThread;
    TestServer server;
    server.service->onNote = [&](const std::string&) {
        isOnThread.put(NSXPCConnection::isXPCThread());
    };
    const auto client = server.connect();

    note(*client, "?");
    client->request(echoMethod(), std::vector<Value>{"?"},
                    [&](const auto&) { isOnThread.put(NSXPCConnection::isXPCThread()); });

    EXPECT_EQ(isOnThread.take(), true);
    EXPECT_EQ(isOnThread.take(), true);
    EXPECT_FALSE(NSXPCConnection::isXPCThread());
}

TEST(NSXPCConnectionTest, AReplyMayComeLaterFromAnotherThread) {
    Mailbox<TestService::StringReply> held;
    TestServer server;
    server.service->onEcho = [&](const std::string&, TestService::StringReply reply) {
        held.put(std::move(reply));
    };
    const auto client = server.connect();
    Mailbox<std::string> answers;
    client->request(echoMethod(), std::vector<Value>{"?"},
                    [&](const auto& answer) { answers.put(textOf(answer)); });

    auto reply = held.take();
    ASSERT_TRUE(reply);
    std::thread([&] { (*reply)("later"); }).join();

    EXPECT_EQ(answers.take(), "later");
}

TEST(NSXPCConnectionTest, RepliesArriveInTheOrderGivenNotAsked) {
    Mailbox<std::pair<std::string, TestService::StringReply>> held;
    TestServer server;
    server.service->onEcho = [&](const std::string& text, TestService::StringReply reply) {
        held.put({text, std::move(reply)});
    };
    const auto client = server.connect();
    Mailbox<std::string> answers;
    for (const char* text : {"first", "second"}) {
        client->request(echoMethod(), std::vector<Value>{text},
                        [&](const auto& answer) { answers.put(textOf(answer)); });
    }
    auto first = held.take();
    auto second = held.take();
    ASSERT_TRUE(first && second);

    second->second(second->first);
    first->second(first->first);

    EXPECT_EQ(answers.take(), "second");
    EXPECT_EQ(answers.take(), "first");
}

TEST(NSXPCConnectionTest, OfTwoRepliesToOneRequestOnlyTheFirstIsSent) {
    TestServer server;
    server.service->onEcho = [](const std::string&, const TestService::StringReply& reply) {
        reply("first");
        reply("second");
    };
    FaultLog log;
    const auto client = server.connect();

    EXPECT_EQ(textOf(ask(*client, "?")), "first");
    EXPECT_EQ(textOf(ask(*client, "?")), "first");
    EXPECT_FALSE(client->failure());
    EXPECT_TRUE(log.faults().empty());
}

TEST(NSXPCConnectionTest, EveryKindOfPropertyListTravelsUnchanged) {
    TestServer server;
    const auto client = server.connect();
    const Value sent = Dictionary{{"yes", true},
                                  {"no", false},
                                  {"smallest", std::numeric_limits<std::int64_t>::min()},
                                  {"largest", std::numeric_limits<std::uint64_t>::max()},
                                  {"real", 0.1},
                                  {"infinity", -std::numeric_limits<double>::infinity()},
                                  {"empty", ""},
                                  {"text", "gr\xc3\xbc\xc3\x9f dich"},
                                  {"bytes", Data{std::string("\0\xff", 2)}},
                                  {"date", NSDate::dateWithTimeIntervalSinceReferenceDate(-1.5)},
                                  {"array", ValueArray{1, "two", 3.0, ValueArray{}, Dictionary{}}},
                                  {"inner", Dictionary{{"", 0}}}};

    const auto answer = client->requestAndWait(serviceMethod("echoDictionary:withReply:"),
                                               std::vector<Value>{sent}, patience());

    ASSERT_TRUE(std::holds_alternative<ValueArray>(answer)) << textOf(answer);
    EXPECT_EQ(std::get<ValueArray>(answer), ValueArray{sent});
}

TEST(NSXPCConnectionTest, NullArrivesAsNullWhereItIsAllowed) {
    Mailbox<Value> dictionaries;
    Mailbox<bool> endpoints;
    TestServer server;
    server.service->onDictionary = [&](const Value& value) { dictionaries.put(value); };
    server.service->onEndpoint = [&](const auto& endpoint) { endpoints.put(endpoint != nullptr); };
    const auto client = server.connect();

    client->send(serviceMethod("noteDictionary:"), std::vector<Value>{nullptr});
    client->send(serviceMethod("keepEndpoint:"), std::vector<Value>{nullptr});
    const auto answer =
        client->requestAndWait(serviceMethod("askEndpointWithReply:"), {}, patience());

    EXPECT_EQ(dictionaries.take(), Value());
    EXPECT_EQ(endpoints.take(), false);
    ASSERT_TRUE(std::holds_alternative<ValueArray>(answer));
    EXPECT_EQ(std::get<ValueArray>(answer), ValueArray{nullptr});
}

TEST(NSXPCConnectionTest, NumbersArriveAtBothEndsOfTheirRange) {
    Mailbox<std::uint32_t> numbers;
    TestServer server;
    server.service->onNumber = [&](std::uint32_t number) { numbers.put(number); };
    const auto client = server.connect();

    client->send(serviceMethod("noteNumber:"), std::vector<Value>{0});
    client->send(serviceMethod("noteNumber:"),
                 std::vector<Value>{std::numeric_limits<std::uint32_t>::max()});

    EXPECT_EQ(numbers.take(), 0u);
    EXPECT_EQ(numbers.take(), 0xffff'ffffu);
}

TEST(NSXPCConnectionTest, ArgumentsEncodedOnceReachEveryPeerBehindItsOwn) {
    Mailbox<Value> dictionaries;
    TestServer server;
    server.service->onDictionary = [&](const Value& value) { dictionaries.put(value); };
    const auto first = server.connect();
    const auto second = server.connect();
    const Value payload = Dictionary{{"key", "value"}};
    const EncodedCall call(serviceMethod("noteDictionary:"), std::span<const Value>(&payload, 1));
    const EncodedArguments nothing({});

    first->send(call, nothing);
    second->send(call, nothing);

    EXPECT_EQ(dictionaries.take(), payload);
    EXPECT_EQ(dictionaries.take(), payload);
}

TEST(NSXPCConnectionTest, AnOptionalMethodThatTheObjectLacksIsPassedOver) {
    TestServer server;
    FaultLog log;
    const auto client = server.connect();

    client->send(serviceMethod("missing"), {});

    EXPECT_EQ(textOf(ask(*client, "still here?")), "still here?");
    EXPECT_TRUE(log.faults().empty());
}

TEST(NSXPCConnectionTest, MessagesToAnObjectThatWasTakenAwayArePassedOver) {
    Mailbox<std::string> notes;
    TestServer server;
    server.service->onNote = [&](const std::string& text) { notes.put(text); };
    FaultLog log;
    const auto client = server.connect();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);

    connection->setExportedObject(nullptr);
    note(*client, "nobody hears this");
    connection->setExportedObject(server.service);
    EXPECT_EQ(textOf(ask(*client, "and now?")), "and now?");

    EXPECT_LE(notes.size(), 1u);
    EXPECT_TRUE(log.faults().empty());
}

TEST(NSXPCConnectionTest, TextThatIsNotUtf8ArrivesWithItsStrayBytesSpelledOut) {
    TestServer server;
    const auto client = server.connect();

    EXPECT_EQ(textOf(ask(*client, "a\xff z")), "a\\xff z");
}

TEST(NSXPCConnectionTest, BothSidesKnowEachOtherFromTheKernel) {
    TestServer server;
    const auto client = server.connect();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);

    for (const auto& side : {client, connection}) {
        EXPECT_EQ(side->effectiveUserIdentifier(), ::geteuid());
        EXPECT_EQ(side->effectiveGroupIdentifier(), ::getegid());
        EXPECT_EQ(side->processIdentifier(), ::getpid());
    }
}

}  // namespace
}  // namespace sevrin::platform
