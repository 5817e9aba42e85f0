// Tests of the way to one client: the message in one piece, and with a part encoded beforehand.
#include "switchboard/SubscriberProxy.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>

#include "Platform/Object.h"
#include "switchboard/FakeConnection.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::EncodedArguments;
using platform::NSNotification;
using platform::Object;
using platform::Value;
using platform::ValueArray;

class SubscriberProxyTest : public testing::Test {
protected:
    const std::shared_ptr<FakeConnection> connection_ = FakeConnection::ofUser(501);
    SubscriberProxy proxy_{*connection_};
};

TEST_F(SubscriberProxyTest, SendsTheExactSelectorWithItsArgumentsInOrder) {
    proxy_.forwardToObserverNotificationFromSourceWithInfo("me", "tick", "clock",
                                                           Dictionary{{"n", 1}});

    ASSERT_EQ(connection_->sent.size(), 1U);
    EXPECT_EQ(connection_->sent[0].method->selector,
              "forwardToObserver:notification:fromSource:withInfo:");
    EXPECT_EQ(connection_->sent[0].arguments,
              (ValueArray{"me", "tick", "clock", Dictionary{{"n", 1}}}));
}

TEST_F(SubscriberProxyTest, SourceAndUserInfoMayBeNull) {
    proxy_.forwardToObserverNotificationFromSourceWithInfo("me", "tick", std::nullopt, nullptr);

    ASSERT_EQ(connection_->sent.size(), 1U);
    EXPECT_EQ(connection_->sent[0].arguments, (ValueArray{"me", "tick", nullptr, nullptr}));
}

TEST_F(SubscriberProxyTest, TheEncodedPartIsWhatFollowsTheObserverId) {
    const auto encoded = SubscriberProxy::encode({"tick", "clock", Dictionary{{"n", 1}}});
    ASSERT_TRUE(encoded.has_value());

    const EncodedArguments observerID(std::array<Value, 1>{"me"});
    proxy_.forward(observerID, *encoded);

    const EncodedArguments expected(std::array<Value, 3>{"tick", "clock", Dictionary{{"n", 1}}});
    ASSERT_EQ(connection_->sent.size(), 1U);
    EXPECT_EQ(connection_->sent[0].encodedLeading, observerID.bytes());
    EXPECT_EQ(connection_->sent[0].encodedRest, expected.bytes());
    EXPECT_EQ(encoded->rest().count(), 3U);
}

TEST_F(SubscriberProxyTest, WhatCannotBeSentIsNotEncoded) {
    EXPECT_FALSE(SubscriberProxy::encode({"tick", std::nullopt, "no dictionary"}));
    EXPECT_FALSE(SubscriberProxy::encode(
        {"tick", std::nullopt, Dictionary{{"object", std::make_shared<Object>()}}}));
    EXPECT_FALSE(SubscriberProxy::encode({"tick", std::nullopt, Dictionary{{1, "one"}}}));
    EXPECT_TRUE(SubscriberProxy::encode({"tick", std::nullopt, nullptr}));
}

}  // namespace
}  // namespace sevrin
