// One subscription of a client: observes the notification centre of this process and forwards what
// matches over the client's connection.
//
// Registered from its creation to its destruction. The operator and its observers own each other
// until the operator drops them. Created and destroyed under the registry's lock; forwards on the
// thread that posts.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/NSNotificationCenter.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin {

class VeloraOperator;

class ProxyObserver final : public platform::Object,
                            public std::enable_shared_from_this<ProxyObserver> {
    struct Private {};  // Lets only this class construct one, in the memory of its shared pointer.

public:
    // The canonical object to post with for a source: the member of the set of observed sources
    // that equals `identifier`, or else the identifier itself. May be called on any thread.
    [[nodiscard]] static std::optional<std::string> sourceObjectForIdentifier(
        std::optional<std::string> identifier);

    // An observer of notifications called `name`; of every notification without a name. The client
    // that is told will find `observerID` in each message. `source` is accepted and not kept:
    // clients subscribe with one, rely on hearing of every source, and choose by what they are
    // told.
    [[nodiscard]] static std::shared_ptr<ProxyObserver>
    initWithOperatorForObserverNotificationSource(std::shared_ptr<VeloraOperator> owner,
                                                  const std::string& observerID,
                                                  const std::optional<std::string>& name,
                                                  const std::optional<std::string>& source);

    // The same, hearing of one source only where `sourceID` is given.
    [[nodiscard]] static std::shared_ptr<ProxyObserver> observing(
        std::shared_ptr<VeloraOperator> owner, const std::string& observerID,
        const std::optional<std::string>& name, std::optional<std::string> sourceID);

    ProxyObserver(Private, std::shared_ptr<VeloraOperator> owner, const std::string& observerID,
                  std::optional<std::string> sourceID);
    ~ProxyObserver() override;

    // How many observers the clients of one user id have, whatever switchboard they are on. Call it
    // under the registry's lock.
    [[nodiscard]] static std::size_t countOfUser(uid_t userID);

    [[nodiscard]] const std::string& observerID() const { return observerID_; }

    // Sends `notification` to the client, unless the operator is unplugged or the notification
    // holds something that cannot be sent.
    void forwardNotification(const platform::NSNotification& notification);

    // Orders observers by their ids and finds them there.
    struct ByObserverID {
        using is_transparent = void;
        using Pointer = std::shared_ptr<ProxyObserver>;

        bool operator()(const Pointer& left, const Pointer& right) const {
            return left->observerID() < right->observerID();
        }
        bool operator()(const Pointer& left, std::string_view right) const {
            return left->observerID() < right;
        }
        bool operator()(std::string_view left, const Pointer& right) const {
            return left < right->observerID();
        }
    };

private:
    void observe(const std::optional<std::string>& name);
    void forwardLocked(const platform::NSNotification& notification);

    const std::shared_ptr<VeloraOperator> operator_;
    const std::string observerID_;
    const platform::EncodedArguments encodedID_;  // the same, ready to be sent
    const std::optional<std::string> sourceID_;
    platform::NSNotificationCenter::Observer registration_;

    // False once this is being destroyed; shared with the callback and changed under the registry's
    // lock.
    const std::shared_ptr<bool> isObserving_ = std::make_shared<bool>(true);
};

}  // namespace sevrin
