// The server object of one client's connection: publishes, looks up, posts and subscribes on the
// client's behalf.
//
// The connection owns the operator (its exported object) and, until unplugged, the operator owns
// the connection; it does not own its switchboard. An operator and its subscriptions own each
// other. All these ties are cut by unplug(). Messages arrive on the XPC thread, shutdown comes on
// the main thread; every operation takes the registry's lock. Requests report no errors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Platform/Class.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCInterface.h"
#include "Platform/Object.h"
#include "switchboard/NamedEndpoints.h"
#include "switchboard/ProxyObserver.h"
#include "switchboard/SubscriberProxy.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

class UserSwitchboard;

class VeloraOperator final : public platform::Object,
                             public VeloraSwitchboarding_private,
                             public std::enable_shared_from_this<VeloraOperator> {
    struct Private {};  // Lets only this class construct one, in the memory of its shared pointer.

public:
    // The class registered as "VeloraOperator". It is found by name only, so whoever wants it found
    // calls registerSwitchboardClasses() first.
    [[nodiscard]] static platform::Class& classObject();
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

    // The operator for a new connection, on the switchboard of the connection's effective user id;
    // nullptr (refuse) when this process does not serve that user. Leaves `interface` as it is.
    [[nodiscard]] static std::shared_ptr<VeloraOperator>
    serverObjectForConnectionCustomizingInterface(
        const std::shared_ptr<platform::NSXPCConnection>& connection,
        const std::shared_ptr<platform::NSXPCInterface>& interface);

    // An operator that has joined `switchboard`; sets the connection's remote interface and its
    // invalidation handler, which unplugs it.
    [[nodiscard]] static std::shared_ptr<VeloraOperator> initWithSwitchboardForConnection(
        UserSwitchboard& switchboard, std::shared_ptr<platform::NSXPCConnection> connection);

    VeloraOperator(Private, std::shared_ptr<platform::NSXPCConnection> connection);

    // Drops the subscriptions, leaves the switchboard and ends the connection. What was published
    // is no longer found. Harmless when done twice.
    void unplug();

    // The user id of the switchboard that this operator belongs to; nothing once unplugged.
    [[nodiscard]] std::optional<std::uint32_t> userID() const;

    // The effective user id of the client itself, whichever switchboard it is on.
    [[nodiscard]] uid_t clientUserID() const { return clientUserID_; }

    // The connection; nullptr once unplugged.
    [[nodiscard]] std::shared_ptr<platform::NSXPCConnection> connection() const;

    // The client as the receiver of notifications; nothing once unplugged. Call and use it under
    // the registry's lock.
    [[nodiscard]] std::optional<SubscriberProxy> subscriber() const;

    // What this client has published under `identifier`, or nullptr. Outlives unplug().
    [[nodiscard]] EndpointPtr namedEndpoint(std::string_view identifier) const;
    [[nodiscard]] std::size_t namedEndpointCount() const;

    [[nodiscard]] std::size_t observerCount() const;

    void barrierWithCompletion(std::function<void()> completion) override;
    void queryComponentVersionWithReply(std::function<void(std::string)> reply) override;
    void queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) override;

    // Posts kEndpointPublishedNotification every time, also for an endpoint that is there already.
    // Without an endpoint it redacts.
    void publishEndpointForIdentifier(EndpointPtr endpoint, const std::string& identifier) override;

    // Posts kEndpointRedactedNotification if this client had published something there.
    void redactEndpointForIdentifier(const std::string& identifier) override;

    void queryEndpointForIdentifierWithReply(const std::string& identifier,
                                             std::function<void(EndpointPtr)> reply) override;
    void postNotificationNameSourceUserInfo(const std::string& name,
                                            const std::optional<std::string>& source,
                                            const platform::Value& userInfo) override;

    // Moves an operator of root's switchboard, with its endpoints and subscriptions, to the end of
    // another user's. Any other wish to move is logged and ignored, one for a user who is not
    // served just ignored.
    void setUser(std::uint32_t uid) override;

    // Replaces a subscription under the same id.
    void addProxyObserverForNameSource(const std::string& observerID,
                                       const std::optional<std::string>& name,
                                       const std::optional<std::string>& source) override;
    void removeObserver(const std::string& observerID) override;
    void removeAllObservers() override;

private:
    using Observers = std::set<std::shared_ptr<ProxyObserver>, ProxyObserver::ByObserverID>;

    // Whether a text that a client chose is short enough; if not, the connection is dropped.
    [[nodiscard]] bool accepts(const std::string& text);

    void join(UserSwitchboard& switchboard);
    void leave();

    // Ends the connection of a client that asks for more than it may have, and says so in the log.
    void dropConnection(const std::string& what);

    const uid_t clientUserID_;
    std::shared_ptr<platform::NSXPCConnection> connection_;  // null once unplugged
    UserSwitchboard* switchboard_ = nullptr;                 // null once unplugged
    std::uint64_t order_ = 0;                                // the place in the switchboard
    Observers observers_;
    NamedEndpoints namedEndpoints_;
};

// Makes the classes of the service known by name. Harmless when done twice.
void registerSwitchboardClasses();

}  // namespace sevrin
