// Tests of the registry: who is served, in which order clients are asked, and that the index gives
// what a walk over them would.
#include "switchboard/UserSwitchboard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "switchboard/TestRegistry.h"

namespace sevrin {
namespace {

using Operators = std::vector<std::shared_ptr<VeloraOperator>>;

class UserSwitchboardTest : public testing::Test, protected TestRegistry {};

TEST(UserSwitchboardRegistryTest, ServesNobodyBeforeTheFirstIsCreated) {
    EXPECT_EQ(UserSwitchboard::switchboardForUser(501), nullptr);
}

TEST(UserSwitchboardRegistryTest, AFreshSwitchboardIsEmpty) {
    const auto switchboard = UserSwitchboard::initWithUser(501);

    EXPECT_EQ(switchboard->userID(), 501U);
    EXPECT_TRUE(switchboard->operators().empty());
    EXPECT_EQ(switchboard->endpointForIdentifier("clock"), nullptr);
}

TEST_F(UserSwitchboardTest, EveryUserHasAnOwnSwitchboard) {
    const auto alice = UserSwitchboard::switchboardForUser(kAlice);
    const auto bob = UserSwitchboard::switchboardForUser(kBob);

    ASSERT_NE(alice, nullptr);
    ASSERT_NE(bob, nullptr);
    EXPECT_EQ(alice->userID(), kAlice);
    EXPECT_EQ(bob->userID(), kBob);
    EXPECT_EQ(UserSwitchboard::switchboardForUser(kNobody), nullptr);
}

TEST_F(UserSwitchboardTest, ASecondSwitchboardOfAUserReplacesAndShutsDownTheFirst) {
    Client client(kAlice);
    client.publish("clock");
    const std::weak_ptr<UserSwitchboard> former = UserSwitchboard::switchboardForUser(kAlice);

    UserSwitchboard::createSwitchboardForUser(kAlice);

    EXPECT_TRUE(former.expired());
    EXPECT_EQ(client.connection->invalidated, 1);
    EXPECT_EQ(client.server->userID(), std::nullopt);
    ASSERT_NE(UserSwitchboard::switchboardForUser(kAlice), nullptr);
    EXPECT_EQ(Client(kAlice).query("clock"), nullptr);
}

TEST_F(UserSwitchboardTest, OperatorsStandInTheOrderInWhichTheyJoined) {
    const Client first(kAlice);
    const Client second(kAlice);
    const Client ofBob(kBob);
    const Client third(kAlice);

    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice)->operators(),
              (Operators{first.server, second.server, third.server}));
}

TEST_F(UserSwitchboardTest, AnOperatorThatLeavesKeepsTheOthersInOrder) {
    const Client first(kAlice);
    const Client second(kAlice);
    const Client third(kAlice);

    second.server->unplug();

    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice)->operators(),
              (Operators{first.server, third.server}));
}

TEST_F(UserSwitchboardTest, ShutdownUnplugsEveryOperator) {
    const Client first(kAlice);
    const Client second(kAlice);
    const Client ofBob(kBob);
    const auto switchboard = UserSwitchboard::switchboardForUser(kAlice);

    switchboard->shutdown();

    EXPECT_TRUE(switchboard->operators().empty());
    EXPECT_EQ(first.connection->invalidated, 1);
    EXPECT_EQ(second.connection->invalidated, 1);
    EXPECT_EQ(ofBob.connection->invalidated, 0);
}

TEST_F(UserSwitchboardTest, DestructionShutsDown) {
    auto switchboard = UserSwitchboard::initWithUser(kNobody);
    const auto connection = FakeConnection::ofUser(kNobody);
    const auto served = VeloraOperator::initWithSwitchboardForConnection(*switchboard, connection);

    switchboard.reset();

    EXPECT_EQ(connection->invalidated, 1);
    EXPECT_EQ(served->userID(), std::nullopt);
}

TEST_F(UserSwitchboardTest, ShutdownOfAllUnplugsEverybodyAndServesNobody) {
    const Client ofAlice(kAlice);
    const Client ofBob(kBob);

    UserSwitchboard::shutdownSwitchboards();

    EXPECT_EQ(ofAlice.connection->invalidated, 1);
    EXPECT_EQ(ofBob.connection->invalidated, 1);
    for (const std::uint32_t user : {kAlice, kBob, kRoot}) {
        EXPECT_EQ(UserSwitchboard::switchboardForUser(user), nullptr);
    }
}

TEST_F(UserSwitchboardTest, ShutdownOfAllIsHarmlessWhenDoneTwice) {
    UserSwitchboard::shutdownSwitchboards();
    UserSwitchboard::shutdownSwitchboards();

    EXPECT_EQ(UserSwitchboard::switchboardForUser(kAlice), nullptr);
}

TEST_F(UserSwitchboardTest, TheEarliestPublisherWinsUntilItDisconnects) {
    Client first(kAlice);
    Client second(kAlice);
    const EndpointPtr ofSecond = second.publish("clock");
    const EndpointPtr ofFirst = first.publish("clock");
    const auto switchboard = UserSwitchboard::switchboardForUser(kAlice);

    EXPECT_EQ(switchboard->endpointForIdentifier("clock"), ofFirst);
    first.disconnect();
    EXPECT_EQ(switchboard->endpointForIdentifier("clock"), ofSecond);
    second.disconnect();
    EXPECT_EQ(switchboard->endpointForIdentifier("clock"), nullptr);
}

TEST_F(UserSwitchboardTest, TheEarliestPublisherWinsUntilItRedacts) {
    Client first(kAlice);
    Client second(kAlice);
    first.publish("clock");
    const EndpointPtr ofSecond = second.publish("clock");

    first.redact("clock");

    EXPECT_EQ(first.query("clock"), ofSecond);
}

TEST_F(UserSwitchboardTest, APublisherThatRedactedAndPublishesAgainIsEarliestStill) {
    Client first(kAlice);
    Client second(kAlice);
    first.publish("clock");
    second.publish("clock");

    first.redact("clock");
    const EndpointPtr again = first.publish("clock");

    EXPECT_EQ(second.query("clock"), again);
}

// Clients on one thread, the end of all service on another: what happens at process shutdown.
TEST_F(UserSwitchboardTest, ShutdownMeetsMessagesWithoutHarm) {
    std::vector<std::unique_ptr<Client>> clients;
    for (int number = 0; number < 20; ++number)
        clients.push_back(std::make_unique<Client>(kRoot));

    std::thread messages([&] {
        for (int round = 0; round < 200; ++round) {
            for (const auto& client : clients) {
                const std::string identifier = std::to_string(round % 7);
                client->server->publishEndpointForIdentifier(FakeEndpoint::make(), identifier);
                client->server->addProxyObserverForNameSource(identifier, "tick", std::nullopt);
                client->server->postNotificationNameSourceUserInfo("tick", "test", nullptr);
                client->server->setUser(kBob);
                static_cast<void>(client->query(identifier));
            }
        }
    });
    UserSwitchboard::shutdownSwitchboards();
    messages.join();

    for (const auto& client : clients) {
        EXPECT_EQ(client->server->userID(), std::nullopt);
        EXPECT_EQ(client->query("0"), nullptr);
    }
}

// The plain form of the registry: what the index must agree with.
class NaiveRegistry {
public:
    using Published = std::map<std::string, EndpointPtr>;
    struct Member {
        int client;
        Published published;
    };

    EndpointPtr walk(std::uint32_t user, const std::string& identifier) {
        for (const Member& member : users[user]) {
            const auto found = member.published.find(identifier);
            if (found != member.published.end()) return found->second;
        }
        return nullptr;
    }

    // Where a client is; it is there exactly once, or nowhere.
    Member* find(int client) {
        for (auto& [user, members] : users) {
            for (Member& member : members) {
                if (member.client == client) return &member;
            }
        }
        return nullptr;
    }

    void erase(int client) {
        for (auto& [user, members] : users) {
            std::erase_if(members, [&](const Member& member) { return member.client == client; });
        }
    }

    std::map<std::uint32_t, std::vector<Member>> users;
};

class RegistryAgainstWalkTest : public testing::TestWithParam<unsigned>, protected TestRegistry {
protected:
    static constexpr int kSteps = 4'000;

    void step() {
        const auto choice = random_() % 100;
        const std::uint32_t user = std::vector{kRoot, kAlice, kBob}[random_() % 3];
        if (clients_.size() < 3 || (choice < 10 && clients_.size() < 25)) return connect(user);

        const auto chosen =
            std::next(clients_.begin(), static_cast<int>(random_() % clients_.size()));
        const auto& [number, client] = *chosen;
        const std::string identifier = anyIdentifier();
        if (choice < 60) {
            expected_.find(number)->published[identifier] = client->publish(identifier);
        } else if (choice < 80) {
            expected_.find(number)->published.erase(identifier);
            client->redact(identifier);
        } else if (choice < 90) {
            transfer(number, *client, user);
        } else if (choice < 99) {
            expected_.erase(number);
            client->disconnect();
            clients_.erase(chosen);
        } else {
            replace(user);
        }
    }

    void check() {
        for (const std::uint32_t user : {kRoot, kAlice, kBob}) {
            const auto switchboard = UserSwitchboard::switchboardForUser(user);
            const std::string identifier = anyIdentifier();
            ASSERT_EQ(switchboard->endpointForIdentifier(identifier),
                      expected_.walk(user, identifier));
            Operators order;
            for (const auto& member : expected_.users[user]) {
                order.push_back(clients_.at(member.client)->server);
            }
            ASSERT_EQ(switchboard->operators(), order);
        }
    }

private:
    std::string anyIdentifier() { return "com.example." + std::to_string(random_() % 9); }

    void connect(std::uint32_t user) {
        const int number = next_++;
        clients_[number] = std::make_unique<Client>(user);
        expected_.users[user].push_back({number, {}});
    }

    void transfer(int number, Client& client, std::uint32_t user) {
        const bool moves = client.server->userID() == kRoot && user != kRoot;
        client.server->setUser(user);
        if (!moves) return;
        const NaiveRegistry::Member moved = *expected_.find(number);
        expected_.erase(number);
        expected_.users[user].push_back(moved);
    }

    void replace(std::uint32_t user) {
        UserSwitchboard::createSwitchboardForUser(user);
        for (const auto& member : expected_.users[user])
            clients_.erase(member.client);
        expected_.users[user].clear();
    }

    std::mt19937 random_{GetParam()};
    std::map<int, std::unique_ptr<Client>> clients_;
    NaiveRegistry expected_;
    int next_ = 0;
};

TEST_P(RegistryAgainstWalkTest, TheIndexGivesWhatTheWalkGives) {
    for (int i = 0; i < kSteps; ++i) {
        step();
        check();
        if (HasFatalFailure()) FAIL() << "after step " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RegistryAgainstWalkTest, testing::Range(1U, 6U));

}  // namespace
}  // namespace sevrin
