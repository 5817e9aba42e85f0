// A file-system item: what a path names, of which kind it is, and its attributes, fetched when
// first asked for and kept until they are flushed.
//
// The class of an item tells its kind and never changes: KTDirectory, KTRegularFile,
// KTSymbolicLink, KTNonexistentFile for a path at which nothing is, KTFileInfo itself for devices,
// sockets and pipes. Items come from a probe of the path, from the listing of a directory, or of a
// kind that is known. No probe and no fetch ever follows a link.
//
// Setters change what is kept; setModifiedAttributes() writes it. The items of a listing are a
// chain: each owns the next. An item owns its path and never its directory. The end of a chain is
// left to a background queue, one item after the other.
//
// Any thread may use any item; changes that are not written yet are one thread's affair. An item of
// a listing is one block of memory, its name and attributes included; its path object is made when
// somebody asks for it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/KTAbstractFile.h"
#include "Common/Source/Utilities/KTFileAttributes.h"
#include "Common/Source/Utilities/KTPath.h"
#include "Common/Source/Utilities/SpinLock.h"
#include "Platform/FinderCompare.h"
#include "Platform/NSDate.h"
#include "Platform/Value.h"

struct dirent;

namespace sevrin {

class KTFileInfo;
class KTListing;
class KTRegularFile;
class KTSymbolicLink;
class KTVolumeInfo;
using KTFileInfoPtr = std::shared_ptr<KTFileInfo>;
using KTDirectoryPtr = std::shared_ptr<KTDirectory>;
using KTVolumeInfoPtr = std::shared_ptr<KTVolumeInfo>;

class KTFileInfo : public KTAbstractFile, public std::enable_shared_from_this<KTFileInfo> {
protected:
    struct Passkey {};

    // Room for a name in the block of an item (KTItemAllocator.h).
    struct NameRoom;

    // What an item is made of: its kind, and its own path, or the path of its directory and its
    // name.
    struct Origin {
        std::uint32_t type;
        KTPathPtr path;
        const NameRoom* name = nullptr;
    };

public:
    // --- New items. Raise "failed to probe object vtype" when the path cannot be looked at; a path
    // at which nothing is, or below something that is no directory, is a KTNonexistentFile. nullptr
    // for an object without a type, or a bad one.

    // Looks through the descriptor when it is not negative, else at the path. Gives `previous`
    // itself when it is of the type found.
    [[nodiscard]] static KTFileInfoPtr infoForFilePathObjectIfTypeDifferentFrom(
        int fd, const KTPathPtr& path, const KTFileInfoPtr& previous);
    [[nodiscard]] static KTFileInfoPtr infoForPathObject(const KTPathPtr& path);
    [[nodiscard]] static KTFileInfoPtr infoForCPath(const char* path);
    [[nodiscard]] static KTFileInfoPtr infoForPath(std::string_view path);
    [[nodiscard]] static KTFileInfoPtr infoForURL(const platform::NSURLPtr& url);

    // Of a type that is known; nothing is asked of the file system.
    [[nodiscard]] static KTFileInfoPtr initWithTypePathObject(std::uint8_t type, KTPathPtr path);

    // An entry as readdir() gives it; the type is that of `d_type`, without one there is no item.
    [[nodiscard]] static KTFileInfoPtr initWithDirEntryParentPath(const dirent& entry,
                                                                  const KTPathPtr& parent);

    // An entry as the platform's directory readers give it, with its attributes. `returned` tells
    // which of them are valid; nullptr means all.
    [[nodiscard]] static KTFileInfoPtr initWithBatchAttrSetParentPath(
        const std::byte* content, const platform::attribute_set_t* returned,
        const KTPathPtr& parent);

    // For the above only.
    KTFileInfo(Passkey, Origin origin);
    ~KTFileInfo() override;

    // --- Kind.

    // The platform's number: 0 none, 1 file, 2 directory, 3 and 4 devices, 5 link, 6 socket, 7
    // pipe.
    [[nodiscard]] std::uint32_t type() const noexcept { return vtype_; }
    [[nodiscard]] virtual bool isDirectory() const noexcept { return type() == platform::VDIR; }
    [[nodiscard]] virtual bool isRegularFile() const noexcept { return type() == platform::VREG; }
    [[nodiscard]] virtual bool isSymbolicLink() const noexcept { return type() == platform::VLNK; }

    // Whether a backup keeps things of this kind: files, directories and links.
    [[nodiscard]] virtual bool isPersistentObject() const noexcept {
        return isRegularFile() || isDirectory() || isSymbolicLink();
    }

    // Whether something was there.
    [[nodiscard]] virtual bool exists() const noexcept { return true; }

    [[nodiscard]] virtual std::uint32_t linkCount() const { return 1; }
    [[nodiscard]] bool isHardLink() const { return linkCount() > 1; }

    // This item as one of its kind; nullptr when it is of another.
    [[nodiscard]] virtual std::shared_ptr<KTRegularFile> asRegularFile();
    [[nodiscard]] virtual std::shared_ptr<KTSymbolicLink> asSymbolicLink();
    [[nodiscard]] virtual KTDirectoryPtr asDirectory();

    // This item when what is there is still of its kind, else a new one.
    [[nodiscard]] KTFileInfoPtr reevaluateType();

    // The item under its path without links (KTPath::hardenedReal()); this one when there are none.
    [[nodiscard]] KTFileInfoPtr hardened();

    // --- Names: those of the path.

    [[nodiscard]] KTPathPtr pathObject() const;
    void setPathObject(KTPathPtr path);

    [[nodiscard]] const char* cName() const override;
    [[nodiscard]] std::string name() const override { return cName(); }
    [[nodiscard]] std::string displayName() const override;
    [[nodiscard]] const char* cPath() const override { return pathObject()->cPath(); }
    [[nodiscard]] std::string path() const override { return pathObject()->path(); }
    [[nodiscard]] platform::NSURLPtr url() const override { return pathObject()->url(); }
    [[nodiscard]] std::string extension() const override;

    // The display names from the volume down to this item.
    [[nodiscard]] virtual std::string displayPath() const;

    // The volume that holds the item (KTPath::volumeInfo()); nullptr for what does not exist.
    [[nodiscard]] virtual KTVolumeInfoPtr volumeInfo() const;

    // What leads here from the root of the volume (KTVolumeInfo::relativePathOfPath()). When that
    // cannot be told it is logged, and the full path given.
    [[nodiscard]] std::optional<std::string> volumeRelativePath() const;

    // --- Family.

    // The directory that lists this item, as long as somebody keeps it; else nullptr.
    [[nodiscard]] KTDirectoryPtr livingParent() const;

    // The same, or else a new item for it; nullptr when it is no directory, and where the path has
    // none above it: that of "/" and of ".".
    [[nodiscard]] virtual KTDirectoryPtr parentDirectoryInfo() const;
    [[nodiscard]] KTAbstractDirectoryPtr abstractParent() const override;

    // What follows in the listing: anything, a file or link, a file, a directory; nullptr at the
    // end. While another thread sorts the listing these wait for it.
    [[nodiscard]] KTFileInfoPtr nextObj() const;
    [[nodiscard]] KTFileInfoPtr nextContentFile() const;
    [[nodiscard]] std::shared_ptr<KTRegularFile> nextRegularFile() const;
    [[nodiscard]] KTDirectoryPtr nextDirectory() const;
    [[nodiscard]] KTAbstractFilePtr nextAbstractObj() const override;
    [[nodiscard]] KTAbstractFilePtr nextAbstractContentFile() const override;
    [[nodiscard]] KTAbstractFilePtr nextAbstractRegularFile() const override;
    [[nodiscard]] KTAbstractDirectoryPtr nextAbstractDirectory() const override;

    // -1, 0 or 1: the order of names that people expect in a folder.
    [[nodiscard]] int compareNames(const KTFileInfo& other) const;

    // --- Attributes. Readers raise "failed to get attributes" when they have to be fetched and
    // cannot be; setters do too.

    [[nodiscard]] std::uint64_t localIdentifier() const;
    [[nodiscard]] virtual std::int32_t deviceID() const;
    [[nodiscard]] std::uint32_t script() const;
    [[nodiscard]] timespec createdTimeSpec() const;
    [[nodiscard]] timespec modifiedTimeSpec() const;
    [[nodiscard]] timespec attributeChangedTimeSpec() const;
    [[nodiscard]] std::uint32_t ownerID() const;
    [[nodiscard]] std::uint32_t groupID() const;
    [[nodiscard]] std::uint32_t access() const;           // permissions, set-id and sticky bits
    [[nodiscard]] std::uint32_t effectiveAccess() const;  // R_OK, W_OK, X_OK of the caller
    [[nodiscard]] std::uint32_t fileFlags() const;        // UF_ and SF_ bits

    // Nothing for what does not exist.
    [[nodiscard]] virtual std::optional<platform::NSDate> createdDate() const;
    [[nodiscard]] virtual std::optional<platform::NSDate> modifiedDate() const;
    [[nodiscard]] virtual std::optional<platform::NSDate> attributeChangedDate() const;

    void setScript(std::uint32_t script);
    void setCreatedTimeSpec(const timespec& time);
    void setModifiedTimeSpec(const timespec& time);
    void setAttributeChangedTimeSpec(const timespec& time);
    void setOwnerID(std::uint32_t owner);
    void setGroupID(std::uint32_t group);
    void setAccess(std::uint32_t access);
    void setFileFlags(std::uint32_t flags);

    // The extended list, nullptr when there is none or it cannot be read. The item's, until it is
    // flushed.
    [[nodiscard]] platform::acl_t acl() const;

    // Writes what the setters changed. Raises "unable to set attributes"; the changes then stay.
    void setModifiedAttributes();

    // Writes the attributes of these ATTR_CMN_ bits as they are kept, changed or not; bits that
    // cannot be written are passed over. Raises as above.
    void setCommonAttributes(std::uint32_t bits);

    // Forgets what was fetched, changes that were not written included.
    void flushAttributes();

    // The bytes that the attributes take.
    [[nodiscard]] virtual std::size_t commonAttrSize() const noexcept;

    // Attributes that the path's URL keeps. What cannot be told is logged, and false or null.
    [[nodiscard]] bool isHidden() const;
    [[nodiscard]] bool isHiddenExtension() const;
    [[nodiscard]] bool isExcludedFromBackup() const;
    [[nodiscard]] platform::Value volumeIdentifier() const;

    // --- Operations: those of the path (KTPath.h), which raise what they raise there.

    // Afterwards this item is the one at the new place.
    void moveToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                            std::optional<std::string_view> name, bool overwriting);
    void moveToOverwriting(std::string_view target, bool overwriting);

    // Give the item of the copy. Only files are cloned.
    KTFileInfoPtr copyToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                                     std::optional<std::string_view> name,
                                                     bool overwriting) const;
    KTFileInfoPtr copyToDirectoryWithNameOverwritingClone(std::optional<std::string_view> directory,
                                                          std::optional<std::string_view> name,
                                                          bool overwriting, bool clone) const;
    KTFileInfoPtr copyToOverwriting(std::string_view target, bool overwriting) const;
    KTFileInfoPtr copyToOverwritingClone(std::string_view target, bool overwriting,
                                         bool clone) const;

    bool tryToDeleteFile() const;

    // Gives the item of what is there now: nothing. This one still describes what was.
    KTFileInfoPtr deleteFile() const;

    // Gives the item of what is at the other's path now.
    KTFileInfoPtr swapWith(const KTFileInfo& other) const;

    // --- Identity and text.

    // Items are equal whose paths have the same bytes, whatever their kind.
    [[nodiscard]] bool isEqual(const platform::Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;

    // The path.
    [[nodiscard]] std::string description() const override { return path(); }

    // "file", "folder", ...; with the path; with the name.
    [[nodiscard]] virtual std::string logTypeDescription() const { return "item"; }
    [[nodiscard]] std::string logFullDescription() const;
    [[nodiscard]] std::string logDescription() const;

protected:
    // Called once for every item that was made.
    virtual void wasMade() {}

    // The path takes part in nothing else yet; called under linkLock_.
    virtual void adoptPath(const KTPathPtr&) const {}

    // Fills the list of what to ask for; gives the bytes that the answer takes.
    virtual std::size_t prepareAttrRequest(platform::attrlist& list) const;

    // Takes the attributes from their packed form; gives what follows it. `returned` may be
    // nullptr.
    virtual const std::byte* parseAttrsSet(const std::byte* data,
                                           const platform::attribute_set_t* returned) const;

    // Fetches the attributes; under attrLock_.
    virtual void getCommonAttrs() const;

    // The same, unless they are there.
    void attrs() const {
        if ((flags_.load(std::memory_order_relaxed) & kHasAttributes) == 0) getCommonAttrs();
    }

    // Ends an item, and all that follow it and that nobody else keeps, in the background.
    static void release(KTFileInfoPtr first);

    // For who makes a list: its release will cost next to nothing on the thread that lets it go.
    static void expectRelease() noexcept;

    // The marks. The words of the directory are its own: 0x0004 and 0x0008.
    static constexpr std::uint16_t kHasAttributes = 0x0001;  // under attrLock_
    static constexpr std::uint16_t kHasACL = 0x0002;         // under attrLock_
    static constexpr std::uint16_t kPathIsParents = 0x0010;  // under linkLock_
    static constexpr std::uint16_t kNameIsPaths = 0x0020;    // under linkLock_
    static constexpr std::uint16_t kBeingSorted = 0x0040;    // under linkLock_
    [[nodiscard]] bool hasMark(std::uint16_t mark) const noexcept {
        return (flags_.load(std::memory_order_acquire) & mark) != 0;
    }
    void setMark(std::uint16_t mark) const noexcept { flags_.fetch_or(mark); }
    // For an item that nobody else has seen: there are millions of them.
    void setMarkOfNew(std::uint16_t mark) const noexcept {
        flags_.store(static_cast<std::uint16_t>(flags_.load(std::memory_order_relaxed) | mark),
                     std::memory_order_relaxed);
    }
    void clearMark(std::uint16_t mark) const noexcept {
        flags_.fetch_and(static_cast<std::uint16_t>(~mark));
    }

    // Its own path object, if it has been made.
    [[nodiscard]] KTPathPtr madePathObject() const;

private:
    friend class KTListing;

    template <typename Item>
    static KTFileInfoPtr make(std::uint32_t type, KTPathPtr path);
    template <typename Item>
    static KTFileInfoPtr makeNamed(std::uint32_t type, std::string_view name, KTPathPtr parent);
    static KTFileInfoPtr makeEntry(std::uint32_t type, std::string_view name,
                                   const KTPathPtr& parent);

    template <typename Field>
    [[nodiscard]] Field attribute(Field KTCommonAttrs::*field) const;
    template <typename Field>
    void setAttribute(Field KTCommonAttrs::*field, const Field& value, std::uint32_t bit);
    void releaseAttrs() const noexcept;
    [[nodiscard]] platform::Value urlValue(std::string_view key, std::string_view reason) const;

    template <typename Wanted>
    [[nodiscard]] KTFileInfoPtr nextThat(Wanted wanted) const;

    // What a sort looks at comes first and together: it costs the most when it is not in the cache.
    mutable platform::FinderSortKey sortKey_;  // of the name, while a sort by name needs it
    KTFileInfoPtr next_;
    mutable std::atomic<std::uint16_t> flags_ = 0;
    const std::uint16_t nameOffset_;  // of the name from the start of this object; 0: the path's
    const std::uint8_t vtype_;

protected:
    mutable SpinLock attrLock_;  // guards the attributes
    mutable SpinLock linkLock_;  // guards the path and the link to the next item

private:
    mutable KTPathPtr pathObj_;
    mutable KTCommonAttrs attrs_{};
};

}  // namespace sevrin
