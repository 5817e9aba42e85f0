// The centre: who observes in this process, and what arrives for them on the main loop.
#include "Platform/NSDistributedNotificationCenter.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "Platform/Assertion.h"
#include "Platform/linux/DescriptorWatch.h"
#include "Platform/linux/NotificationDatagram.h"
#include "Platform/linux/NotificationSocket.h"

namespace sevrin::platform {
namespace {

// After so many packets other work of the main loop gets its turn.
constexpr int kPacketsPerTurnMax = 16;

struct Observer {
    NSDistributedNotificationCenter::ObserverId id;
    std::optional<std::string> name;
    std::optional<std::string> object;
    NSDistributedNotificationCenter::Callback callback;

    [[nodiscard]] bool isFor(const NSNotification& notification) const {
        return (!name || name == notification.name) && (!object || object == notification.object);
    }
};

using ObserverPtr = std::shared_ptr<const Observer>;

class Center final : public NSDistributedNotificationCenter {
public:
    ObserverId addObserver(std::optional<std::string> name, std::optional<std::string> object,
                           Callback callback) override {
        SEVRIN_ASSERT(callback, "an observer has no callback");
        const std::lock_guard lock(mutex_);
        if (!watch_) listen();
        const ObserverId id = ++lastId_;
        observers_.push_back(std::make_shared<const Observer>(
            Observer{id, std::move(name), std::move(object), std::move(callback)}));
        return id;
    }

    void removeObserver(ObserverId observer) override {
        ObserverPtr removed;  // Goes after the lock: what the callback owns may call us again.
        const std::lock_guard lock(mutex_);
        const auto found = find(observer);
        if (found == observers_.end()) return;
        removed = *found;
        observers_.erase(found);
        if (observers_.empty()) watch_.reset();
    }

    void postNotificationNameObjectUserInfoOptions(std::string_view name,
                                                   const std::optional<std::string>& object,
                                                   const Value& userInfo,
                                                   unsigned options) override {
        const std::string bytes =
            encodeNotification({{std::string(name), object, userInfo}, options});
        for (const std::string& receiver : notificationReceivers(reachOf(options))) {
            sendNotificationPacket(receiver, bytes);
        }
    }

private:
    [[nodiscard]] static NotificationReach reachOf(unsigned options) {
        return options & NSDistributedNotificationPostToAllSessions ? NotificationReach::AllSessions
                                                                    : NotificationReach::OwnUser;
    }

    // Called under the lock.
    void listen() {
        user_ = ::geteuid();
        watch_ = std::make_unique<DescriptorWatch>(openNotificationSocket(), [this](int socket) {
            for (int packets = 0; packets < kPacketsPerTurnMax && takePacket(socket); ++packets) {
            }
        });
    }

    // Called under the lock.
    [[nodiscard]] std::vector<ObserverPtr>::iterator find(ObserverId id) {
        return std::find_if(observers_.begin(), observers_.end(),
                            [&](const ObserverPtr& observer) { return observer->id == id; });
    }

    // Handles one packet, which may come from anybody. False when none is left.
    bool takePacket(int socket) {
        std::unique_lock lock(mutex_);
        // Another thread may have closed the socket, and the descriptor may be anything now.
        if (!watch_ || watch_->descriptor() != socket) return false;
        const std::optional<NotificationPacket> packet = receiveNotificationPacket(socket);
        if (!packet) return false;
        const std::vector<ObserverPtr> observers = observers_;
        const uid_t user = user_;
        lock.unlock();

        if (!packet->sender) return true;
        auto posted = decodeNotification(packet->bytes);
        const bool isMeantForUs =
            posted && (packet->sender == user || packet->sender == uid_t{0} ||
                       reachOf(posted->options) == NotificationReach::AllSessions);
        if (isMeantForUs) {
            posted->notification.postSerial = ++lastDelivery_;
            deliver(posted->notification, observers);
        }
        return true;
    }

    void deliver(const NSNotification& notification, const std::vector<ObserverPtr>& observers) {
        for (const ObserverPtr& observer : observers) {
            if (observer->isFor(notification) && isRegistered(observer->id)) {
                observer->callback(notification);
            }
        }
    }

    // A callback may have removed an observer that comes after it.
    [[nodiscard]] bool isRegistered(ObserverId id) {
        const std::lock_guard lock(mutex_);
        return find(id) != observers_.end();
    }

    std::uint64_t lastDelivery_ = 0;  // Counts on the main thread only.

    std::mutex mutex_;  // Guards what follows.
    std::vector<ObserverPtr> observers_;
    ObserverId lastId_ = 0;
    uid_t user_ = 0;  // Whose socket it is.
    std::unique_ptr<DescriptorWatch> watch_;
};

}  // namespace

NSDistributedNotificationCenter& NSDistributedNotificationCenter::defaultCenter() {
    // Never destroyed: observers may go as late as other static objects do.
    static Center& center = *new Center;
    return center;
}

}  // namespace sevrin::platform
