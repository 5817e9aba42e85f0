// Contract tests of endpoints: the capability to connect, handed around by way of a third process's
// place, a broker that knows nothing of what it passes on.
#include "Platform/NSXPCListenerEndpoint.h"

#include <gtest/gtest.h>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"

namespace sevrin::platform {
namespace {

using namespace xpctest;

using Code = XPCError::Code;
using EndpointPtr = std::shared_ptr<NSXPCListenerEndpoint>;

// A server that keeps the endpoint it is given and hands it to whoever asks.
class Broker : public TestServer {
public:
    Broker() {
        service->onEndpoint = [this](EndpointPtr endpoint) { kept_ = std::move(endpoint); };
        service->onAskEndpoint = [this] { return kept_; };
    }

    void publish(NSXPCConnection& publisher, const EndpointPtr& endpoint) {
        publisher.send(serviceMethod("keepEndpoint:"), std::vector<Value>{endpoint});
        (void)publisher.requestAndWait(serviceMethod("barrierWithCompletion:"), {}, patience());
    }

    [[nodiscard]] EndpointPtr query(NSXPCConnection& consumer) {
        const auto answer =
            consumer.requestAndWait(serviceMethod("askEndpointWithReply:"), {}, patience());
        const auto* values = std::get_if<ValueArray>(&answer);
        return values ? (*values)[0].object<NSXPCListenerEndpoint>() : nullptr;
    }

private:
    EndpointPtr kept_;  // Used on the XPC thread only.
};

std::shared_ptr<NSXPCConnection> connectTo(const EndpointPtr& endpoint) {
    auto connection = NSXPCConnection::initWithListenerEndpoint(endpoint);
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
    connection->resume();
    return connection;
}

TEST(NSXPCListenerEndpointTest, EndpointsOfOneListenerAreEqualAndOfTwoAreNot) {
    const auto first = NSXPCListener::anonymousListener();
    const auto second = NSXPCListener::anonymousListener();

    EXPECT_TRUE(first->endpoint()->isEqual(*first->endpoint()));
    EXPECT_EQ(first->endpoint()->hash(), first->endpoint()->hash());
    EXPECT_FALSE(first->endpoint()->isEqual(*second->endpoint()));
    EXPECT_FALSE(first->endpoint()->isEqual(Object()));
}

TEST(NSXPCListenerEndpointTest, ItsClassIsTheOneOfItsName) {
    const auto listener = NSXPCListener::anonymousListener();

    EXPECT_EQ(&listener->endpoint()->isa(), &NSXPCListenerEndpoint::classObject());
    EXPECT_EQ(NSXPCListenerEndpoint::classObject().name(), "NSXPCListenerEndpoint");
}

TEST(NSXPCListenerEndpointTest, AnEndpointThatHasTravelledEqualsTheOneThatWasSent) {
    Broker broker;
    const auto publisher = broker.connect();
    const auto consumer = broker.connect();
    const auto sent = NSXPCListener::anonymousListener();

    broker.publish(*publisher, sent->endpoint());
    const EndpointPtr received = broker.query(*consumer);

    ASSERT_TRUE(received);
    EXPECT_NE(received, sent->endpoint());
    EXPECT_TRUE(received->isEqual(*sent->endpoint()));
    EXPECT_TRUE(sent->endpoint()->isEqual(*received));
    EXPECT_EQ(received->hash(), sent->endpoint()->hash());
}

TEST(NSXPCListenerEndpointTest, TwoEndpointsOfOneMessageKeepTheirPlaces) {
    Mailbox<EndpointPtr> received;
    TestServer server;
    server.service->onEndpoint = [&](EndpointPtr endpoint) { received.put(std::move(endpoint)); };
    const auto client = server.connect();
    const auto first = NSXPCListener::anonymousListener();
    const auto second = NSXPCListener::anonymousListener();

    client->send(serviceMethod("keepEndpoint:andEndpoint:"),
                 std::vector<Value>{first->endpoint(), second->endpoint()});
    client->send(serviceMethod("keepEndpoint:andEndpoint:"),
                 std::vector<Value>{second->endpoint(), second->endpoint()});

    for (const auto& expected : {first, second, second, second}) {
        const auto endpoint = received.take();
        ASSERT_TRUE(endpoint && *endpoint);
        EXPECT_TRUE((*endpoint)->isEqual(*expected->endpoint()));
    }
}

TEST(NSXPCListenerEndpointTest, WhoeverReceivesItTalksToThePublisher) {
    Broker broker;
    TestServer publisher;
    const auto link = broker.connect();
    broker.publish(*link, publisher.listener().endpoint());
    const auto consumer = broker.connect();

    const auto direct = connectTo(broker.query(*consumer));

    EXPECT_EQ(textOf(ask(*direct, "face to face")), "face to face");
    direct->invalidate();
}

TEST(NSXPCListenerEndpointTest, ItOutlivesWhoeverPassedItOn) {
    TestServer publisher;
    EndpointPtr endpoint;
    {
        Broker broker;
        const auto link = broker.connect();
        broker.publish(*link, publisher.listener().endpoint());
        endpoint = broker.query(*broker.connect());
    }

    const auto direct = connectTo(endpoint);

    EXPECT_EQ(textOf(ask(*direct, "still there?")), "still there?");
    direct->invalidate();
}

TEST(NSXPCListenerEndpointTest, ItLeadsNowhereOnceItsListenerIsGone) {
    Broker broker;
    EndpointPtr endpoint;
    {
        TestServer publisher;
        const auto link = broker.connect();
        broker.publish(*link, publisher.listener().endpoint());
        endpoint = broker.query(*broker.connect());
    }

    const auto direct = connectTo(endpoint);

    EXPECT_EQ(direct->failure()->code, Code::NoService);
    EXPECT_EQ(codeOf(ask(*direct, "?")), Code::NoService);
}

TEST(NSXPCListenerEndpointTest, AHundredEndpointsInARowArriveInTheirOrder) {
    Mailbox<EndpointPtr> received;
    TestServer server;
    server.service->onEndpoint = [&](EndpointPtr endpoint) { received.put(std::move(endpoint)); };
    const auto client = server.client();
    std::vector<std::shared_ptr<NSXPCListener>> listeners;
    for (int i = 0; i < 100; ++i) {
        listeners.push_back(NSXPCListener::anonymousListener());
        client->send(serviceMethod("keepEndpoint:"),
                     std::vector<Value>{listeners.back()->endpoint()});
        note(*client, "between");
    }

    client->resume();

    for (const auto& listener : listeners) {
        const auto endpoint = received.take();
        ASSERT_TRUE(endpoint && *endpoint);
        EXPECT_TRUE((*endpoint)->isEqual(*listener->endpoint()));
    }
}

}  // namespace
}  // namespace sevrin::platform
