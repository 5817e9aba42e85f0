// The item of a directory, and the list of its entries as items: read when first asked for, never
// refreshed by itself, sorted in place, dropped by a flush.
//
// The directory owns the first item, each item the next (KTListing.h). Directories are read one at
// a time in the whole process, into one buffer. A directory that cannot be opened lists as empty,
// and is tried again by whoever asks next; one whose reading fails raises "failed to read
// directory", also later as long as it fails. Any thread may use any directory; a list that is
// walked stays alive from the item on that the walker holds, whatever becomes of the directory.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "Common/Source/Utilities/KTFileInfo.h"
#include "Common/Source/Utilities/KTListing.h"

namespace sevrin {

// Where an enumeration in portions is. The first two belong to the platform's form: 0 before the
// first portion, and what changes when the list does.
struct FastEnumerationState {
    unsigned long state = 0;
    const void* mutationsPtr = nullptr;
    KTFileInfoPtr cursor;
};

class KTDirectory final : public KTFileInfo, public KTAbstractDirectory {
public:
    // Walks the list. Holds the item that it is at.
    class Iterator {
    public:
        using value_type = KTFileInfoPtr;
        using difference_type = std::ptrdiff_t;
        using iterator_category = std::forward_iterator_tag;

        Iterator() = default;
        explicit Iterator(KTFileInfoPtr item) : item_(std::move(item)) {}

        const KTFileInfoPtr& operator*() const { return item_; }
        const KTFileInfoPtr* operator->() const { return &item_; }
        Iterator& operator++() {
            item_ = item_->nextObj();
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }
        friend bool operator==(const Iterator&, const Iterator&) = default;

    private:
        KTFileInfoPtr item_;
    };

    // The directory at the path; nullptr when there is none. Raises what probing raises.
    [[nodiscard]] static KTDirectoryPtr directoryWithPath(std::string_view path);

    using KTFileInfo::KTFileInfo;
    ~KTDirectory() override;

    // --- Kind.

    [[nodiscard]] bool isDirectory() const noexcept override { return true; }
    [[nodiscard]] bool isRegularFile() const noexcept override { return false; }
    [[nodiscard]] bool isSymbolicLink() const noexcept override { return false; }
    [[nodiscard]] bool isPersistentObject() const noexcept override { return true; }
    [[nodiscard]] KTDirectoryPtr asDirectory() override;
    [[nodiscard]] std::uint32_t linkCount() const override;

    // Whether a volume is mounted here.
    [[nodiscard]] bool isMountPoint() const;

    // Whether people are to take it for one thing; false when that cannot be told.
    [[nodiscard]] bool isPackage() const;

    [[nodiscard]] std::size_t commonAttrSize() const noexcept override;

    // --- The list. Everything that looks at it reads it first, if that has not been done.

    // Reads the entries, unless they have been read.
    void lazyDirectoryRead();

    // Whether they have been read: not after an attempt at a directory that could not be opened.
    [[nodiscard]] bool isListed() const noexcept { return hasMark(kContentsRead); }

    // Forgets them; the next one who asks reads afresh.
    void flushDirectoryContents();

    // How many items the list has; before it is read, how many entries the file system says there
    // are.
    [[nodiscard]] std::uint64_t count() const;

    // The first item of all, of files and links, of files, of directories; nullptr when there is
    // none.
    [[nodiscard]] KTFileInfoPtr firstObject();
    [[nodiscard]] KTFileInfoPtr firstContentFile();
    [[nodiscard]] std::shared_ptr<KTRegularFile> firstRegularFile();
    [[nodiscard]] KTDirectoryPtr firstDirectory();

    [[nodiscard]] Iterator begin() { return Iterator(firstObject()); }
    [[nodiscard]] Iterator end() { return {}; }

    // Stores the next items, as many as there are and fit; gives their number, 0 at the end.
    [[nodiscard]] std::size_t countByEnumeratingWithStateObjectsCount(
        FastEnumerationState& state, std::span<KTFileInfoPtr> objects);

    // The first item whose name has exactly these bytes, nullptr when there is none; for the last
    // two also when it is no directory. Takes time with the length of the list.
    [[nodiscard]] KTFileInfoPtr objectMatchingCName(const char* name);
    [[nodiscard]] KTFileInfoPtr objectMatchingName(std::string_view name);
    [[nodiscard]] KTDirectoryPtr subdirectoryMatchingCName(const char* name);
    [[nodiscard]] KTDirectoryPtr subdirectoryMatchingName(std::string_view name);

    [[nodiscard]] KTAbstractFilePtr firstAbstractObject() override;
    [[nodiscard]] KTAbstractFilePtr firstAbstractContentFile() override;
    [[nodiscard]] KTAbstractFilePtr firstAbstractRegularFile() override;
    [[nodiscard]] KTAbstractDirectoryPtr firstAbstractDirectory() override;
    [[nodiscard]] KTAbstractFilePtr abstractObjectMatchingCName(const char* name) override;
    [[nodiscard]] KTAbstractFilePtr abstractObjectMatchingName(std::string_view name) override;
    [[nodiscard]] KTAbstractDirectoryPtr abstractSubdirectoryMatchingCName(
        const char* name) override;
    [[nodiscard]] KTAbstractDirectoryPtr abstractSubdirectoryMatchingName(
        std::string_view name) override;

    // Sorts the list by name (KTFileInfo::compareNames()), unless it is sorted so already.
    void sort();

    // Sorts the list by a comparison of its own; equal items stay in their order. What the
    // comparison throws goes on, and the list is whole.
    void resortUsing(const KTFileInfoComparison& compare);

    // --- Names within.

    // The path of an item in here; nothing is asked of the disk.
    [[nodiscard]] KTPathPtr pathForCName(const char* name);
    [[nodiscard]] KTPathPtr pathForName(std::string_view name);

    // The item of the list, else a new one.
    [[nodiscard]] KTFileInfoPtr infoForCName(const char* name);
    [[nodiscard]] KTFileInfoPtr infoForName(std::string_view name);

    // Whether the path lies below this one, as text.
    [[nodiscard]] bool containsFile(const KTAbstractPath& other) const;

    // --- Family and names.

    // nullptr for a mount point, else as for all items.
    [[nodiscard]] KTDirectoryPtr parentDirectoryInfo() const override;
    // For a mount point the names of the volume.
    [[nodiscard]] std::string displayName() const override;
    [[nodiscard]] std::string displayPath() const override;

    // "volume" for a mount point, else "folder".
    [[nodiscard]] std::string logTypeDescription() const override;

    // The volume: that of which this is the root; else what this directory has kept, which is the
    // living parent's, or a new object for a mount point and where there is no such parent. Raises
    // what making a volume object raises (KTVolumeInfo.h).
    [[nodiscard]] KTVolumeInfoPtr volumeInfo() const override;

    // For the volume object whose root this is, and which keeps it: it is not kept alive from here.
    void setVolumeInfo(const KTVolumeInfoPtr& volume);

    // --- New subdirectories. The list is not changed by them.

    // Raises "could not create directory", with the detail "mode".
    KTDirectoryPtr createSubdirectoryWithNameMode(std::string_view name, mode_t mode);

    // Its name is the prefix, a point, eight random hexadecimal digits and, if there is one, a
    // point and the extension. Tries until the name is new; raises as above for all other failures.
    KTDirectoryPtr createUniqueSubdirectoryWithPrefixExtensionMode(
        std::string_view prefix, std::optional<std::string_view> extension, mode_t mode);

protected:
    void wasMade() override;
    void adoptPath(const KTPathPtr& path) const override;
    std::size_t prepareAttrRequest(platform::attrlist& list) const override;
    const std::byte* parseAttrsSet(const std::byte* data,
                                   const platform::attribute_set_t* returned) const override;
    void getCommonAttrs() const override;

private:
    static constexpr std::uint16_t kContentsRead = 0x0004;  // under listLock_
    static constexpr std::uint16_t kSortedByName = 0x0008;  // under listLock_

    [[nodiscard]] KTDirectoryPtr self() const;
    void setList(KTFileInfoPtr head, bool isRead);
    template <typename Order>
    void resort(Order order, bool isByName);
    void askForEntryCount() const;
    [[nodiscard]] bool holdsVolumeWeakly() const;

    template <typename Field>
    [[nodiscard]] Field directoryAttribute(Field KTDirectoryAttrs::*field) const;

    mutable KTDirectoryAttrs directoryAttrs_{};  // under attrLock_
    mutable bool knowsEntryCount_ = false;       // under attrLock_
    mutable SpinLock volumeLock_;                // guards the next two; before a parent's
    mutable KTVolumeInfoPtr volumeInfo_;
    mutable std::weak_ptr<KTVolumeInfo> circularVolInfo_;
    SpinLock sortLock_;          // one sort at a time; before listLock_
    mutable SpinLock listLock_;  // guards the next and the two marks
    KTFileInfoPtr firstObject_;
    std::atomic<std::uint64_t> entryCount_ = 0;
};

}  // namespace sevrin
