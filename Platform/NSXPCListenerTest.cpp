// Contract tests of a listener: who is accepted, by whom, and what invalidating ends.
#include "Platform/NSXPCListener.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace xpctest;

using Code = XPCError::Code;
using ConnectionPtr = std::shared_ptr<NSXPCConnection>;

ConnectionPtr connectTo(const std::shared_ptr<NSXPCListenerEndpoint>& endpoint) {
    auto connection = NSXPCConnection::initWithListenerEndpoint(endpoint);
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
    connection->resume();
    return connection;
}

// A delegate made of one function.
class Delegate : public NSXPCListenerDelegate {
public:
    explicit Delegate(std::function<bool(NSXPCListener&, const ConnectionPtr&)> decide)
        : decide_(std::move(decide)) {}

    bool listenerShouldAcceptNewConnection(NSXPCListener& listener,
                                           const ConnectionPtr& connection) override {
        return decide_(listener, connection);
    }

private:
    std::function<bool(NSXPCListener&, const ConnectionPtr&)> decide_;
};

TEST(NSXPCListenerTest, AnAcceptedConnectionIsServed) {
    TestServer server;

    EXPECT_EQ(textOf(ask(*server.connect(), "hello")), "hello");
    EXPECT_FALSE(server.listener().registrationFailure());
}

TEST(NSXPCListenerTest, TheDelegateIsAskedOnTheXPCThreadWithTheListenerAndItsPeer) {
    const auto listener = NSXPCListener::anonymousListener();
    Mailbox<bool> isRight;
    Delegate delegate([&](NSXPCListener& asking, const ConnectionPtr& connection) {
        isRight.put(&asking == listener.get() && NSXPCConnection::isXPCThread() &&
                    connection->effectiveUserIdentifier() == ::geteuid() &&
                    connection->processIdentifier() == ::getpid());
        return false;
    });
    listener->setDelegate(&delegate);
    listener->resume();

    const auto client = connectTo(listener->endpoint());

    EXPECT_EQ(isRight.take(), true);
    listener->invalidate();
}

TEST(NSXPCListenerTest, ARefusedClientLearnsThatItWasRefused) {
    Event ended;
    TestServer server;
    server.onConnection = [](const auto&) { return false; };

    const auto client = server.client();
    client->setInvalidationHandler([&] { ended.happen(); });
    client->resume();

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(client->failure()->code, Code::Refused);
    EXPECT_EQ(codeOf(ask(*client, "?")), Code::Refused);
}

TEST(NSXPCListenerTest, ARefusedConnectionIsInvalidatedByThePlatform) {
    Event ended;
    TestServer server;
    server.onConnection = [&](const ConnectionPtr& connection) {
        connection->setInvalidationHandler([&] { ended.happen(); });
        return false;
    };

    const auto client = server.connect();

    EXPECT_TRUE(ended.wait());
}

TEST(NSXPCListenerTest, WithoutADelegateEverybodyIsRefused) {
    const auto listener = NSXPCListener::anonymousListener();
    listener->resume();

    const auto client = connectTo(listener->endpoint());

    EXPECT_EQ(codeOf(ask(*client, "?")), Code::Refused);
    listener->invalidate();
}

TEST(NSXPCListenerTest, NobodyIsServedBeforeResumeAndWhoeverWaitedIsServedAfterIt) {
    Mailbox<std::string> answers;
    const auto listener = NSXPCListener::anonymousListener();
    const auto client = connectTo(listener->endpoint());
    client->request(serviceMethod("echo:withReply:"), std::vector<Value>{"patient"},
                    [&](const auto& answer) { answers.put(textOf(answer)); });

    EXPECT_EQ(codeOf(client->requestAndWait(serviceMethod("echo:withReply:"),
                                            std::vector<Value>{"impatient"},
                                            std::chrono::steady_clock::now() + 20ms)),
              Code::DeadlinePassed);
    TestServer server(listener);

    EXPECT_EQ(answers.take(), "patient");
    client->invalidate();
}

TEST(NSXPCListenerTest, ResumingTwiceIsHarmless) {
    TestServer server;

    server.listener().resume();

    EXPECT_EQ(textOf(ask(*server.connect(), "hello")), "hello");
}

TEST(NSXPCListenerTest, AnInvalidatedListenerHasNoEndpointAndIsReachedNoMore) {
    const auto listener = NSXPCListener::anonymousListener();
    const auto endpoint = listener->endpoint();
    listener->resume();

    listener->invalidate();
    listener->invalidate();

    EXPECT_EQ(listener->endpoint(), nullptr);
    EXPECT_EQ(connectTo(endpoint)->failure()->code, Code::NoService);
}

TEST(NSXPCListenerTest, AListenerInvalidatedBeforeResumeStaysSilent) {
    const auto listener = NSXPCListener::anonymousListener();
    const auto endpoint = listener->endpoint();

    listener->invalidate();
    listener->resume();

    EXPECT_EQ(connectTo(endpoint)->failure()->code, Code::NoService);
}

TEST(NSXPCListenerTest, AListenerThatIsForgottenBeforeResumeIsGone) {
    auto listener = NSXPCListener::anonymousListener();
    const auto endpoint = listener->endpoint();

    listener.reset();

    EXPECT_EQ(connectTo(endpoint)->failure()->code, Code::NoService);
}

TEST(NSXPCListenerTest, AcceptedConnectionsOutliveTheirListener) {
    TestServer server;
    const auto client = server.connect();
    ASSERT_EQ(textOf(ask(*client, "before")), "before");

    server.listener().invalidate();

    EXPECT_EQ(textOf(ask(*client, "after")), "after");
}

TEST(NSXPCListenerTest, WhoeverWaitsUnacceptedLearnsThatTheListenerIsGone) {
    const auto listener = NSXPCListener::anonymousListener();
    const auto client = connectTo(listener->endpoint());

    listener->invalidate();

    EXPECT_EQ(codeOf(ask(*client, "?")), Code::Refused);
}

TEST(NSXPCListenerTest, AListenerMayBeInvalidatedByItsDelegateInTheMiddleOfTheQuestion) {
    Event asked;
    const auto listener = NSXPCListener::anonymousListener();
    const auto endpoint = listener->endpoint();
    Delegate delegate([&](NSXPCListener& asking, const ConnectionPtr&) {
        asking.invalidate();
        asked.happen();
        return false;
    });
    listener->setDelegate(&delegate);
    listener->resume();

    const auto first = connectTo(endpoint);

    EXPECT_TRUE(asked.wait());
    EXPECT_EQ(codeOf(ask(*first, "?")), Code::Refused);
    EXPECT_EQ(connectTo(endpoint)->failure()->code, Code::NoService);
    EXPECT_EQ(asked.count(), 1u);
}

TEST(NSXPCListenerTest, ADelegateMayTakeItselfOutInTheMiddleOfTheQuestion) {
    Event asked;
    const auto listener = NSXPCListener::anonymousListener();
    Delegate delegate([&](NSXPCListener& asking, const ConnectionPtr&) {
        asking.setDelegate(nullptr);
        asked.happen();
        return false;
    });
    listener->setDelegate(&delegate);
    listener->resume();

    EXPECT_EQ(codeOf(ask(*connectTo(listener->endpoint()), "?")), Code::Refused);
    EXPECT_EQ(codeOf(ask(*connectTo(listener->endpoint()), "?")), Code::Refused);
    EXPECT_EQ(asked.count(), 1u);
    listener->invalidate();
}

TEST(NSXPCListenerTest, AfterSetDelegateReturnsTheFormerOneIsNotCalledAnyMore) {
    const auto listener = NSXPCListener::anonymousListener();
    const auto endpoint = listener->endpoint();
    Event isInside;
    Event mayLeave;
    std::atomic<bool> hasLeft = false;
    {
        Delegate slow([&](NSXPCListener&, const ConnectionPtr&) {
            isInside.happen();
            (void)mayLeave.wait();
            hasLeft = true;
            return false;
        });
        listener->setDelegate(&slow);
        listener->resume();
        const auto client = connectTo(endpoint);
        ASSERT_TRUE(isInside.wait());
        std::thread releasing([&] { mayLeave.happen(); });

        listener->setDelegate(nullptr);

        EXPECT_TRUE(hasLeft);
        releasing.join();
    }
    EXPECT_EQ(codeOf(ask(*connectTo(endpoint), "?")), Code::Refused);
    listener->invalidate();
}

TEST(NSXPCListenerTest, HundredsOfClientsAreAcceptedInTheOrderOfConnecting) {
    Mailbox<std::string> notes;
    TestServer server;
    server.service->onNote = [&](const std::string& text) { notes.put(text); };
    std::vector<ConnectionPtr> clients;

    for (int i = 0; i < 300; ++i)
        clients.push_back(server.connect());
    for (const auto& client : clients)
        ASSERT_EQ(textOf(ask(*client, "?")), "?");

    std::vector<ConnectionPtr> accepted;
    while (accepted.size() < clients.size())
        accepted.push_back(server.accepted());
    for (std::size_t i = 0; i < clients.size(); ++i) {
        clients[i]->invalidate();
        Event ended;
        accepted[i]->setInvalidationHandler([&] { ended.happen(); });
        ASSERT_TRUE(accepted[i]->failure() || ended.wait());
        waitForXPCThread();
    }
}

}  // namespace
}  // namespace sevrin::platform
