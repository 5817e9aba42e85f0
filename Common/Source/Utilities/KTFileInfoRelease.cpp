// The end of items. A chain would end by as many nested destructors as it has items; instead each
// item hands the next one to a queue, which a background thread empties one after the other.
#include <deque>
#include <mutex>
#include <system_error>
#include <utility>

#include "Common/Source/Utilities/KTFileInfo.h"
#include "Platform/DispatchQueue.h"

namespace sevrin {

namespace {

using platform::DispatchQueue;

class ReleaseQueue {
public:
    // For the whole process, and longer: items end until the very last.
    static ReleaseQueue& shared() {
        static ReleaseQueue& theQueue = *new ReleaseQueue;
        return theQueue;
    }

    void append(KTFileInfoPtr item) {
        bool isDraining = true;
        {
            const std::lock_guard guard(lock_);
            items_.push_back(std::move(item));
            std::swap(isDraining, isDraining_);
        }
        if (!isDraining) schedule();
    }

private:
    void schedule() {
        try {
            DispatchQueue::globalQueue(DispatchQueue::Priority::Background).async([this] {
                drain();
            });
        } catch (const std::system_error&) {
            drain();  // There is no thread to be had but this one.
        }
    }

    KTFileInfoPtr takeFirst() {
        const std::lock_guard guard(lock_);
        if (items_.empty()) {
            isDraining_ = false;
            return nullptr;
        }
        KTFileInfoPtr item = std::move(items_.front());
        items_.pop_front();
        return item;
    }

    // One at a time, and each ends outside of the lock, which its next one takes.
    void drain() {
        while (KTFileInfoPtr item = takeFirst())
            item.reset();
    }

    SpinLock lock_;  // guards the other two
    std::deque<KTFileInfoPtr> items_;
    bool isDraining_ = false;  // running, or asked for
};

}  // namespace

KTFileInfo::~KTFileInfo() {
    releaseAttrs();
    if (next_) ReleaseQueue::shared().append(std::move(next_));
}

}  // namespace sevrin
