// Chains of items, and merge sort on them.
#include "Common/Source/Utilities/KTListing.h"

#include <exception>
#include <mutex>
#include <utility>

namespace sevrin {

namespace {

// How many sorts this thread is in: a comparison may sort another listing.
thread_local std::size_t sortsHere = 0;

}  // namespace

bool KTListing::isSortedHere() noexcept {
    return sortsHere != 0;
}

void KTListing::append(KTFileInfoPtr item) {
    KTFileInfo* const added = item.get();
    (tail_ == nullptr ? head_ : tail_->next_) = std::move(item);
    tail_ = added;
}

void KTListing::restart() {
    tail_ = nullptr;
    KTFileInfo::release(std::move(head_));
}

// Marks every item, so that nobody follows a link that is being moved; answers how many there are.
std::size_t KTListing::beginSorting(const KTFileInfoPtr& head, bool isByName) {
    std::size_t count = 0;
    for (const KTFileInfo* item = head.get(); item != nullptr; item = item->next_.get()) {
        {
            const std::lock_guard guard(item->linkLock_);
            item->setMark(KTFileInfo::kBeingSorted);
        }
        if (isByName) item->sortKey_ = platform::finderSortKey(item->cName());
        ++count;
    }
    return count;
}

void KTListing::endSorting(const KTFileInfoPtr& head) noexcept {
    for (const KTFileInfo* item = head.get(); item != nullptr;) {
        const KTFileInfo* const next = item->next_.get();
        {
            const std::lock_guard guard(item->linkLock_);
            item->clearMark(KTFileInfo::kBeingSorted);
        }
        item->flags_.notify_all();
        item = next;
    }
}

// One sort. Links are moved, never copied, so that no count of owners changes.
template <typename Compare>
class KTListing::MergeSort {
public:
    explicit MergeSort(const Compare& compare) : compare_(compare) {}

    // Takes the first `count` items off `rest`, of which there is at least one, and gives them
    // sorted. The first half has the middle one.
    KTFileInfoPtr take(KTFileInfoPtr& rest, std::size_t count) {
        if (count == 1) {
            KTFileInfoPtr item = std::move(rest);
            rest = std::move(item->next_);
            return item;
        }
        KTFileInfoPtr first = take(rest, count - count / 2);
        return merge(std::move(first), take(rest, count / 2));
    }

    [[nodiscard]] const std::exception_ptr& failure() const { return failure_; }

private:
    KTFileInfoPtr merge(KTFileInfoPtr first, KTFileInfoPtr second) {
        KTFileInfoPtr head;
        KTFileInfoPtr* end = &head;
        while (first && second) {
            KTFileInfoPtr& taken = isBehind(*first, *second) ? second : first;
            *end = std::move(taken);
            end = &(*end)->next_;
            taken = std::move(*end);
            if (taken) fetchAhead(taken->next_.get());
        }
        // After a failure both may have items left.
        *end = std::move(first ? first : second);
        return head;
    }

    // A long list is not in the cache: the item after the next is asked for while this one is
    // compared.
    static void fetchAhead(const KTFileInfo* item) {
        if (item == nullptr) return;
        __builtin_prefetch(&item->sortKey_);
        __builtin_prefetch(&item->linkLock_);
    }

    bool isBehind(const KTFileInfo& first, const KTFileInfo& second) {
        if (failure_) return false;
        try {
            return compare_(first, second) > 0;
        } catch (...) {
            failure_ = std::current_exception();
            return false;
        }
    }

    const Compare& compare_;
    std::exception_ptr failure_;
};

template <typename Compare>
void KTListing::sortWith(KTFileInfoPtr& head, const Compare& compare, bool isByName) {
    const std::size_t count = beginSorting(head, isByName);
    MergeSort<Compare> sorting(compare);
    if (count > 1) {
        ++sortsHere;
        KTFileInfoPtr rest = std::move(head);
        head = sorting.take(rest, count);
        --sortsHere;
    }
    endSorting(head);
    if (sorting.failure()) std::rethrow_exception(sorting.failure());
}

void KTListing::sort(KTFileInfoPtr& head, const KTFileInfoComparison& compare) {
    sortWith(head, compare, false);
}

void KTListing::sortByName(KTFileInfoPtr& head) {
    const auto compare = [](const KTFileInfo& left, const KTFileInfo& right) {
        const int order = platform::compareFinderSortKeys(left.sortKey_, right.sortKey_);
        return order != 0 ? order : left.compareNames(right);
    };
    sortWith(head, compare, true);
}

}  // namespace sevrin
