// Tests of the server object: acceptance, publishing, looking up, moving, limits and its end.
#include "switchboard/VeloraOperator.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Class.h"
#include "Platform/XPCLimits.h"
#include "switchboard/TestRegistry.h"

namespace sevrin {
namespace {

using platform::Class;
using platform::Dictionary;
using platform::Invocation;
using platform::NSNotification;
using platform::NSXPCInterface;
using platform::Value;

class VeloraOperatorTest : public testing::Test, protected TestRegistry {
protected:
    // "name source id", for each notification posted so far.
    std::vector<std::string> postedTexts() const {
        std::vector<std::string> texts;
        for (const NSNotification& posted : posts_) {
            const Value* id = posted.userInfo.ifDictionary()->find(kIdentifierKey);
            texts.push_back(posted.name + " " + *posted.object + " " + *id->ifString());
        }
        return texts;
    }

    // The line about a client of `user` that lost its connection.
    static std::string disconnected(std::uint32_t user, const std::string& what) {
        return "9 disconnected a client of user " + std::to_string(user) + " (process 1): " + what;
    }
};

TEST_F(VeloraOperatorTest, ServesAConnectionOfAServedUser) {
    const Client client(kAlice);

    ASSERT_NE(client.server, nullptr);
    EXPECT_EQ(client.server->userID(), kAlice);
    EXPECT_EQ(client.server->connection(), client.connection);
}

TEST_F(VeloraOperatorTest, RefusesAConnectionOfAnyOtherUserAndLeavesItAsItCame) {
    const Client client(kNobody);

    EXPECT_EQ(client.server, nullptr);
    EXPECT_EQ(client.connection->remoteObjectInterface(), nullptr);
    EXPECT_FALSE(client.connection->hasInvalidationHandler());
}

TEST_F(VeloraOperatorTest, ExpectsTheClientToSubscribe) {
    const Client client(kAlice);

    ASSERT_NE(client.connection->remoteObjectInterface(), nullptr);
    EXPECT_EQ(&client.connection->remoteObjectInterface()->protocol(),
              &SwitchboardSubscribing::protocol());
}

TEST_F(VeloraOperatorTest, LeavesTheExportedInterfaceAsItIs) {
    const auto interface = NSXPCInterface::interfaceWithProtocol(SVComponentServing::protocol());

    const auto server = VeloraOperator::serverObjectForConnectionCustomizingInterface(
        FakeConnection::ofUser(kAlice), interface);

    EXPECT_NE(server, nullptr);
    EXPECT_EQ(&interface->protocol(), &SVComponentServing::protocol());
}

TEST_F(VeloraOperatorTest, InstallsNoInterruptionHandler) {
    const Client client(kAlice);

    EXPECT_TRUE(client.connection->hasInvalidationHandler());
    EXPECT_FALSE(client.connection->hasInterruptionHandler());
}

TEST_F(VeloraOperatorTest, IsFoundByNameOnceRegistered) {
    registerSwitchboardClasses();
    registerSwitchboardClasses();

    Class* const found = Class::named("VeloraOperator");
    ASSERT_EQ(found, &VeloraOperator::classObject());
    const auto* const method =
        found->classMethod(SVConnectionObjectFactory::kServerObjectForConnection);
    ASSERT_NE(method, nullptr);
    std::array<Value, 2> arguments{
        FakeConnection::ofUser(kAlice),
        NSXPCInterface::interfaceWithProtocol(VeloraSwitchboarding_private::protocol())};
    Invocation invocation{arguments, {}};
    EXPECT_NE((*method)(nullptr, invocation).object<VeloraOperator>(), nullptr);
}

TEST_F(VeloraOperatorTest, AnswersEverySelectorOfItsProtocol) {
    const Client client(kAlice);

    for (const auto* method : VeloraSwitchboarding_private::protocol().allMethods()) {
        EXPECT_TRUE(client.server->respondsToSelector(method->selector)) << method->selector;
    }
}

TEST_F(VeloraOperatorTest, RepliesItsVersionAndBuildNumber) {
    const Client client(kAlice);
    std::string version;
    std::uint32_t build = 0;

    client.server->queryComponentVersionWithReply([&](std::string reply) { version = reply; });
    client.server->queryBuildNumberWithReply([&](std::uint32_t reply) { build = reply; });

    EXPECT_EQ(version, "Switchboard-2.2.5.12");
    EXPECT_EQ(build, 140556U);
    EXPECT_EQ(build, (2U << 16) | (2U << 12) | (5U << 8) | 12U);
}

TEST_F(VeloraOperatorTest, TheBarrierCompletesAtOnce) {
    const Client client(kAlice);
    int completed = 0;

    client.server->barrierWithCompletion([&] { ++completed; });

    EXPECT_EQ(completed, 1);
}

TEST_F(VeloraOperatorTest, TheInstallHooksChangeNothing) {
    Client client(kAlice);
    const EndpointPtr endpoint = client.publish("clock");

    client.server->didInstallComponent();
    client.server->willUninstallComponent();

    EXPECT_EQ(client.query("clock"), endpoint);
    EXPECT_EQ(client.connection->invalidated, 0);
}

TEST_F(VeloraOperatorTest, WhatOneClientPublishesAnotherOfTheSameUserFinds) {
    Client publisher(kAlice);
    const Client asker(kAlice);

    const EndpointPtr endpoint = publisher.publish("clock");

    EXPECT_EQ(asker.query("clock"), endpoint);
    EXPECT_EQ(publisher.server->namedEndpoint("clock"), endpoint);
    EXPECT_EQ(publisher.server->namedEndpointCount(), 1U);
}

TEST_F(VeloraOperatorTest, WhatOneUserPublishesNoOtherFinds) {
    Client publisher(kAlice);
    publisher.publish("clock");

    EXPECT_EQ(Client(kBob).query("clock"), nullptr);
    EXPECT_EQ(Client(kRoot).query("clock"), nullptr);
}

TEST_F(VeloraOperatorTest, AnUnknownIdentifierIsRepliedWithNothing) {
    EXPECT_EQ(Client(kAlice).query("clock"), nullptr);
    EXPECT_EQ(Client(kAlice).query(""), nullptr);
}

TEST_F(VeloraOperatorTest, ALaterEndpointReplacesTheClientsEarlierOne) {
    Client client(kAlice);
    client.publish("clock");

    const EndpointPtr later = client.publish("clock");

    EXPECT_EQ(client.query("clock"), later);
    EXPECT_EQ(client.server->namedEndpointCount(), 1U);
}

TEST_F(VeloraOperatorTest, ARedactedEndpointIsFoundNoMore) {
    Client client(kAlice);
    client.publish("clock");

    client.redact("clock");

    EXPECT_EQ(client.query("clock"), nullptr);
    EXPECT_EQ(client.server->namedEndpointCount(), 0U);
}

TEST_F(VeloraOperatorTest, AClientRedactsOnlyItsOwn) {
    Client publisher(kAlice);
    Client other(kAlice);
    const EndpointPtr endpoint = publisher.publish("clock");

    other.redact("clock");

    EXPECT_EQ(other.query("clock"), endpoint);
    EXPECT_EQ(posts_.size(), 1U);  // The publishing alone.
}

TEST_F(VeloraOperatorTest, PublishingNothingRedacts) {
    Client client(kAlice);
    client.publish("clock");

    client.publish("clock", nullptr);

    EXPECT_EQ(client.query("clock"), nullptr);
    EXPECT_EQ(posts_.back().name, "SwitchboardEndpointRedacted");
}

TEST_F(VeloraOperatorTest, PublishingIsPostedEveryTimeAndRedactingOnce) {
    Client client(kAlice);

    const EndpointPtr endpoint = client.publish("clock");
    client.publish("clock", endpoint);
    client.redact("clock");
    client.redact("clock");

    EXPECT_EQ(postedTexts(),
              (std::vector<std::string>{"SwitchboardEndpointPublished Switchboard clock",
                                        "SwitchboardEndpointPublished Switchboard clock",
                                        "SwitchboardEndpointRedacted Switchboard clock"}));
    EXPECT_EQ(posts_.front().userInfo, Value(Dictionary{{"id", "clock"}}));
}

TEST_F(VeloraOperatorTest, RedactingTheUnknownPostsNothing) {
    Client client(kAlice);

    client.redact("clock");
    client.publish("clock", nullptr);

    EXPECT_TRUE(posts_.empty());
}

TEST_F(VeloraOperatorTest, PostsWhatTheClientSays) {
    const Client client(kAlice);

    client.server->postNotificationNameSourceUserInfo("tick", "clock", Dictionary{{"n", 1}});
    client.server->postNotificationNameSourceUserInfo("tock", std::nullopt, nullptr);

    ASSERT_EQ(posts_.size(), 2U);
    EXPECT_EQ(posts_[0].name, "tick");
    EXPECT_EQ(posts_[0].object, "clock");
    EXPECT_EQ(posts_[0].userInfo, Value(Dictionary{{"n", 1}}));
    EXPECT_EQ(posts_[1].name, "tock");
    EXPECT_EQ(posts_[1].object, std::nullopt);
    EXPECT_TRUE(posts_[1].userInfo.isNull());
}

TEST_F(VeloraOperatorTest, AnEndedConnectionTakesItsEndpointsAlong) {
    Client publisher(kAlice);
    const Client asker(kAlice);
    publisher.publish("clock");

    publisher.disconnect();

    EXPECT_EQ(asker.query("clock"), nullptr);
    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice)->operators().size(), 1U);
}

TEST_F(VeloraOperatorTest, AnEndedConnectionReleasesItsOperator) {
    Client client(kAlice);
    client.server->addProxyObserverForNameSource("me", "tick", std::nullopt);
    const std::weak_ptr<VeloraOperator> watched = client.server;

    client.disconnect();

    EXPECT_EQ(client.connection->exportedObject(), nullptr);
    EXPECT_TRUE(watched.expired());
}

TEST_F(VeloraOperatorTest, TheInvalidationHandlerOwnsNeitherSide) {
    auto connection = FakeConnection::ofUser(kAlice);
    std::weak_ptr<FakeConnection> watched = connection;
    auto server = VeloraOperator::initWithSwitchboardForConnection(
        *UserSwitchboard::switchboardForUser(kAlice), connection);
    server->unplug();
    server.reset();

    connection.reset();

    EXPECT_TRUE(watched.expired());
}

TEST_F(VeloraOperatorTest, UnplugCutsEveryTie) {
    Client client(kAlice);
    const EndpointPtr endpoint = client.publish("clock");
    client.server->addProxyObserverForNameSource("me", "tick", std::nullopt);

    client.server->unplug();

    EXPECT_EQ(client.server->userID(), std::nullopt);
    EXPECT_EQ(client.server->connection(), nullptr);
    EXPECT_EQ(client.server->observerCount(), 0U);
    EXPECT_FALSE(client.connection->hasInvalidationHandler());
    EXPECT_FALSE(client.connection->hasInterruptionHandler());
    EXPECT_EQ(client.connection->invalidated, 1);
    EXPECT_TRUE(UserSwitchboard::switchboardForUser(kAlice)->operators().empty());
}

TEST_F(VeloraOperatorTest, UnplugEndsTheConnectionLast) {
    const Client client(kAlice);
    client.server->addProxyObserverForNameSource("me", "tick", std::nullopt);
    client.connection->onInvalidate = [&] {
        EXPECT_EQ(client.server->observerCount(), 0U);
        EXPECT_EQ(client.server->userID(), std::nullopt);
        EXPECT_EQ(client.server->connection(), nullptr);
        EXPECT_FALSE(client.connection->hasInvalidationHandler());
    };

    client.server->unplug();

    EXPECT_EQ(client.connection->invalidated, 1);
}

TEST_F(VeloraOperatorTest, UnplugTwiceInvalidatesOnce) {
    const Client client(kAlice);

    client.server->unplug();
    client.server->unplug();

    EXPECT_EQ(client.connection->invalidated, 1);
}

TEST_F(VeloraOperatorTest, WhatAnUnpluggedOperatorPublishedIsKeptButNotFound) {
    Client client(kAlice);
    const EndpointPtr endpoint = client.publish("clock");

    client.server->unplug();

    EXPECT_EQ(client.server->namedEndpoint("clock"), endpoint);
    EXPECT_EQ(client.query("clock"), nullptr);
    EXPECT_EQ(Client(kAlice).query("clock"), nullptr);
}

TEST_F(VeloraOperatorTest, AnUnpluggedOperatorTakesRequestsWithoutHarm) {
    Client client(kRoot);
    client.server->unplug();

    client.publish("clock");
    client.server->addProxyObserverForNameSource("me", "tick", std::nullopt);
    client.server->setUser(kAlice);
    client.redact("clock");

    EXPECT_EQ(client.query("clock"), nullptr);
    EXPECT_EQ(client.server->userID(), std::nullopt);
    EXPECT_EQ(client.server->observerCount(), 0U);
    EXPECT_TRUE(UserSwitchboard::switchboardForUser(kAlice)->operators().empty());
}

TEST_F(VeloraOperatorTest, AnOperatorOfRootMovesWithAllItHas) {
    Client moving(kRoot);
    const Client ofRoot(kRoot);
    const Client ofAlice(kAlice);
    const EndpointPtr endpoint = moving.publish("clock");
    moving.server->addProxyObserverForNameSource("me", "tick", std::nullopt);

    moving.server->setUser(kAlice);

    EXPECT_EQ(moving.server->userID(), kAlice);
    EXPECT_EQ(ofAlice.query("clock"), endpoint);
    EXPECT_EQ(ofRoot.query("clock"), nullptr);
    EXPECT_EQ(moving.server->observerCount(), 1U);
    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice)->operators(),
              (std::vector{ofAlice.server, moving.server}));
    EXPECT_EQ(UserSwitchboard::switchboardForUser(kRoot)->operators(), std::vector{ofRoot.server});
}

TEST_F(VeloraOperatorTest, AnOperatorThatMovedInComesAfterThoseWhoWereThere) {
    Client moving(kRoot);
    Client ofAlice(kAlice);
    moving.publish("clock");
    const EndpointPtr ofTheEarlier = ofAlice.publish("clock");

    moving.server->setUser(kAlice);

    EXPECT_EQ(moving.query("clock"), ofTheEarlier);
}

TEST_F(VeloraOperatorTest, AMovedOperatorPublishesWhereItIs) {
    Client moving(kRoot);
    moving.server->setUser(kAlice);

    const EndpointPtr endpoint = moving.publish("clock");

    EXPECT_EQ(Client(kAlice).query("clock"), endpoint);
    EXPECT_EQ(Client(kRoot).query("clock"), nullptr);
    moving.disconnect();
    EXPECT_EQ(Client(kAlice).query("clock"), nullptr);
}

TEST_F(VeloraOperatorTest, AWishToMoveNowhereIsIgnoredInSilence) {
    for (const std::uint32_t user : {kRoot, kNobody}) {
        const Client client(kRoot);
        client.server->setUser(user);
        EXPECT_EQ(client.server->userID(), kRoot);
    }
    for (const std::uint32_t user : {kRoot, kAlice}) {
        const Client client(kAlice);
        client.server->setUser(user);
        EXPECT_EQ(client.server->userID(), kAlice);
    }
    EXPECT_TRUE(loggedTexts().empty());
}

TEST_F(VeloraOperatorTest, OnlyFromRootMayAnOperatorMove) {
    const Client client(kAlice);

    client.server->setUser(kBob);
    client.server->setUser(kNobody);

    EXPECT_EQ(client.server->userID(), kAlice);
    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice)->operators(), std::vector{client.server});
    const std::string wish =
        "9 -[VeloraOperator setUser:] illegal request to transfer from switchboard ";
    EXPECT_EQ(loggedTexts(),
              (std::vector{wish + "501 to 502; ignored", wish + "501 to 503; ignored"}));
}

TEST_F(VeloraOperatorTest, AnOperatorMovesOnce) {
    const Client client(kRoot);
    client.server->setUser(kAlice);

    client.server->setUser(kBob);

    EXPECT_EQ(client.server->userID(), kAlice);
    EXPECT_EQ(loggedTexts().size(), 1U);
}

TEST_F(VeloraOperatorTest, AClientMayHoldTheMostEndpointsAndNotOneMore) {
    Client client(kAlice);
    const EndpointPtr endpoint = FakeEndpoint::make();
    for (std::size_t number = 0; number < platform::kEndpointsPerConnectionMax; ++number) {
        client.publish(std::to_string(number), endpoint);
    }
    client.publish("0", endpoint);  // Replacing needs no room.
    ASSERT_EQ(client.connection->invalidated, 0);
    posts_.clear();

    client.publish("one more", endpoint);

    EXPECT_EQ(client.connection->invalidated, 1);
    EXPECT_EQ(client.query("one more"), nullptr);
    EXPECT_TRUE(posts_.empty());
    EXPECT_EQ(loggedTexts(), std::vector{disconnected(kAlice,
                                                      "one endpoint more than a client may "
                                                      "publish")});
}

TEST_F(VeloraOperatorTest, AClientMayHoldTheMostSubscriptionsAndNotOneMore) {
    const Client client(kAlice);
    const auto subscribe = [&](const std::string& observerID) {
        client.server->addProxyObserverForNameSource(observerID, "tick", std::nullopt);
    };
    for (std::size_t number = 0; number < platform::kObserversPerConnectionMax; ++number) {
        subscribe(std::to_string(number));
    }
    subscribe("0");  // Replacing needs no room.
    ASSERT_EQ(client.connection->invalidated, 0);

    subscribe("one more");

    EXPECT_EQ(client.connection->invalidated, 1);
    EXPECT_EQ(client.server->observerCount(), platform::kObserversPerConnectionMax);
    EXPECT_EQ(loggedTexts(),
              std::vector{disconnected(kAlice, "one subscription more than a client may have")});
}

TEST_F(VeloraOperatorTest, AUserMayHoldTheMostSubscriptionsAndNotOneMore) {
    constexpr std::size_t kClients =
        platform::kObserversPerUserMax / platform::kObserversPerConnectionMax;
    const auto subscribe = [](const Client& client, std::size_t number) {
        const std::string text = std::to_string(number);
        client.server->addProxyObserverForNameSource(text, text, std::nullopt);
    };
    std::vector<std::unique_ptr<Client>> clients;
    for (std::size_t count = 0; count < kClients; ++count) {
        clients.push_back(std::make_unique<Client>(kAlice));
        for (std::size_t number = 0; number < platform::kObserversPerConnectionMax; ++number) {
            subscribe(*clients.back(), number);
        }
        ASSERT_EQ(clients.back()->connection->invalidated, 0);
    }
    const Client oneMore(kAlice);
    const Client ofBob(kBob);

    subscribe(oneMore, 0);
    subscribe(ofBob, 0);

    EXPECT_EQ(oneMore.connection->invalidated, 1);
    EXPECT_EQ(loggedTexts(),
              std::vector{disconnected(kAlice, "one subscription more than its user may have")});
    EXPECT_EQ(ofBob.connection->invalidated, 0);
    clients.front()->disconnect();
    const Client later(kAlice);
    subscribe(later, 0);
    EXPECT_EQ(later.connection->invalidated, 0);
}

// Every message that carries a text of the client's choice, with a text of `length` bytes.
std::vector<std::function<void(VeloraOperator&)>> messagesWithText(std::size_t length) {
    const std::string text(length, 'x');
    return {
        [=](VeloraOperator& server) {
            server.publishEndpointForIdentifier(FakeEndpoint::make(), text);
        },
        [=](VeloraOperator& server) { server.publishEndpointForIdentifier(nullptr, text); },
        [=](VeloraOperator& server) { server.redactEndpointForIdentifier(text); },
        [=](VeloraOperator& server) {
            server.queryEndpointForIdentifierWithReply(text, [](EndpointPtr) {});
        },
        [=](VeloraOperator& server) {
            server.addProxyObserverForNameSource(text, "tick", std::nullopt);
        },
        [=](VeloraOperator& server) {
            server.addProxyObserverForNameSource("me", text, std::nullopt);
        },
        [=](VeloraOperator& server) { server.removeObserver(text); },
    };
}

TEST_F(VeloraOperatorTest, TheLongestIdentifierIsAllowed) {
    const Client client(kAlice);

    for (const auto& message : messagesWithText(platform::kIdentifierBytesMax)) {
        message(*client.server);
        EXPECT_EQ(client.connection->invalidated, 0);
    }
}

TEST_F(VeloraOperatorTest, AnIdentifierOneByteLongerDisconnects) {
    std::vector<std::string> expectedTexts;
    for (const auto& message : messagesWithText(platform::kIdentifierBytesMax + 1)) {
        const Client client(kAlice);
        message(*client.server);
        expectedTexts.push_back(disconnected(kAlice, "an identifier or name of 1025 bytes"));
        EXPECT_EQ(client.connection->invalidated, 1);
        EXPECT_EQ(client.server->namedEndpointCount(), 0U);
        EXPECT_EQ(client.server->observerCount(), 0U);
    }
    EXPECT_TRUE(posts_.empty());
    EXPECT_EQ(loggedTexts(), expectedTexts);
}

}  // namespace
}  // namespace sevrin
