// The one lock around everything that clients share: the switchboards by user, their operators,
// the published endpoints and the subscriptions.
//
// Messages are handled on the XPC thread and shutdown on the main thread; holding this lock keeps
// them apart. A thread that holds it may take it again at the price of a counter, because a message
// that posts a notification comes back here once for every subscriber. Replies are called after it
// is released. What may be waited for under it: the locks of the notification centre, the logger
// and the connections, none of which calls back here; nothing else.
#pragma once

#include <mutex>

namespace sevrin {

class [[nodiscard]] RegistryLock {
public:
    RegistryLock() {
        if (depth_++ == 0) mutex_.lock();
    }
    ~RegistryLock() {
        if (--depth_ == 0) mutex_.unlock();
    }
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

    [[nodiscard]] static bool isHeldByThisThread() { return depth_ > 0; }

private:
    inline static std::mutex mutex_;
    inline static thread_local constinit int depth_ = 0;
};

}  // namespace sevrin
