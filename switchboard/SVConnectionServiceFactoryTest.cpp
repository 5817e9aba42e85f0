// Tests of the factory: which connections it accepts, and in what state it leaves them.
#include "switchboard/SVConnectionServiceFactory.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>

#include "Platform/Class.h"
#include "switchboard/FakeConnection.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {
namespace {

using platform::Class;
using platform::Invocation;
using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::Object;
using platform::ObjectPtr;
using platform::Value;

// Registers a server class for the length of a test.
class SVConnectionServiceFactoryTest : public testing::Test {
protected:
    using Decision = std::function<ObjectPtr(const std::shared_ptr<NSXPCConnection>&,
                                             const std::shared_ptr<NSXPCInterface>&)>;

    void registerServerClass(Decision decision) {
        serverClass_.emplace(
            kServerClass, &Object::classObject(), Class::MethodTable{},
            Class::MethodTable{{SVConnectionObjectFactory::kServerObjectForConnection,
                                [decision = std::move(decision)](Object*, Invocation& message) {
                                    return Value(
                                        decision(message.arguments[0].object<NSXPCConnection>(),
                                                 message.arguments[1].object<NSXPCInterface>()));
                                }}});
    }
    void unregisterServerClass() { serverClass_.reset(); }

    std::shared_ptr<SVConnectionServiceFactory> makeFactory() {
        return SVConnectionServiceFactory::initWithListenerServerClassConformingTo(
            listener_, kServerClass, VeloraSwitchboarding_private::protocol());
    }

    static constexpr const char* kServerClass = "SVConnectionServiceFactoryTest.Server";
    const std::shared_ptr<FakeListener> listener_ = FakeListener::make();
    const std::shared_ptr<FakeConnection> connection_ = FakeConnection::ofUser(501);
    std::optional<Class> serverClass_;
};

TEST_F(SVConnectionServiceFactoryTest, BecomesTheDelegateAndResumesTheListener) {
    const auto factory = makeFactory();

    EXPECT_EQ(listener_->delegate, factory.get());
    EXPECT_EQ(listener_->resumed, 1);
    EXPECT_EQ(factory->serverClass(), kServerClass);
    EXPECT_EQ(&factory->serverProtocol(), &VeloraSwitchboarding_private::protocol());
}

TEST_F(SVConnectionServiceFactoryTest, ExportsTheObjectThatTheServerClassGives) {
    const auto server = std::make_shared<Object>();
    registerServerClass([&](const auto&, const auto&) { return server; });
    const auto factory = makeFactory();

    EXPECT_TRUE(listener_->offer(connection_));

    EXPECT_EQ(connection_->exportedObject(), server);
    ASSERT_NE(connection_->exportedInterface(), nullptr);
    EXPECT_EQ(&connection_->exportedInterface()->protocol(),
              &VeloraSwitchboarding_private::protocol());
    EXPECT_EQ(connection_->resumed, 1);
}

TEST_F(SVConnectionServiceFactoryTest, TheServerClassSeesTheConnectionBeforeItIsLive) {
    std::shared_ptr<NSXPCConnection> seen;
    int resumedBefore = -1;
    registerServerClass([&](const auto& connection, const auto&) {
        seen = connection;
        resumedBefore = connection_->resumed;
        return std::make_shared<Object>();
    });
    const auto factory = makeFactory();

    listener_->offer(connection_);

    EXPECT_EQ(seen, connection_);
    EXPECT_EQ(resumedBefore, 0);
}

TEST_F(SVConnectionServiceFactoryTest, TheServerClassMayCustomiseTheInterface) {
    registerServerClass([&](const auto&, const auto& interface) {
        interface->setProtocol(SVComponentServing::protocol());
        return std::make_shared<Object>();
    });
    const auto factory = makeFactory();

    listener_->offer(connection_);

    EXPECT_EQ(&connection_->exportedInterface()->protocol(), &SVComponentServing::protocol());
}

TEST_F(SVConnectionServiceFactoryTest, ARefusedConnectionIsLeftAsItCame) {
    registerServerClass([](const auto&, const auto&) { return nullptr; });
    const auto factory = makeFactory();

    EXPECT_FALSE(listener_->offer(connection_));

    EXPECT_EQ(connection_->exportedInterface(), nullptr);
    EXPECT_EQ(connection_->exportedObject(), nullptr);
    EXPECT_EQ(connection_->remoteObjectInterface(), nullptr);
    EXPECT_FALSE(connection_->hasInvalidationHandler());
    EXPECT_EQ(connection_->resumed, 0);
    EXPECT_EQ(connection_->invalidated, 0);  // That is the platform's to do.
}

TEST_F(SVConnectionServiceFactoryTest, AnUnknownServerClassRefusesEveryConnection) {
    const auto factory = makeFactory();

    EXPECT_FALSE(listener_->offer(connection_));

    EXPECT_EQ(connection_->resumed, 0);
}

TEST_F(SVConnectionServiceFactoryTest, AClassThatMakesNoServerObjectsRefusesEveryConnection) {
    serverClass_.emplace(kServerClass, &Object::classObject(), Class::MethodTable{});
    const auto factory = makeFactory();

    EXPECT_FALSE(listener_->offer(connection_));
}

TEST_F(SVConnectionServiceFactoryTest, TheServerClassIsLookedUpForEveryConnection) {
    const auto factory = makeFactory();
    EXPECT_FALSE(listener_->offer(connection_));

    registerServerClass([](const auto&, const auto&) { return std::make_shared<Object>(); });
    EXPECT_TRUE(listener_->offer(connection_));

    unregisterServerClass();
    EXPECT_FALSE(listener_->offer(FakeConnection::ofUser(501)));
}

TEST_F(SVConnectionServiceFactoryTest, ClassAndProtocolMayBeReplaced) {
    registerServerClass([](const auto&, const auto&) { return std::make_shared<Object>(); });
    const auto factory = makeFactory();

    factory->setServerProtocol(SVComponentMessaging::protocol());
    listener_->offer(connection_);
    factory->setServerClass("SVConnectionServiceFactoryTest.Nobody");

    EXPECT_EQ(&connection_->exportedInterface()->protocol(), &SVComponentMessaging::protocol());
    EXPECT_FALSE(listener_->offer(FakeConnection::ofUser(501)));
}

TEST_F(SVConnectionServiceFactoryTest, ShutdownLeavesAcceptedConnectionsAlone) {
    registerServerClass([](const auto&, const auto&) { return std::make_shared<Object>(); });
    auto factory = makeFactory();
    listener_->offer(connection_);

    factory->shutdown();
    factory.reset();

    EXPECT_EQ(listener_->invalidated, 1);
    EXPECT_EQ(connection_->invalidated, 0);
    EXPECT_NE(connection_->exportedObject(), nullptr);
}

}  // namespace
}  // namespace sevrin
