// The end of items. A chain would end by as many nested destructors as it has items; instead each
// item hands the next one to a queue, which a background thread empties one after the other.
//
// A directory hands over its whole list that way, and does not even look at the first item: so
// whoever drops a listing has that behind him in less than a microsecond, however long it is.
#include <mutex>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/KTFileInfo.h"
#include "Platform/BackgroundTask.h"

namespace sevrin {

namespace {

// While this thread empties the queue: where an item that ends leaves its next one, which then is
// the one to end, without the queue's lock.
thread_local KTFileInfoPtr* nextToEnd = nullptr;

class ReleaseQueue {
public:
    // For the whole process, and longer: items end until the very last.
    static ReleaseQueue& shared() {
        static ReleaseQueue& theQueue = *new ReleaseQueue;
        return theQueue;
    }

    void expect() noexcept { draining_.expect(); }

    void append(KTFileInfoPtr item) {
        bool isDraining = true;
        {
            const std::lock_guard guard(lock_);
            items_.push_back(std::move(item));
            std::swap(isDraining, isDraining_);
        }
        if (!isDraining) draining_.request();
    }

private:
    static constexpr std::size_t kUsualSize = 64;

    ReleaseQueue() {
        items_.reserve(kUsualSize);
        ending_.reserve(kUsualSize);
    }

    // False when there is nothing: then the next who appends requests another draining.
    bool takeAll() {
        const std::lock_guard guard(lock_);
        std::swap(items_, ending_);
        isDraining_ = !ending_.empty();
        return isDraining_;
    }

    // One at a time, and each ends outside of the lock, which an item with a list of its own takes.
    void drain() {
        KTFileInfoPtr next;
        KTFileInfoPtr* const before = std::exchange(nextToEnd, &next);
        while (takeAll()) {
            for (KTFileInfoPtr& item : ending_) {
                item.reset();
                while (next)
                    std::exchange(next, nullptr).reset();
            }
            ending_.clear();
        }
        nextToEnd = before;
    }

    SpinLock lock_;            // guards the next two
    bool isDraining_ = false;  // running, or asked for
    std::vector<KTFileInfoPtr> items_;
    platform::BackgroundTask draining_{[] { shared().drain(); }};
    std::vector<KTFileInfoPtr> ending_;  // of whoever drains
};

}  // namespace

void KTFileInfo::expectRelease() noexcept {
    ReleaseQueue::shared().expect();
}

void KTFileInfo::release(KTFileInfoPtr first) {
    if (first) ReleaseQueue::shared().append(std::move(first));
}

KTFileInfo::~KTFileInfo() {
    releaseAttrs();
    if (!next_) return;
    if (nextToEnd != nullptr && *nextToEnd == nullptr) {
        *nextToEnd = std::move(next_);
    } else {
        release(std::move(next_));
    }
}

}  // namespace sevrin
