// Tests of the base vendor: ownership of its listener, refusal, shutdown with its hook.
#include "switchboard/SVConnectionVendor.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "Platform/Class.h"
#include "switchboard/FakeConnection.h"

namespace sevrin {
namespace {

using platform::Class;
using platform::Invocation;
using platform::NSXPCListener;
using platform::Object;
using platform::Value;

// A vendor that has published its endpoint, and so has something to redact.
class PublishingVendor final : public SVConnectionVendor {
public:
    explicit PublishingVendor(std::shared_ptr<FakeListener> listener)
        : SVConnectionVendor(listener), listener_(std::move(listener)) {}
    ~PublishingVendor() override { shutdown(); }

    [[nodiscard]] const Class& isa() const override {
        static Class theClass("SVConnectionVendorTest.PublishingVendor", &Object::classObject(),
                              {{"redact", [](Object* self, Invocation&) {
                                    static_cast<PublishingVendor*>(self)->redact();
                                    return Value();
                                }}});
        return theClass;
    }

    int redacted = 0;
    bool listenerWasAliveAtRedact = false;

private:
    void redact() {
        ++redacted;
        listenerWasAliveAtRedact = listener_->invalidated == 0;
    }

    std::shared_ptr<FakeListener> listener_;
};

TEST(SVConnectionVendorTest, BecomesTheDelegateAndDoesNotResume) {
    const auto listener = FakeListener::make();

    const auto vendor = SVConnectionVendor::initWithListener(listener);

    EXPECT_EQ(listener->delegate, vendor.get());
    EXPECT_EQ(listener->resumed, 0);
}

TEST(SVConnectionVendorTest, RefusesEveryConnection) {
    const auto listener = FakeListener::make();
    const auto vendor = SVConnectionVendor::initWithListener(listener);
    const auto ofRoot = FakeConnection::ofUser(0);
    const auto ofUser = FakeConnection::ofUser(501);

    EXPECT_FALSE(listener->offer(ofRoot));
    EXPECT_FALSE(listener->offer(ofUser));

    EXPECT_EQ(ofRoot->resumed, 0);
    EXPECT_EQ(ofUser->resumed, 0);
}

TEST(SVConnectionVendorTest, ItsEndpointIsTheListeners) {
    const auto listener = FakeListener::make();
    const auto vendor = SVConnectionVendor::initWithListener(listener);

    EXPECT_EQ(vendor->endpoint(), listener->theEndpoint);
}

TEST(SVConnectionVendorTest, PublishesUnderNoNameByItself) {
    const auto vendor = SVConnectionVendor::initWithListener(FakeListener::make());

    EXPECT_EQ(vendor->publishedName(), "");
}

TEST(SVConnectionVendorTest, ShutdownInvalidatesTheListenerAndLetsItGo) {
    auto listener = FakeListener::make();
    const auto vendor = SVConnectionVendor::initWithListener(listener);
    const std::weak_ptr<NSXPCListener> watched = listener;

    vendor->shutdown();

    EXPECT_EQ(listener->invalidated, 1);
    EXPECT_EQ(vendor->endpoint(), nullptr);
    listener.reset();
    EXPECT_TRUE(watched.expired());
}

TEST(SVConnectionVendorTest, ShutdownTwiceInvalidatesOnce) {
    const auto listener = FakeListener::make();
    const auto vendor = SVConnectionVendor::initWithListener(listener);

    vendor->shutdown();
    vendor->shutdown();

    EXPECT_EQ(listener->invalidated, 1);
}

TEST(SVConnectionVendorTest, DestructionShutsDown) {
    const auto listener = FakeListener::make();
    auto vendor = SVConnectionVendor::initWithListener(listener);

    vendor.reset();

    EXPECT_EQ(listener->invalidated, 1);
}

TEST(SVConnectionVendorTest, DestructionAfterShutdownInvalidatesNothingMore) {
    const auto listener = FakeListener::make();
    auto vendor = SVConnectionVendor::initWithListener(listener);

    vendor->shutdown();
    vendor.reset();

    EXPECT_EQ(listener->invalidated, 1);
}

TEST(SVConnectionVendorTest, ShutdownSendsRedactBeforeTheListenerGoes) {
    PublishingVendor vendor(FakeListener::make());

    vendor.shutdown();

    EXPECT_EQ(vendor.redacted, 1);
    EXPECT_TRUE(vendor.listenerWasAliveAtRedact);
}

TEST(SVConnectionVendorTest, EveryShutdownSendsRedact) {
    PublishingVendor vendor(FakeListener::make());

    vendor.shutdown();
    vendor.shutdown();

    EXPECT_EQ(vendor.redacted, 2);
}

}  // namespace
}  // namespace sevrin
