// What the tests of this folder share: a process that serves root and two users, clients that
// connect to it, and a record of what is posted and logged there.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/Assertion.h"
#include "Platform/NSNotificationCenter.h"
#include "switchboard/FakeConnection.h"
#include "switchboard/SwitchboardProtocols.h"
#include "switchboard/UserSwitchboard.h"
#include "switchboard/VeloraOperator.h"

namespace sevrin {

// A connection and the operator that serves it, as the service factory would leave them.
struct Client {
    std::shared_ptr<FakeConnection> connection;
    std::shared_ptr<VeloraOperator> server;

    // Connects a process of `user` to this process's registry.
    explicit Client(std::uint32_t user) : connection(FakeConnection::ofUser(user)) {
        server = VeloraOperator::serverObjectForConnectionCustomizingInterface(
            connection, platform::NSXPCInterface::interfaceWithProtocol(
                            VeloraSwitchboarding_private::protocol()));
        connection->setExportedObject(server);
    }

    EndpointPtr publish(const std::string& identifier,
                        EndpointPtr endpoint = FakeEndpoint::make()) {
        server->publishEndpointForIdentifier(endpoint, identifier);
        return endpoint;
    }

    void redact(const std::string& identifier) { server->redactEndpointForIdentifier(identifier); }

    [[nodiscard]] EndpointPtr query(const std::string& identifier) const {
        std::vector<EndpointPtr> replies;
        server->queryEndpointForIdentifierWithReply(
            identifier, [&](EndpointPtr found) { replies.push_back(std::move(found)); });
        SEVRIN_ASSERT(replies.size() == 1, "a query is answered at once and once");
        return replies.front();
    }

    // The process goes away. The operator lives on only if the test holds it.
    void disconnect() {
        server.reset();
        connection->end();
    }
};

// The part of a test fixture that sets the registry up and takes it down.
class TestRegistry {
protected:
    static constexpr std::uint32_t kRoot = 0;
    static constexpr std::uint32_t kAlice = 501;
    static constexpr std::uint32_t kBob = 502;
    static constexpr std::uint32_t kNobody = 503;  // not served

    TestRegistry() {
        for (const std::uint32_t user : {kAlice, kBob, kRoot}) {
            UserSwitchboard::createSwitchboardForUser(user);
        }
        recorder_ = center().addObserver(
            std::nullopt, std::nullopt,
            [this](const platform::NSNotification& posted) { posts_.push_back(posted); });
    }

    ~TestRegistry() {
        center().removeObserver(recorder_);
        UserSwitchboard::shutdownSwitchboards();
    }

    TestRegistry(const TestRegistry&) = delete;
    TestRegistry& operator=(const TestRegistry&) = delete;

    static platform::NSNotificationCenter& center() {
        return platform::NSNotificationCenter::defaultCenter();
    }

    // What was logged in this process, in order: the classification and the message of each line.
    [[nodiscard]] std::vector<std::string> loggedTexts() const {
        std::vector<std::string> texts;
        for (const std::string& line : logger_->lines())
            texts.push_back(line.substr(0, line.rfind(" [")));
        return texts;
    }

    // What was posted in this process, in order.
    std::vector<platform::NSNotification> posts_;

private:
    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger isDefault_{logger_};
    platform::NSNotificationCenter::Observer recorder_;
};

}  // namespace sevrin
