// Brings notifications to the observers of this process, on the thread that posts.
//
// A post costs time for the observers that match and for nobody else. Callbacks run in the order of
// registration, never under the centre's lock; they may post, add and remove. An observer added
// during a post is not told about it.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Platform/KeyedHash.h"
#include "Platform/NSNotification.h"

namespace sevrin::platform {

class NSNotificationCenter {
public:
    using Callback = std::function<void(const NSNotification&)>;

    struct Registration;

    // What addObserver gives and removeObserver takes. Letting go of it does not unregister.
    using Observer = std::shared_ptr<Registration>;

    // The centre of the process.
    [[nodiscard]] static NSNotificationCenter& defaultCenter();

    // Registers `callback` for notifications called `name` about `object`; either left out matches
    // any.
    [[nodiscard]] Observer addObserver(std::optional<std::string> name,
                                       std::optional<std::string> object, Callback callback);

    // Unregisters. After this returns no call of the callback begins; one that runs on another
    // thread may still be finishing. What the callback captured is let go of at once, or, while
    // anything is being posted, by the last post to end. Unregistering twice, or nothing at all, is
    // harmless.
    void removeObserver(const Observer& observer);

    // Tells every matching observer of one and the same notification, its postSerial set.
    void postNotification(NSNotification notification);
    void postNotificationNameObjectUserInfo(std::string name, std::optional<std::string> object,
                                            Value userInfo);

    // How many observers are registered.
    [[nodiscard]] std::size_t observerCount() const;

private:
    // The observers of one name, in order. Changed in place unless a post is walking it: then it is
    // replaced by a changed copy. Those that were removed stay in it, dead, until they are more
    // than half, so that removing many costs no more than adding them did.
    struct List {
        std::vector<Observer> observers;
        unsigned walks = 0;
        std::size_t removed = 0;
    };
    using ListPtr = std::shared_ptr<List>;

    // Lets text be looked up without making a string of it, and nobody choose names that collide.
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return KeyedHash::of(text); }
    };

    class Post;

    [[nodiscard]] ListPtr& listFor(const Registration& registration);
    static List& changeable(ListPtr& list);
    static void forgetRemoved(ListPtr& list);

    mutable std::mutex lock_;
    std::unordered_map<std::string, ListPtr, TextHash, std::equal_to<>> byName_;
    ListPtr anyName_ = std::make_shared<List>();
    std::uint64_t nextOrder_ = 1;
    std::size_t count_ = 0;
    unsigned runningPosts_ = 0;
    std::vector<Observer> removedDuringPosts_;  // Their callbacks may be running.
};

}  // namespace sevrin::platform
