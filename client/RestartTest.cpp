// The real switchboard, a process of its own, killed and started anew under clients at work.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <memory>
#include <thread>

#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using test::bootstrapFolder;
using test::Inbox;
using test::kPatience;
using test::options;
using test::ServiceProcess;
using testing::ElementsAre;
using Code = CallError::Code;
using Event = SwitchboardClient::StateChange::Event;
using namespace std::chrono_literals;

constexpr std::uint32_t kServedUser = 1000;

const auto kThereAndBack = ElementsAre(Event::Connected, Event::Disconnected, Event::Reconnected);

class RestartTest : public testing::Test {
protected:
    RestartTest() { start(); }
    ~RestartTest() override { kill(); }

    void start() {
        std::vector<std::string> arguments;
        if (::geteuid() == 0) arguments = {"--users", std::to_string(kServedUser)};
        service_.emplace(bootstrapFolder.folder(), arguments, ::geteuid());
        ASSERT_TRUE(service_->waitUntilReady());
    }

    // Ends the switchboard with no chance to say goodbye.
    void kill() {
        service_->signal(SIGKILL);
        (void)service_->wait();
    }

    // Lets the switchboard sleep, and returns when it does.
    void suspend() {
        service_->signal(SIGSTOP);
        int status = 0;
        ASSERT_EQ(::waitpid(service_->process(), &status, WUNTRACED), service_->process());
        ASSERT_TRUE(WIFSTOPPED(status));
    }

    // A client that is connected, and whose coming and going is collected. How often it tried in
    // between is a matter of luck.
    SwitchboardClient connected(Inbox<Event>& events) {
        const auto collect = [&events](const SwitchboardClient::StateChange& change) {
            if (change.event != Event::Unreachable) events.add(change.event);
        };
        return *SwitchboardClient::connect(options(collect), kPatience);
    }
    SwitchboardClient connected() { return *SwitchboardClient::connect(options(), kPatience); }

    std::optional<ServiceProcess> service_;
};

TEST_F(RestartTest, AKillInTheMidstOfRequestsEndsThemAsDisconnected) {
    SwitchboardClient client = connected();
    Inbox<Code> codes;
    suspend();
    client.query("a", kPatience, [&](const auto& answer) { codes.add(answer.error().code); });
    client.post({"a"}, kPatience, [&](const auto& answer) { codes.add(answer.error().code); });
    std::thread waiting([&] { codes.add(client.barrier(kPatience).error().code); });

    kill();
    waiting.join();

    EXPECT_THAT(codes.waitFor(3),
                ElementsAre(Code::Disconnected, Code::Disconnected, Code::Disconnected));
    start();
}

TEST_F(RestartTest, PublicationsAndSubscriptionsAreThereAgainAfterAKill) {
    Inbox<Event> publisherEvents, subscriberEvents;
    Inbox<Notification> received;
    ComponentServer server(std::make_shared<Component>("Thing-1.0", 1));
    SwitchboardClient publisher = connected(publisherEvents);
    publisher.publish(server.endpoint(), "com.example.thing");
    ASSERT_TRUE(publisher.barrier(kPatience));
    SwitchboardClient subscriber = connected(subscriberEvents);
    (void)subscriber.subscribe({.name = "com.example.news"},
                               [&](const Notification& news) { received.add(news); });
    ASSERT_TRUE(subscriber.barrier(kPatience));

    kill();
    start();

    EXPECT_THAT(publisherEvents.waitFor(3), kThereAndBack);
    EXPECT_THAT(subscriberEvents.waitFor(3), kThereAndBack);
    SwitchboardClient consumer = connected();
    auto component = consumer.connectToPublisher("com.example.thing", kPatience);
    ASSERT_TRUE(component);
    EXPECT_EQ(*component->componentVersion(kPatience), "Thing-1.0");
    const Notification news{"com.example.news", "me", platform::Dictionary{{"n", 1}}};
    ASSERT_TRUE(consumer.post(news, kPatience));
    EXPECT_THAT(received.waitFor(1), ElementsAre(news));
}

TEST_F(RestartTest, ASwitchboardThatSleepsAndWakesLosesNothing) {
    SwitchboardClient client = connected();
    suspend();

    EXPECT_EQ(client.query("a", 1ms).error().code, Code::DeadlinePassed);
    EXPECT_EQ(client.barrier(1ms).error().code, Code::DeadlinePassed);

    service_->signal(SIGCONT);
    EXPECT_EQ(*client.componentVersion(kPatience), "Switchboard-2.2.5.12");
    EXPECT_EQ(client.state(), SwitchboardClient::State::Connected);
}

TEST_F(RestartTest, PublishingIsAnnouncedToSubscribers) {
    SwitchboardClient subscriber = connected();
    Inbox<Notification> received;
    (void)subscriber.subscribe({.name = "SwitchboardEndpointPublished", .source = "Switchboard"},
                               [&](const Notification& news) { received.add(news); });
    ASSERT_TRUE(subscriber.barrier(kPatience));
    ComponentServer server(std::make_shared<Component>("Thing-1.0", 1));
    SwitchboardClient publisher = connected();

    publisher.publish(server.endpoint(), "com.example.thing");

    EXPECT_THAT(received.waitFor(1),
                ElementsAre(Notification{"SwitchboardEndpointPublished", "Switchboard",
                                         platform::Dictionary{{"id", "com.example.thing"}}}));
}

TEST_F(RestartTest, WhatAClientPublishedGoesWithIt) {
    ComponentServer server(std::make_shared<Component>("Thing-1.0", 1));
    SwitchboardClient consumer = connected();
    {
        SwitchboardClient publisher = connected();
        publisher.publish(server.endpoint(), "com.example.thing");
        ASSERT_TRUE(publisher.barrier(kPatience));
        ASSERT_NE(*consumer.query("com.example.thing", kPatience), nullptr);
    }

    Result<EndpointPtr> found = consumer.query("com.example.thing", kPatience);
    while (found && *found)
        found = consumer.query("com.example.thing", kPatience);

    ASSERT_TRUE(found);
    EXPECT_EQ(*found, nullptr);
}

TEST_F(RestartTest, AClientOfRootSpeaksForAnotherUserAlsoAfterAKill) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may speak for others";
    ComponentServer server(std::make_shared<Component>("Thing-1.0", 1));
    Inbox<Event> events;
    SwitchboardClient publisher = connected(events);
    publisher.publish(server.endpoint(), "com.example.thing");
    publisher.setUser(kServedUser);
    ASSERT_TRUE(publisher.barrier(kPatience));

    kill();
    start();
    ASSERT_EQ(events.waitFor(3).size(), 3u);

    SwitchboardClient ofRoot = connected();
    SwitchboardClient ofUser = connected();
    ofUser.setUser(kServedUser);
    EXPECT_EQ(*ofRoot.query("com.example.thing", kPatience), nullptr);
    EXPECT_NE(*ofUser.query("com.example.thing", kPatience), nullptr);
}

TEST_F(RestartTest, ThousandsOfPublicationsAreThereAgainAfterAKill) {
    constexpr int kMany = 2'000;
    ComponentServer server(std::make_shared<Component>("Thing-1.0", 1));
    Inbox<Event> events;
    SwitchboardClient publisher = connected(events);
    for (int i = 0; i < kMany; ++i)
        publisher.publish(server.endpoint(), "com.example." + std::to_string(i));
    ASSERT_TRUE(publisher.barrier(kPatience));

    kill();
    start();
    ASSERT_EQ(events.waitFor(3).size(), 3u);

    SwitchboardClient consumer = connected();
    for (int i = 0; i < kMany; ++i)
        ASSERT_NE(*consumer.query("com.example." + std::to_string(i), kPatience), nullptr) << i;
}

TEST_F(RestartTest, EachCallOfManyThreadsEndsThroughManyKills) {
    SwitchboardClient client = connected();
    std::atomic<bool> isOver = false;
    std::atomic<int> started = 0, ended = 0, answered = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            while (!isOver) {
                ++started;
                client.query("a", kPatience, [&](const auto&) { ++ended; });
                if (client.componentVersion(kPatience)) ++answered;
                (void)client.waitUntilConnected(kPatience);
            }
        });
    }

    for (int i = 0; i < 5; ++i) {
        const int before = answered;
        while (answered < before + 100)
            std::this_thread::sleep_for(1ms);
        kill();
        start();
    }
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(client.closeAndWait(kPatience));

    EXPECT_EQ(started, ended);
}

}  // namespace
}  // namespace sevrin
