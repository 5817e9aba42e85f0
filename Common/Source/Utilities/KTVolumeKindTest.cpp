// Tests of volumes of every kind that the machine can make and mount: what they say of themselves,
// whether it is so, and what the items on them say. Then the marks of mounts.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <limits>
#include <ostream>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Platform/DirectoryReader.h"
#include "Platform/FileCalls.h"
#include "Platform/TestMounts.h"
#include "Platform/UniqueFd.h"

namespace sevrin {
namespace {

using platform::DirectoryReader;
using platform::DirectoryReaderOverride;
using platform::TestMounts;
using platform::UniqueFd;
using platform::Value;

using Getter = bool (KTVolumeInfo::*)() const;

const std::vector<std::pair<const char*, Getter>> kCapabilities = {
    {"persistent objects", &KTVolumeInfo::hasPersistentObjects},
    {"symbolic links", &KTVolumeInfo::hasSymbolicLinks},
    {"hard links", &KTVolumeInfo::hasHardLinks},
    {"journal", &KTVolumeInfo::hasJournal},
    {"active journal", &KTVolumeInfo::hasActiveJournal},
    {"unreliable root times", &KTVolumeInfo::hasUnreliableRootTimes},
    {"sparse files", &KTVolumeInfo::hasSparseFiles},
    {"zero runs", &KTVolumeInfo::hasZeroRuns},
    {"case sensitive", &KTVolumeInfo::isCaseSensitive},
    {"case preserving", &KTVolumeInfo::isCasePreserving},
    {"fast statfs", &KTVolumeInfo::hasFastStatfs},
    {"2 TB files", &KTVolumeInfo::has2TBFiles},
    {"open deny", &KTVolumeInfo::hasOpenDeny},
    {"hidden files", &KTVolumeInfo::hasHiddenFiles},
    {"path from ID", &KTVolumeInfo::hasPathFromID},
    {"volume sizes", &KTVolumeInfo::hasVolumeSizes},
    {"64-bit objects", &KTVolumeInfo::has64BitObjects},
    {"getattrlist", &KTVolumeInfo::hasGetAttrList},
    {"getdirentriesattr", &KTVolumeInfo::hasGetDirEntriesAttr},
    {"exchangedata", &KTVolumeInfo::hasExchangeData},
    {"preallocation", &KTVolumeInfo::hasPreallocation},
    {"renaming the volume", &KTVolumeInfo::canRename},
    {"advisory locking", &KTVolumeInfo::hasAdvisoryLocking},
    {"file locking", &KTVolumeInfo::hasFileLocking},
    {"mandatory locking", &KTVolumeInfo::hasMandatoryLocking},
    {"ACLs", &KTVolumeInfo::hasACLs},
    {"user access", &KTVolumeInfo::hasUserAccess},
    {"extended attributes", &KTVolumeInfo::hasExtendedAttributes},
    {"cloning", &KTVolumeInfo::hasFileCloning},
    {"snapshots", &KTVolumeInfo::hasSnapshots},
    {"swapping", &KTVolumeInfo::hasSwapping},
    {"exclusive renaming", &KTVolumeInfo::hasExclusiveRenaming}};

using Names = std::set<std::string>;

Names operator+(Names names, const Names& more) {
    names.insert(more.begin(), more.end());
    return names;
}

// What this platform does on every volume, and what every volume that keeps things its way has.
const Names kEverywhere = {"volume sizes",      "fast statfs",      "getattrlist",
                           "getdirentriesattr", "advisory locking", "file locking",
                           "user access",       "case preserving",  "2 TB files"};
const Names kOfUnix =
    kEverywhere + Names{"symbolic links", "hard links",          "case sensitive",
                        "ACLs",           "extended attributes", "exclusive renaming"};
const Names kInFull = kOfUnix + Names{"sparse files", "zero runs", "preallocation", "swapping"};

std::string inCapitals(std::string text) {
    for (char& letter : text)
        letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    return text;
}

struct VolumeKind {
    const char* name;
    const char* make;  // what is behind "mkfs.", with the label "ARCHIVE"; empty: by its name
    const char* device;
    Names capabilities;
    std::int64_t sizeOfFilesMax;
    bool usesOwnership;

    [[nodiscard]] bool isImage() const { return *make != '\0'; }
    friend void PrintTo(const VolumeKind& kind, std::ostream* out) { *out << kind.name; }
};

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr const char* kLoop = "/dev/loop[0-9]+";

const std::vector<VolumeKind> kKinds = {
    {"tmpfs", "", "scratch", kInFull, kLargest, true},
    {"ext4", "ext4 -q -L ARCHIVE -U UUID", kLoop,
     kInFull + Names{"persistent objects", "journal", "active journal"}, kLargest, true},
    {"xfs", "xfs -q -L ARCHIVE -m uuid=UUID,reflink=1", kLoop,
     kInFull +
         Names{"persistent objects", "journal", "active journal", "64-bit objects", "cloning"},
     kLargest, true},
    {"btrfs", "btrfs -q -L ARCHIVE -U UUID", kLoop,
     kInFull + Names{"persistent objects", "64-bit objects", "cloning", "snapshots"}, kLargest,
     true},
    {"vfat", "vfat -n ARCHIVE", kLoop,
     Names{"volume sizes", "fast statfs", "getattrlist", "getdirentriesattr", "advisory locking",
           "file locking", "user access", "case preserving", "unreliable root times",
           "exclusive renaming"},
     std::int64_t{1} << 32, false},
    {"overlay", "", "overlay", kOfUnix, kLargest, true},
};

class KTVolumeKindTest : public testing::TestWithParam<VolumeKind> {
protected:
    void SetUp() override {
        SEVRIN_SKIP_WITHOUT(mounts_);
        volume_ = KTVolumeInfo::volumeInfoForPath(place_);
    }

    std::string mount() {
        const VolumeKind& kind = GetParam();
        if (!kind.isImage()) return mounts_.mountKind("mount", kind.name);
        return mounts_.mountImage(
            "mount", std::regex_replace(std::string(kind.make), std::regex("UUID"), uuid_));
    }
    [[nodiscard]] bool wasMadeWithUUID() const {
        return std::string(GetParam().make).find("UUID") != std::string::npos;
    }
    [[nodiscard]] struct statvfs figures() const {
        struct statvfs raw {};
        EXPECT_EQ(::statvfs(place_.c_str(), &raw), 0);
        return raw;
    }

    TestMounts mounts_;
    const std::string uuid_ = platform::newUuid();
    const std::string place_ = mount();
    KTVolumeInfoPtr volume_;
};

INSTANTIATE_TEST_SUITE_P(Kinds, KTVolumeKindTest, testing::ValuesIn(kKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_P(KTVolumeKindTest, TellsWhereItIsMountedAndFromWhat) {
    const VolumeKind& kind = GetParam();
    const std::string name = kind.isImage() ? "ARCHIVE" : "mount";

    EXPECT_EQ(volume_->path(), place_);
    EXPECT_STREQ(volume_->cPath(), place_.c_str());
    EXPECT_EQ(volume_->url()->path(), place_);
    EXPECT_EQ(volume_->name(), name);
    EXPECT_STREQ(volume_->cName(), name.c_str());
    EXPECT_EQ(volume_->displayPath(), volume_->displayName() + ":");
    EXPECT_STREQ(volume_->cFilesystemType(), kind.name);
    EXPECT_TRUE(std::regex_match(volume_->deviceName(), std::regex(kind.device)))
        << volume_->deviceName();
    EXPECT_EQ(volume_->cDeviceName(), volume_->deviceName());
    EXPECT_TRUE(volume_->isWritable());
    EXPECT_TRUE(volume_->isLocal());
    EXPECT_TRUE(volume_->allowsExec());
    EXPECT_TRUE(volume_->allowsSUID());
    EXPECT_TRUE(volume_->isBrowsable());
    EXPECT_EQ(volume_->usesOwnership(), kind.usesOwnership);
}

TEST_P(KTVolumeKindTest, ItsSizesAreThoseOfTheKernel) {
    const struct statvfs raw = figures();

    EXPECT_EQ(volume_->blockSize(), raw.f_frsize);
    EXPECT_EQ(volume_->optimalXferSize(), static_cast<std::int32_t>(raw.f_bsize));
    EXPECT_EQ(volume_->totalBytes(), static_cast<std::int64_t>(raw.f_blocks * raw.f_frsize));
    EXPECT_EQ(volume_->freeBytes(), static_cast<std::int64_t>(raw.f_bfree * raw.f_frsize));
    EXPECT_EQ(volume_->availableBytes(), static_cast<std::int64_t>(raw.f_bavail * raw.f_frsize));
    EXPECT_LE(volume_->availableBytes(), volume_->freeBytes());
    EXPECT_LE(volume_->freeBytes(), volume_->totalBytes());
    EXPECT_EQ(volume_->stat().f_files, raw.f_files);
}

TEST_P(KTVolumeKindTest, WhatIsWrittenIsSeenAfterAReload) {
    constexpr std::int64_t kSize = 1 << 20;
    const std::int64_t before = volume_->freeBytes();
    mounts_.write("mount/large", std::string(kSize, 'x'));
    const UniqueFd root(::open(place_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::syncfs(root.get()), 0);
    EXPECT_EQ(volume_->freeBytes(), before);

    volume_->reloadSizes();
    volume_->reloadStats();

    EXPECT_LE(volume_->freeBytes(), before - kSize);
    EXPECT_EQ(static_cast<std::int64_t>(volume_->stat().f_bfree * volume_->blockSize()),
              volume_->freeBytes());
}

TEST_P(KTVolumeKindTest, ItsIdentityIsTheOneThatItWasMadeWithOrThatOfItsMount) {
    if (wasMadeWithUUID()) {
        ASSERT_STREQ(volume_->uuidCStr(), inCapitals(uuid_).c_str());
        EXPECT_EQ(volume_->uuid()[0], std::stoi(uuid_.substr(0, 2), nullptr, 16));
        EXPECT_EQ(volume_->uuid()[15], std::stoi(uuid_.substr(34), nullptr, 16));
    }
    EXPECT_EQ(volume_->uuidCStr() != nullptr, volume_->uuid() != KTVolumeInfo::UUID{});
    EXPECT_EQ(volume_->uuidCStr() != nullptr,
              volume_->supportsTheseVolumeAttributes(platform::ATTR_VOL_UUID));
    if (const char* const uuid = volume_->uuidCStr()) {
        EXPECT_EQ(volume_->syntheticUUID(), uuid);
    } else {
        EXPECT_TRUE(std::regex_match(volume_->syntheticUUID(),
                                     std::regex("FSID-[0-9a-f]{4,}-[0-9a-f]{4,}")))
            << volume_->syntheticUUID();
    }
    EXPECT_EQ(volume_->wholeDeviceIdentifier(), Value(mounts_.attributes("mount").st_dev));
}

TEST_P(KTVolumeKindTest, IsTheSameWhateverItIsFoundBy) {
    const auto other = KTVolumeInfo::volumeInfoForPath(mounts_.write("mount/file"));

    EXPECT_TRUE(other->isEqual(*volume_));
    EXPECT_EQ(other->hash(), volume_->hash());
    EXPECT_EQ(other->syntheticUUID(), volume_->syntheticUUID());
    const auto copy = volume_->copy();
    EXPECT_TRUE(copy->isEqual(*volume_));
    EXPECT_EQ(copy->syntheticUUID(), volume_->syntheticUUID());
    EXPECT_TRUE(volume_->uuidCStr() == nullptr || copy->uuidCStr() != volume_->uuidCStr());
    EXPECT_FALSE(KTVolumeInfo::volumeInfoForPath(mounts_.path())->isEqual(*volume_));
}

TEST_P(KTVolumeKindTest, ItsCapabilitiesAreThoseOfItsKind) {
    Names found;
    for (const auto& [name, getter] : kCapabilities) {
        if ((volume_.get()->*getter)()) found.insert(name);
    }

    EXPECT_EQ(found, GetParam().capabilities);
}

bool hasSparseFiles(const std::string& path) {
    struct stat found {};
    return ::truncate(path.c_str(), 1 << 20) == 0 && ::stat(path.c_str(), &found) == 0 &&
           found.st_blocks * 512 < found.st_size;
}

TEST_P(KTVolumeKindTest, WhatItSaysItCanDoItDoes) {
    const std::string file = mounts_.write("mount/Name");
    const std::string link = mounts_ / "mount/link";
    const std::string second = mounts_ / "mount/second";

    EXPECT_EQ(volume_->hasSymbolicLinks(), ::symlink("Name", link.c_str()) == 0);
    EXPECT_EQ(volume_->hasHardLinks(), ::link(file.c_str(), second.c_str()) == 0);
    EXPECT_EQ(volume_->isCaseSensitive(), !mounts_.has("mount/name"));
    EXPECT_TRUE(KTDirectory::directoryWithPath(place_)->objectMatchingCName("Name"));
    EXPECT_EQ(volume_->hasExtendedAttributes(),
              ::setxattr(file.c_str(), "user.test", "v", 1, 0) == 0);
    const std::string other = mounts_.write("mount/other", "other");
    EXPECT_EQ(volume_->hasExclusiveRenaming(),
              platform::renamex_np(file.c_str(), other.c_str(), platform::RENAME_EXCL) == -1 &&
                  errno == EEXIST);
    // A volume that says it cannot, or does not know, may be able nevertheless.
    if (volume_->hasSwapping()) {
        EXPECT_EQ(platform::renamex_np(file.c_str(), other.c_str(), platform::RENAME_SWAP), 0);
    }
    if (volume_->hasSparseFiles()) {
        EXPECT_TRUE(hasSparseFiles(file));
    }
}

TEST_P(KTVolumeKindTest, FilesGrowAsLargeAsItSays) {
    const std::string file = mounts_.write("mount/file");
    constexpr std::int64_t kThreeTB = 3 * (std::int64_t{1} << 40);

    EXPECT_EQ(volume_->maxFileSize(), GetParam().sizeOfFilesMax);
    EXPECT_EQ(volume_->has2TBFiles(), ::truncate(file.c_str(), kThreeTB) == 0);
}

TEST_P(KTVolumeKindTest, ItsItemsHaveTheAttributesThatItSupports) {
    const bool keepsCreation = volume_->supportsTheseCommonAttributes(platform::ATTR_CMN_CRTIME);
    const auto item = KTFileInfo::infoForPath(mounts_.write("mount/file"));

    EXPECT_EQ(item->createdTimeSpec().tv_sec != 0, keepsCreation);
    if (!volume_->hasUnreliableRootTimes()) {
        EXPECT_EQ(volume_->createdTimeSpec().tv_sec != 0, keepsCreation);
    }
    // No file system here keeps a hint at the encoding of a name.
    EXPECT_FALSE(volume_->supportsTheseCommonAttributes(platform::ATTR_CMN_SCRIPT));
    EXPECT_EQ(item->script(), platform::kUnicodeScript);
    EXPECT_TRUE(volume_->supportsTheseCommonAttributes(
        kCommonAttributes & ~(platform::ATTR_CMN_CRTIME | platform::ATTR_CMN_SCRIPT)));
    EXPECT_TRUE(volume_->supportsTheseDirectoryAttributes(kDirectoryAttributes));
    EXPECT_TRUE(volume_->supportsTheseFileAttributes(kFileAttributes));
    EXPECT_TRUE(volume_->supportsTheseVolumeAttributes(platform::ATTR_VOL_SIZE |
                                                       platform::ATTR_VOL_CAPABILITIES));
    EXPECT_EQ(volume_->supportsTheseVolumeAttributes(platform::ATTR_VOL_NAME),
              GetParam().isImage());
}

TEST_P(KTVolumeKindTest, WhatThisPlatformWorksOutIsNotTheVolumesOwn) {
    EXPECT_TRUE(volume_->supportsTheseFileAttributesNatively(kFileAttributes));
    EXPECT_TRUE(volume_->supportsTheseCommonAttributesNatively(platform::ATTR_CMN_MODTIME));
    EXPECT_EQ(volume_->supportsTheseCommonAttributesNatively(platform::ATTR_CMN_OWNERID),
              GetParam().usesOwnership);
    EXPECT_FALSE(volume_->supportsTheseCommonAttributesNatively(platform::ATTR_CMN_USERACCESS));
    EXPECT_FALSE(volume_->supportsTheseDirectoryAttributesNatively(platform::ATTR_DIR_ENTRYCOUNT));
}

void expectIsAsOnDisk(KTFileInfo& item, const struct stat& expected) {
    EXPECT_EQ(item.localIdentifier(), expected.st_ino) << item.path();
    EXPECT_EQ(item.ownerID(), expected.st_uid) << item.path();
    EXPECT_EQ(item.access(), expected.st_mode & 07777U) << item.path();
    EXPECT_EQ(item.modifiedTimeSpec().tv_sec, expected.st_mtim.tv_sec) << item.path();
    EXPECT_EQ(item.modifiedTimeSpec().tv_nsec, expected.st_mtim.tv_nsec) << item.path();
    if (const auto file = item.asRegularFile()) {
        EXPECT_EQ(file->dataLength(), expected.st_size);
        EXPECT_EQ(file->physicalSize(), expected.st_blocks * 512);
    }
    if (!item.isDirectory() && item.isPersistentObject()) {
        EXPECT_EQ(item.linkCount(), expected.st_nlink);
    }
}

TEST_P(KTVolumeKindTest, EveryReaderListsItsItemsAsTheyAre) {
    mounts_.write("mount/file", std::string(5000, 'x'));
    mounts_.makeFolder("mount/folder");
    if (volume_->hasSymbolicLinks()) mounts_.makeLink("file", "mount/link");
    const UniqueFd root(::open(place_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::syncfs(root.get()), 0);
    for (const auto reader :
         {DirectoryReader::Bulk, DirectoryReader::Attribute, DirectoryReader::Plain}) {
        const DirectoryReaderOverride best(reader);
        const auto directory = KTDirectory::directoryWithPath(place_);

        EXPECT_NE(directory->objectMatchingCName("file"), nullptr);
        EXPECT_NE(directory->subdirectoryMatchingCName("folder"), nullptr);
        for (const KTFileInfoPtr& item : *directory)
            expectIsAsOnDisk(*item, mounts_.attributes("mount/" + item->name()));
    }
}

TEST_P(KTVolumeKindTest, ItsRootHasItsNamesAndItsItemsLieBelow) {
    mounts_.makeFolder("mount/folder");
    mounts_.write("mount/folder/file");

    const auto root = volume_->rootDirectory();
    const auto file =
        root->subdirectoryMatchingCName("folder")->objectMatchingCName("file")->asRegularFile();

    EXPECT_TRUE(root->isMountPoint());
    EXPECT_EQ(root->path(), place_);
    EXPECT_EQ(root->displayPath(), volume_->displayName() + ":/");
    EXPECT_EQ(root->logTypeDescription(), "volume");
    EXPECT_EQ(root->parentDirectoryInfo(), nullptr);
    EXPECT_EQ(root->volumeInfo(), volume_);
    EXPECT_EQ(file->displayPath(), volume_->displayName() + ":/folder/file");
    EXPECT_EQ(file->volumeRelativePath(), "folder/file");
    EXPECT_FALSE(file->volumeIdentifier().isNull());
    EXPECT_EQ(file->volumeIdentifier(), root->volumeIdentifier());
    EXPECT_EQ(file->deviceID(), root->deviceID());
}

TEST_P(KTVolumeKindTest, AWrittenTimeIsThereWhenItIsReadAgain) {
    const auto item = KTFileInfo::infoForPath(mounts_.write("mount/file"));
    const timespec past{1'234'567'890, 0};

    item->setModifiedTimeSpec(past);
    item->setModifiedAttributes();
    item->flushAttributes();

    EXPECT_EQ(item->modifiedTimeSpec().tv_sec, past.tv_sec);
    EXPECT_EQ(item->modifiedTimeSpec().tv_nsec, 0);
}

TEST_P(KTVolumeKindTest, TellsAnotherUserTheSame) {
    ASSERT_EQ(::chmod(place_.c_str(), 0755), 0);

    ASSERT_EQ(::seteuid(12345), 0);
    const KTVolumeInfoPtr seen = KTVolumeInfo::volumeInfoForPath(place_);
    ASSERT_EQ(::seteuid(0), 0);

    EXPECT_TRUE(seen->isEqual(*volume_));
    EXPECT_EQ(seen->totalBytes(), volume_->totalBytes());
    EXPECT_EQ(seen->freeBytes(), volume_->freeBytes());
    EXPECT_EQ(seen->syntheticUUID(), volume_->syntheticUUID());
    // A label that only the device tells is for those who may read that.
    if (wasMadeWithUUID()) {
        EXPECT_EQ(seen->name(), volume_->name());
    }
    EXPECT_EQ(seen->maxFileSize(), volume_->maxFileSize());
    for (const auto& [name, getter] : kCapabilities)
        EXPECT_EQ((seen.get()->*getter)(), (volume_.get()->*getter)()) << name;
}

TEST_P(KTVolumeKindTest, IsGoneFromTheListWhenItIsUnmounted) {
    const auto isListed = [&] {
        for (const KTVolumeInfoPtr& volume : KTVolumeInfo::browsableVolumes()) {
            if (volume->isEqual(*volume_) && volume->path() == place_) return true;
        }
        return false;
    };
    EXPECT_TRUE(isListed());

    volume_->unmount();

    EXPECT_FALSE(isListed());
}

// --- Marks of mounts.

class KTVolumeMarksTest : public testing::Test {
protected:
    void SetUp() override { SEVRIN_SKIP_WITHOUT(mounts_); }

    TestMounts mounts_;
};

TEST_F(KTVolumeMarksTest, EveryMarkOfAMountAnswersItsOwnQuestionAlone) {
    const auto answersOf = [&](const char* name, unsigned long flags) {
        const auto volume = KTVolumeInfo::volumeInfoForPath(mounts_.mountMemory(name, flags));
        return std::vector<bool>{volume->isWritable(), volume->allowsExec(), volume->allowsSUID()};
    };

    EXPECT_EQ(answersOf("none", 0), (std::vector<bool>{true, true, true}));
    EXPECT_EQ(answersOf("ro", MS_RDONLY), (std::vector<bool>{false, true, true}));
    EXPECT_EQ(answersOf("noexec", MS_NOEXEC), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(answersOf("nosuid", MS_NOSUID), (std::vector<bool>{true, true, false}));
    EXPECT_EQ(answersOf("nodev", MS_NODEV), (std::vector<bool>{true, true, true}));
}

TEST_F(KTVolumeMarksTest, AReadOnlyViewOfAVolumeIsTheVolumeWithItsOwnMarksAndPlace) {
    const std::string place = mounts_.mountMemory("mount");
    mounts_.makeFolder("mount/inner");
    mounts_.write("mount/inner/file");
    const std::string view = mounts_.makeFolder("view");
    mounts_.bind(place + "/inner", view, MS_RDONLY);

    const auto whole = KTVolumeInfo::volumeInfoForPath(place);
    const auto part = KTVolumeInfo::volumeInfoForPath(view + "/file");

    EXPECT_TRUE(whole->isEqual(*part));
    EXPECT_TRUE(whole->isWritable());
    EXPECT_FALSE(part->isWritable());
    EXPECT_EQ(part->path(), view);
    EXPECT_EQ(part->displayName(), "view");
    EXPECT_TRUE(KTDirectory::directoryWithPath(view)->isMountPoint());
    EXPECT_EQ(KTFileInfo::infoForPath(view + "/file")->volumeRelativePath(), "file");
}

// As containers do with single files of the machine.
TEST_F(KTVolumeMarksTest, AFileThatIsSeenThroughAMountIsAVolumeWithoutARoot) {
    const std::string place = mounts_.mountMemory("mount");
    const std::string file = mounts_.write("mount/file", "hello");
    const std::string view = mounts_.write("view");
    mounts_.bind(file, view, MS_RDONLY);

    const auto volume = KTVolumeInfo::volumeInfoForPath(view);
    const auto item = KTFileInfo::infoForPath(view)->asRegularFile();

    EXPECT_EQ(volume->path(), view);
    EXPECT_TRUE(volume->isEqual(*KTVolumeInfo::volumeInfoForPath(place)));
    EXPECT_FALSE(volume->isWritable());
    EXPECT_EQ(volume->totalBytes(), 1 << 20);
    EXPECT_TRUE(volume->hasHardLinks());
    EXPECT_EQ(volume->rootDirectory(), nullptr);
    EXPECT_EQ(volume->dataVolumeInfo(), nullptr);
    EXPECT_EQ(item->dataLength(), 5);
    EXPECT_EQ(item->volumeRelativePath(), "");
}

TEST_F(KTVolumeMarksTest, AVolumeThatBecomesReadOnlySaysSoAfterAReload) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(mounts_.mountMemory("mount"));
    TestMounts::makeReadOnly(volume->path());
    EXPECT_TRUE(volume->isWritable());

    volume->reloadStats();

    EXPECT_FALSE(volume->isWritable());
}

TEST_F(KTVolumeMarksTest, AReadOnlyImageKeepsItsNameAndIdentity) {
    const std::string uuid = platform::newUuid();
    const std::string place =
        mounts_.mountImage("mount", "ext4 -q -L ARCHIVE -U " + uuid, "16M", "ro");
    SEVRIN_SKIP_WITHOUT(mounts_);

    const auto volume = KTVolumeInfo::volumeInfoForPath(place);

    EXPECT_FALSE(volume->isWritable());
    EXPECT_EQ(volume->name(), "ARCHIVE");
    EXPECT_EQ(volume->syntheticUUID(), inCapitals(uuid));
    EXPECT_TRUE(volume->hasJournal());
}

}  // namespace
}  // namespace sevrin
