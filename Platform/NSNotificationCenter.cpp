// Brings notifications to the observers of this process: one sorted list a name, walked outside the
// lock.
//
// What a callback captured is destroyed outside the lock too, for its destructor may well call the
// centre: under the lock, only registrations whose callback is gone or is kept elsewhere are
// dropped.
#include "Platform/NSNotificationCenter.h"

#include <utility>

namespace sevrin::platform {

struct NSNotificationCenter::Registration {
    const std::optional<std::string> name;
    const std::optional<std::string> object;
    Callback callback;  // Changed only when it is inactive and no post runs that may know it.
    const std::uint64_t order;
    std::atomic<bool> isActive = true;
};

namespace {

// Tells one observer, if it is still registered and wants to hear about this object.
void tell(NSNotificationCenter::Registration& observer, const NSNotification& notification) {
    if (!observer.isActive.load(std::memory_order_acquire)) return;
    if (observer.object && observer.object != notification.object) return;
    observer.callback(notification);
}

}  // namespace

NSNotificationCenter& NSNotificationCenter::defaultCenter() {
    static NSNotificationCenter& theCenter = *new NSNotificationCenter;
    return theCenter;
}

NSNotificationCenter::ListPtr& NSNotificationCenter::listFor(const Registration& registration) {
    if (!registration.name) return anyName_;
    ListPtr& list = byName_[*registration.name];
    if (!list) list = std::make_shared<List>();
    return list;
}

NSNotificationCenter::List& NSNotificationCenter::changeable(ListPtr& list) {
    if (list->walks > 0) list = std::make_shared<List>(List{list->observers, 0, list->removed});
    return *list;
}

void NSNotificationCenter::forgetRemoved(ListPtr& list) {
    List& changed = changeable(list);
    std::erase_if(changed.observers, [](const Observer& observer) { return !observer->isActive; });
    changed.removed = 0;
}

NSNotificationCenter::Observer NSNotificationCenter::addObserver(std::optional<std::string> name,
                                                                 std::optional<std::string> object,
                                                                 Callback callback) {
    const std::scoped_lock guard(lock_);
    Observer observer(
        new Registration{std::move(name), std::move(object), std::move(callback), nextOrder_++});
    changeable(listFor(*observer)).observers.push_back(observer);
    ++count_;
    return observer;
}

void NSNotificationCenter::removeObserver(const Observer& observer) {
    if (!observer) return;
    Callback released;  // Destroyed after the lock is let go of.
    const std::scoped_lock guard(lock_);
    if (!observer->isActive) return;
    if (runningPosts_ > 0) {
        removedDuringPosts_.push_back(observer);
    } else {
        released.swap(observer->callback);
    }
    observer->isActive = false;
    --count_;
    ListPtr& list = listFor(*observer);
    if (2 * ++list->removed <= list->observers.size()) return;
    forgetRemoved(list);
    if (list->observers.empty() && observer->name) byName_.erase(*observer->name);
}

// One post: keeps its two lists as they are from beginning to end, also when a callback throws.
class NSNotificationCenter::Post {
public:
    Post(NSNotificationCenter& center, std::string_view name) : center_(center) {
        const std::scoped_lock guard(center_.lock_);
        ++center_.runningPosts_;
        if (const auto found = center_.byName_.find(name); found != center_.byName_.end())
            named_ = found->second;
        any_ = center_.anyName_;
        if (named_) ++named_->walks;
        ++any_->walks;
    }
    Post(const Post&) = delete;
    Post& operator=(const Post&) = delete;

    ~Post() {
        std::vector<Observer> released;
        {
            const std::scoped_lock guard(center_.lock_);
            if (named_) --named_->walks;
            --any_->walks;
            if (--center_.runningPosts_ == 0) released.swap(center_.removedDuringPosts_);
        }
        for (const Observer& observer : released)
            observer->callback = nullptr;
    }

    void tellAll(const NSNotification& notification) const {
        static const std::vector<Observer> kNobody;
        const std::vector<Observer>& left = named_ ? named_->observers : kNobody;
        const std::vector<Observer>& right = any_->observers;
        std::size_t i = 0;
        std::size_t j = 0;
        while (i < left.size() || j < right.size()) {
            const bool isLeftNext =
                j == right.size() || (i < left.size() && left[i]->order < right[j]->order);
            tell(isLeftNext ? *left[i++] : *right[j++], notification);
        }
    }

private:
    NSNotificationCenter& center_;
    ListPtr named_;
    ListPtr any_;
};

void NSNotificationCenter::postNotification(NSNotification notification) {
    static std::atomic<std::uint64_t> nextSerial = 1;
    notification.postSerial = nextSerial.fetch_add(1, std::memory_order_relaxed);
    Post(*this, notification.name).tellAll(notification);
}

void NSNotificationCenter::postNotificationNameObjectUserInfo(std::string name,
                                                              std::optional<std::string> object,
                                                              Value userInfo) {
    postNotification({std::move(name), std::move(object), std::move(userInfo)});
}

std::size_t NSNotificationCenter::observerCount() const {
    const std::scoped_lock guard(lock_);
    return count_;
}

}  // namespace sevrin::platform
