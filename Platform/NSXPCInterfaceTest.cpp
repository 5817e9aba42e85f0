// Contract tests of interfaces: the protocol that they carry is the one that is enforced.
#include "Platform/NSXPCInterface.h"

#include <gtest/gtest.h>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace xpctest;

TEST(NSXPCInterfaceTest, ItCarriesItsProtocolUntilItGetsAnother) {
    const auto interface = NSXPCInterface::interfaceWithProtocol(serviceProtocol());
    EXPECT_EQ(&interface->protocol(), &serviceProtocol());

    interface->setProtocol(clientProtocol());

    EXPECT_EQ(&interface->protocol(), &clientProtocol());
}

TEST(NSXPCInterfaceTest, AMethodOutsideTheExportedProtocolIsABreach) {
    Event ended;
    FaultLog log;
    TestServer server;
    server.onConnection = [](const auto& connection) {
        connection->exportedInterface()->setProtocol(clientProtocol());
        return true;
    };
    const auto client = server.client();
    client->setInvalidationHandler([&] { ended.happen(); });
    client->resume();

    note(*client, "not in that protocol");

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(log.faults(), std::vector<std::string>{"an unknown selector"});
}

TEST(NSXPCInterfaceTest, WithoutAnExportedInterfaceEveryMessageIsABreach) {
    Event ended;
    FaultLog log;
    TestServer server;
    const auto client = server.client();
    client->setInvalidationHandler([&] { ended.happen(); });
    client->resume();
    const auto connection = server.accepted();
    ASSERT_TRUE(connection);

    push(*connection, "the client exports nothing");

    EXPECT_TRUE(ended.wait());
    EXPECT_EQ(client->failure()->code, XPCError::Code::BadAnswer);
    EXPECT_EQ(log.faults(), std::vector<std::string>{"an unknown selector"});
}

TEST(NSXPCInterfaceTest, AnInheritedMethodIsOffered) {
    static const Protocol& derived =
        *new Protocol("DerivedTestServing", {&serviceProtocol()}, {{"own", {}, false, {}, true}});
    TestServer server;
    server.onConnection = [](const auto& connection) {
        connection->exportedInterface()->setProtocol(derived);
        return true;
    };
    const auto client = server.connect();

    EXPECT_EQ(textOf(ask(*client, "inherited")), "inherited");
}

}  // namespace
}  // namespace sevrin::platform
