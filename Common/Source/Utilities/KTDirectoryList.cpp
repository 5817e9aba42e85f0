// The list of a directory: read by the best reader at hand, sorted, dropped.
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTDirectoryReading.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Platform/DirectoryReader.h"
#include "Platform/NSException.h"

namespace sevrin {

namespace {

// Held while any directory is read: the readers share a buffer. Never destroyed.
std::mutex& readLock() {
    static std::mutex& theLock = *new std::mutex;
    return theLock;
}

using Reader = bool (*)(const KTPathPtr& path, KTDirectoryContents& contents);

// What cannot be learnt about the volume it cannot do.
bool hasGetDirEntriesAttr(const KTDirectory& directory) {
    try {
        return directory.volumeInfo()->hasGetDirEntriesAttr();
    } catch (const platform::NSException&) {
        return false;
    }
}

Reader bestReaderOf(const KTDirectory& directory) {
    if (platform::hasGetattrlistbulk()) return &readDirectoryInBulk;
    if (hasGetDirEntriesAttr(directory)) return &readDirectoryByAttributes;
    return &readDirectoryPlainly;
}

}  // namespace

void KTDirectory::setList(KTFileInfoPtr head, bool isRead) {
    if (head) expectRelease();
    {
        const std::lock_guard guard(listLock_);
        std::swap(firstObject_, head);
        clearMark(kContentsRead | kSortedByName);
        if (isRead) setMark(kContentsRead);
    }
    release(std::move(head));
}

void KTDirectory::lazyDirectoryRead() {
    if (hasMark(kContentsRead)) return;
    const Reader read = bestReaderOf(*this);
    const KTPathPtr path = pathObject();
    const std::lock_guard guard(readLock());
    if (hasMark(kContentsRead)) return;
    KTDirectoryContents contents;
    try {
        const bool isRead = read(path, contents);
        entryCount_ = contents.entryCount;
        setList(contents.listing.head(), isRead);
    } catch (...) {
        entryCount_ = contents.entryCount;
        setList(contents.listing.head(), false);
        throw;
    }
}

void KTDirectory::flushDirectoryContents() {
    const std::lock_guard guard(readLock());
    if (hasMark(kContentsRead)) setList(nullptr, false);
}

KTFileInfoPtr KTDirectory::firstObject() {
    lazyDirectoryRead();
    const std::lock_guard guard(listLock_);
    return firstObject_;
}

// Sorts what is the list now. When it is flushed meanwhile, nobody wants the result any longer.
template <typename Order>
void KTDirectory::resort(Order order, bool isByName) {
    KTFileInfoPtr head = firstObject();
    const KTFileInfoPtr before = head;
    const auto store = [&] {
        const std::lock_guard guard(listLock_);
        if (firstObject_ != before) return;
        firstObject_ = head;
        clearMark(kSortedByName);
        if (isByName) setMark(kSortedByName);
    };
    try {
        order(head);
    } catch (...) {
        isByName = false;
        store();
        throw;
    }
    store();
}

void KTDirectory::sort() {
    const std::lock_guard guard(sortLock_);
    lazyDirectoryRead();
    if (!hasMark(kSortedByName)) resort(&KTListing::sortByName, true);
}

void KTDirectory::resortUsing(const KTFileInfoComparison& compare) {
    const std::lock_guard guard(sortLock_);
    resort([&](KTFileInfoPtr& head) { KTListing::sort(head, compare); }, false);
}

}  // namespace sevrin
