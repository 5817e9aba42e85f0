// Tests of the relay: who is told, what is told, and when it ends.
#include "switchboard/ProxyObserver.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "switchboard/RegistryLock.h"
#include "switchboard/TestRegistry.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::EncodedArguments;
using platform::NSNotification;
using platform::Object;
using platform::Value;
using platform::ValueArray;

// What a client was told when each was sent with the part encoded that all subscribers share.
std::string encoded(const Value& name, const Value& source, const Value& userInfo) {
    return EncodedArguments(std::array{name, source, userInfo}).bytes();
}

// The part that is the subscriber's own.
std::string encodedID(const Value& observerID) {
    return EncodedArguments(std::array{observerID}).bytes();
}

class ProxyObserverTest : public testing::Test, protected TestRegistry {
protected:
    static void subscribe(const Client& client, const std::string& observerID,
                          const std::optional<std::string>& name,
                          const std::optional<std::string>& source = std::nullopt) {
        client.server->addProxyObserverForNameSource(observerID, name, source);
    }

    static void post(const Client& client, const std::string& name,
                     const std::optional<std::string>& source = std::nullopt,
                     const Value& userInfo = nullptr) {
        client.server->postNotificationNameSourceUserInfo(name, source, userInfo);
    }

    const std::size_t observersBefore_ = center().observerCount();
};

TEST_F(ProxyObserverTest, ASubscriberIsToldOfEveryPublishing) {
    Client publisher(kAlice);
    const Client subscriber(kAlice);
    subscribe(subscriber, "me", "SwitchboardEndpointPublished", "Switchboard");

    publisher.publish("clock");

    ASSERT_EQ(subscriber.connection->sent.size(), 1U);
    const FakeConnection::Sent& message = subscriber.connection->sent.front();
    EXPECT_EQ(message.method->selector, "forwardToObserver:notification:fromSource:withInfo:");
    EXPECT_EQ(message.encodedLeading, encodedID("me"));
    EXPECT_EQ(message.encodedRest,
              encoded("SwitchboardEndpointPublished", "Switchboard", Dictionary{{"id", "clock"}}));
}

TEST_F(ProxyObserverTest, ASubscriberOfOneSourceIsToldOfEverySource) {
    const Client client(kAlice);
    subscribe(client, "me", "tick", "clock");

    post(client, "tick", "bell");
    post(client, "tick");

    ASSERT_EQ(client.connection->sent.size(), 2U);
    EXPECT_EQ(client.connection->sent[0].encodedRest, encoded("tick", "bell", nullptr));
    EXPECT_EQ(client.connection->sent[1].encodedRest, encoded("tick", nullptr, nullptr));
}

TEST_F(ProxyObserverTest, ASubscriberIsToldOfItsNameOnly) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");

    post(client, "tock");
    post(client, "");

    EXPECT_TRUE(client.connection->sent.empty());
}

TEST_F(ProxyObserverTest, ASubscriptionWithoutANameIsToldEverything) {
    Client client(kAlice);
    subscribe(client, "me", std::nullopt);

    post(client, "tick");
    post(client, "tock");
    client.publish("clock");

    EXPECT_EQ(client.connection->sent.size(), 3U);
}

TEST_F(ProxyObserverTest, APostReachesSubscribersOfEveryUser) {
    const Client ofAlice(kAlice);
    const Client ofBob(kBob);
    subscribe(ofBob, "me", "tick");

    post(ofAlice, "tick");

    EXPECT_EQ(ofBob.connection->sent.size(), 1U);
}

TEST_F(ProxyObserverTest, EachSubscriptionIsToldUnderItsOwnIdInOrder) {
    const Client client(kAlice);
    subscribe(client, "second", "tick");
    subscribe(client, "first", "tick");

    post(client, "tick", "clock", Dictionary{{"n", 1}});

    ASSERT_EQ(client.connection->sent.size(), 2U);
    EXPECT_EQ(client.connection->sent[0].encodedLeading, encodedID("second"));
    EXPECT_EQ(client.connection->sent[1].encodedLeading, encodedID("first"));
    EXPECT_EQ(client.connection->sent[0].encodedRest, client.connection->sent[1].encodedRest);
}

TEST_F(ProxyObserverTest, EveryNotificationIsToldWithItsOwnContent) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");

    post(client, "tick", "clock", Dictionary{{"n", 1}});
    post(client, "tick", "clock", Dictionary{{"n", 2}});

    ASSERT_EQ(client.connection->sent.size(), 2U);
    EXPECT_EQ(client.connection->sent[1].encodedRest,
              encoded("tick", "clock", Dictionary{{"n", 2}}));
}

TEST_F(ProxyObserverTest, SubscribingAgainUnderOneIdReplaces) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");

    subscribe(client, "me", "tick");
    post(client, "tick");

    EXPECT_EQ(client.connection->sent.size(), 1U);
    EXPECT_EQ(client.server->observerCount(), 1U);
    EXPECT_EQ(center().observerCount(), observersBefore_ + 1);
}

TEST_F(ProxyObserverTest, AReplacedSubscriptionHearsOfItsNewNameOnly) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");

    subscribe(client, "me", "tock");
    post(client, "tick");
    post(client, "tock");

    ASSERT_EQ(client.connection->sent.size(), 1U);
    EXPECT_EQ(client.connection->sent[0].encodedRest, encoded("tock", nullptr, nullptr));
}

TEST_F(ProxyObserverTest, ARemovedSubscriptionIsToldNothingMore) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");
    subscribe(client, "you", "tick");

    client.server->removeObserver("me");
    client.server->removeObserver("nobody");
    post(client, "tick");

    ASSERT_EQ(client.connection->sent.size(), 1U);
    EXPECT_EQ(client.connection->sent[0].encodedLeading, encodedID("you"));
}

TEST_F(ProxyObserverTest, RemovingAllLeavesNoneInTheCentre) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");
    subscribe(client, "you", std::nullopt);

    client.server->removeAllObservers();
    post(client, "tick");

    EXPECT_TRUE(client.connection->sent.empty());
    EXPECT_EQ(center().observerCount(), observersBefore_);
}

TEST_F(ProxyObserverTest, AClientThatDisconnectedIsToldNothingMore) {
    Client client(kAlice);
    const Client other(kAlice);
    subscribe(client, "me", "tick");

    client.disconnect();
    post(other, "tick");

    EXPECT_TRUE(client.connection->sent.empty());
    EXPECT_EQ(center().observerCount(), observersBefore_);
}

TEST_F(ProxyObserverTest, ASubscriptionMovesWithItsClient) {
    const Client client(kRoot);
    subscribe(client, "me", "tick");

    client.server->setUser(kAlice);
    post(client, "tick");

    EXPECT_EQ(client.connection->sent.size(), 1U);
}

TEST_F(ProxyObserverTest, AnObserverOfAnUnpluggedOperatorSendsNothing) {
    const Client client(kAlice);
    const auto observer = ProxyObserver::initWithOperatorForObserverNotificationSource(
        client.server, "me", "tick", std::nullopt);

    client.server->unplug();
    center().postNotificationNameObjectUserInfo("tick", std::nullopt, nullptr);

    EXPECT_TRUE(client.connection->sent.empty());
}

TEST_F(ProxyObserverTest, AnObserverUnregistersItselfWhenItGoes) {
    const Client client(kAlice);
    auto observer = ProxyObserver::initWithOperatorForObserverNotificationSource(
        client.server, "me", "tick", std::nullopt);
    EXPECT_EQ(center().observerCount(), observersBefore_ + 1);

    observer.reset();

    EXPECT_EQ(center().observerCount(), observersBefore_);
}

TEST_F(ProxyObserverTest, PostsOfTheProcessItselfAreRelayedToo) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");

    center().postNotificationNameObjectUserInfo("tick", "clock", nullptr);

    ASSERT_EQ(client.connection->sent.size(), 1U);
    EXPECT_EQ(client.connection->sent[0].encodedRest, encoded("tick", "clock", nullptr));
}

TEST_F(ProxyObserverTest, WhatCannotBeSentIsNotRelayed) {
    const Client client(kAlice);
    subscribe(client, "me", "tick");

    center().postNotificationNameObjectUserInfo("tick", std::nullopt,
                                                Dictionary{{"object", std::make_shared<Object>()}});
    post(client, "tick");

    EXPECT_EQ(client.connection->sent.size(), 1U);
}

TEST_F(ProxyObserverTest, ForwardsWhatNoCentreHasPosted) {
    const Client client(kAlice);
    const auto observer = ProxyObserver::initWithOperatorForObserverNotificationSource(
        client.server, "me", "tick", std::nullopt);

    observer->forwardNotification({"one", std::nullopt, nullptr});
    observer->forwardNotification({"two", std::nullopt, nullptr});

    ASSERT_EQ(client.connection->sent.size(), 2U);
    EXPECT_EQ(client.connection->sent[0].encodedRest, encoded("one", nullptr, nullptr));
    EXPECT_EQ(client.connection->sent[1].encodedRest, encoded("two", nullptr, nullptr));
}

TEST_F(ProxyObserverTest, AnObserverLimitedToASourceHearsOfThatSourceOnly) {
    const Client client(kAlice);
    const auto observer = ProxyObserver::observing(client.server, "me", "tick", "clock");

    post(client, "tick", "bell");
    post(client, "tick", "clock");
    post(client, "tick");

    ASSERT_EQ(client.connection->sent.size(), 1U);
    EXPECT_EQ(client.connection->sent[0].encodedRest, encoded("tick", "clock", nullptr));
}

TEST_F(ProxyObserverTest, TheCanonicalObjectOfASourceIsItsText) {
    const Client client(kAlice);
    EXPECT_EQ(ProxyObserver::sourceObjectForIdentifier("clock"), "clock");
    EXPECT_EQ(ProxyObserver::sourceObjectForIdentifier(std::nullopt), std::nullopt);

    auto first = ProxyObserver::observing(client.server, "first", "tick", "clock");
    auto second = ProxyObserver::observing(client.server, "second", "tick", "clock");
    EXPECT_EQ(ProxyObserver::sourceObjectForIdentifier("clock"), "clock");
    first.reset();
    EXPECT_EQ(ProxyObserver::sourceObjectForIdentifier("clock"), "clock");
    second.reset();
    EXPECT_EQ(ProxyObserver::sourceObjectForIdentifier("clock"), "clock");
}

TEST_F(ProxyObserverTest, ObserversAreCountedForTheClientsUser) {
    const Client ofAlice(kAlice);
    const Client ofRoot(kRoot);
    const auto count = [](uid_t user) {
        const RegistryLock lock;
        return ProxyObserver::countOfUser(user);
    };
    subscribe(ofAlice, "me", "tick");
    subscribe(ofAlice, "you", "tick");
    subscribe(ofRoot, "me", "tick");

    ofRoot.server->setUser(kAlice);
    EXPECT_EQ(count(kAlice), 2U);
    EXPECT_EQ(count(kRoot), 1U);

    ofRoot.server->unplug();
    ofAlice.server->removeObserver("me");
    EXPECT_EQ(count(kAlice), 1U);
    EXPECT_EQ(count(kRoot), 0U);
}

}  // namespace
}  // namespace sevrin
