// The server object of one client's connection.
#include "switchboard/VeloraOperator.h"

#include <array>
#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Platform/NSNotificationCenter.h"
#include "Platform/XPCLimits.h"
#include "switchboard/BadPeer.h"
#include "switchboard/RegistryLock.h"
#include "switchboard/UserSwitchboard.h"

namespace sevrin {

using platform::Class;
using platform::Dictionary;
using platform::Invocation;
using platform::NSNotificationCenter;
using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::Object;
using platform::Value;

namespace {

// One for all connections: nobody customises what the client is asked for.
const std::shared_ptr<NSXPCInterface>& subscribingInterface() {
    static const auto& theInterface = *new std::shared_ptr<NSXPCInterface>(
        NSXPCInterface::interfaceWithProtocol(SwitchboardSubscribing::protocol()));
    return theInterface;
}

void postEndpointNotification(const char* name, std::string_view identifier) {
    NSNotificationCenter::defaultCenter().postNotificationNameObjectUserInfo(
        name, ProxyObserver::sourceObjectForIdentifier(kSwitchboardSource),
        Dictionary{{kIdentifierKey, identifier}});
}

}  // namespace

Class& VeloraOperator::classObject() {
    // Never destroyed: a message may still arrive while the process exits.
    static Class& theClass = *new Class(
        "VeloraOperator", &Object::classObject(), switchboardingMethods<VeloraOperator>(),
        {{SVConnectionObjectFactory::kServerObjectForConnection,
          [](Object*, Invocation& invocation) {
              return Value(serverObjectForConnectionCustomizingInterface(
                  invocation.arguments[0].object<NSXPCConnection>(),
                  invocation.arguments[1].object<NSXPCInterface>()));
          }}});
    return theClass;
}

std::shared_ptr<VeloraOperator> VeloraOperator::serverObjectForConnectionCustomizingInterface(
    const std::shared_ptr<NSXPCConnection>& connection, const std::shared_ptr<NSXPCInterface>&) {
    const RegistryLock lock;
    const auto switchboard =
        UserSwitchboard::switchboardForUser(connection->effectiveUserIdentifier());
    return switchboard ? initWithSwitchboardForConnection(*switchboard, connection) : nullptr;
}

std::shared_ptr<VeloraOperator> VeloraOperator::initWithSwitchboardForConnection(
    UserSwitchboard& switchboard, std::shared_ptr<NSXPCConnection> connection) {
    const RegistryLock lock;
    auto result = std::make_shared<VeloraOperator>(Private(), connection);
    connection->setRemoteObjectInterface(subscribingInterface());
    connection->setInvalidationHandler(
        [weakOperator = std::weak_ptr(result), weakConnection = std::weak_ptr(connection)] {
            const auto ended = weakConnection.lock();
            if (const auto served = weakOperator.lock()) served->unplug();
            if (ended) ended->setExportedObject(nullptr);
        });
    result->join(switchboard);
    return result;
}

VeloraOperator::VeloraOperator(Private, std::shared_ptr<NSXPCConnection> connection)
    : clientUserID_(connection->effectiveUserIdentifier()), connection_(std::move(connection)) {}

void VeloraOperator::unplug() {
    const auto self = shared_from_this();  // Nobody else may own it once it has left.
    const RegistryLock lock;
    if (!switchboard_) return;

    Observers().swap(observers_);
    leave();
    const std::shared_ptr<NSXPCConnection> connection = std::move(connection_);
    connection->setInvalidationHandler(nullptr);
    connection->setInterruptionHandler(nullptr);
    connection->invalidate();
}

void VeloraOperator::join(UserSwitchboard& switchboard) {
    switchboard_ = &switchboard;
    order_ = switchboard.join(shared_from_this(), namedEndpoints_);
}

void VeloraOperator::leave() {
    std::exchange(switchboard_, nullptr)->leave(order_, namedEndpoints_);
}

std::optional<std::uint32_t> VeloraOperator::userID() const {
    const RegistryLock lock;
    if (!switchboard_) return std::nullopt;
    return switchboard_->userID();
}

std::shared_ptr<NSXPCConnection> VeloraOperator::connection() const {
    const RegistryLock lock;
    return connection_;
}

std::optional<SubscriberProxy> VeloraOperator::subscriber() const {
    if (!connection_) return std::nullopt;
    return SubscriberProxy(*connection_);
}

EndpointPtr VeloraOperator::namedEndpoint(std::string_view identifier) const {
    const RegistryLock lock;
    const NamedEndpoint* const found = namedEndpoints_.find(identifier);
    return found ? found->endpoint : nullptr;
}

std::size_t VeloraOperator::namedEndpointCount() const {
    const RegistryLock lock;
    return namedEndpoints_.size();
}

std::size_t VeloraOperator::observerCount() const {
    const RegistryLock lock;
    return observers_.size();
}

bool VeloraOperator::accepts(const std::string& text) {
    if (text.size() <= platform::kIdentifierBytesMax) return true;
    dropConnection("an identifier or name of " + std::to_string(text.size()) + " bytes");
    return false;
}

void VeloraOperator::dropConnection(const std::string& what) {
    if (!connection_) return;
    logBadPeer(*connection_, what);
    connection_->invalidate();
}

void VeloraOperator::barrierWithCompletion(std::function<void()> completion) {
    completion();
}

void VeloraOperator::queryComponentVersionWithReply(std::function<void(std::string)> reply) {
    reply(kSwitchboardVersion);
}

void VeloraOperator::queryBuildNumberWithReply(std::function<void(std::uint32_t)> reply) {
    reply(kSwitchboardBuildNumber);
}

void VeloraOperator::publishEndpointForIdentifier(EndpointPtr endpoint,
                                                  const std::string& identifier) {
    if (!endpoint) return redactEndpointForIdentifier(identifier);

    const RegistryLock lock;
    if (!accepts(identifier)) return;
    if (NamedEndpoint* const known = namedEndpoints_.find(identifier)) {
        known->endpoint = std::move(endpoint);
    } else if (namedEndpoints_.size() == platform::kEndpointsPerConnectionMax) {
        return dropConnection("one endpoint more than a client may publish");
    } else {
        NamedEndpoint& record = namedEndpoints_.add(identifier, std::move(endpoint));
        if (switchboard_) switchboard_->add(record, order_);
    }
    postEndpointNotification(kEndpointPublishedNotification, identifier);
}

void VeloraOperator::redactEndpointForIdentifier(const std::string& identifier) {
    const RegistryLock lock;
    if (!accepts(identifier)) return;
    NamedEndpoint* const known = namedEndpoints_.find(identifier);
    if (!known) return;

    if (switchboard_) switchboard_->remove(*known);
    const std::unique_ptr<NamedEndpoint> redacted = namedEndpoints_.take(*known);
    postEndpointNotification(kEndpointRedactedNotification, identifier);
}

void VeloraOperator::queryEndpointForIdentifierWithReply(const std::string& identifier,
                                                         std::function<void(EndpointPtr)> reply) {
    EndpointPtr found;
    {
        const RegistryLock lock;
        if (!accepts(identifier)) return;
        if (switchboard_) found = switchboard_->endpointForIdentifier(identifier);
    }
    reply(std::move(found));
}

void VeloraOperator::postNotificationNameSourceUserInfo(const std::string& name,
                                                        const std::optional<std::string>& source,
                                                        const Value& userInfo) {
    const RegistryLock lock;  // Once for all the subscribers that this reaches.
    NSNotificationCenter::defaultCenter().postNotificationNameObjectUserInfo(
        name, ProxyObserver::sourceObjectForIdentifier(source), userInfo);
}

void VeloraOperator::setUser(std::uint32_t uid) {
    const RegistryLock lock;
    if (uid == 0 || !switchboard_ || switchboard_->userID() == uid) return;
    if (switchboard_->userID() != 0) {
        Logger::logFormat(LogClassification::Debug,
                          "%s illegal request to transfer from switchboard %u to %u; ignored",
                          "-[VeloraOperator setUser:]", switchboard_->userID(), uid);
        return;
    }
    const auto destination = UserSwitchboard::switchboardForUser(uid);
    if (!destination) return;

    const auto self = shared_from_this();
    leave();
    join(*destination);
}

void VeloraOperator::addProxyObserverForNameSource(const std::string& observerID,
                                                   const std::optional<std::string>& name,
                                                   const std::optional<std::string>& source) {
    const RegistryLock lock;
    if (!switchboard_) return;
    if (!accepts(observerID) || (name && !accepts(*name))) return;
    const auto known = observers_.find(observerID);
    const bool isNew = known == observers_.end();
    if (isNew && observers_.size() == platform::kObserversPerConnectionMax) {
        return dropConnection("one subscription more than a client may have");
    }
    if (isNew && ProxyObserver::countOfUser(clientUserID_) == platform::kObserversPerUserMax) {
        return dropConnection("one subscription more than its user may have");
    }

    auto observer = ProxyObserver::initWithOperatorForObserverNotificationSource(
        shared_from_this(), observerID, name, source);
    if (!isNew) observers_.erase(known);
    observers_.insert(std::move(observer));
}

void VeloraOperator::removeObserver(const std::string& observerID) {
    const RegistryLock lock;
    if (!accepts(observerID)) return;
    const auto known = observers_.find(observerID);
    if (known != observers_.end()) observers_.erase(known);
}

void VeloraOperator::removeAllObservers() {
    const RegistryLock lock;
    Observers().swap(observers_);
}

void registerSwitchboardClasses() {
    static_cast<void>(VeloraOperator::classObject());
}

}  // namespace sevrin
