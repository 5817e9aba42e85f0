// Contract tests of requests: waiting for answers on any number of threads, deadlines, and what
// happens to the unanswered when a connection ends.
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <thread>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace xpctest;

using Code = XPCError::Code;
using Replies = Mailbox<TestService::StringReply>;

const MethodDescription& echoMethod() {
    return serviceMethod("echo:withReply:");
}

NSXPCConnection::Deadline soon() {
    return std::chrono::steady_clock::now() + 20ms;
}

// Has the service keep its reply blocks in `held` instead of answering.
void holdReplies(TestServer& server, Replies& held) {
    server.service->onEcho = [&held](const std::string&, TestService::StringReply reply) {
        held.put(std::move(reply));
    };
}

// A client's connection that exports `exported`, resumed.
std::shared_ptr<NSXPCConnection> connectExporting(TestServer& server,
                                                  std::shared_ptr<TestClient> exported) {
    auto client = server.client();
    client->setExportedInterface(NSXPCInterface::interfaceWithProtocol(clientProtocol()));
    client->setExportedObject(std::move(exported));
    client->resume();
    return client;
}

TEST(NSXPCConnectionRequestTest, ManyThreadsWaitAtOnceAndEachGetsItsOwnAnswer) {
    TestServer server;
    const auto client = server.connect();
    std::atomic<int> wrong = 0;

    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                const std::string text = std::to_string(t) + "/" + std::to_string(i);
                if (textOf(ask(*client, text)) != text) ++wrong;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0);
}

// Each question of a thread is preceded by a push that names it; when its answer is there, that
// push must have been handled, and the pushes must have come in the order the server sent them.
TEST(NSXPCConnectionRequestTest, WaitingThreadsAsyncRequestsAndPushesKeepTheirOrder) {
    TestServer server;
    std::atomic<int> sequence = 0;
    server.service->onEcho = [&](const std::string& text, const TestService::StringReply& reply) {
        const auto connection = server.service->currentConnection();
        push(*connection, std::to_string(++sequence));
        push(*connection, text);
        reply(text);
    };
    std::mutex lock;
    std::map<std::string, int> pushed;
    int lastNumber = 0;
    int disorder = 0;
    const auto exported = std::make_shared<TestClient>();
    exported->onPush = [&](const std::string& text) {
        const std::scoped_lock guard(lock);
        if (text.find('/') != std::string::npos) {
            ++pushed[text];
        } else if (std::stoi(text) != ++lastNumber) {
            ++disorder;
        }
    };
    server.onConnection = [&](const auto& connection) {
        server.service->setCurrentConnection(connection);
        return true;
    };
    const auto client = connectExporting(server, exported);
    std::atomic<int> wrong = 0;
    Event answered;

    std::vector<std::thread> threads;
    for (int t = 0; t < 6; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 150; ++i) {
                const std::string text = std::to_string(t) + "/" + std::to_string(i);
                if (t % 3 == 2) {
                    client->request(echoMethod(), std::vector<Value>{text},
                                    [&, text](const auto& answer) {
                                        if (textOf(answer) != text) ++wrong;
                                        answered.happen();
                                    });
                    continue;
                }
                if (textOf(ask(*client, text)) != text) ++wrong;
                const std::scoped_lock guard(lock);
                if (pushed[text] != 1) ++wrong;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();

    EXPECT_TRUE(answered.wait(300));
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(disorder, 0);
    client->invalidate();
}

TEST(NSXPCConnectionRequestTest, APushThatArrivesWhileAThreadWaitsIsHandledAtOnce) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    Event pushed;
    const auto exported = std::make_shared<TestClient>();
    exported->onPush = [&](const std::string&) { pushed.happen(); };
    const auto client = connectExporting(server, exported);
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);
    (void)connection->requestAndWait(clientMethod("ask:withReply:"), std::vector<Value>{"there?"},
                                     patience());

    std::thread waiting([&] { EXPECT_EQ(textOf(ask(*client, "?")), "at last"); });
    auto reply = held.take();
    push(*connection, "meanwhile");

    EXPECT_TRUE(pushed.wait());
    ASSERT_TRUE(reply);
    (*reply)("at last");
    waiting.join();
    client->invalidate();
}

TEST(NSXPCConnectionRequestTest, ADeadlineThatPassesIsTheAnswer) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();
    Mailbox<NSXPCConnection::Answer> answers;

    client->request(
        echoMethod(), std::vector<Value>{"?"}, [&](auto answer) { answers.put(std::move(answer)); },
        soon());
    const auto waited = client->requestAndWait(echoMethod(), std::vector<Value>{"?"}, soon());

    EXPECT_EQ(codeOf(waited), Code::DeadlinePassed);
    const auto answer = answers.take();
    ASSERT_TRUE(answer);
    EXPECT_EQ(codeOf(*answer), Code::DeadlinePassed);
}

TEST(NSXPCConnectionRequestTest, AReplyAfterTheDeadlineIsNoBreachAndGoesNowhere) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    FaultLog log;
    const auto client = server.connect();
    Mailbox<std::string> answers;
    client->request(
        echoMethod(), std::vector<Value>{"?"},
        [&](const auto& answer) { answers.put(textOf(answer)); }, soon());
    (void)client->requestAndWait(echoMethod(), std::vector<Value>{"?"}, soon());
    ASSERT_TRUE(answers.take());

    (*held.take())("too late");
    (*held.take())("too late");
    server.service->onEcho = nullptr;

    EXPECT_EQ(textOf(ask(*client, "and now?")), "and now?");
    EXPECT_FALSE(client->failure());
    EXPECT_EQ(answers.size(), 0u);
    EXPECT_TRUE(log.faults().empty());
}

TEST(NSXPCConnectionRequestTest, DeadlinesPassInTheirOrderWhateverTheOrderOfAsking) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();
    Mailbox<int> passed;
    const auto now = std::chrono::steady_clock::now();

    for (const int wait : {60, 20, 40}) {
        client->request(
            echoMethod(), std::vector<Value>{"?"}, [&, wait](const auto&) { passed.put(wait); },
            now + std::chrono::milliseconds(wait));
    }

    EXPECT_EQ(passed.take(), 20);
    EXPECT_EQ(passed.take(), 40);
    EXPECT_EQ(passed.take(), 60);
}

TEST(NSXPCConnectionRequestTest, WithoutADeadlineARequestOutlivesOthersDeadlines) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();
    Mailbox<std::string> patient;
    Event passed;
    client->request(echoMethod(), std::vector<Value>{"?"},
                    [&](const auto& answer) { patient.put(textOf(answer)); });
    client->request(
        echoMethod(), std::vector<Value>{"?"}, [&](const auto&) { passed.happen(); }, soon());
    ASSERT_TRUE(passed.wait());

    (*held.take())("worth waiting for");

    EXPECT_EQ(patient.take(), "worth waiting for");
}

TEST(NSXPCConnectionRequestTest, AThreadThatWaitsLearnsThatThePeerWentAway) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);

    std::thread waiting([&] { EXPECT_EQ(codeOf(ask(*client, "?")), Code::Disconnected); });
    ASSERT_TRUE(held.take());
    connection->invalidate();
    waiting.join();
}

TEST(NSXPCConnectionRequestTest, AThreadThatWaitsLearnsThatItsOwnSideWasInvalidated) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();

    std::thread waiting([&] { EXPECT_EQ(codeOf(ask(*client, "?")), Code::Disconnected); });
    ASSERT_TRUE(held.take());
    client->invalidate();
    waiting.join();
}

TEST(NSXPCConnectionRequestTest, EveryUnansweredRequestIsToldOnceWhenTheConnectionEnds) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();
    Mailbox<std::optional<Code>> codes;
    for (int i = 0; i < 100; ++i) {
        client->request(echoMethod(), std::vector<Value>{"?"},
                        [&](const auto& answer) { codes.put(codeOf(answer)); });
    }
    Event ended;
    client->setInvalidationHandler([&] { ended.happen(); });

    client->invalidate();
    ASSERT_TRUE(ended.wait());

    const auto all = codes.takeAll();
    EXPECT_EQ(all, std::vector(100, std::optional(Code::Disconnected)));
}

TEST(NSXPCConnectionRequestTest, ARequestOnAnEndedConnectionIsAnsweredWithTheReason) {
    TestServer server;
    const auto client = server.connect();
    client->invalidate();
    Mailbox<std::optional<Code>> codes;
    Mailbox<bool> isOnThread;

    client->request(echoMethod(), std::vector<Value>{"?"}, [&](const auto& answer) {
        isOnThread.put(NSXPCConnection::isXPCThread());
        codes.put(codeOf(answer));
    });

    EXPECT_EQ(codes.take(), Code::Disconnected);
    EXPECT_EQ(isOnThread.take(), true);
    EXPECT_EQ(codeOf(ask(*client, "?")), Code::Disconnected);
}

TEST(NSXPCConnectionRequestTest, TenThousandRequestsInFlightAreAllAnswered) {
    TestServer server;
    const auto client = server.connect();
    Event answered;
    std::atomic<int> wrong = 0;

    for (int i = 0; i < 10'000; ++i) {
        const std::string text = std::to_string(i);
        client->request(echoMethod(), std::vector<Value>{text}, [&, text](const auto& answer) {
            if (textOf(answer) != text) ++wrong;
            answered.happen();
        });
    }

    EXPECT_TRUE(answered.wait(10'000));
    EXPECT_EQ(wrong, 0);
}

TEST(NSXPCConnectionRequestTest, AReplyBlockThatIsNeverUsedLeavesTheRequestToItsDeadline) {
    TestServer server;
    server.service->onEcho = [](const std::string&, const TestService::StringReply&) {};
    const auto client = server.connect();

    EXPECT_EQ(codeOf(client->requestAndWait(echoMethod(), std::vector<Value>{"?"}, soon())),
              Code::DeadlinePassed);
    EXPECT_FALSE(client->failure());
}

TEST(NSXPCConnectionRequestTest, AReplyBlockMayOutliveItsConnection) {
    Replies held;
    TestServer server;
    holdReplies(server, held);
    const auto client = server.connect();
    client->request(echoMethod(), std::vector<Value>{"?"}, [](const auto&) {});
    auto reply = held.take();
    const auto connection = server.accepted();
    ASSERT_TRUE(reply && connection);
    Event ended;
    connection->setInvalidationHandler([&] { ended.happen(); });
    client->invalidate();
    ASSERT_TRUE(ended.wait());

    (*reply)("nobody is there");

    EXPECT_TRUE(connection->failure());
}

TEST(NSXPCConnectionRequestDeathTest, WaitingOnTheXPCThreadIsABug) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            TestServer server;
            const auto client = server.connect();
            Event never;
            client->request(echoMethod(), std::vector<Value>{"?"},
                            [&](const auto&) { (void)ask(*client, "from the XPC thread"); });
            (void)never.wait();
        },
        "XPC thread cannot wait");
}

}  // namespace
}  // namespace sevrin::platform
