// The chain of items that a directory lists: built item by item, sorted in place.
//
// A listing is its head, which owns the next item, and so on. Part of KTDirectory; nobody else
// builds or sorts chains.
#pragma once

#include <cstddef>
#include <functional>

#include "Common/Source/Utilities/KTFileInfo.h"

namespace sevrin {

// -1 (or less), 0 or 1 (or more): `left` stands before, beside or behind `right`.
using KTFileInfoComparison = std::function<int(const KTFileInfo& left, const KTFileInfo& right)>;

class KTListing {
public:
    // Adds a new item, which nobody else has seen, at the end.
    void append(KTFileInfoPtr item);

    // Drops what was added; the items end on the background queue.
    void restart();

    [[nodiscard]] const KTFileInfoPtr& head() const { return head_; }

    // Sorts a chain by merging, without allocating; equal items stay in their order. Whoever asks
    // an item for the next one meanwhile waits, but for the comparison itself, which must not walk
    // listings that other threads sort. When it throws, the chain is whole, in some order, and the
    // exception goes on.
    static void sort(KTFileInfoPtr& head, const KTFileInfoComparison& compare);
    static void sortByName(KTFileInfoPtr& head);

    // Whether the calling thread is sorting.
    [[nodiscard]] static bool isSortedHere() noexcept;

private:
    template <typename Compare>
    class MergeSort;

    template <typename Compare>
    static void sortWith(KTFileInfoPtr& head, const Compare& compare, bool isByName);
    static std::size_t beginSorting(const KTFileInfoPtr& head, bool isByName);
    static void endSorting(const KTFileInfoPtr& head) noexcept;

    KTFileInfoPtr head_;
    KTFileInfo* tail_ = nullptr;
};

}  // namespace sevrin
