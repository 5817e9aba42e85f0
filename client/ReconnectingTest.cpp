// How a client comes back when its switchboard does, against a switchboard inside the test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "Tests/Support/ObservedClientTest.h"
#include "Tests/Support/StateChanges.h"
#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using test::anEndpoint;
using test::Inbox;
using test::isEvent;
using test::kPatience;
using test::options;
using testing::ElementsAre;
using Code = CallError::Code;
using Event = SwitchboardClient::StateChange::Event;
using State = SwitchboardClient::State;
using StateChange = SwitchboardClient::StateChange;
using namespace std::chrono_literals;

class ReconnectingTest : public test::ObservedClientTest {};

TEST_F(ReconnectingTest, WhatLastsIsRestoredInItsOrderAndTheUserFirst) {
    board_.start();
    SwitchboardClient client(observed());
    client.publish(anEndpoint(), "a");
    const SubscriptionId gone = client.subscribe({.name = "gone"}, [](const Notification&) {});
    (void)client.subscribe({.name = "n", .source = "s"}, [](const Notification&) {});
    client.publish(anEndpoint(), "b");
    client.publish(anEndpoint(), "withdrawn");
    client.setUser(501);
    client.publish(anEndpoint(), "a");
    client.redact("withdrawn");
    client.unsubscribe(gone);
    ASSERT_TRUE(client.barrier(kPatience));
    const std::size_t before = board_.calls().size();

    board_.hangUp();
    const auto changes = changes_.waitFor(3);

    EXPECT_THAT(changes, ElementsAre(isEvent(Event::Connected),
                                     isEvent(Event::Disconnected, Code::Disconnected),
                                     isEvent(Event::Reconnected)));
    auto calls = board_.calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(calls,
                ElementsAre("setUser 501", "subscribe 2 n s", "publish b", "publish a", "barrier"));
}

TEST_F(ReconnectingTest, WhatIsAskedForInBetweenTakesEffectWithTheNextConnection) {
    board_.start();
    SwitchboardClient client(observed());
    client.publish(anEndpoint(), "a");
    client.publish(anEndpoint(), "b");
    const SubscriptionId subscription = client.subscribe({}, [](const Notification&) {});
    ASSERT_TRUE(client.barrier(kPatience));
    board_.stop();
    ASSERT_EQ(changes_.waitFor(2).size(), 2u);
    const std::size_t before = board_.calls().size();

    client.redact("a");
    client.publish(anEndpoint(), "c");
    client.unsubscribe(subscription);
    client.setUser(7);
    board_.start();
    ASSERT_TRUE(client.waitUntilConnected(kPatience));

    auto calls = board_.calls();
    calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_THAT(calls, ElementsAre("setUser 7", "publish b", "publish c", "barrier"));
}

TEST_F(ReconnectingTest, ARestoredSubscriptionCallsTheSameHandler) {
    board_.start();
    SwitchboardClient client(observed());
    Inbox<std::string> received;
    (void)client.subscribe({}, [&](const Notification& n) { received.add(n.name); });
    ASSERT_TRUE(client.barrier(kPatience));
    board_.hangUp();
    ASSERT_EQ(changes_.waitFor(3).size(), 3u);

    board_.forward(1, {"again"});

    EXPECT_THAT(received.waitFor(1), ElementsAre("again"));
}

TEST_F(ReconnectingTest, ACallMadeWhileConnectingComesAfterWhatIsRestored) {
    board_.start();
    board_.setHolds(true);
    SwitchboardClient client(observed());
    client.publish(anEndpoint(), "a");
    Inbox<bool> found;
    client.query("a", kPatience, [&](const auto& answer) { found.add(*answer != nullptr); });

    board_.setHolds(false);

    EXPECT_THAT(found.waitFor(1), ElementsAre(true));
}

TEST_F(ReconnectingTest, ManyPublicationsAndSubscriptionsAreRestored) {
    constexpr int kMany = 1'000;
    board_.start();
    SwitchboardClient client(observed());
    const auto listener = platform::NSXPCListener::anonymousListener();
    for (int i = 0; i < kMany; ++i) {
        client.publish(listener->endpoint(), "com.example." + std::to_string(i));
        (void)client.subscribe({.name = "n"}, [](const Notification&) {});
    }
    ASSERT_TRUE(client.barrier(kPatience));

    board_.hangUp();
    ASSERT_EQ(changes_.waitFor(3).size(), 3u);

    EXPECT_EQ(board_.calls().size(), 2 * (2 * kMany) + 3u);
    EXPECT_NE(*client.query("com.example.999", kPatience), nullptr);
}

TEST_F(ReconnectingTest, AClientThatIsNotToReconnectStaysDisconnected) {
    board_.start();
    SwitchboardClient::Options once = observed();
    once.reconnects = false;
    SwitchboardClient client = *SwitchboardClient::connect(std::move(once), kPatience);

    board_.hangUp();
    const auto changes = changes_.waitFor(2);

    ASSERT_EQ(changes.size(), 2u);
    EXPECT_THAT(changes[1], isEvent(Event::Disconnected, Code::Disconnected));
    EXPECT_EQ(changes[1].retryDelay, std::nullopt);
    EXPECT_EQ(client.state(), State::Disconnected);
    EXPECT_EQ(client.waitUntilConnected(kPatience).error().code, Code::Disconnected);
    EXPECT_EQ(client.barrier(kPatience).error().code, Code::Disconnected);
}

TEST_F(ReconnectingTest, AConnectedClientKeepsTryingThoughItsFirstAttemptWasOnTrial) {
    board_.start();
    SwitchboardClient client = *SwitchboardClient::connect(observed(), kPatience);

    board_.hangUp();
    const auto changes = changes_.waitFor(3);

    EXPECT_THAT(changes.back(), isEvent(Event::Reconnected));
    EXPECT_EQ(board_.arrivals(), 2u);
}

TEST_F(ReconnectingTest, ARefusedClientIsToldOnceAndWaitsLong) {
    board_.start();
    board_.setAccepts(false);
    SwitchboardClient client(observed());

    const auto changes = changes_.waitFor(1);

    ASSERT_THAT(changes, ElementsAre(isEvent(Event::Unreachable, Code::Refused)));
    EXPECT_EQ(changes[0].retryDelay, 1s);
    EXPECT_EQ(client.query("a", kPatience).error().code, Code::Refused);
}

TEST_F(ReconnectingTest, AReasonIsToldAgainOnlyWhenItChanges) {
    SwitchboardClient client(observed());
    ASSERT_EQ(changes_.waitFor(1).size(), 1u);
    ASSERT_FALSE(client.waitUntilConnected(100ms));  // A few attempts more fail alike.
    board_.setAccepts(false);

    board_.start();

    EXPECT_THAT(changes_.waitFor(2), ElementsAre(isEvent(Event::Unreachable, Code::NoService),
                                                 isEvent(Event::Unreachable, Code::Refused)));
}

TEST_F(ReconnectingTest, AStateHandlerMayDestroyTheClient) {
    board_.start();
    std::unique_ptr<SwitchboardClient> client;
    Inbox<Event> events;
    client = std::make_unique<SwitchboardClient>(options([&](const StateChange& change) {
        if (change.event == Event::Disconnected) client.reset();
        events.add(change.event);
    }));
    ASSERT_THAT(events.waitFor(1), ElementsAre(Event::Connected));

    board_.hangUp();

    EXPECT_THAT(events.waitFor(2), ElementsAre(Event::Connected, Event::Disconnected));
    EXPECT_EQ(board_.arrivals(), 1u);
}

TEST_F(ReconnectingTest, AStateHandlerMayCallTheClient) {
    board_.start();
    Inbox<std::string> versions;
    std::unique_ptr<SwitchboardClient> client;
    Inbox<bool> isMade;
    client = std::make_unique<SwitchboardClient>(options([&](const StateChange&) {
        (void)isMade.waitFor(1);
        client->componentVersion(kPatience, [&](const auto& version) { versions.add(*version); });
    }));
    isMade.add(true);

    EXPECT_THAT(versions.waitFor(1), ElementsAre("Switchboard-2.2.5.12"));
}

TEST_F(ReconnectingTest, NothingIsToldAboutClosing) {
    board_.start();
    SwitchboardClient client = *SwitchboardClient::connect(observed(), kPatience);
    ASSERT_EQ(changes_.waitFor(1).size(), 1u);

    ASSERT_TRUE(client.closeAndWait(kPatience));
    board_.stop();

    EXPECT_EQ(changes_.items().size(), 1u);
}

TEST_F(ReconnectingTest, AClientMayBeClosedWhileItWaitsToTryAgain) {
    SwitchboardClient client(observed());
    ASSERT_EQ(changes_.waitFor(1).size(), 1u);
    Inbox<Code> codes;
    client.barrier(kPatience, [&](const auto& answer) { codes.add(answer.error().code); });

    ASSERT_TRUE(client.closeAndWait(kPatience));

    EXPECT_EQ(codes.items().size(), 1u);
    EXPECT_EQ(client.state(), State::Closed);
}

TEST_F(ReconnectingTest, ClientsComeAndGoWhileTheSwitchboardDoes) {
    std::vector<std::thread> threads;
    std::atomic<bool> isOver = false;
    std::atomic<int> started = 0;
    std::atomic<int> ended = 0;

    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            while (!isOver) {
                SwitchboardClient client(options());
                client.publish(anEndpoint(), "a");
                for (int call = 0; call < 10; ++call) {
                    ++started;
                    client.query("a", kPatience, [&](const auto&) { ++ended; });
                }
                (void)client.query("a", 1ms);
                ASSERT_TRUE(client.closeAndWait(kPatience));
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        board_.start();
        (void)board_.waitForCalls(board_.calls().size() + 20);
        board_.stop();
    }
    isOver = true;
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(started, ended);
}

}  // namespace
}  // namespace sevrin
