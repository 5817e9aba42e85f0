// Tests of the contract with the clients: every protocol, selector, type and constant that deployed
// clients rely on, and that each selector reaches the function of its name.
#include "switchboard/SwitchboardProtocols.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "switchboard/FakeConnection.h"

namespace sevrin {
namespace {

using platform::ArgumentType;
using platform::Class;
using platform::Dictionary;
using platform::Invocation;
using platform::MethodDescription;
using platform::Protocol;
using platform::Value;
using platform::ValueArray;

using Texts = std::vector<std::string>;

std::string describe(const std::vector<ArgumentType>& types) {
    std::string result;
    for (const ArgumentType& type : types)
        result += (result.empty() ? "" : ", ") + type.description();
    return "(" + result + ")";
}

// "selector (arguments)", then " -> (replies)" and " optional" where they apply.
std::string describe(const MethodDescription& method) {
    return method.selector + " " + describe(method.arguments) +
           (method.hasReply ? " -> " + describe(method.replies) : "") +
           (method.isRequired ? "" : " optional");
}

// The methods that `protocol` does not inherit, sorted.
Texts ownMethods(const Protocol& protocol) {
    const auto isInherited = [&](const MethodDescription* method) {
        return std::ranges::any_of(protocol.inherited(), [method](const Protocol* parent) {
            return parent->method(method->selector) != nullptr;
        });
    };
    Texts result;
    for (const MethodDescription* method : protocol.allMethods()) {
        if (!isInherited(method)) result.push_back(describe(*method));
    }
    std::sort(result.begin(), result.end());
    return result;
}

TEST(SwitchboardProtocolsTest, EveryProtocolHasItsNameAndItsParents) {
    using Parents = std::vector<const Protocol*>;
    const Protocol& messaging = SVComponentMessaging::protocol();
    const Protocol& installing = SVComponentInstalling::protocol();
    const Protocol& serving = SVComponentServing::protocol();
    const Protocol& switchboarding = VeloraSwitchboarding::protocol();
    const Protocol& full = VeloraSwitchboarding_private::protocol();
    const Protocol& subscribing = SwitchboardSubscribing::protocol();

    EXPECT_EQ(messaging.name(), "SVComponentMessaging");
    EXPECT_EQ(messaging.inherited(), Parents{});
    EXPECT_EQ(installing.name(), "SVComponentInstalling");
    EXPECT_EQ(installing.inherited(), Parents{});
    EXPECT_EQ(serving.name(), "SVComponentServing");
    EXPECT_EQ(serving.inherited(), (Parents{&messaging, &installing}));
    EXPECT_EQ(switchboarding.name(), "VeloraSwitchboarding");
    EXPECT_EQ(switchboarding.inherited(), Parents{&serving});
    EXPECT_EQ(full.name(), "VeloraSwitchboarding_private");
    EXPECT_EQ(full.inherited(), Parents{&switchboarding});
    EXPECT_EQ(subscribing.name(), "SwitchboardSubscribing");
    EXPECT_EQ(subscribing.inherited(), Parents{});
}

TEST(SwitchboardProtocolsTest, EveryComponentHasABarrier) {
    EXPECT_EQ(ownMethods(SVComponentMessaging::protocol()),
              (Texts{"barrierWithCompletion: () -> ()"}));
}

TEST(SwitchboardProtocolsTest, EveryComponentTellsItsVersionAndMayHearOfInstallations) {
    EXPECT_EQ(ownMethods(SVComponentInstalling::protocol()),
              (Texts{"didInstallComponent () optional", "queryBuildNumberWithReply: () -> (uint32)",
                     "queryComponentVersionWithReply: () -> (string)",
                     "willUninstallComponent () optional"}));
    EXPECT_EQ(ownMethods(SVComponentServing::protocol()), Texts{});
}

TEST(SwitchboardProtocolsTest, TheSwitchboardPublishesRedactsQueriesAndPosts) {
    EXPECT_EQ(ownMethods(VeloraSwitchboarding::protocol()),
              (Texts{"postNotificationName:source:userInfo: "
                     "(string, string or null, dictionary or null)",
                     "publishEndpoint:forIdentifier: (endpoint or null, string)",
                     "queryEndpointForIdentifier:withReply: (string) -> (endpoint or null)",
                     "redactEndpointForIdentifier: (string)"}));
}

TEST(SwitchboardProtocolsTest, TheFullInterfaceChangesTheUserAndSubscribes) {
    EXPECT_EQ(ownMethods(VeloraSwitchboarding_private::protocol()),
              (Texts{"addProxyObserver:forName:source: (string, string or null, string or null)",
                     "removeAllObservers ()", "removeObserver: (string)", "setUser: (uint32)"}));
}

TEST(SwitchboardProtocolsTest, ASubscriberHasNotificationsForwardedToIt) {
    EXPECT_EQ(ownMethods(SwitchboardSubscribing::protocol()),
              (Texts{"forwardToObserver:notification:fromSource:withInfo: "
                     "(string, string, string or null, dictionary or null)"}));
}

TEST(SwitchboardProtocolsTest, AServerClassIsAskedForAnObjectUnderOneSelector) {
    EXPECT_STREQ(SVConnectionObjectFactory::kServerObjectForConnection,
                 "serverObjectForConnection:customizingInterface:");
}

TEST(SwitchboardProtocolsTest, VersionNamesAndKeysAreThoseThatClientsKnow) {
    EXPECT_STREQ(kSwitchboardVersion, "Switchboard-2.2.5.12");
    EXPECT_EQ(kSwitchboardBuildNumber, 140556U);
    EXPECT_EQ(kSwitchboardBuildNumber, (2U << 16) + (2U << 12) + (5U << 8) + 12U);
    EXPECT_STREQ(kSystemServiceName, "com.sevrin.switchboard");
    EXPECT_STREQ(kUserServiceNameFormat, "com.sevrin.switchboard.%u");
    EXPECT_STREQ(kStartedNotification, "com.sevrin.switchboard.started");
    EXPECT_STREQ(kEndpointPublishedNotification, "SwitchboardEndpointPublished");
    EXPECT_STREQ(kEndpointRedactedNotification, "SwitchboardEndpointRedacted");
    EXPECT_STREQ(kSwitchboardSource, "Switchboard");
    EXPECT_STREQ(kIdentifierKey, "id");
}

// Writes down which function was called with what; "-" stands for null.
class Recorder : public platform::Object,
                 public VeloraSwitchboarding_private,
                 public SwitchboardSubscribing {
public:
    using Text = std::string;
    using OptionalText = std::optional<std::string>;

    void barrierWithCompletion(std::function<void()> completion) override {
        called = "barrier";
        completion();
    }
    void queryComponentVersionWithReply(std::function<void(std::string)> reply) override {
        called = "version";
        reply("Recorder-1");
    }
    void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) override {
        called = "build";
        reply(4'000'000'000U);
    }
    void didInstallComponent() override { called = "didInstall"; }
    void willUninstallComponent() override { called = "willUninstall"; }
    void publishEndpointForIdentifier(EndpointPtr given, const Text& identifier) override {
        called = "publish " + identifier;
        endpoint = std::move(given);
    }
    void redactEndpointForIdentifier(const Text& identifier) override {
        called = "redact " + identifier;
    }
    void queryEndpointForIdentifierWithReply(const Text& identifier,
                                             std::function<void(EndpointPtr)> reply) override {
        called = "query " + identifier;
        reply(endpoint);
    }
    void postNotificationNameSourceUserInfo(const Text& name, const OptionalText& source,
                                            const Value& info) override {
        called = "post " + name + " " + source.value_or("-");
        userInfo = info;
    }
    void setUser(std::uint32_t uid) override { called = "setUser " + std::to_string(uid); }
    void addProxyObserverForNameSource(const Text& observerID, const OptionalText& name,
                                       const OptionalText& source) override {
        called = "add " + observerID + " " + name.value_or("-") + " " + source.value_or("-");
    }
    void removeObserver(const Text& observerID) override { called = "remove " + observerID; }
    void removeAllObservers() override { called = "removeAll"; }
    void forwardToObserverNotificationFromSourceWithInfo(const Text& observerID,
                                                         const Text& notification,
                                                         const OptionalText& source,
                                                         const Value& info) override {
        called = "forward " + observerID + " " + notification + " " + source.value_or("-");
        userInfo = info;
    }

    std::string called;
    EndpointPtr endpoint;
    Value userInfo;
};

// Sends a message through a class's table, as a connection does once it has checked it.
class SelectorTablesTest : public testing::Test {
protected:
    // What the recorder wrote down; the replies are in `replies_`.
    std::string send(const Class::MethodTable& table, const Protocol& protocol,
                     const std::string& selector, ValueArray arguments) {
        EXPECT_EQ(protocol.method(selector)->whyNotArguments(arguments), "");
        recorder_.called = "nothing";
        Invocation invocation{arguments,
                              [this](ValueArray values) { replies_ = std::move(values); }};
        table.at(selector)(&recorder_, invocation);
        return recorder_.called;
    }
    std::string send(const std::string& selector, ValueArray arguments = {}) {
        return send(switchboardingMethods<Recorder>(), VeloraSwitchboarding_private::protocol(),
                    selector, std::move(arguments));
    }

    static void expectExactly(const Class::MethodTable& table, const Protocol& protocol) {
        Texts inTable;
        for (const auto& [selector, method] : table)
            inTable.push_back(selector);
        Texts inProtocol;
        for (const MethodDescription* method : protocol.allMethods())
            inProtocol.push_back(method->selector);
        std::sort(inProtocol.begin(), inProtocol.end());
        EXPECT_EQ(inTable, inProtocol);
    }

    Recorder recorder_;
    ValueArray replies_;
};

TEST_F(SelectorTablesTest, HoldTheMethodsOfTheirProtocolsAndNoOthers) {
    expectExactly(componentServingMethods<Recorder>(), SVComponentServing::protocol());
    expectExactly(switchboardingMethods<Recorder>(), VeloraSwitchboarding_private::protocol());
    expectExactly(subscribingMethods<Recorder>(), SwitchboardSubscribing::protocol());
}

TEST_F(SelectorTablesTest, ComponentSelectorsReachTheirFunctions) {
    EXPECT_EQ(send("barrierWithCompletion:"), "barrier");
    EXPECT_EQ(replies_, ValueArray{});
    EXPECT_EQ(send("queryComponentVersionWithReply:"), "version");
    EXPECT_EQ(replies_, ValueArray{"Recorder-1"});
    EXPECT_EQ(send("queryBuildNumberWithReply:"), "build");
    EXPECT_EQ(replies_, ValueArray{4'000'000'000U});
    EXPECT_EQ(send("didInstallComponent"), "didInstall");
    EXPECT_EQ(send("willUninstallComponent"), "willUninstall");
}

TEST_F(SelectorTablesTest, EndpointSelectorsReachTheirFunctions) {
    const auto endpoint = FakeEndpoint::make();

    EXPECT_EQ(send("publishEndpoint:forIdentifier:", {endpoint, "a"}), "publish a");
    EXPECT_EQ(recorder_.endpoint, endpoint);
    EXPECT_EQ(send("queryEndpointForIdentifier:withReply:", {"b"}), "query b");
    EXPECT_EQ(replies_.at(0).object(), endpoint);
    EXPECT_EQ(send("publishEndpoint:forIdentifier:", {nullptr, "c"}), "publish c");
    EXPECT_EQ(recorder_.endpoint, nullptr);
    EXPECT_EQ(send("redactEndpointForIdentifier:", {"d"}), "redact d");
}

TEST_F(SelectorTablesTest, NotificationSelectorsReachTheirFunctions) {
    const Dictionary info{{"id", "x"}};

    EXPECT_EQ(send("postNotificationName:source:userInfo:", {"n", "s", info}), "post n s");
    EXPECT_EQ(recorder_.userInfo, Value(info));
    EXPECT_EQ(send("postNotificationName:source:userInfo:", {"n", nullptr, nullptr}), "post n -");
    EXPECT_TRUE(recorder_.userInfo.isNull());
    EXPECT_EQ(send("addProxyObserver:forName:source:", {"o", "n", "s"}), "add o n s");
    EXPECT_EQ(send("addProxyObserver:forName:source:", {"o", nullptr, nullptr}), "add o - -");
    EXPECT_EQ(send("removeObserver:", {"o"}), "remove o");
    EXPECT_EQ(send("removeAllObservers"), "removeAll");
    EXPECT_EQ(send("setUser:", {502}), "setUser 502");
}

TEST_F(SelectorTablesTest, TheSubscribersSelectorReachesItsFunction) {
    const Dictionary info{{"id", "x"}};

    EXPECT_EQ(send(subscribingMethods<Recorder>(), SwitchboardSubscribing::protocol(),
                   "forwardToObserver:notification:fromSource:withInfo:", {"o", "n", "s", info}),
              "forward o n s");
    EXPECT_EQ(recorder_.userInfo, Value(info));
}

}  // namespace
}  // namespace sevrin
