// A component, served and called over real sockets within the test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "Tests/Support/TestSwitchboard.h"
#include "client/ComponentClient.h"
#include "client/ComponentServer.h"

namespace sevrin {
namespace {

using test::Inbox;
using test::kPatience;
using testing::ElementsAre;
using Code = CallError::Code;
using namespace std::chrono_literals;

// Tells the test what it is asked, and answers only what it is told to.
class TestComponent : public Component {
public:
    TestComponent() : Component("Thing-1.0", 0x10000) {}

    void didInstallComponent() override { calls.add("didInstall"); }
    void willUninstallComponent() override { calls.add("willUninstall"); }
    void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) override {
        held.add(std::move(reply));
    }

    Inbox<std::string> calls;
    Inbox<std::function<void(std::uint32_t)>> held;
};

class ComponentTest : public testing::Test {
protected:
    ComponentClient connected() { return *ComponentClient::connect(server_.endpoint(), kPatience); }

    const std::shared_ptr<TestComponent> component_ = std::make_shared<TestComponent>();
    ComponentServer server_{component_};
};

TEST_F(ComponentTest, AnswersItsVersionAndBuildNumber) {
    ComponentServer server(std::make_shared<Component>("Plain-2.1", 0x20100));
    auto client = ComponentClient::connect(server.endpoint(), kPatience);

    ASSERT_TRUE(client);
    EXPECT_EQ(*client->componentVersion(kPatience), "Plain-2.1");
    EXPECT_EQ(*client->buildNumber(kPatience), 0x20100u);
}

TEST_F(ComponentTest, AnswersCompletionsToo) {
    ComponentClient client(server_.endpoint());
    Inbox<std::string> answers;

    client.barrier(kPatience, [&](const auto& done) { answers.add(done ? "barrier" : "?"); });
    client.componentVersion(kPatience, [&](const auto& version) { answers.add(*version); });

    EXPECT_THAT(answers.waitFor(2), ElementsAre("barrier", "Thing-1.0"));
}

TEST_F(ComponentTest, HooksArriveInOrderBeforeTheBarrierBehindThem) {
    ComponentClient client = connected();

    client.didInstall();
    client.willUninstall();
    ASSERT_TRUE(client.barrier(kPatience));

    EXPECT_THAT(component_->calls.items(), ElementsAre("didInstall", "willUninstall"));
}

TEST_F(ComponentTest, AReplyMayComeLaterFromAnyThread) {
    ComponentClient client = connected();
    std::thread replier([this] { component_->held.waitFor(1).at(0)(42); });

    const auto number = client.buildNumber(kPatience);
    replier.join();

    ASSERT_TRUE(number);
    EXPECT_EQ(*number, 42u);
}

TEST_F(ComponentTest, AReplyThatNeverComesEndsWithTheDeadline) {
    ComponentClient client = connected();
    Inbox<Code> codes;

    client.buildNumber(1ms, [&](const auto& answer) { codes.add(answer.error().code); });

    EXPECT_EQ(client.buildNumber(1ms).error().code, Code::DeadlinePassed);
    EXPECT_THAT(codes.waitFor(1), ElementsAre(Code::DeadlinePassed));
}

TEST_F(ComponentTest, BothSidesKnowEachOther) {
    Inbox<Peer> peers;
    ComponentServer server([&](const Peer& peer) {
        peers.add(peer);
        return component_;
    });
    const Peer us{::geteuid(), ::getegid(), ::getpid()};

    auto client = ComponentClient::connect(server.endpoint(), kPatience);

    ASSERT_TRUE(client);
    EXPECT_EQ(client->peer(), us);
    EXPECT_THAT(peers.items(), ElementsAre(us));
}

TEST_F(ComponentTest, AnAcceptorMayRefuse) {
    ComponentServer server([](const Peer&) { return nullptr; });

    // Often: the refusal may come before, while or after the first question is sent.
    for (int i = 0; i < 100; ++i) {
        const auto client = ComponentClient::connect(server.endpoint(), kPatience);

        ASSERT_FALSE(client);
        ASSERT_EQ(client.error().code, Code::Refused) << client.error().description;
    }
    EXPECT_EQ(server.connectionCount(), 0u);
}

TEST_F(ComponentTest, AnAcceptorMayGiveEachPeerAComponentOfItsOwn) {
    std::atomic<std::uint32_t> number = 0;
    ComponentServer server(
        [&](const Peer&) { return std::make_shared<Component>("Own", ++number); });

    auto first = ComponentClient::connect(server.endpoint(), kPatience);
    auto second = ComponentClient::connect(server.endpoint(), kPatience);

    EXPECT_EQ(*first->buildNumber(kPatience), 1u);
    EXPECT_EQ(*second->buildNumber(kPatience), 2u);
}

TEST_F(ComponentTest, ConnectionsAreCountedWhileTheyLast) {
    ComponentClient first = connected();
    {
        ComponentClient second = connected();
        EXPECT_EQ(server_.connectionCount(), 2u);
    }

    while (server_.connectionCount() > 1)
        ASSERT_TRUE(first.barrier(kPatience));
    EXPECT_EQ(server_.connectionCount(), 1u);
}

// MARK: The end

TEST_F(ComponentTest, ConnectingToAnEndpointWhoseServerIsGoneSaysSo) {
    const EndpointPtr endpoint = server_.endpoint();
    server_.shutdown();

    const auto client = ComponentClient::connect(endpoint, kPatience);

    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::NoService);
    EXPECT_EQ(server_.endpoint(), nullptr);
}

TEST_F(ComponentTest, AFailureToConnectIsToldToTheCallerOrElseToTheHandler) {
    const EndpointPtr endpoint = server_.endpoint();
    server_.shutdown();
    Inbox<std::string> told;
    const auto tell = [&](const std::string& who) {
        return [&told, who](const CallError&) { told.add(who); };
    };

    EXPECT_FALSE(ComponentClient::connect(endpoint, kPatience, tell("connect")));
    const ComponentClient client(endpoint, tell("constructor"));

    EXPECT_THAT(told.waitFor(1), ElementsAre("constructor"));
}

TEST_F(ComponentTest, ConnectingToNoEndpointSaysSo) {
    const auto client = ComponentClient::connect(nullptr, kPatience);

    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::NoService);
}

TEST_F(ComponentTest, ShutdownEndsConnectionsAndWhatIsUnanswered) {
    Inbox<Code> codes;
    auto client = ComponentClient::connect(
        server_.endpoint(), kPatience, [&](const CallError& reason) { codes.add(reason.code); });
    client->buildNumber(kPatience, [&](const auto& answer) { codes.add(answer.error().code); });
    ASSERT_EQ(component_->held.waitFor(1).size(), 1u);

    server_.shutdown();
    server_.shutdown();

    EXPECT_THAT(codes.waitFor(2), ElementsAre(Code::Disconnected, Code::Disconnected));
    EXPECT_EQ(server_.connectionCount(), 0u);
    component_->held.items().at(0)(1);  // Too late, and harmless.
    EXPECT_EQ(client->barrier(kPatience).error().code, Code::Disconnected);
}

TEST_F(ComponentTest, ShutdownInAMethodIsPossible) {
    class Quitter : public Component {
    public:
        using Component::Component;
        void willUninstallComponent() override { server->reset(); }
        std::optional<ComponentServer>* server = nullptr;
    };
    const auto quitter = std::make_shared<Quitter>("Quitter", 1);
    std::optional<ComponentServer> server(quitter);
    quitter->server = &server;
    Inbox<Code> codes;
    auto client = ComponentClient::connect(
        server->endpoint(), kPatience, [&](const CallError& reason) { codes.add(reason.code); });

    client->willUninstall();

    EXPECT_THAT(codes.waitFor(1), ElementsAre(Code::Disconnected));
    EXPECT_FALSE(server);
}

TEST_F(ComponentTest, AnAcceptorMayDestroyItsServer) {
    std::unique_ptr<ComponentServer> server;
    Inbox<bool> isMade;
    server = std::make_unique<ComponentServer>([&](const Peer&) {
        (void)isMade.waitFor(1);
        server.reset();
        return component_;
    });
    const EndpointPtr endpoint = server->endpoint();
    isMade.add(true);

    const auto client = ComponentClient::connect(endpoint, kPatience);

    EXPECT_FALSE(client);
}

TEST_F(ComponentTest, AMethodThatThrowsCostsItsCallerTheConnectionAndNobodyElse) {
    class Thrower : public Component {
    public:
        using Component::Component;
        void queryBuildNumberWithReply(std::function<void(std::uint32_t)>) override {
            throw std::runtime_error("no number");
        }
    };
    ComponentServer server(std::make_shared<Thrower>("Thrower", 1));
    auto caller = ComponentClient::connect(server.endpoint(), kPatience);
    auto other = ComponentClient::connect(server.endpoint(), kPatience);

    EXPECT_EQ(caller->buildNumber(kPatience).error().code, Code::Disconnected);
    EXPECT_EQ(*other->componentVersion(kPatience), "Thrower");
}

TEST_F(ComponentTest, ClosingEndsUnansweredCallsAndTellsNoHandler) {
    Inbox<Code> codes;
    Inbox<bool> told;
    ComponentClient client(server_.endpoint(), [&](const CallError&) { told.add(true); });
    client.buildNumber(kPatience, [&](const auto& answer) { codes.add(answer.error().code); });
    ASSERT_EQ(component_->held.waitFor(1).size(), 1u);

    client.close();
    client.close();

    EXPECT_THAT(codes.waitFor(1), ElementsAre(Code::Disconnected));
    ComponentClient next = connected();
    ASSERT_TRUE(next.barrier(kPatience));
    EXPECT_TRUE(told.items().empty());
}

TEST_F(ComponentTest, ACompletionMayDestroyItsClient) {
    auto client = std::make_unique<ComponentClient>(server_.endpoint());
    Inbox<bool> answered;

    client->barrier(kPatience, [&](const auto& answer) {
        client.reset();
        answered.add(answer.hasValue());
    });

    EXPECT_THAT(answered.waitFor(1), ElementsAre(true));
}

TEST_F(ComponentTest, AClientMayBeMadeAndAskedInACompletion) {
    std::unique_ptr<ComponentClient> second;
    Inbox<std::string> versions;
    ComponentClient first(server_.endpoint());

    first.barrier(kPatience, [&](const auto&) {
        second = std::make_unique<ComponentClient>(server_.endpoint());
        second->componentVersion(kPatience, [&](const auto& version) { versions.add(*version); });
    });

    EXPECT_THAT(versions.waitFor(1), ElementsAre("Thing-1.0"));
}

TEST_F(ComponentTest, ThousandsOfCallsOnOneConnectionEndOnceEach) {
    constexpr std::size_t kCalls = 4'000;
    ComponentClient client = connected();
    std::vector<std::atomic<int>> endings(kCalls);
    Inbox<bool> ended;

    for (std::size_t i = 0; i < kCalls; ++i) {
        client.buildNumber(kPatience, [&, i](const auto&) {
            ++endings[i];
            ended.add(true);
        });
    }
    const auto held = component_->held.waitFor(kCalls);
    ASSERT_EQ(held.size(), kCalls);
    for (std::size_t i = 0; i < kCalls / 2; ++i)
        held[kCalls - 1 - i](static_cast<std::uint32_t>(i));  // The last one first.
    server_.shutdown();

    ASSERT_EQ(ended.waitFor(kCalls).size(), kCalls);
    for (const auto& count : endings)
        ASSERT_EQ(count, 1);
}

TEST_F(ComponentTest, APublishedComponentIsFoundAndAnswersDirectly) {
    test::TestSwitchboard board;
    SwitchboardClient publisher = *SwitchboardClient::connect(test::options(), kPatience);
    publisher.publish(server_.endpoint(), "com.example.thing");
    ASSERT_TRUE(publisher.barrier(kPatience));
    SwitchboardClient consumer = *SwitchboardClient::connect(test::options(), kPatience);

    auto component = consumer.connectToPublisher("com.example.thing", kPatience);

    ASSERT_TRUE(component);
    EXPECT_EQ(*component->componentVersion(kPatience), "Thing-1.0");
}

using ComponentDeathTest = ComponentTest;

TEST_F(ComponentDeathTest, WaitingOnTheXPCThreadIsABug) {
    const auto waitInACompletion = [this](auto wait) {
        ComponentClient client(server_.endpoint());
        Inbox<bool> never;
        client.barrier(kPatience, [&](const auto&) { wait(client); });
        (void)never.waitFor(1);
    };

    EXPECT_DEATH(waitInACompletion([](auto& client) { (void)client.barrier(1s); }), "XPC thread");
    EXPECT_DEATH(waitInACompletion(
                     [this](auto&) { (void)ComponentClient::connect(server_.endpoint(), 1s); }),
                 "XPC thread");
}

}  // namespace
}  // namespace sevrin
