// What a subscriber receives, and until when, from a switchboard inside the test.
#include "client/SwitchboardClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using test::Inbox;
using test::kPatience;
using test::options;
using test::TestSwitchboard;
using testing::ElementsAre;

class SubscriptionTest : public testing::Test {
protected:
    // A client that is connected.
    static SwitchboardClient connected() {
        return *SwitchboardClient::connect(options(), kPatience);
    }

    TestSwitchboard board_;
};

TEST_F(SubscriptionTest, ASubscriberReceivesWhatIsForwardedToIt) {
    SwitchboardClient client = connected();
    Inbox<Notification> received;
    (void)client.subscribe({.name = "com.example.news"},
                           [&](const Notification& notification) { received.add(notification); });
    ASSERT_TRUE(client.barrier(kPatience));
    const Notification full{"com.example.news", "me", platform::Dictionary{{"id", "x"}}};
    const Notification bare{.name = "com.example.news"};

    board_.forward(1, full);
    board_.forward(1, bare);

    EXPECT_THAT(received.waitFor(2), ElementsAre(full, bare));
}

TEST_F(SubscriptionTest, ASubscriptionBySourceIgnoresOtherSources) {
    SwitchboardClient client = connected();
    Inbox<Notification> received;
    (void)client.subscribe({.name = "n", .source = "wanted"},
                           [&](const Notification& notification) { received.add(notification); });
    ASSERT_EQ(board_.waitForCalls(2).back(), "subscribe 1 n wanted");

    board_.forward(1, {"n", "other"});
    board_.forward(1, {"n"});
    board_.forward(1, {"n", "wanted"});

    EXPECT_THAT(received.waitFor(1), ElementsAre(Notification{"n", "wanted"}));
}

TEST_F(SubscriptionTest, AHandlerMayUnsubscribeItselfAndIsNotCalledAgain) {
    SwitchboardClient client = connected();
    Inbox<std::string> received;
    SubscriptionId once{};
    once = client.subscribe({}, [&](const Notification& notification) {
        received.add("once " + notification.name);
        client.unsubscribe(once);
    });
    (void)client.subscribe(
        {}, [&](const Notification& notification) { received.add("last " + notification.name); });
    ASSERT_TRUE(client.barrier(kPatience));

    board_.forward(1, {"a"});
    board_.forward(1, {"b"});
    board_.forward(2, {"c"});

    EXPECT_THAT(received.waitFor(2), ElementsAre("once a", "last c"));
    EXPECT_EQ(board_.waitForCalls(5).back(), "unsubscribe 1");
}

TEST_F(SubscriptionTest, WhatIsForwardedToAnUnknownSubscriberIsDropped) {
    SwitchboardClient client = connected();

    board_.forward(7, {"a"});

    EXPECT_TRUE(client.barrier(kPatience));
    EXPECT_EQ(board_.arrivals(), 1u);
}

TEST_F(SubscriptionTest, UnsubscribingAllSilencesEveryHandler) {
    SwitchboardClient client = connected();
    Inbox<int> received;
    (void)client.subscribe({}, [&](const Notification&) { received.add(1); });
    (void)client.subscribe({}, [&](const Notification&) { received.add(2); });

    client.unsubscribeAll();
    ASSERT_TRUE(client.barrier(kPatience));
    board_.forward(1, {"a"});
    board_.forward(2, {"a"});
    ASSERT_TRUE(client.barrier(kPatience));
    ASSERT_TRUE(client.closeAndWait(kPatience));

    EXPECT_TRUE(received.items().empty());
}

TEST_F(SubscriptionTest, UnsubscribingTwiceIsHarmless) {
    SwitchboardClient client = connected();
    const SubscriptionId subscription = client.subscribe({}, [](const Notification&) {});

    client.unsubscribe(subscription);
    client.unsubscribe(subscription);

    EXPECT_TRUE(client.barrier(kPatience));
    EXPECT_THAT(board_.calls(),
                ElementsAre("barrier", "subscribe 1 - -", "unsubscribe 1", "barrier"));
}

}  // namespace
}  // namespace sevrin
