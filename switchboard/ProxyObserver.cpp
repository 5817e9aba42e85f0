// One subscription of a client, and the set of observed sources.
#include "switchboard/ProxyObserver.h"

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <utility>

#include "Platform/NSXPCConnection.h"
#include "switchboard/RegistryLock.h"
#include "switchboard/SubscriberProxy.h"
#include "switchboard/VeloraOperator.h"

namespace sevrin {

using platform::EncodedCall;
using platform::NSNotification;
using platform::NSNotificationCenter;
using platform::Value;

namespace {

// The sources that some observer is limited to, counted. The lock is held for the operation on the
// set and nothing else.
class SourceIdentifiers {
public:
    // Never destroyed: a message may still arrive while the process exits.
    static SourceIdentifiers& shared() {
        static SourceIdentifiers& theSet = *new SourceIdentifiers;
        return theSet;
    }

    void add(const std::string& identifier) {
        const std::lock_guard guard(lock_);
        ++counts_[identifier];
    }
    void remove(const std::string& identifier) {
        const std::lock_guard guard(lock_);
        const auto found = counts_.find(identifier);
        if (--found->second == 0) counts_.erase(found);
    }
    std::string member(std::string identifier) const {
        const std::lock_guard guard(lock_);
        const auto found = counts_.find(identifier);
        return found == counts_.end() ? std::move(identifier) : found->first;
    }

private:
    mutable std::mutex lock_;
    std::map<std::string, std::size_t> counts_;
};

// The observers of each client's user, under the registry's lock. Never destroyed.
std::map<uid_t, std::size_t>& countsOfUsers() {
    static auto& theCounts = *new std::map<uid_t, std::size_t>;
    return theCounts;
}

// The encoded form of the notification that is being relayed, made once for all its subscribers.
// Nothing when it cannot be sent. Valid under the registry's lock until the next notification. One
// that no centre has posted has the serial 0 and is not recognised.
const std::optional<EncodedCall>& encodedOnce(const NSNotification& notification) {
    static auto& latest = *new std::optional<EncodedCall>;
    static std::uint64_t serialOfLatest = 0;
    if (notification.postSerial == 0 || notification.postSerial != serialOfLatest) {
        latest = SubscriberProxy::encode(notification);
        serialOfLatest = notification.postSerial;
    }
    return latest;
}

}  // namespace

std::optional<std::string> ProxyObserver::sourceObjectForIdentifier(
    std::optional<std::string> identifier) {
    if (identifier) identifier = SourceIdentifiers::shared().member(*std::move(identifier));
    return identifier;
}

std::shared_ptr<ProxyObserver> ProxyObserver::initWithOperatorForObserverNotificationSource(
    std::shared_ptr<VeloraOperator> owner, const std::string& observerID,
    const std::optional<std::string>& name, const std::optional<std::string>&) {
    return observing(std::move(owner), observerID, name, std::nullopt);
}

std::shared_ptr<ProxyObserver> ProxyObserver::observing(std::shared_ptr<VeloraOperator> owner,
                                                        const std::string& observerID,
                                                        const std::optional<std::string>& name,
                                                        std::optional<std::string> sourceID) {
    auto result = std::make_shared<ProxyObserver>(Private(), std::move(owner), observerID,
                                                  std::move(sourceID));
    result->observe(name);
    return result;
}

ProxyObserver::ProxyObserver(Private, std::shared_ptr<VeloraOperator> owner,
                             const std::string& observerID, std::optional<std::string> sourceID)
    : operator_(std::move(owner)),
      observerID_(observerID),
      encodedID_(std::array{Value(observerID)}),
      sourceID_(std::move(sourceID)) {
    const RegistryLock lock;
    ++countsOfUsers()[operator_->clientUserID()];
    if (sourceID_) SourceIdentifiers::shared().add(*sourceID_);
}

void ProxyObserver::observe(const std::optional<std::string>& name) {
    // A post in progress on another thread may call after the observer is gone: the lock and the
    // flag tell, at less cost for each delivery than a weak reference.
    registration_ = NSNotificationCenter::defaultCenter().addObserver(
        name, sourceID_, [this, isObserving = isObserving_](const NSNotification& notification) {
            const RegistryLock
                lock;  // Held already when a client posts; then it costs next to nothing.
            if (*isObserving) forwardLocked(notification);
        });
}

ProxyObserver::~ProxyObserver() {
    const RegistryLock lock;
    *isObserving_ = false;
    const auto count = countsOfUsers().find(operator_->clientUserID());
    if (--count->second == 0) countsOfUsers().erase(count);
    NSNotificationCenter::defaultCenter().removeObserver(registration_);
    if (sourceID_) SourceIdentifiers::shared().remove(*sourceID_);
}

std::size_t ProxyObserver::countOfUser(uid_t userID) {
    const auto found = countsOfUsers().find(userID);
    return found == countsOfUsers().end() ? 0 : found->second;
}

void ProxyObserver::forwardNotification(const NSNotification& notification) {
    const RegistryLock lock;
    forwardLocked(notification);
}

void ProxyObserver::forwardLocked(const NSNotification& notification) {
    std::optional<SubscriberProxy> subscriber = operator_->subscriber();
    if (!subscriber) return;
    if (const auto& encoded = encodedOnce(notification)) subscriber->forward(encodedID_, *encoded);
}

}  // namespace sevrin
