// The name of a file-system item: its path as bytes, and everything that follows from it.
//
// What a path names never changes; what is derived from it is made when first asked for and kept.
// Nothing here raises or changes the file system. Paths are compared as bytes: two spellings of one
// item are two paths. Any thread may use any path.
//
// Text that holds a NUL ends there, as a path does.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/CString.h"
#include "Common/Source/Utilities/KTAbstractPath.h"
#include "Common/Source/Utilities/SpinLock.h"
#include "Platform/NSCoder.h"
#include "Platform/NSURL.h"
#include "Platform/Value.h"

namespace sevrin {

class KTDirectory;
class KTFileInfo;
class KTPath;
class KTVolumeInfo;
using KTPathPtr = std::shared_ptr<KTPath>;

class KTPath : public KTAbstractPath,
               public platform::NSCoding,
               public std::enable_shared_from_this<KTPath> {
protected:
    struct Passkey {};

public:
    // --- New paths. Bytes end with NUL and may not be nullptr.

    [[nodiscard]] static KTPathPtr pathWithPath(std::string_view path);
    [[nodiscard]] static KTPathPtr pathWithURL(const platform::NSURLPtr& url);

    // The path of the same item without links; the path as given when that cannot be told.
    [[nodiscard]] static KTPathPtr realPath(std::string_view path);

    // The paths of the texts and URLs among `elements`, in their order; all else is skipped.
    [[nodiscard]] static std::vector<KTPathPtr> arrayFromPathsOrURLs(
        std::span<const platform::Value> elements);

    // "/tmp" without links; the same object at every call.
    [[nodiscard]] static const KTPathPtr& tempPath();

    // A path in tempPath() at which nothing exists: the prefix, "-", eight random hexadecimal
    // digits, "." and the extension. Nothing is made there.
    [[nodiscard]] static KTPathPtr tempPathWithPrefixExtension(std::string_view prefix,
                                                               std::string_view extension);

    [[nodiscard]] static KTPathPtr initWithCPath(const char* path);
    [[nodiscard]] static KTPathPtr initWithPath(std::string_view path);

    // The item `name` in the directory at `parent`, which is not kept.
    [[nodiscard]] static KTPathPtr initWithCNameParentPath(const char* name, const KTPath& parent);

    // `path` as seen from `base`: as it is when it is absolute; joined to the base and resolved as
    // far as that is possible when it begins with a point; joined to it otherwise. An empty path
    // gives `base` itself.
    [[nodiscard]] static KTPathPtr initWithCPathRelativeToPath(const char* path,
                                                               const KTPathPtr& base);

    [[nodiscard]] static KTPathPtr initWithURL(const platform::NSURLPtr& url);

    // A path of the same item, with the same URL object if there is one.
    [[nodiscard]] static KTPathPtr initWithPathObject(const KTPath& other);

    // Takes both texts over; the name need not be the last component.
    [[nodiscard]] static KTPathPtr initAssumingNamePath(CStringPtr name, CStringPtr path);

    // Reads what encodeWithCoder() wrote. Throws what the coder throws.
    [[nodiscard]] static KTPathPtr initWithCoder(platform::NSCoder& coder);
    [[nodiscard]] static constexpr bool supportsSecureCoding() { return true; }
    [[nodiscard]] static platform::Class& classObject();

    // For the above only.
    KTPath(Passkey, CStringPtr name, CStringPtr path, platform::NSURLPtr url = nullptr);
    ~KTPath() override;

    // A new path of the same class and item, with the same parent if one is kept.
    [[nodiscard]] virtual KTPathPtr copy() const;

    // --- Forms.

    [[nodiscard]] const char* cName() const override { return cName_.get(); }
    [[nodiscard]] std::string name() const override { return cName_.get(); }
    [[nodiscard]] const char* cPath() const override { return cPath_.get(); }
    [[nodiscard]] std::string path() const override { return cPath(); }
    [[nodiscard]] platform::NSURLPtr url() const override;

    // The localized name; the name when the item has none or is not there.
    [[nodiscard]] std::string displayName() const override;
    [[nodiscard]] std::string extension() const override;

    // The path of the directory that the item is in, as text tells it: that of "/" is "/", that of
    // a path of one relative component is ".".
    [[nodiscard]] virtual KTPathPtr parent() const;

    [[nodiscard]] KTPathPtr pathOfChild(std::string_view name) const;

    // As initWithCPathRelativeToPath(); the path itself for empty text.
    [[nodiscard]] KTPathPtr relativePath(std::string_view path);

    // What has to follow the base's path to name this item; empty when the two are equal, and this
    // path unchanged when it does not lie below the base.
    [[nodiscard]] std::string pathRelativeToPath(const KTPath& base) const;

    // --- Questions to the file system.

    // Whether `other` is this item or lies below it, as text, on the same volume.
    [[nodiscard]] bool containsPath(const KTPath& other) const;

    // The path without links; the very same object when there are none, or when it cannot be told.
    [[nodiscard]] KTPathPtr real();

    // The same, also without the links that a volume is stitched together with. The item is opened
    // for reading; where that fails, as real().
    [[nodiscard]] KTPathPtr hardenedReal();

    // Whether something is there; a link whose target is missing is not.
    [[nodiscard]] bool exists() const;

    // Bytes; 0 when there is no limit or it cannot be told.
    [[nodiscard]] std::uint64_t minTransferSize() const;
    [[nodiscard]] std::uint64_t maxTransferSize() const;

    // Bits of the number that holds a size of file here; 0 as above.
    [[nodiscard]] std::uint64_t fileSizeBits() const;

    // --- Changes to the item. The path itself still names the place that it named. All but the
    // last raise an SVException named "IO" with the details "Path" and, as said, one more.

    // Moves the item to `directory` (its own when there is none) under `name` (its own); `target`
    // is a path, relative to the item's directory unless it begins with "/". Gives the path of
    // where the item is now. Overwriting replaces what is there as far as one rename can, within
    // the volume ("cannot rename filesystem object", "to"); else nothing may be there, and the item
    // may get to another volume ("cannot move item", "target").
    KTPathPtr moveToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                                 std::optional<std::string_view> name,
                                                 bool overwriting) const;
    KTPathPtr moveToOverwriting(std::string_view target, bool overwriting) const;

    // The same for a copy of the item, with all that is in it. Overwriting removes first what is
    // there ("cannot overwrite item", "target"), unless the item itself would go with it; a failed
    // copy is "cannot copy item". `clone` makes no difference.
    KTPathPtr copyToDirectoryWithNameOverwriting(std::optional<std::string_view> directory,
                                                 std::optional<std::string_view> name,
                                                 bool overwriting) const;
    KTPathPtr copyToDirectoryWithNameOverwritingClone(std::optional<std::string_view> directory,
                                                      std::optional<std::string_view> name,
                                                      bool overwriting, bool clone) const;
    KTPathPtr copyToOverwriting(std::string_view target, bool overwriting) const;
    KTPathPtr copyToOverwritingClone(std::string_view target, bool overwriting, bool clone) const;

    // Removes the item, with all that is in it; the first one only answers whether it is gone, the
    // second one raises "cannot delete item".
    bool tryToDeleteFile() const;
    void deleteFile() const;

    // Exchanges the item with another one of the volume: see PathSwap.h ("cannot exchange files",
    // "API", "with").
    void swapWith(const KTPath& other) const;

    // Sets the times of access and modification to now, where that is possible.
    void touch() const;

    // The item at this path: the directory item that stands for it, else a new one. Raises what
    // probing raises (KTFileInfo.h).
    [[nodiscard]] std::shared_ptr<KTFileInfo> fileInfo();

    // The same if it is a directory, else nullptr.
    [[nodiscard]] std::shared_ptr<KTDirectory> directory();

    // The volume that the directory item standing for this path knows, else a new object for the
    // one that holds the item. Raises what that raises (KTVolumeInfo.h).
    [[nodiscard]] std::shared_ptr<KTVolumeInfo> volumeInfo() const;

    // --- What is kept.

    // The directory item that stands for this path, as long as somebody keeps it; else nullptr.
    [[nodiscard]] std::shared_ptr<KTDirectory> directoryInfo() const;
    void setDirectoryInfo(const std::shared_ptr<KTDirectory>& directory);

    // Sets it unless another one stands for this path; answers whether it does now.
    bool claimDirectoryInfo(const std::shared_ptr<KTDirectory>& directory);

    // Forgets the directory item if it is this one, which may be ending.
    void withdrawDirectoryInfo(const std::weak_ptr<KTFileInfo>& directory);

    // Forgets the URL and the resource values that it has fetched.
    void flushInfo();

    // Forgets the resource values alone; the URL, if there is one, stays.
    void flushResourceValues() const;

    // --- Comparison.

    // -1, 0 or 1, by the bytes of the paths. Anything that is not a path stands behind all paths.
    [[nodiscard]] int compare(const platform::Object& other) const;

    // Equal to paths of the same bytes, and to the text of the path.
    [[nodiscard]] bool isEqual(const platform::Object& other) const override;
    [[nodiscard]] bool isEqual(std::string_view path) const;
    [[nodiscard]] std::size_t hash() const override;
    [[nodiscard]] std::string description() const override;
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

    // The bytes of the path with their NUL: under "path", or alone where there are no keys.
    void encodeWithCoder(platform::NSCoder& coder) const override;

protected:
    // The same forms for callers that hold the lock.
    [[nodiscard]] virtual const char* cPath_nonblocking() const { return cPath_.get(); }
    [[nodiscard]] std::string path_nonblocking() const { return cPath_nonblocking(); }

    // The URL if there is one already.
    [[nodiscard]] platform::NSURLPtr madeURL() const;

    // The path in an archive.
    [[nodiscard]] static CStringPtr decodeCPath(platform::NSCoder& coder);

    // Guards the members below, which change after the path is made.
    mutable SpinLock pathLock_;
    mutable CStringPtr cPath_;

private:
    [[nodiscard]] std::uint64_t limit(int name) const;

    const CStringPtr cName_;
    mutable platform::NSURLPtr url_;
    std::weak_ptr<KTDirectory> directory_;
};

}  // namespace sevrin
