// The contract between the switchboard and its clients: every protocol, selector and type that
// crosses the boundary.
//
// Each protocol exists twice: as a C++ interface for whoever implements it, and as data
// (`protocol()`) for the connection that checks and dispatches messages. Selectors and names are
// what deployed clients are built against: never rename one. Requests report no errors; a refusal
// is a null reply or silence.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "Platform/Class.h"
#include "Platform/Export.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListenerEndpoint.h"
#include "Platform/Protocol.h"
#include "Platform/SelectorMethod.h"
#include "Platform/Value.h"

namespace sevrin {

using EndpointPtr = std::shared_ptr<platform::NSXPCListenerEndpoint>;

// Base of every component's server interface.
class SEVRIN_EXPORT SVComponentMessaging {
public:
    [[nodiscard]] static const platform::Protocol& protocol();
    virtual ~SVComponentMessaging() = default;

    // Calls `completion` after everything that the same connection sent earlier has been handled.
    virtual void barrierWithCompletion(std::function<void()> completion) = 0;
};

// Version queries and install hooks.
class SEVRIN_EXPORT SVComponentInstalling {
public:
    [[nodiscard]] static const platform::Protocol& protocol();
    virtual ~SVComponentInstalling() = default;

    // Replies the component's version text, such as "Switchboard-2.2.5.12".
    virtual void queryComponentVersionWithReply(std::function<void(std::string)> reply) = 0;

    // Replies the version packed into a number.
    virtual void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) = 0;

    // Hooks around an installation; optional, one-way.
    virtual void didInstallComponent() {}
    virtual void willUninstallComponent() {}
};

// What every component server offers. No methods of its own.
class SEVRIN_EXPORT SVComponentServing : public SVComponentMessaging, public SVComponentInstalling {
public:
    [[nodiscard]] static const platform::Protocol& protocol();
};

// The switchboard's public interface.
class SEVRIN_EXPORT VeloraSwitchboarding : public SVComponentServing {
public:
    [[nodiscard]] static const platform::Protocol& protocol();

    // Offers `endpoint` to the user's other processes under `identifier`; no endpoint redacts.
    virtual void publishEndpointForIdentifier(EndpointPtr endpoint,
                                              const std::string& identifier) = 0;

    // Withdraws what this client published under `identifier`.
    virtual void redactEndpointForIdentifier(const std::string& identifier) = 0;

    // Replies the endpoint of the earliest client that publishes `identifier`, or null.
    virtual void queryEndpointForIdentifierWithReply(const std::string& identifier,
                                                     std::function<void(EndpointPtr)> reply) = 0;

    // Posts a notification to the subscribers of `name`. `userInfo` is a dictionary or null.
    virtual void postNotificationNameSourceUserInfo(const std::string& name,
                                                    const std::optional<std::string>& source,
                                                    const platform::Value& userInfo) = 0;
};

// The full interface that the switchboard exports.
class SEVRIN_EXPORT VeloraSwitchboarding_private : public VeloraSwitchboarding {
public:
    [[nodiscard]] static const platform::Protocol& protocol();

    // Moves the connection from root's switchboard to that of user `uid`.
    virtual void setUser(std::uint32_t uid) = 0;

    // Subscribes to notifications called `name` (every one without a name); deliveries carry
    // `observerID`. The source is accepted and does not filter.
    virtual void addProxyObserverForNameSource(const std::string& observerID,
                                               const std::optional<std::string>& name,
                                               const std::optional<std::string>& source) = 0;

    virtual void removeObserver(const std::string& observerID) = 0;
    virtual void removeAllObservers() = 0;
};

// Exported by the client; receives relayed notifications.
class SEVRIN_EXPORT SwitchboardSubscribing {
public:
    [[nodiscard]] static const platform::Protocol& protocol();
    virtual ~SwitchboardSubscribing() = default;

    virtual void forwardToObserverNotificationFromSourceWithInfo(
        const std::string& observerID, const std::string& notification,
        const std::optional<std::string>& source, const platform::Value& userInfo) = 0;
};

// The class-side contract of server classes, in process: the selector under which a server class
// answers with an object for a new connection (arguments: the NSXPCConnection, the NSXPCInterface
// about to be exported; result: an object conforming to SVComponentMessaging, or null to refuse).
struct SVConnectionObjectFactory {
    static constexpr const char* kServerObjectForConnection =
        "serverObjectForConnection:customizingInterface:";
};

// The selector tables of classes that implement the protocols: what such a class hands to its
// platform::Class.
template <typename Receiver>
[[nodiscard]] platform::Class::MethodTable componentServingMethods() {
    using platform::selectorMethod;
    return {
        {"barrierWithCompletion:", selectorMethod<Receiver>(&Receiver::barrierWithCompletion)},
        {"queryComponentVersionWithReply:",
         selectorMethod<Receiver>(&Receiver::queryComponentVersionWithReply)},
        {"queryBuildNumberWithReply:",
         selectorMethod<Receiver>(&Receiver::queryBuildNumberWithReply)},
        {"didInstallComponent", selectorMethod<Receiver>(&Receiver::didInstallComponent)},
        {"willUninstallComponent", selectorMethod<Receiver>(&Receiver::willUninstallComponent)},
    };
}

template <typename Receiver>
[[nodiscard]] platform::Class::MethodTable switchboardingMethods() {
    using platform::selectorMethod;
    platform::Class::MethodTable methods = componentServingMethods<Receiver>();
    methods.insert({
        {"publishEndpoint:forIdentifier:",
         selectorMethod<Receiver>(&Receiver::publishEndpointForIdentifier)},
        {"redactEndpointForIdentifier:",
         selectorMethod<Receiver>(&Receiver::redactEndpointForIdentifier)},
        {"queryEndpointForIdentifier:withReply:",
         selectorMethod<Receiver>(&Receiver::queryEndpointForIdentifierWithReply)},
        {"postNotificationName:source:userInfo:",
         selectorMethod<Receiver>(&Receiver::postNotificationNameSourceUserInfo)},
        {"setUser:", selectorMethod<Receiver>(&Receiver::setUser)},
        {"addProxyObserver:forName:source:",
         selectorMethod<Receiver>(&Receiver::addProxyObserverForNameSource)},
        {"removeObserver:", selectorMethod<Receiver>(&Receiver::removeObserver)},
        {"removeAllObservers", selectorMethod<Receiver>(&Receiver::removeAllObservers)},
    });
    return methods;
}

template <typename Receiver>
[[nodiscard]] platform::Class::MethodTable subscribingMethods() {
    return {{"forwardToObserver:notification:fromSource:withInfo:",
             platform::selectorMethod<Receiver>(
                 &Receiver::forwardToObserverNotificationFromSourceWithInfo)}};
}

// The version that the switchboard reports, and the service names under which it listens.
inline constexpr const char* kSwitchboardVersion = "Switchboard-2.2.5.12";

// 2.2.5.12 packed: 2 in bits 16 to 23, 2 in bits 12 to 15, 5 in bits 8 to 11, 12 in bits 0 to 7.
inline constexpr std::uint32_t kSwitchboardBuildNumber = 140556;

inline constexpr const char* kSystemServiceName = "com.sevrin.switchboard";
inline constexpr const char* kUserServiceNameFormat = "com.sevrin.switchboard.%u";

// Notifications of the switchboard's own, and what they carry.
inline constexpr const char* kStartedNotification = "com.sevrin.switchboard.started";
inline constexpr const char* kEndpointPublishedNotification = "SwitchboardEndpointPublished";
inline constexpr const char* kEndpointRedactedNotification = "SwitchboardEndpointRedacted";
inline constexpr const char* kSwitchboardSource = "Switchboard";
inline constexpr const char* kIdentifierKey = "id";

}  // namespace sevrin
