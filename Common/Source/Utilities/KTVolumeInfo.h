// A mounted volume: where it is mounted, from what, how full it is, who it is and what it can do.
//
// What is known is as of the moment the object was made, but for what reloadStats() and
// reloadSizes() fetch again: those are for the thread that owns the object. All else is for any
// thread. Two objects of one volume are equal; there is no cache of them.
#pragma once

#include <time.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/KTPath.h"
#include "Platform/AttributeList.h"
#include "Platform/MountTable.h"
#include "Platform/NSCoder.h"
#include "Platform/NSDate.h"
#include "Platform/VolumeCapabilities.h"

namespace sevrin {

class KTVolumeInfo;
using KTVolumeInfoPtr = std::shared_ptr<KTVolumeInfo>;

class KTVolumeInfo final : public platform::Object,
                           public platform::NSCoding,
                           public std::enable_shared_from_this<KTVolumeInfo> {
    struct Passkey {};

public:
    using UUID = std::array<std::uint8_t, 16>;

    // --- New objects. Raise "problem getting volume statfs" and "problem getting volume
    // attributes".

    // The volume that holds the item at the path; a link at its end is followed.
    [[nodiscard]] static KTVolumeInfoPtr initWithPath(const char* path);

    // The same, or, without a path, the volume of the record. One of the two must be given.
    [[nodiscard]] static KTVolumeInfoPtr initWithPathOrStat(const char* path,
                                                            const struct platform::statfs* stat);
    [[nodiscard]] static KTVolumeInfoPtr volumeInfoForPathObject(const KTPath& path);
    [[nodiscard]] static KTVolumeInfoPtr volumeInfoForPath(std::string_view path);

    // Every mounted volume, in the order of the mount table; of these, the ones that people keep
    // files on. One that cannot be looked at is logged and left out. Raise "cannot get count of
    // mounted volumes" and "cannot get stats of mounted volumes".
    [[nodiscard]] static std::vector<KTVolumeInfoPtr> allVolumes();
    [[nodiscard]] static std::vector<KTVolumeInfoPtr> browsableVolumes();

    // The volume as it is now that is mounted where the archived one was. Throws what the coder
    // throws, and raises as above.
    [[nodiscard]] static KTVolumeInfoPtr initWithCoder(platform::NSCoder& coder);
    [[nodiscard]] static constexpr bool supportsSecureCoding() { return true; }
    [[nodiscard]] static platform::Class& classObject();

    // For the above only.
    explicit KTVolumeInfo(Passkey) {}

    // What is known, in an object of its own; the root directory and the data volume are not
    // carried over.
    [[nodiscard]] KTVolumeInfoPtr copy() const;

    // --- Names: the volume's name, and those of the mount point.

    [[nodiscard]] const KTPathPtr& pathObject() const { return pathObj_; }
    [[nodiscard]] const char* cName() const { return pathObj_->cName(); }
    [[nodiscard]] std::string name() const { return pathObj_->name(); }
    [[nodiscard]] const char* cPath() const { return pathObj_->cPath(); }
    [[nodiscard]] std::string path() const { return pathObj_->path(); }
    [[nodiscard]] platform::NSURLPtr url() const { return pathObj_->url(); }
    [[nodiscard]] std::string displayName() const { return pathObj_->displayName(); }
    [[nodiscard]] std::string displayPath() const { return displayName() + ":"; }

    // --- What the mount table says.

    [[nodiscard]] platform::fsid_t filesystemID() const { return stat_.f_fsid; }
    [[nodiscard]] std::uint32_t blockSize() const { return stat_.f_bsize; }        // bytes
    [[nodiscard]] std::int32_t optimalXferSize() const { return stat_.f_iosize; }  // bytes
    [[nodiscard]] const char* cDeviceName() const { return stat_.f_mntfromname; }
    [[nodiscard]] std::string deviceName() const;
    [[nodiscard]] const char* cFilesystemType() const { return stat_.f_fstypename; }
    [[nodiscard]] const struct platform::statfs& stat() const { return stat_; }

    [[nodiscard]] bool isWritable() const { return !hasMountFlag(platform::MNT_RDONLY); }
    [[nodiscard]] bool isLocal() const { return hasMountFlag(platform::MNT_LOCAL); }
    [[nodiscard]] bool allowsExec() const { return !hasMountFlag(platform::MNT_NOEXEC); }
    [[nodiscard]] bool allowsSUID() const { return !hasMountFlag(platform::MNT_NOSUID); }
    [[nodiscard]] bool usesOwnership() const {
        return !hasMountFlag(platform::MNT_IGNORE_OWNERSHIP);
    }
    [[nodiscard]] bool isBrowsable() const { return !hasMountFlag(platform::MNT_DONTBROWSE); }

    // --- Sizes, in bytes; 0 when the file system does not tell.

    [[nodiscard]] std::int64_t totalBytes() const { return totalBytes_; }
    [[nodiscard]] std::int64_t freeBytes() const;

    // What users without privilege may fill; what is free when that is 0.
    [[nodiscard]] std::int64_t availableBytes() const;

    // The size of the largest file: 2 to the 32nd on volumes that do not have files of 2 TB; 0 when
    // it cannot be told.
    [[nodiscard]] std::int64_t maxFileSize() const;

    // --- Identity.

    // All zero when there is none.
    [[nodiscard]] const UUID& uuid() const { return uuid_; }

    // The same as text in capital letters, 36 of them; nullptr when there is none.
    [[nodiscard]] const char* uuidCStr() const;

    // The same, else "FSID-" and the identity of the mounted file system.
    [[nodiscard]] std::string syntheticUUID() const;

    // The number of the device among nsAttributes(); null when there is none.
    [[nodiscard]] platform::Value wholeDeviceIdentifier() const;

    // When the mount point was made, as far as that is known; else 1970.
    [[nodiscard]] timespec createdTimeSpec() const { return createTimeSpec_; }
    [[nodiscard]] platform::NSDate createdDate() const;

    // --- What it can do: a capability counts when the volume says both that it has it and that it
    // knows.

    [[nodiscard]] bool hasFormatCapability(std::uint32_t bit) const {
        return hasCapability(platform::VOL_CAPABILITIES_FORMAT, bit);
    }
    [[nodiscard]] bool hasInterfaceCapability(std::uint32_t bit) const {
        return hasCapability(platform::VOL_CAPABILITIES_INTERFACES, bit);
    }

    [[nodiscard]] bool hasPersistentObjects() const;
    [[nodiscard]] bool hasSymbolicLinks() const;
    [[nodiscard]] bool hasHardLinks() const;
    [[nodiscard]] bool hasJournal() const;
    [[nodiscard]] bool hasActiveJournal() const;
    [[nodiscard]] bool hasUnreliableRootTimes() const;
    [[nodiscard]] bool hasSparseFiles() const;
    [[nodiscard]] bool hasZeroRuns() const;
    [[nodiscard]] bool isCaseSensitive() const;
    [[nodiscard]] bool isCasePreserving() const;
    [[nodiscard]] bool hasFastStatfs() const;
    [[nodiscard]] bool has2TBFiles() const;
    [[nodiscard]] bool hasOpenDeny() const;
    [[nodiscard]] bool hasHiddenFiles() const;
    [[nodiscard]] bool hasPathFromID() const;
    [[nodiscard]] bool hasVolumeSizes() const;  // unless the volume says that it has none
    [[nodiscard]] bool has64BitObjects() const;
    [[nodiscard]] bool hasGetAttrList() const;
    [[nodiscard]] bool hasGetDirEntriesAttr() const;
    [[nodiscard]] bool hasExchangeData() const;
    [[nodiscard]] bool hasPreallocation() const;
    [[nodiscard]] bool canRename() const;
    [[nodiscard]] bool hasAdvisoryLocking() const;
    [[nodiscard]] bool hasFileLocking() const;
    [[nodiscard]] bool hasMandatoryLocking() const;
    [[nodiscard]] bool hasACLs() const;
    [[nodiscard]] bool hasUserAccess() const;
    [[nodiscard]] bool hasExtendedAttributes() const;
    [[nodiscard]] bool hasFileCloning() const;
    [[nodiscard]] bool hasSnapshots() const;
    [[nodiscard]] bool hasSwapping() const;
    [[nodiscard]] bool hasExclusiveRenaming() const;

    // Whether its objects have all attributes of the mask, in any way, or kept by the volume
    // itself.
    [[nodiscard]] bool supportsTheseCommonAttributes(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseVolumeAttributes(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseDirectoryAttributes(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseFileAttributes(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseCommonAttributesNatively(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseVolumeAttributesNatively(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseDirectoryAttributesNatively(platform::attrgroup_t mask) const;
    [[nodiscard]] bool supportsTheseFileAttributesNatively(platform::attrgroup_t mask) const;

    // --- Other things.

    // The directory at the mount point, the same at every call; nullptr when it is gone. Raises
    // what probing raises.
    [[nodiscard]] std::shared_ptr<KTDirectory> rootDirectory();

    // What leads from the volume's root to the path; nothing when it is on another volume. A path
    // outside of the mount point is counted from the highest place above it on this volume. Raises
    // what making volumes raises.
    [[nodiscard]] std::optional<std::string> relativePathOfPath(const KTPath& path);

    // The volume that a directory of this one's root is stitched to; nullptr when there is none.
    // Looked for once.
    [[nodiscard]] KTVolumeInfoPtr dataVolumeInfo();

    // Fetch what the mount table says, and the free sizes, again. What fails is logged, and the old
    // stays.
    void reloadStats();
    void reloadSizes();

    // The platform's dictionary about the file system, fetched once; nothing, and a line in the
    // log, when that fails.
    [[nodiscard]] std::optional<platform::Dictionary> nsAttributes() const;

    // Raises "cannot unmount volume", with the details "name" and "forcably". By force also while
    // it is in use.
    void unmount() const;
    void unmountForcibly(bool force) const;

    // Equal when the identity of the file system is.
    [[nodiscard]] bool isEqual(const platform::Object& other) const override;
    [[nodiscard]] std::size_t hash() const override;
    [[nodiscard]] std::string description() const override;
    [[nodiscard]] const platform::Class& isa() const override { return classObject(); }

    // The path of the mount point and nothing else, under "mountpoint" where there are keys.
    void encodeWithCoder(platform::NSCoder& coder) const override;

private:
    // Whether the data volume was looked for is told apart from that there is none.
    using DataVolume = std::optional<KTVolumeInfoPtr>;

    template <typename Filter>
    static std::vector<KTVolumeInfoPtr> volumesThat(Filter isWanted);
    void fetchAttributes();
    [[nodiscard]] KTVolumeInfoPtr findDataVolume();

    [[nodiscard]] bool hasMountFlag(std::uint32_t flag) const {
        return (stat_.f_flags & flag) != 0;
    }
    [[nodiscard]] bool hasCapability(std::size_t word, std::uint32_t bit) const {
        return (capabilities_.capabilities[word] & capabilities_.valid[word] & bit) != 0;
    }

    KTPathPtr pathObj_;
    struct platform::statfs stat_ {};
    std::int64_t totalBytes_ = 0;
    timespec createTimeSpec_{};
    platform::vol_capabilities_attr_t capabilities_{};
    platform::vol_attributes_attr_t attributes_{};
    UUID uuid_{};

    mutable SpinLock propLock_;  // guards what follows
    std::int64_t freeBytes_ = 0;
    std::int64_t availBytes_ = 0;
    mutable std::optional<std::string> deviceName_;
    mutable std::optional<platform::Dictionary> nsAttributes_;
    mutable CStringPtr uuidStr_;
    std::shared_ptr<KTDirectory> rootDirectory_;
    DataVolume dataVolume_;
};

}  // namespace sevrin
