// What is restored on a new connection: order, compaction, limits.
#include "client/StandingOrders.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "Platform/NSXPCListener.h"
#include "Platform/XPCLimits.h"

namespace sevrin {
namespace {

using testing::ElementsAre;

class StandingOrdersTest : public testing::Test {
protected:
    // Each message as its selector's first word and its last text or number.
    std::vector<std::string> restored() const {
        std::vector<std::string> words;
        for (const Message& message : orders_.messages()) {
            const std::string& selector = message.method->selector;
            std::string word = selector.substr(0, selector.find(':'));
            for (const platform::Value& argument : message.arguments) {
                if (argument.ifString()) word += " " + *argument.ifString();
                if (argument.ifSigned()) word += " " + std::to_string(*argument.ifSigned());
            }
            words.push_back(word);
        }
        return words;
    }

    void publish(const std::string& identifier) { orders_.publish(endpoint_, identifier); }
    void subscribe(int number, NotificationFilter filter = {}) {
        orders_.subscribe(SubscriptionId(number), filter);
    }

    const EndpointPtr endpoint_ = platform::NSXPCListener::anonymousListener()->endpoint();
    StandingOrders orders_;
};

TEST_F(StandingOrdersTest, OrderIsThatOfTheCalls) {
    publish("a");
    subscribe(1, {.name = "n", .source = "s"});
    publish("b");

    EXPECT_THAT(restored(),
                ElementsAre("publishEndpoint a", "addProxyObserver 1 n s", "publishEndpoint b"));
}

TEST_F(StandingOrdersTest, PublishingAgainTakesTheLaterPlace) {
    publish("a");
    publish("b");
    publish("a");

    EXPECT_THAT(restored(), ElementsAre("publishEndpoint b", "publishEndpoint a"));
}

TEST_F(StandingOrdersTest, WhatIsWithdrawnIsForgotten) {
    publish("a");
    subscribe(1);
    subscribe(2);

    orders_.redact("a");
    orders_.redact("never published");
    orders_.unsubscribe(SubscriptionId(1));
    orders_.unsubscribe(SubscriptionId(7));

    EXPECT_THAT(restored(), ElementsAre("addProxyObserver 2"));
}

TEST_F(StandingOrdersTest, UnsubscribingAllKeepsWhatIsPublished) {
    subscribe(1);
    publish("a");
    subscribe(2);

    orders_.unsubscribeAll();

    EXPECT_THAT(restored(), ElementsAre("publishEndpoint a"));
}

TEST_F(StandingOrdersTest, UsersComeFirstEachOnceAndRootNever) {
    publish("a");
    orders_.setUser(501);
    orders_.setUser(0);
    orders_.setUser(502);
    orders_.setUser(501);

    EXPECT_THAT(restored(), ElementsAre("setUser 501", "setUser 502", "publishEndpoint a"));
}

TEST_F(StandingOrdersTest, AsManyEndpointsAsTheProtocolAllowsAndNoMore) {
    for (std::size_t i = 0; i < platform::kEndpointsPerConnectionMax; ++i)
        publish(std::to_string(i));

    EXPECT_THROW(publish("one more"), std::length_error);
    publish("0");  // Replacing one is not one more.
    orders_.redact("1");
    publish("one more");

    EXPECT_EQ(orders_.messages().size(), platform::kEndpointsPerConnectionMax);
}

TEST_F(StandingOrdersTest, AsManySubscriptionsAsTheProtocolAllowsAndNoMore) {
    const int max = static_cast<int>(platform::kObserversPerConnectionMax);
    for (int i = 1; i <= max; ++i)
        subscribe(i);

    EXPECT_THROW(subscribe(max + 1), std::length_error);
    orders_.unsubscribe(SubscriptionId(1));
    subscribe(max + 1);

    EXPECT_EQ(orders_.messages().size(), platform::kObserversPerConnectionMax);
}

TEST_F(StandingOrdersTest, TextsAreAsLongAsAnIdentifierMayBeAndNoLonger) {
    const std::string longest(platform::kIdentifierBytesMax, 'x');

    publish(longest);
    subscribe(1, {.name = longest, .source = longest});
    EXPECT_THROW(publish(longest + "x"), std::length_error);
    EXPECT_THROW(subscribe(2, {.name = longest + "x"}), std::length_error);
    EXPECT_THROW(subscribe(2, {.source = longest + "x"}), std::length_error);

    EXPECT_EQ(orders_.messages().size(), 2u);
}

}  // namespace
}  // namespace sevrin
