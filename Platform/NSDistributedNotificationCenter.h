// Notifications between the processes of one machine.
//
// A notification is an announcement, not a message: it reaches whoever observes at that moment,
// nobody answers, and one that a receiver has no room for is lost to that receiver alone, so a post
// never waits for anybody. Callbacks run on the main queue: a process that does not run its run
// loop hears nothing, and after a few unheard notifications loses those that follow.
//
// A notification posted to all sessions is heard by processes of every user. Any other one reaches
// the observers of the poster's own user, and they take such a one from that user and root only.
// Objects and user infos never hold a secret.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Export.h"
#include "Platform/NSNotification.h"
#include "Platform/Value.h"

namespace sevrin::platform {

// Options of a post, combined by |. Their values travel between processes: never renumber them.
inline constexpr unsigned NSDistributedNotificationDeliverImmediately = 1;
inline constexpr unsigned NSDistributedNotificationPostToAllSessions = 2;

// Every function may be called on any thread.
class SEVRIN_EXPORT NSDistributedNotificationCenter {
public:
    using ObserverId = std::uint64_t;
    using Callback = std::function<void(const NSNotification&)>;

    // The encoded size of one notification, name, object and user info together.
    static constexpr std::size_t kNotificationBytesMax = std::size_t{64} << 10;

    [[nodiscard]] static NSDistributedNotificationCenter& defaultCenter();

    // Calls `callback` for each notification named `name` from `object`; an empty one of the two
    // stands for any. Every observer is delivered to immediately, suspended process or not; several
    // are called in the order in which they came. An exception that leaves the callback ends the
    // process. Throws std::system_error when the system gives no way to listen.
    [[nodiscard]] virtual ObserverId addObserver(std::optional<std::string> name,
                                                 std::optional<std::string> object,
                                                 Callback callback) = 0;

    // Ends the calls to that observer. After the return none begins, unless the caller is on
    // another thread than the main one: then one may have begun. Harmless when repeated.
    virtual void removeObserver(ObserverId observer) = 0;

    // Posts to all observers there are, those of this process among them. `userInfo` is null or a
    // dictionary of what can travel: text keys; null, booleans, numbers, strings, data, dates,
    // arrays and dictionaries. Text that is not UTF-8 arrives escaped. Delivery is immediate with
    // or without NSDistributedNotificationDeliverImmediately. Throws std::invalid_argument when the
    // user info cannot travel or the notification is too large, std::system_error when the system
    // does not say who observes.
    virtual void postNotificationNameObjectUserInfoOptions(std::string_view name,
                                                           const std::optional<std::string>& object,
                                                           const Value& userInfo,
                                                           unsigned options) = 0;

    NSDistributedNotificationCenter(const NSDistributedNotificationCenter&) = delete;
    NSDistributedNotificationCenter& operator=(const NSDistributedNotificationCenter&) = delete;

protected:
    NSDistributedNotificationCenter() = default;
    ~NSDistributedNotificationCenter() = default;
};

}  // namespace sevrin::platform
