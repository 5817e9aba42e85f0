// Contract tests of a connection's beginning and end: resuming, invalidating from anywhere, and
// what the handlers may do meanwhile.
#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace xpctest;

using Code = XPCError::Code;
using ConnectionPtr = std::shared_ptr<NSXPCConnection>;

const MethodDescription& echoMethod() {
    return serviceMethod("echo:withReply:");
}

// Uses every operation of `connection`: whoever holds one of its locks would not come back.
void useEverything(NSXPCConnection& connection, const MethodDescription& oneWay,
                   const MethodDescription& request) {
    const std::vector<Value> arguments{"again"};
    connection.setExportedInterface(connection.exportedInterface());
    connection.setExportedObject(connection.exportedObject());
    connection.setRemoteObjectInterface(connection.remoteObjectInterface());
    connection.setInterruptionHandler([] {});
    connection.resume();
    connection.send(oneWay, arguments);
    connection.send(EncodedCall(oneWay, arguments), EncodedArguments({}));
    connection.request(
        request, arguments, [](const auto&) {}, std::chrono::steady_clock::now() + kPatience);
    (void)connection.failure();
    (void)connection.effectiveUserIdentifier();
    (void)connection.effectiveGroupIdentifier();
    (void)connection.processIdentifier();
}

void useEverythingAsClient(NSXPCConnection& connection) {
    useEverything(connection, serviceMethod("note:"), echoMethod());
}

void useEverythingAsServer(NSXPCConnection& connection) {
    useEverything(connection, clientMethod("push:"), clientMethod("ask:withReply:"));
}

// Whether `server` still serves somebody new.
bool isServing(TestServer& server) {
    const auto another = server.connect();
    const bool isAnswered = textOf(ask(*another, "?")) == "?";
    another->invalidate();
    return isAnswered;
}

TEST(NSXPCConnectionEndTest, TheInvalidationHandlersOfBothSidesRunOnceOnTheXPCThread) {
    TestServer server;
    const auto client = server.connect();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);
    Mailbox<bool> atClient;
    Mailbox<bool> atServer;
    client->setInvalidationHandler([&] { atClient.put(NSXPCConnection::isXPCThread()); });
    connection->setInvalidationHandler([&] { atServer.put(NSXPCConnection::isXPCThread()); });

    client->invalidate();
    client->invalidate();

    EXPECT_EQ(atClient.take(), true);
    EXPECT_EQ(atServer.take(), true);
    connection->invalidate();
    EXPECT_TRUE(isServing(server));
    EXPECT_EQ(atClient.size(), 0u);
    EXPECT_EQ(atServer.size(), 0u);
}

TEST(NSXPCConnectionEndTest, TheReasonIsKnownWhileAndAfterTheHandlerRuns) {
    TestServer server;
    const auto client = server.connect();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);
    Mailbox<bool> hasReason;
    client->setInvalidationHandler([&] { hasReason.put(client->failure().has_value()); });
    EXPECT_FALSE(client->failure());

    connection->invalidate();

    EXPECT_EQ(hasReason.take(), true);
    EXPECT_EQ(client->failure()->code, Code::Disconnected);
    client->setInvalidationHandler(nullptr);
}

TEST(NSXPCConnectionEndTest, AHandlerSetAfterTheEndNeverRuns) {
    TestServer server;
    const auto client = server.connect();
    Event ended;
    client->setInvalidationHandler([&] { ended.happen(); });
    client->invalidate();
    ASSERT_TRUE(ended.wait());
    bool hasRun = false;

    client->setInvalidationHandler([&] { hasRun = true; });
    client->invalidate();

    EXPECT_TRUE(isServing(server));
    EXPECT_FALSE(hasRun);
}

TEST(NSXPCConnectionEndTest, WhatWasSentBeforeInvalidatingIsDelivered) {
    Mailbox<std::string> notes;
    TestServer server;
    server.service->onNote = [&](const std::string& text) { notes.put(text); };
    const auto client = server.connect();

    note(*client, "first");
    note(*client, "last");
    client->invalidate();
    note(*client, "too late");

    EXPECT_EQ(notes.take(), "first");
    EXPECT_EQ(notes.take(), "last");
    EXPECT_TRUE(isServing(server));
    EXPECT_EQ(notes.size(), 0u);
}

TEST(NSXPCConnectionEndTest, AReplyGivenBeforeInvalidatingInTheSameHandlerIsDelivered) {
    TestServer server;
    server.service->onEcho = [&](const std::string&, const TestService::StringReply& reply) {
        reply("goodbye");
        server.service->currentConnection()->invalidate();
    };
    server.onConnection = [&](const auto& connection) {
        server.service->setCurrentConnection(connection);
        return true;
    };
    const auto client = server.connect();

    EXPECT_EQ(textOf(ask(*client, "?")), "goodbye");
    EXPECT_EQ(codeOf(ask(*client, "?")), Code::Disconnected);
}

TEST(NSXPCConnectionEndTest, MessagesBehindTheOneThatInvalidatesAreNotHandled) {
    Mailbox<std::string> notes;
    TestServer server;
    server.service->onNote = [&](const std::string& text) {
        notes.put(text);
        server.service->currentConnection()->invalidate();
    };
    server.onConnection = [&](const auto& connection) {
        server.service->setCurrentConnection(connection);
        return true;
    };
    const auto client = server.client();
    Event ended;
    client->setInvalidationHandler([&] { ended.happen(); });
    for (int i = 0; i < 100; ++i)
        note(*client, std::to_string(i));

    client->resume();

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(notes.takeAll(), std::vector<std::string>{"0"});
}

TEST(NSXPCConnectionEndTest, EveryHandlerOfAClientMayCallBackIntoItsConnection) {
    Mailbox<TestService::StringReply> held;
    TestServer server;
    server.service->onEcho = [&](const std::string& text, TestService::StringReply reply) {
        if (text == "hold") return held.put(std::move(reply));
        push(*server.service->currentConnection(), text);
        reply(text);
    };
    server.onConnection = [&](const auto& connection) {
        server.service->setCurrentConnection(connection);
        return true;
    };
    const auto client = server.client();
    const auto exported = std::make_shared<TestClient>();
    Event pushed;
    Event replied;
    Event expired;
    Event ended;
    const auto usingIt = [&](Event& event) { useEverythingAsClient(*client), event.happen(); };
    exported->onPush = [&](const std::string&) {
        if (pushed.count() == 0) usingIt(pushed);
    };
    client->setInvalidationHandler([&] { usingIt(ended); });
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(exported);
    client->resume();

    client->request(echoMethod(), std::vector<Value>{"?"}, [&](const auto&) { usingIt(replied); });
    client->request(
        echoMethod(), std::vector<Value>{"hold"}, [&](const auto&) { usingIt(expired); },
        std::chrono::steady_clock::now() + 10ms);

    EXPECT_TRUE(pushed.wait());
    EXPECT_TRUE(replied.wait());
    EXPECT_TRUE(expired.wait());
    client->invalidate();
    EXPECT_TRUE(ended.wait());
}

TEST(NSXPCConnectionEndTest, EveryHandlerOfAServerMayCallBackIntoItsConnection) {
    Event noted;
    Event ended;
    TestServer server;
    server.onConnection = [&](const ConnectionPtr& connection) {
        server.service->setCurrentConnection(connection);
        connection->setInvalidationHandler([&, weak = std::weak_ptr(connection)] {
            useEverythingAsServer(*weak.lock());
            ended.happen();
        });
        useEverythingAsServer(*connection);
        return true;
    };
    server.service->onNote = [&](const std::string&) {
        useEverythingAsServer(*server.service->currentConnection());
        noted.happen();
    };
    const auto client = server.client();
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(std::make_shared<TestClient>());
    client->resume();

    note(*client, "?");

    EXPECT_TRUE(noted.wait());
    client->invalidate();
    EXPECT_TRUE(ended.wait());
}

TEST(NSXPCConnectionEndTest, AConnectionMayBeInvalidatedInsideEachOfItsHandlers) {
    TestServer server;
    server.onConnection = [&](const auto& connection) {
        server.service->setCurrentConnection(connection);
        return true;
    };
    server.service->onEcho = [&](const std::string& text, const TestService::StringReply& reply) {
        if (text == "push") push(*server.service->currentConnection(), text);
        if (text != "wait") reply(text);
    };
    for (const char* which : {"push", "reply", "wait", "invalidation"}) {
        SCOPED_TRACE(which);
        const auto client = server.client();
        const auto exported = std::make_shared<TestClient>();
        Event ended;
        exported->onPush = [&](const std::string&) { client->invalidate(); };
        client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
        client->setExportedObject(exported);
        client->setInvalidationHandler([&] {
            client->invalidate();
            ended.happen();
        });
        client->resume();

        client->request(
            echoMethod(), std::vector<Value>{which}, [&](const auto&) { client->invalidate(); },
            std::chrono::steady_clock::now() + (which == std::string("wait") ? 10ms : 60'000ms));

        EXPECT_TRUE(ended.wait());
        EXPECT_EQ(ended.count(), 1u);
    }
}

TEST(NSXPCConnectionEndTest, TheExportedObjectIsReleasedWithItsConnection) {
    TestServer server;
    const auto client = server.client();
    auto exported = std::make_shared<TestClient>();
    const std::weak_ptr<TestClient> watched = exported;
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(std::exchange(exported, nullptr));
    client->resume();
    Event ended;
    client->setInvalidationHandler([&] {
        EXPECT_FALSE(watched.expired());
        ended.happen();
    });

    client->invalidate();

    ASSERT_TRUE(ended.wait());
    EXPECT_TRUE(isServing(server));  // The XPC thread has come round since.
    EXPECT_TRUE(watched.expired());
}

TEST(NSXPCConnectionEndTest, ResumingTwiceIsHarmless) {
    TestServer server;
    const auto client = server.connect();
    ASSERT_EQ(textOf(ask(*client, "once")), "once");

    client->resume();

    EXPECT_EQ(textOf(ask(*client, "twice")), "twice");
    ASSERT_TRUE(server.accepted());
    EXPECT_TRUE(isServing(server));
    ASSERT_TRUE(server.accepted());  // The one that isServing() made, and no other between.
}

TEST(NSXPCConnectionEndTest, AConnectionInvalidatedBeforeResumeStaysDead) {
    TestServer server;
    const auto client = server.client();
    Event ended;
    client->setInvalidationHandler([&] { ended.happen(); });

    client->invalidate();
    client->resume();

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(codeOf(ask(*client, "?")), Code::Disconnected);
    EXPECT_EQ(ended.count(), 1u);
}

TEST(NSXPCConnectionEndTest, AConnectionWithoutAnEndpointHasNoService) {
    const auto client = NSXPCConnection::initWithListenerEndpoint(nullptr);
    client->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
    Event ended;
    client->setInvalidationHandler([&] { ended.happen(); });
    Mailbox<std::optional<Code>> codes;
    client->request(echoMethod(), std::vector<Value>{"?"},
                    [&](const auto& answer) { codes.put(codeOf(answer)); });

    client->resume();

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(codes.take(), Code::NoService);
    EXPECT_EQ(client->failure()->code, Code::NoService);
    EXPECT_EQ(codeOf(ask(*client, "?")), Code::NoService);
}

TEST(NSXPCConnectionEndTest, AMethodThatThrowsCostsItsCallerTheConnectionAndNobodyElse) {
    TestServer server;
    server.service->onNote = [](const std::string& text) { throw std::runtime_error(text); };
    FaultLog log;
    const auto bad = server.connect();
    const auto good = server.connect();
    Event ended;
    bad->setInvalidationHandler([&] { ended.happen(); });

    note(*bad, "out of sorts");

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(textOf(ask(*good, "?")), "?");
    EXPECT_EQ(log.faults(), std::vector<std::string>{"note:, which failed: out of sorts"});
}

TEST(NSXPCConnectionEndTest, InvalidatingOnManyThreadsAtOnceEndsItOnce) {
    TestServer server;
    for (int round = 0; round < 50; ++round) {
        const auto client = server.connect();
        Event ended;
        client->setInvalidationHandler([&] { ended.happen(); });
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&] {
                note(*client, "?");
                (void)ask(*client, "?");
                client->invalidate();
            });
        }
        for (auto& thread : threads)
            thread.join();
        ASSERT_TRUE(ended.wait());
        ASSERT_EQ(ended.count(), 1u);
    }
}

}  // namespace
}  // namespace sevrin::platform
