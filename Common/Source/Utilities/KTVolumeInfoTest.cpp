// Tests of volumes as they are mounted, the machine's own and some that the tests mount themselves.
#include "Common/Source/Utilities/KTVolumeInfo.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <regex>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/NSFileManager.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/SequentialCoder.h"
#include "Platform/TestMounts.h"

namespace sevrin {
namespace {

using platform::NSKeyedArchiver;
using platform::NSKeyedUnarchiver;
using platform::SequentialDecoder;
using platform::SequentialEncoder;
using platform::TestFolder;
using platform::TestMounts;
using platform::Value;

KTVolumeInfoPtr volumeOf(std::string_view path) {
    return KTVolumeInfo::volumeInfoForPath(path);
}

TEST(KTVolumeInfoTest, ObjectsOfOneVolumeAreEqualAndHashAlike) {
    const TestFolder folder;
    const auto first = volumeOf(folder.write("a"));
    const auto second = KTVolumeInfo::volumeInfoForPathObject(*KTPath::pathWithPath(folder.path()));
    const auto other = volumeOf("/proc");

    EXPECT_NE(first, second);
    EXPECT_TRUE(first->isEqual(*second));
    EXPECT_EQ(first->hash(), second->hash());
    EXPECT_EQ(first->path(), second->path());
    EXPECT_FALSE(first->isEqual(*other));
    EXPECT_FALSE(first->isEqual(*first->pathObject()));
}

TEST(KTVolumeInfoTest, WhereNothingIsThereIsNoVolume) {
    try {
        static_cast<void>(volumeOf("/nowhere/x"));
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(exception.reason(), "problem getting volume statfs");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(ENOENT));
        EXPECT_EQ(*exception.details().find("Path"), Value("/nowhere/x"));
    }
}

TEST(KTVolumeInfoTest, ARecordWhoseMountPointIsGoneHasNoAttributes) {
    struct platform::statfs record {};
    std::strcpy(record.f_mntonname, "/nowhere/x");
    try {
        static_cast<void>(KTVolumeInfo::initWithPathOrStat(nullptr, &record));
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "problem getting volume attributes");
    }
}

TEST(KTVolumeInfoTest, AVolumeInMemoryTellsItsFacts) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("mount", MS_NOSUID | MS_NOEXEC);
    const auto volume = volumeOf(place);

    EXPECT_EQ(volume->path(), KTPath::realPath(place)->path());
    EXPECT_EQ(volume->cPath(), volume->path());
    EXPECT_EQ(volume->url()->path(), volume->path());
    EXPECT_EQ(volume->displayName(), "mount");
    EXPECT_EQ(volume->displayPath(), "mount:");
    EXPECT_STREQ(volume->cFilesystemType(), "tmpfs");
    EXPECT_STREQ(volume->cDeviceName(), "scratch");
    EXPECT_EQ(volume->deviceName(), "scratch");
    EXPECT_EQ(volume->totalBytes(), 1 << 20);
    EXPECT_GT(volume->blockSize(), 0U);
    EXPECT_TRUE(volume->isWritable());
    EXPECT_TRUE(volume->isLocal());
    EXPECT_FALSE(volume->allowsExec());
    EXPECT_FALSE(volume->allowsSUID());
    EXPECT_TRUE(volume->usesOwnership());
    EXPECT_EQ(volume->description(), "KTVolumeInfo(\"mount\"," + volume->path() + ")");
    EXPECT_FALSE(volume->wholeDeviceIdentifier().isNull());
    EXPECT_TRUE(volume->hasVolumeSizes());
    EXPECT_TRUE(volume->hasSymbolicLinks());
    EXPECT_TRUE(volume->hasHardLinks());
    EXPECT_FALSE(volume->hasJournal());
    EXPECT_FALSE(volume->hasExchangeData());
    EXPECT_GT(volume->maxFileSize(), std::int64_t{1} << 40);
}

TEST(KTVolumeInfoTest, AVolumeWithoutAUUIDIsNamedByItsMount) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const auto volume = volumeOf(mounts.mountMemory("mount"));

    EXPECT_EQ(volume->uuid(), KTVolumeInfo::UUID{});
    EXPECT_EQ(volume->uuidCStr(), nullptr);
    EXPECT_TRUE(
        std::regex_match(volume->syntheticUUID(), std::regex("FSID-[0-9a-f]{4,}-[0-9a-f]{4,}")))
        << volume->syntheticUUID();
}

TEST(KTVolumeInfoTest, FreeSizesAreThoseOfTheLastLook) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const auto volume = volumeOf(mounts.mountMemory("mount"));
    const std::int64_t before = volume->freeBytes();
    mounts.write("mount/a", std::string(100'000, 'x'));

    EXPECT_EQ(volume->freeBytes(), before);
    volume->reloadSizes();
    EXPECT_LE(volume->freeBytes(), before - 100'000);
    EXPECT_EQ(volume->availableBytes(), volume->freeBytes());
    EXPECT_EQ(volume->stat().f_bfree * volume->blockSize(), static_cast<std::uint64_t>(before));
    volume->reloadStats();
    EXPECT_EQ(volume->stat().f_bfree * volume->blockSize(),
              static_cast<std::uint64_t>(volume->freeBytes()));
}

TEST(KTVolumeInfoTest, TheDictionaryIsKeptUntilEitherReload) {
    TestMounts mounts;
    const auto volume = volumeOf(mounts.mountMemory("mount"));
    SEVRIN_SKIP_WITHOUT(mounts);
    const auto freeSize = [&] {
        return *volume->nsAttributes()->find(platform::NSFileSystemFreeSize);
    };
    const Value empty = freeSize();

    mounts.write("mount/a", std::string(100'000, 'x'));
    EXPECT_EQ(freeSize(), empty);
    EXPECT_EQ(*volume->copy()->nsAttributes()->find(platform::NSFileSystemFreeSize), empty);
    volume->reloadSizes();
    const Value fuller = freeSize();
    EXPECT_NE(fuller, empty);

    mounts.write("mount/b", std::string(100'000, 'x'));
    EXPECT_EQ(freeSize(), fuller);
    volume->reloadStats();
    EXPECT_NE(freeSize(), fuller);
}

TEST(KTVolumeInfoTest, AReadOnlyVolumeIsNotWritable) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const auto volume = volumeOf(mounts.mountMemory("mount", MS_RDONLY));

    EXPECT_FALSE(volume->isWritable());
    EXPECT_TRUE(volume->allowsExec());
    EXPECT_TRUE(volume->allowsSUID());
}

TEST(KTVolumeInfoTest, AVolumeThatIsMountedTwiceIsOne) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("mount");
    mounts.makeFolder("mount/inner");
    const std::string again = mounts.makeFolder("again");
    mounts.bind(place, again);

    EXPECT_TRUE(volumeOf(place)->isEqual(*volumeOf(again)));
    EXPECT_NE(volumeOf(place)->path(), volumeOf(again)->path());
    EXPECT_EQ(volumeOf(place)->relativePathOfPath(*KTPath::pathWithPath(again + "/inner")),
              "inner");
    EXPECT_EQ(volumeOf(place)->relativePathOfPath(*KTPath::pathWithPath(mounts.path())),
              std::nullopt);
}

TEST(KTVolumeInfoTest, AVolumeWithoutSizesSaysSo) {
    const auto volume = volumeOf("/proc");

    EXPECT_FALSE(volume->hasVolumeSizes());
    EXPECT_EQ(volume->totalBytes(), 0);
    EXPECT_EQ(volume->availableBytes(), 0);
}

TEST(KTVolumeInfoTest, AVolumeThatTellsNothingOfLargeFilesHasFourGibibytes) {
    const auto volume = volumeOf("/proc");

    EXPECT_FALSE(volume->has2TBFiles());
    EXPECT_EQ(volume->maxFileSize(), 4'294'967'296);
}

TEST(KTVolumeInfoTest, TheListHasEveryVolumeAndItsBrowsablePartOnlyThose) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const auto mounted = volumeOf(mounts.mountMemory("mount"));
    const auto has = [](const std::vector<KTVolumeInfoPtr>& volumes, const KTVolumeInfo& one) {
        return std::any_of(volumes.begin(), volumes.end(), [&](const KTVolumeInfoPtr& volume) {
            return volume->isEqual(one) && volume->path() == one.path();
        });
    };
    const auto all = KTVolumeInfo::allVolumes();
    const auto browsable = KTVolumeInfo::browsableVolumes();

    EXPECT_TRUE(has(all, *mounted));
    EXPECT_TRUE(has(all, *volumeOf("/proc")));
    EXPECT_FALSE(has(browsable, *volumeOf("/proc")));
    EXPECT_TRUE(std::all_of(browsable.begin(), browsable.end(),
                            [](const auto& volume) { return volume->isBrowsable(); }));
    EXPECT_LT(browsable.size(), all.size());
}

TEST(KTVolumeInfoTest, EveryCapabilityHasItsBit) {
    using Getter = bool (KTVolumeInfo::*)() const;
    const std::vector<std::pair<Getter, std::uint32_t>> formats = {
        {&KTVolumeInfo::hasPersistentObjects, 0x1}, {&KTVolumeInfo::hasSymbolicLinks, 0x2},
        {&KTVolumeInfo::hasHardLinks, 0x4},         {&KTVolumeInfo::hasJournal, 0x8},
        {&KTVolumeInfo::hasActiveJournal, 0x10},    {&KTVolumeInfo::hasUnreliableRootTimes, 0x20},
        {&KTVolumeInfo::hasSparseFiles, 0x40},      {&KTVolumeInfo::hasZeroRuns, 0x80},
        {&KTVolumeInfo::isCaseSensitive, 0x100},    {&KTVolumeInfo::isCasePreserving, 0x200},
        {&KTVolumeInfo::hasFastStatfs, 0x400},      {&KTVolumeInfo::has2TBFiles, 0x800},
        {&KTVolumeInfo::hasOpenDeny, 0x1000},       {&KTVolumeInfo::hasHiddenFiles, 0x2000},
        {&KTVolumeInfo::hasPathFromID, 0x4000},     {&KTVolumeInfo::has64BitObjects, 0x20000}};
    const std::vector<std::pair<Getter, std::uint32_t>> interfaces = {
        {&KTVolumeInfo::hasGetAttrList, 0x2},
        {&KTVolumeInfo::hasGetDirEntriesAttr, 0x8},
        {&KTVolumeInfo::hasExchangeData, 0x10},
        {&KTVolumeInfo::hasPreallocation, 0x40},
        {&KTVolumeInfo::canRename, 0x80},
        {&KTVolumeInfo::hasAdvisoryLocking, 0x100},
        {&KTVolumeInfo::hasFileLocking, 0x200},
        {&KTVolumeInfo::hasMandatoryLocking, 0x1000},
        {&KTVolumeInfo::hasACLs, 0x400},
        {&KTVolumeInfo::hasUserAccess, 0x800},
        {&KTVolumeInfo::hasExtendedAttributes, 0x4000},
        {&KTVolumeInfo::hasFileCloning, 0x10000},
        {&KTVolumeInfo::hasSnapshots, 0x20000},
        {&KTVolumeInfo::hasSwapping, 0x40000},
        {&KTVolumeInfo::hasExclusiveRenaming, 0x80000}};
    std::uint32_t seen = 0;
    for (const KTVolumeInfoPtr& volume : KTVolumeInfo::allVolumes()) {
        for (const auto& [getter, bit] : formats) {
            EXPECT_EQ((volume.get()->*getter)(), volume->hasFormatCapability(bit)) << bit;
            if (volume->hasFormatCapability(bit)) seen |= bit;
        }
        for (const auto& [getter, bit] : interfaces)
            EXPECT_EQ((volume.get()->*getter)(), volume->hasInterfaceCapability(bit)) << bit;
        EXPECT_EQ(volume->hasVolumeSizes(), !volume->hasFormatCapability(0x8000));
    }
    EXPECT_NE(seen, 0U);
}

TEST(KTVolumeInfoTest, AttributesAreSupportedWhenAllOfTheMaskAre) {
    const TestFolder folder;
    const auto volume = volumeOf(folder.path());

    EXPECT_TRUE(volume->supportsTheseCommonAttributes(platform::ATTR_CMN_NAME |
                                                      platform::ATTR_CMN_MODTIME));
    EXPECT_TRUE(volume->supportsTheseCommonAttributesNatively(platform::ATTR_CMN_MODTIME));
    EXPECT_TRUE(volume->supportsTheseDirectoryAttributes(platform::ATTR_DIR_LINKCOUNT));
    EXPECT_TRUE(volume->supportsTheseFileAttributes(platform::ATTR_FILE_DATALENGTH));
    EXPECT_TRUE(volume->supportsTheseVolumeAttributes(platform::ATTR_VOL_SIZE));
    EXPECT_FALSE(volume->supportsTheseFileAttributes(platform::ATTR_FILE_DATALENGTH |
                                                     platform::ATTR_FILE_FORKLIST));
    EXPECT_FALSE(volume->supportsTheseFileAttributesNatively(platform::ATTR_FILE_FORKLIST));
    EXPECT_FALSE(volume->supportsTheseDirectoryAttributesNatively(0x8000'0000));
    EXPECT_FALSE(volume->supportsTheseVolumeAttributesNatively(platform::ATTR_VOL_QUOTA_SIZE));
}

TEST(KTVolumeInfoTest, AnArchiveHoldsTheMountPointAlone) {
    const TestFolder folder;
    const auto volume = volumeOf(folder.path());
    SequentialEncoder encoder;

    encoder.encodeObject(volume);

    EXPECT_EQ(encoder.values(), (std::vector<Value>{"KTVolumeInfo", "NSString", volume->path()}));
    SequentialDecoder decoder(encoder.values());
    const auto decoded = decoder.decodeObject().object<KTVolumeInfo>();
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*volume));
}

TEST(KTVolumeInfoTest, AnArchiveOfAVolumeThatIsGoneRaises) {
    SequentialDecoder decoder({"KTVolumeInfo", "NSString", "/nowhere/x"});

    EXPECT_THROW(static_cast<void>(decoder.decodeObject()), SVException);
}

TEST(KTVolumeInfoTest, AnArchiveWithoutAMountPointIsRefused) {
    SequentialDecoder decoder({"KTVolumeInfo", nullptr});

    EXPECT_ANY_THROW(static_cast<void>(decoder.decodeObject()));
}

TEST(KTVolumeInfoTest, ACopyKnowsWhatTheVolumeKnows) {
    const auto volume = volumeOf("/");
    static_cast<void>(volume->nsAttributes());

    const auto copy = volume->copy();

    EXPECT_NE(copy, volume);
    EXPECT_TRUE(copy->isEqual(*volume));
    EXPECT_EQ(copy->pathObject(), volume->pathObject());
    EXPECT_EQ(copy->totalBytes(), volume->totalBytes());
    EXPECT_EQ(copy->freeBytes(), volume->freeBytes());
    EXPECT_EQ(copy->uuid(), volume->uuid());
    EXPECT_EQ(copy->nsAttributes(), volume->nsAttributes());
    EXPECT_EQ(copy->hasHardLinks(), volume->hasHardLinks());
    EXPECT_EQ(copy->createdDate(), volume->createdDate());
}

TEST(KTVolumeInfoTest, ACopyHasARootOfItsOwn) {
    const auto volume = volumeOf("/");
    const auto root = volume->rootDirectory();

    const auto copy = volume->copy();

    EXPECT_NE(copy->rootDirectory(), root);
    EXPECT_EQ(copy->rootDirectory()->volumeInfo(), copy);
    EXPECT_EQ(root->volumeInfo(), volume);
}

TEST(KTVolumeInfoTest, TheHashPutsTheSecondHalfOfTheIdentityAboveTheFirst) {
    for (const KTVolumeInfoPtr& volume : KTVolumeInfo::allVolumes()) {
        const auto [first, second] = volume->filesystemID().val;

        EXPECT_EQ(volume->hash(), static_cast<std::size_t>(std::int64_t{first}) +
                                      (static_cast<std::size_t>(std::int64_t{second}) << 32U));
    }
}

TEST(KTVolumeInfoTest, AKeyedArchiveHoldsTheMountPointUnderItsKey) {
    const auto volume = volumeOf("/proc");

    const std::string data = NSKeyedArchiver::archivedDataWithRootObject(volume);

    EXPECT_NE(data.find("mountpoint"), std::string::npos);
    const auto decoded = NSKeyedUnarchiver::unarchiveObjectWithData(data).object<KTVolumeInfo>();
    ASSERT_TRUE(decoded);
    EXPECT_TRUE(decoded->isEqual(*volume));
    EXPECT_EQ(decoded->path(), "/proc");
}

// No file system here has firmlinks, but an item can be told that it is one.
class KTDataVolumeTest : public testing::Test {
protected:
    void SetUp() override {
        SEVRIN_SKIP_WITHOUT(mounts_);
        mounts_.makeFolder("system/a");
        mounts_.makeFolder("system/b");
        mounts_.mountMemory("system/data");
        system_ = volumeOf(place_);
        for (auto item = system_->rootDirectory()->firstDirectory(); item;
             item = item->nextDirectory()) {
            static_cast<void>(item->fileFlags());
        }
    }

    [[nodiscard]] KTDirectoryPtr directory(const char* name) const {
        return system_->rootDirectory()->subdirectoryMatchingCName(name);
    }

    TestMounts mounts_;
    const std::string place_ = mounts_.mountMemory("system");
    KTVolumeInfoPtr system_;
};

TEST_F(KTDataVolumeTest, IsTheOneThatAFirmlinkOfTheRootLeadsTo) {
    directory("data")->setFileFlags(platform::SF_FIRMLINK);

    const auto data = system_->dataVolumeInfo();

    ASSERT_TRUE(data);
    EXPECT_EQ(data->path(), place_ + "/data");
    EXPECT_FALSE(data->isEqual(*system_));
    EXPECT_EQ(system_->dataVolumeInfo(), data);
}

TEST_F(KTDataVolumeTest, IsLookedForOnceAlsoWhenThereIsNone) {
    EXPECT_EQ(system_->dataVolumeInfo(), nullptr);

    directory("data")->setFileFlags(platform::SF_FIRMLINK);

    EXPECT_EQ(system_->dataVolumeInfo(), nullptr);
    EXPECT_EQ(system_->copy()->rootDirectory()->path(), place_);
}

TEST_F(KTDataVolumeTest, IsNoneWhereTheSearchFailsAndThatIsLogged) {
    const auto gone = directory("a");
    gone->flushAttributes();
    ASSERT_EQ(::rmdir(gone->cPath()), 0);
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);

    EXPECT_EQ(system_->dataVolumeInfo(), nullptr);

    ASSERT_EQ(logger->lines().size(), 1U);
    EXPECT_TRUE(logger->lines()[0].starts_with("9 failed to probe " + place_ + "/a, errno=2 ["))
        << logger->lines()[0];
}

TEST(KTVolumeInfoTest, ThereIsNoDataVolumeWithoutAFirmlink) {
    EXPECT_EQ(volumeOf("/proc/self")->dataVolumeInfo(), nullptr);
}

TEST(KTVolumeInfoTest, UnmountingEndsTheMount) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("mount");
    const auto volume = volumeOf(place);

    volume->unmount();

    EXPECT_FALSE(volumeOf(place)->isEqual(*volume));
}

TEST(KTVolumeInfoTest, AVolumeInUseIsUnmountedByForceOnly) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("mount");
    const auto volume = volumeOf(place);
    const std::ofstream user(mounts / "mount/open");
    try {
        volume->unmount();
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "cannot unmount volume");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(EBUSY));
        EXPECT_EQ(*exception.details().find("name"), Value("mount"));
        EXPECT_EQ(*exception.details().find("Path"), Value(volume->path()));
        EXPECT_EQ(*exception.details().find("forcably"), Value(0));
    }
    volume->unmountForcibly(true);
    EXPECT_FALSE(volumeOf(place)->isEqual(*volume));
}

TEST(KTVolumeInfoTest, WhatCannotBeReloadedIsLoggedAndStays) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const auto volume = volumeOf(mounts.mountMemory("mount"));
    volume->unmount();
    ASSERT_EQ(::rmdir(volume->cPath()), 0);

    volume->reloadStats();
    volume->reloadSizes();
    EXPECT_EQ(volume->nsAttributes(), std::nullopt);
    EXPECT_TRUE(volume->wholeDeviceIdentifier().isNull());

    EXPECT_EQ(volume->totalBytes(), 1 << 20);
    EXPECT_GT(volume->freeBytes(), 0);
    EXPECT_STREQ(volume->cDeviceName(), "scratch");
    std::string all;
    for (const std::string& line : logger->lines())
        all += line + "\n";
    const std::string failure = volume->path() + ": 2(No such file or directory)";
    EXPECT_NE(all.find("9 -[KTVolumeInfo reloadStats] problem getting stats for device " + failure),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("9 -[KTVolumeInfo reloadSizes] problem getting sizes for device " + failure),
              std::string::npos)
        << all;
    EXPECT_NE(all.find("9 -[KTVolumeInfo nsAttributes] problem obtaining NSFileManager "
                       "attributes for filesystem at " +
                       volume->path() + ": "),
              std::string::npos)
        << all;
}

TEST(KTVolumeInfoTest, TheRootDirectoryKnowsItsVolumeAndSoDoesWhatIsBelow) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("mount");
    mounts.makeFolder("mount/a");
    mounts.makeFolder("mount/a/b");
    const auto volume = volumeOf(place);
    const auto root = volume->rootDirectory();

    EXPECT_EQ(volume->rootDirectory(), root);
    EXPECT_EQ(root->path(), volume->path());
    EXPECT_EQ(root->volumeInfo(), volume);
    EXPECT_EQ(root->pathObject()->volumeInfo(), volume);
    const auto inner = root->firstDirectory()->firstDirectory();
    EXPECT_EQ(inner->name(), "b");
    EXPECT_EQ(inner->volumeInfo(), volume);
    EXPECT_EQ(inner->volumeRelativePath(), "a/b");
    EXPECT_EQ(root->volumeRelativePath(), "");
}

TEST(KTVolumeInfoTest, ADirectoryThatIsToldItsVolumeLetsTheOneGoThatItKnew) {
    const TestFolder folder;
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    const std::weak_ptr<KTVolumeInfo> known = directory->volumeInfo();
    EXPECT_FALSE(known.expired());
    auto told = volumeOf("/proc");

    directory->setVolumeInfo(told);

    EXPECT_TRUE(known.expired());
    EXPECT_EQ(directory->volumeInfo(), told);
    told.reset();
    EXPECT_TRUE(directory->volumeInfo()->isEqual(*volumeOf(folder.path())));
}

TEST(KTVolumeInfoTest, AVolumeEndsWithItsLastUserWhateverItsDirectoriesKnow) {
    const std::weak_ptr<KTVolumeInfo> gone = [] {
        const auto volume = volumeOf("/");
        const auto first = volume->rootDirectory()->firstDirectory();
        EXPECT_EQ(first->volumeInfo() == volume, !first->isMountPoint());
        for (auto directory = first; directory; directory = directory->nextDirectory())
            static_cast<void>(directory->volumeInfo());
        return std::weak_ptr<KTVolumeInfo>(volume);
    }();

    EXPECT_TRUE(gone.expired());
}

TEST(KTVolumeInfoTest, TheDirectoryOfAMountPointHasTheNamesOfItsVolume) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string folder = mounts.makeFolder("folder");
    mounts.mountMemory("folder/mount");
    const auto outer = KTDirectory::directoryWithPath(folder);
    const auto mount = outer->firstDirectory();

    EXPECT_TRUE(mount->isMountPoint());
    EXPECT_FALSE(outer->isMountPoint());
    EXPECT_EQ(mount->livingParent(), outer);
    EXPECT_EQ(mount->parentDirectoryInfo(), nullptr);
    EXPECT_EQ(mount->displayName(), "mount");
    EXPECT_EQ(mount->displayPath(), "mount:/");
    EXPECT_EQ(mount->logDescription(), "volume mount");
    EXPECT_FALSE(mount->volumeInfo()->isEqual(*outer->volumeInfo()));
    EXPECT_EQ(mount->volumeInfo(), mount->volumeInfo());
}

TEST(KTVolumeInfoTest, ADirectorySharesTheVolumeOfItsLivingParent) {
    const TestFolder folder;
    folder.makeFolder("a");
    const auto outer = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(outer->firstDirectory()->volumeInfo(), outer->volumeInfo());
}

TEST(KTVolumeInfoTest, TheVolumeOfALinkIsWhereTheLinkIs) {
    const TestFolder folder;
    const auto link = KTFileInfo::infoForPath(folder.makeLink("/proc/self", "l"));

    EXPECT_TRUE(link->volumeInfo()->isEqual(*volumeOf(folder.path())));
    EXPECT_FALSE(link->volumeInfo()->isEqual(*volumeOf("/proc")));
}

TEST(KTVolumeInfoTest, WhatDoesNotExistIsOnNoVolume) {
    const auto item = KTFileInfo::infoForPath("/nowhere/x");

    EXPECT_EQ(item->volumeInfo(), nullptr);
    EXPECT_EQ(item->volumeRelativePath(), std::nullopt);
}

TEST(KTVolumeInfoTest, ARelativePathThatCannotBeToldIsTheFullOneAndLogged) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    const auto item = KTFileInfo::initWithTypePathObject(1, KTPath::pathWithPath("/nowhere/x"));

    EXPECT_EQ(item->volumeRelativePath(), "/nowhere/x");

    const auto lines = logger->lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with(
        "9 -[KTFileInfo volumeRelativePath] can't determine relative path for /nowhere/x ["))
        << lines[0];
    EXPECT_NE(lines[1].find("volumeRelativePath"), std::string::npos) << lines[1];
}

TEST(KTVolumeInfoTest, APathOnAnotherVolumeHasNoRelativePath) {
    const TestFolder folder;

    EXPECT_EQ(volumeOf("/proc")->relativePathOfPath(*KTPath::pathWithPath(folder.path())),
              std::nullopt);
    EXPECT_EQ(volumeOf("/proc")->relativePathOfPath(*KTPath::pathWithPath("/proc/1/fd")), "1/fd");
}

TEST(KTVolumeInfoTest, APathOfTheVolumeThatNeverLeavesItUpwardsHasNoRelativePath) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string view = mounts.makeFolder("view");
    mounts.bind("/", view);
    const auto volume = volumeOf(view);
    ASSERT_TRUE(volume->isEqual(*volumeOf("/usr")));

    EXPECT_EQ(volume->relativePathOfPath(*KTPath::pathWithPath("/usr")), std::nullopt);
    EXPECT_EQ(volume->relativePathOfPath(*KTPath::pathWithPath(view + "/usr")), "usr");
}

TEST(KTVolumeInfoTest, ThePlaceWhereAVolumeIsSeenAgainIsItsRoot) {
    TestMounts mounts;
    const std::string place = mounts.mountMemory("mount");
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string again = mounts.makeFolder("again");
    mounts.bind(place, again);

    EXPECT_EQ(volumeOf(place)->relativePathOfPath(*KTPath::pathWithPath(again)), "");
    EXPECT_EQ(volumeOf(place)->relativePathOfPath(*KTPath::pathWithPath(place)), "");
}

}  // namespace
}  // namespace sevrin
