// Tests of the attributes of items: what is fetched, kept, changed, written back and flushed.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "Common/Source/Utilities/BSDTimeSpec.h"
#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::TestFolder;
using platform::Value;

bool isSame(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

void expectAttributesOf(const struct stat& expected, const KTFileInfo& item) {
    EXPECT_EQ(item.localIdentifier(), expected.st_ino);
    EXPECT_EQ(item.ownerID(), expected.st_uid);
    EXPECT_EQ(item.groupID(), expected.st_gid);
    EXPECT_EQ(item.access(), expected.st_mode & 07777U);
    EXPECT_TRUE(isSame(item.modifiedTimeSpec(), expected.st_mtim));
    EXPECT_TRUE(isSame(item.attributeChangedTimeSpec(), expected.st_ctim));
    EXPECT_EQ(item.effectiveAccess() & 4U, 4U);
    EXPECT_EQ(item.fileFlags(), 0U);
}

TEST(KTFileAttributesTest, AnItemHasTheAttributesOfItsFile) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a", "hello"));
    ASSERT_EQ(::chmod(item->cPath(), 04751), 0);

    expectAttributesOf(folder.attributes("a"), *item);
    EXPECT_EQ(item->access(), 04751U);
}

TEST(KTFileAttributesTest, AnItemOfAListingHasThemToo) {
    const TestFolder folder;
    folder.write("a", "hello");
    const auto item = KTDirectory::directoryWithPath(folder.path())->firstObject();

    expectAttributesOf(folder.attributes("a"), *item);
}

TEST(KTFileAttributesTest, TheDatesAreTheTimes) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    EXPECT_EQ(item->modifiedDate(), newCFDateWithBSDTimeSpec(item->modifiedTimeSpec()));
    EXPECT_EQ(item->attributeChangedDate(),
              newCFDateWithBSDTimeSpec(item->attributeChangedTimeSpec()));
    EXPECT_EQ(item->createdDate(), newCFDateWithBSDTimeSpec(item->createdTimeSpec()));
    EXPECT_DOUBLE_EQ(
        newCFDateWithBSDTimeSpec({978'307'201, 500'000'000}).timeIntervalSinceReferenceDate(), 1.5);
}

TEST(KTFileAttributesTest, AttributesAreKeptUntilTheyAreFlushed) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::chmod(item->cPath(), 0600), 0);
    EXPECT_EQ(item->access(), 0600U);
    ASSERT_EQ(::chmod(item->cPath(), 0640), 0);

    EXPECT_EQ(item->access(), 0600U);
    EXPECT_EQ(item->reevaluateType()->access(), 0600U);
    item->flushAttributes();
    EXPECT_EQ(item->access(), 0640U);
}

TEST(KTFileAttributesTest, WhatVanishedHasNoAttributesToFetch) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::unlink(item->cPath()), 0);
    try {
        static_cast<void>(item->ownerID());
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(exception.reason(), "failed to get attributes");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(ENOENT));
        EXPECT_EQ(*exception.details().find("Path"), Value(folder / "a"));
        EXPECT_EQ(*exception.details().find("Name"), Value("a"));
        EXPECT_EQ(*exception.details().find("Type"), Value("regular file"));
    }
}

TEST(KTFileAttributesTest, AFailedFetchIsTriedAgain) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::unlink(item->cPath()), 0);
    EXPECT_THROW(static_cast<void>(item->ownerID()), SVException);
    folder.write("a");

    EXPECT_EQ(item->ownerID(), ::geteuid());
}

TEST(KTFileAttributesTest, AFileThatBecameADirectoryHasNoSizes) {
    const TestFolder folder;
    const auto file = KTFileInfo::infoForPath(folder.write("a", "hello"))->asRegularFile();
    EXPECT_EQ(file->logicalSize(), 5);
    ASSERT_EQ(::unlink(file->cPath()), 0);
    folder.makeFolder("a");
    file->flushAttributes();

    EXPECT_EQ(file->logicalSize(), 0);
    EXPECT_EQ(file->physicalSize(), 0);
    EXPECT_EQ(file->dataLength(), 0);
    EXPECT_EQ(file->linkCount(), 0U);
    EXPECT_EQ(file->localIdentifier(), folder.attributes("a").st_ino);
    EXPECT_EQ(file->reevaluateType()->type(), 2U);
}

TEST(KTFileAttributesTest, ADirectoryThatBecameAFileHasNoEntries) {
    const TestFolder folder;
    const auto directory = KTDirectory::directoryWithPath(folder.makeFolder("a"));
    folder.write("a/inner");
    EXPECT_EQ(directory->count(), 1U);
    ASSERT_EQ(::unlink((folder / "a/inner").c_str()), 0);
    ASSERT_EQ(::rmdir(directory->cPath()), 0);
    folder.write("a", "hello");
    directory->flushAttributes();

    EXPECT_EQ(directory->count(), 0U);
    EXPECT_EQ(directory->linkCount(), 0U);
    EXPECT_FALSE(directory->isMountPoint());
    EXPECT_EQ(directory->reevaluateType()->type(), 1U);
}

TEST(KTFileAttributesTest, NothingIsAskedAboutWhatDoesNotExist) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder / "a");
    folder.write("a");

    item->setModifiedAttributes();
    EXPECT_EQ(item->localIdentifier(), 0U);
}

TEST(KTFileAttributesTest, ASetAttributeIsWrittenAloneAndOnce) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    const timespec past{1'000'000'000, 0};
    item->setAccess(0604);
    EXPECT_EQ(item->access(), 0604U);
    EXPECT_NE(folder.attributes("a").st_mode & 07777U, 0604U);
    const timespec times[2] = {past, past};
    ASSERT_EQ(::utimensat(AT_FDCWD, item->cPath(), times, 0), 0);

    item->setModifiedAttributes();

    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, 0604U);
    EXPECT_TRUE(isSame(folder.attributes("a").st_mtim, past));
    ASSERT_EQ(::chmod(item->cPath(), 0600), 0);
    item->setModifiedAttributes();
    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, 0600U);
}

TEST(KTFileAttributesTest, TimesAreWrittenToTheNanosecond) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    const timespec past{1'234'567'890, 123'456'789};

    item->setModifiedTimeSpec(past);
    item->setModifiedAttributes();

    EXPECT_TRUE(isSame(folder.attributes("a").st_mtim, past));
}

TEST(KTFileAttributesTest, TheAttributesOfALinkAreWrittenToTheLink) {
    const TestFolder folder;
    folder.write("a");
    const auto link = KTFileInfo::infoForPath(folder.makeLink("a", "l"));
    const timespec before = folder.attributes("a").st_mtim;

    link->setModifiedTimeSpec({1'000'000'000, 0});
    link->setModifiedAttributes();

    EXPECT_EQ(folder.attributes("l").st_mtim.tv_sec, 1'000'000'000);
    EXPECT_TRUE(isSame(folder.attributes("a").st_mtim, before));
}

TEST(KTFileAttributesTest, WhatCannotBeWrittenIsPassedOver) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    static_cast<void>(item->access());
    ASSERT_EQ(::unlink(item->cPath()), 0);

    EXPECT_NO_THROW(item->setCommonAttributes(platform::ATTR_CMN_FILEID));
    EXPECT_THROW(item->setCommonAttributes(platform::ATTR_CMN_ACCESSMASK), SVException);
}

TEST(KTFileAttributesTest, NothingIsWrittenBeforeAnythingWasFetched) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::unlink(item->cPath()), 0);

    EXPECT_NO_THROW(item->setCommonAttributes(platform::ATTR_CMN_ACCESSMASK));
    EXPECT_NO_THROW(item->setModifiedAttributes());
}

TEST(KTFileAttributesTest, ARefusedWriteRaisesWritesNothingAndKeepsTheChanges) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    const mode_t mode = folder.attributes("a").st_mode;
    item->setAccess(0604);
    item->setCreatedTimeSpec({1'000'000'000, 0});
    for (int attempt = 0; attempt < 2; ++attempt) {
        try {
            item->setModifiedAttributes();
            FAIL();
        } catch (const SVException& exception) {
            EXPECT_EQ(exception.reason(), "unable to set attributes");
            EXPECT_EQ(*exception.details().find("Path"), Value(folder / "a"));
            EXPECT_EQ(*exception.details().find("attributeSet"), Value("0x00020200"));
        }
    }
    EXPECT_EQ(folder.attributes("a").st_mode, mode);
}

// The bits that a write of the item would take, as its failure tells them.
std::string bitsWritten(KTFileInfo& item) {
    try {
        item.setModifiedAttributes();
    } catch (const SVException& exception) {
        return *exception.details().find("attributeSet")->ifString();
    }
    return "none";
}

TEST(KTFileAttributesTest, EverySetterMarksItsOwnBitAndKeepsItsValue) {
    const TestFolder folder;
    const std::string path = folder.write("a");
    const auto fetched = [&] {
        auto item = KTFileInfo::infoForPath(path);
        static_cast<void>(item->ownerID());
        return item;
    };
    const auto script = fetched();
    const auto created = fetched();
    const auto modified = fetched();
    const auto changed = fetched();
    const auto owner = fetched();
    const auto group = fetched();
    const auto access = fetched();
    const auto flags = fetched();
    ASSERT_EQ(::unlink(path.c_str()), 0);

    script->setScript(7);
    created->setCreatedTimeSpec({1, 2});
    modified->setModifiedTimeSpec({3, 4});
    changed->setAttributeChangedTimeSpec({5, 6});
    owner->setOwnerID(8);
    group->setGroupID(9);
    access->setAccess(0604);
    flags->setFileFlags(10);

    EXPECT_EQ(script->script(), 7U);
    EXPECT_TRUE(isSame(created->createdTimeSpec(), {1, 2}));
    EXPECT_TRUE(isSame(modified->modifiedTimeSpec(), {3, 4}));
    EXPECT_TRUE(isSame(changed->attributeChangedTimeSpec(), {5, 6}));
    EXPECT_EQ(owner->ownerID(), 8U);
    EXPECT_EQ(group->groupID(), 9U);
    EXPECT_EQ(access->access(), 0604U);
    EXPECT_EQ(flags->fileFlags(), 10U);
    EXPECT_EQ(bitsWritten(*script), "0x0100");
    EXPECT_EQ(bitsWritten(*created), "0x0200");
    EXPECT_EQ(bitsWritten(*modified), "0x0400");
    EXPECT_EQ(bitsWritten(*changed), "0x0800");
    EXPECT_EQ(bitsWritten(*owner), "0x8000");
    EXPECT_EQ(bitsWritten(*group), "0x00010000");
    EXPECT_EQ(bitsWritten(*access), "0x00020000");
    EXPECT_EQ(bitsWritten(*flags), "0x00040000");
}

TEST(KTFileAttributesTest, OfAnAccessTheLowSixteenBitsAreKept) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    item->setAccess(0x0012'8180);

    EXPECT_EQ(item->access(), 0x8180U);
}

TEST(KTFileAttributesTest, SeveralAttributesAreWrittenTogetherEachInItsPlace) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    item->setAccess(0640);
    item->setGroupID(23456);
    item->setModifiedTimeSpec({1'234'567'890, 123'456'789});
    item->setOwnerID(12345);
    item->setModifiedAttributes();

    const struct stat written = folder.attributes("a");
    EXPECT_EQ(written.st_mode & 07777U, 0640U);
    EXPECT_EQ(written.st_uid, 12345U);
    EXPECT_EQ(written.st_gid, 23456U);
    EXPECT_TRUE(isSame(written.st_mtim, {1'234'567'890, 123'456'789}));
}

TEST(KTFileAttributesTest, ChosenAttributesAreWrittenAsTheyAreKeptChangedOrNot) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::chmod(item->cPath(), 0604), 0);
    EXPECT_EQ(item->access(), 0604U);
    ASSERT_EQ(::chmod(item->cPath(), 0600), 0);

    item->setCommonAttributes(platform::ATTR_CMN_ACCESSMASK);

    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, 0604U);
}

TEST(KTFileAttributesTest, WhatWasWrittenByChoiceIsNotWrittenAgainAndTheRestIs) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    item->setAccess(0604);
    item->setModifiedTimeSpec({1'000'000'000, 0});

    item->setCommonAttributes(platform::ATTR_CMN_ACCESSMASK | platform::ATTR_CMN_FILEID);

    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, 0604U);
    EXPECT_NE(folder.attributes("a").st_mtim.tv_sec, 1'000'000'000);
    ASSERT_EQ(::unlink(item->cPath()), 0);
    EXPECT_EQ(bitsWritten(*item), "0x0400");
}

TEST(KTFileAttributesTest, AFlushDiscardsChanges) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    const std::uint32_t before = item->access();
    item->setAccess(0604);

    item->flushAttributes();
    item->setModifiedAttributes();

    EXPECT_EQ(item->access(), before);
    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, before);
}

TEST(KTFileAttributesTest, AnOwnerIsWrittenByRoot) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root gives files away";
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    item->setOwnerID(12345);
    item->setGroupID(23456);
    item->setModifiedAttributes();

    EXPECT_EQ(folder.attributes("a").st_uid, 12345U);
    EXPECT_EQ(folder.attributes("a").st_gid, 23456U);
}

TEST(KTFileAttributesTest, AFileWithoutAListHasNone) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    EXPECT_EQ(item->acl(), nullptr);
    item->flushAttributes();
    EXPECT_EQ(item->acl(), nullptr);
    EXPECT_EQ(item->ownerID(), ::geteuid());
}

// Gives a file a list beyond its mode bits: user 12345 may read. False where files have no lists.
bool giveList(const std::string& path) {
    struct Entry {
        std::uint16_t tag;
        std::uint16_t permissions;
        std::uint32_t id;
    };
    struct {
        std::uint32_t version = 2;
        Entry entries[5] = {{0x01, 6, UINT32_MAX},   // the owner
                            {0x02, 4, 12345},        // the user
                            {0x04, 4, UINT32_MAX},   // the group
                            {0x10, 4, UINT32_MAX},   // the mask
                            {0x20, 0, UINT32_MAX}};  // all others
    } const list;
    return ::setxattr(path.c_str(), "system.posix_acl_access", &list, sizeof list, 0) == 0;
}

TEST(KTFileAttributesTest, AListIsFetchedOnceAndAfreshAfterAFlush) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    const std::string link = folder.makeLink("a", "l");
    EXPECT_EQ(item->acl(), nullptr);
    if (!giveList(item->path())) GTEST_SKIP() << "files here have no access control lists";

    EXPECT_EQ(item->acl(), nullptr);
    item->flushAttributes();
    ASSERT_NE(item->acl(), nullptr);
    EXPECT_EQ(item->acl(), item->acl());
    EXPECT_NE(platform::acl_to_text(*item->acl()).find("user:12345:r--"), std::string::npos);
    EXPECT_EQ(KTFileInfo::infoForPath(link)->acl(), nullptr);
}

TEST(KTFileAttributesTest, NoListIsLookedForWhereNothingWas) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder / "a");
    if (!giveList(folder.write("a"))) GTEST_SKIP() << "files here have no access control lists";

    EXPECT_EQ(item->acl(), nullptr);
    EXPECT_NE(item->reevaluateType()->acl(), nullptr);
}

TEST(KTFileAttributesTest, TheRecordsHaveTheirSizes) {
    const TestFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);

    EXPECT_EQ(KTFileInfo::infoForPath(folder / "pipe")->commonAttrSize(), 96U);
    EXPECT_EQ(KTFileInfo::infoForPath(folder.write("a"))->commonAttrSize(), 128U);
    EXPECT_EQ(KTFileInfo::infoForPath(folder.path())->commonAttrSize(), 112U);
    EXPECT_EQ(KTFileInfo::infoForPath(folder.makeLink("a", "l"))->commonAttrSize(), 128U);
}

TEST(KTFileAttributesTest, AFileWhoseNameBeginsWithAPointIsHidden) {
    const TestFolder folder;

    EXPECT_TRUE(KTFileInfo::infoForPath(folder.write(".a"))->isHidden());
    EXPECT_FALSE(KTFileInfo::infoForPath(folder.write("a"))->isHidden());
    EXPECT_FALSE(KTFileInfo::infoForPath(folder / "a")->isHiddenExtension());
    EXPECT_FALSE(KTFileInfo::infoForPath(folder / "a")->isExcludedFromBackup());
}

TEST(KTFileAttributesTest, WhetherAnItemIsExcludedFromBackupsIsKeptUntilAFlush) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    EXPECT_FALSE(item->isExcludedFromBackup());
    const auto url = platform::NSURL::fileURLWithPath(item->path());
    if (url->setResourceValueForKey(true, platform::NSURLIsExcludedFromBackupKey))
        GTEST_SKIP() << "files here cannot be excluded from backups";

    EXPECT_FALSE(item->isExcludedFromBackup());
    item->flushAttributes();
    EXPECT_TRUE(item->isExcludedFromBackup());
    EXPECT_TRUE(KTFileInfo::infoForPath(item->path())->isExcludedFromBackup());
}

TEST(KTFileAttributesTest, ItemsOfOneVolumeHaveOneIdentifier) {
    const TestFolder folder;
    const Value first = KTFileInfo::infoForPath(folder.write("a"))->volumeIdentifier();
    const Value second = KTFileInfo::infoForPath(folder.write("b"))->volumeIdentifier();

    EXPECT_FALSE(first.isNull());
    EXPECT_EQ(first, second);
}

TEST(KTFileAttributesTest, AResourceValueThatCannotBeHadIsFalseAndLogged) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    const auto item = KTFileInfo::infoForPath("/nowhere/x");

    EXPECT_FALSE(item->isHidden());
    EXPECT_FALSE(item->isHiddenExtension());
    EXPECT_FALSE(item->isExcludedFromBackup());
    EXPECT_TRUE(item->volumeIdentifier().isNull());

    std::string all;
    for (const std::string& line : logger->lines())
        all += line + "\n";
    for (const char* reason : {"9 problem obtaining isHidden attribute",
                               "9 problem obtaining isHiddenExtension attribute",
                               "9 problem obtaining isExcludedFromBackup attribute",
                               "9 problem obtaining volumeIdentifier attribute"}) {
        EXPECT_NE(all.find(reason), std::string::npos) << all;
    }
}

TEST(KTFileAttributesTest, AFlushForgetsTheResourceValues) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    EXPECT_FALSE(item->volumeIdentifier().isNull());
    ASSERT_EQ(::unlink(item->cPath()), 0);
    EXPECT_FALSE(item->volumeIdentifier().isNull());

    item->flushAttributes();

    EXPECT_TRUE(item->volumeIdentifier().isNull());
}

}  // namespace
}  // namespace sevrin
