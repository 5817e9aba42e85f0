// Tests of volumes that take nothing more: full ones, those that may not be written, and those of
// somebody else.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/TestMounts.h"

namespace sevrin {
namespace {

using platform::TestMounts;
using platform::Value;

// What `act` raises; its error number is the one expected.
template <typename Act>
SVException raisedBy(Act act, int error) {
    try {
        act();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(error));
        return exception;
    }
    ADD_FAILURE() << "nothing was raised";
    return SVException::exceptionWithNameReason("IO", "nothing");
}

class KTFullVolumeTest : public testing::Test {
protected:
    void SetUp() override {
        SEVRIN_SKIP_WITHOUT(mounts_);
        mounts_.write("mount/file");
        mounts_.makeLink("old", "mount/link");
        mounts_.write("mount/ballast", std::string(1 << 20, 'x'));
        while (::symlink("x", (place_ + "/" + std::to_string(count_)).c_str()) == 0)
            ++count_;
        ASSERT_EQ(errno, ENOSPC);
    }

    TestMounts mounts_;
    const std::string place_ = mounts_.mountMemory("mount", 0, "size=64k,nr_inodes=32");
    int count_ = 0;
};

TEST_F(KTFullVolumeTest, SaysThatNothingIsFree) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(place_);

    EXPECT_EQ(volume->totalBytes(), 64 << 10);
    EXPECT_EQ(volume->freeBytes(), 0);
    EXPECT_EQ(volume->availableBytes(), 0);
    EXPECT_EQ(volume->stat().f_ffree, 0U);
    EXPECT_TRUE(volume->isWritable());
}

TEST_F(KTFullVolumeTest, IsListedAndReadAsAnyOther) {
    const auto directory = KTDirectory::directoryWithPath(place_);

    EXPECT_EQ(directory->objectMatchingCName("file")->asRegularFile()->dataLength(), 0);
    EXPECT_EQ(directory->count(), static_cast<std::uint64_t>(count_) + 3);
}

TEST_F(KTFullVolumeTest, TakesNoSubdirectory) {
    const auto directory = KTDirectory::directoryWithPath(place_);

    const SVException exception =
        raisedBy([&] { directory->createSubdirectoryWithNameMode("new", 0750); }, ENOSPC);

    EXPECT_EQ(exception.reason(), "could not create directory");
    EXPECT_EQ(*exception.details().find("Path"), Value(place_ + "/new"));
    EXPECT_EQ(*exception.details().find("mode"), Value(0750));
}

TEST_F(KTFullVolumeTest, TakesNoUniqueSubdirectoryEither) {
    const auto directory = KTDirectory::directoryWithPath(place_);

    const SVException exception = raisedBy(
        [&] { directory->createUniqueSubdirectoryWithPrefixExtensionMode("tmp", "x", 0700); },
        ENOSPC);

    EXPECT_EQ(exception.reason(), "could not create directory");
}

// A short text is kept in the link itself; one this long takes room.
TEST_F(KTFullVolumeTest, ALinkThatIsSetToALongerTextIsLost) {
    const auto link = KTFileInfo::infoForPath(place_ + "/link")->asSymbolicLink();
    EXPECT_STREQ(link->contents(), "old");

    const SVException exception =
        raisedBy([&] { link->setContents(std::string(3000, 'x').c_str()); }, ENOSPC);

    EXPECT_EQ(exception.reason(), "cannot write content of symbolic link");
    EXPECT_EQ(*exception.details().find("Path"), Value(place_ + "/link"));
    EXPECT_FALSE(mounts_.has("mount/link"));
    EXPECT_THROW(static_cast<void>(link->contents()), SVException);
}

TEST_F(KTFullVolumeTest, StillTakesAttributes) {
    const auto item = KTFileInfo::infoForPath(place_ + "/file");

    item->setAccess(0600);
    item->setModifiedTimeSpec({1'000'000'000, 0});
    item->setModifiedAttributes();

    EXPECT_EQ(mounts_.attributes("mount/file").st_mode & 07777U, 0600U);
    EXPECT_EQ(mounts_.attributes("mount/file").st_mtim.tv_sec, 1'000'000'000);
}

TEST_F(KTFullVolumeTest, ACopyOntoItRaisesAndLeavesNothing) {
    const auto item = KTFileInfo::infoForPath(mounts_.write("source", std::string(4096, 'x')));

    const SVException exception = raisedBy(
        [&] { static_cast<void>(item->copyToOverwriting(place_ + "/copy", false)); }, ENOSPC);

    EXPECT_EQ(exception.reason(), "cannot copy item");
    EXPECT_FALSE(mounts_.has("mount/copy"));
    EXPECT_EQ(item->reevaluateType(), item);
}

class KTReadOnlyVolumeTest : public testing::Test {
protected:
    void SetUp() override {
        SEVRIN_SKIP_WITHOUT(mounts_);
        mounts_.write("mount/file", "hello");
        mounts_.makeFolder("mount/folder");
        mounts_.makeLink("old", "mount/link");
        TestMounts::makeReadOnly(place_);
    }

    TestMounts mounts_;
    const std::string place_ = mounts_.mountMemory("mount");
};

TEST_F(KTReadOnlyVolumeTest, NobodyMayWriteOnIt) {
    const auto directory = KTDirectory::directoryWithPath(place_);

    for (const KTFileInfoPtr& item : *directory) {
        if (item->isSymbolicLink()) continue;
        EXPECT_EQ(item->effectiveAccess() & static_cast<unsigned>(W_OK), 0U) << item->path();
        EXPECT_NE(item->effectiveAccess() & static_cast<unsigned>(R_OK), 0U) << item->path();
    }
}

TEST_F(KTReadOnlyVolumeTest, TakesNoAttributesAndTheyStayChanged) {
    const auto item = KTFileInfo::infoForPath(place_ + "/file");
    const auto before = mounts_.attributes("mount/file");
    item->setAccess(0600);
    item->setModifiedTimeSpec({1'000'000'000, 0});

    for (int attempt = 0; attempt < 2; ++attempt) {
        const SVException exception = raisedBy([&] { item->setModifiedAttributes(); }, EROFS);
        EXPECT_EQ(exception.reason(), "unable to set attributes");
        EXPECT_EQ(*exception.details().find("Path"), Value(place_ + "/file"));
        EXPECT_EQ(*exception.details().find("attributeSet"), Value("0x00020400"));
    }
    EXPECT_EQ(mounts_.attributes("mount/file").st_mode, before.st_mode);
    EXPECT_EQ(mounts_.attributes("mount/file").st_mtim.tv_sec, before.st_mtim.tv_sec);
}

TEST_F(KTReadOnlyVolumeTest, TakesNoSubdirectory) {
    const auto directory = KTDirectory::directoryWithPath(place_);

    const SVException exception =
        raisedBy([&] { directory->createSubdirectoryWithNameMode("new", 0755); }, EROFS);

    EXPECT_EQ(exception.reason(), "could not create directory");
    EXPECT_EQ(*exception.details().find("mode"), Value(0755));
}

TEST_F(KTReadOnlyVolumeTest, ALinkOnItKeepsItsText) {
    const auto link = KTFileInfo::infoForPath(place_ + "/link")->asSymbolicLink();
    EXPECT_STREQ(link->contents(), "old");

    const SVException exception = raisedBy([&] { link->setContents("new"); }, EROFS);

    EXPECT_EQ(exception.reason(), "cannot delete item");
    EXPECT_EQ(*exception.details().find("Path"), Value(place_ + "/link"));
    EXPECT_STREQ(link->contents(), "old");
}

TEST_F(KTReadOnlyVolumeTest, NothingOnItIsDeletedOrMoved) {
    const auto item = KTFileInfo::infoForPath(place_ + "/file");

    EXPECT_FALSE(item->tryToDeleteFile());
    EXPECT_EQ(raisedBy([&] { static_cast<void>(item->deleteFile()); }, EROFS).reason(),
              "cannot delete item");
    EXPECT_EQ(raisedBy([&] { item->moveToOverwriting("other", false); }, EROFS).reason(),
              "cannot move item");
    EXPECT_EQ(item->path(), place_ + "/file");
    EXPECT_TRUE(mounts_.has("mount/file"));
}

TEST_F(KTReadOnlyVolumeTest, WhatIsOnItCanBeCopiedAway) {
    const auto item = KTFileInfo::infoForPath(place_ + "/file");

    const auto copy = item->copyToOverwriting(mounts_ / "copy", false);

    EXPECT_EQ(copy->asRegularFile()->dataLength(), 5);
    EXPECT_EQ(mounts_.read("copy"), "hello");
}

// What root has put into a folder that everybody may read, seen by another user.
class KTOtherUserTest : public testing::Test {
protected:
    void SetUp() override {
        SEVRIN_SKIP_WITHOUT(mounts_);
        mounts_.write("mount/file", "hello");
        ASSERT_EQ(::chmod((mounts_ / "mount/file").c_str(), 0644), 0);
        ASSERT_EQ(::seteuid(12345), 0);
    }
    void TearDown() override {
        if (mounts_) {
            ASSERT_EQ(::seteuid(0), 0);
        }
    }

    TestMounts mounts_;
    const std::string place_ = mounts_.mountMemory("mount", 0, "size=1m,mode=0755");
};

TEST_F(KTOtherUserTest, MayReadItAndSeesThatItMayNoMore) {
    const auto directory = KTDirectory::directoryWithPath(place_);
    const auto file = directory->objectMatchingCName("file");

    EXPECT_EQ(file->ownerID(), 0U);
    EXPECT_EQ(file->effectiveAccess(), static_cast<unsigned>(R_OK));
    EXPECT_EQ(directory->effectiveAccess(), static_cast<unsigned>(R_OK | X_OK));
}

TEST_F(KTOtherUserTest, MayNotSetItsAttributes) {
    const auto item = KTFileInfo::infoForPath(place_ + "/file");
    item->setAccess(0666);

    const SVException exception = raisedBy([&] { item->setModifiedAttributes(); }, EPERM);

    EXPECT_EQ(exception.reason(), "unable to set attributes");
    EXPECT_EQ(*exception.details().find("attributeSet"), Value("0x00020000"));
    EXPECT_EQ(mounts_.attributes("mount/file").st_mode & 07777U, 0644U);
}

TEST_F(KTOtherUserTest, MayNotDeleteItOrMakeAnythingBesideIt) {
    const auto item = KTFileInfo::infoForPath(place_ + "/file");
    const auto directory = KTDirectory::directoryWithPath(place_);

    EXPECT_EQ(raisedBy([&] { static_cast<void>(item->deleteFile()); }, EACCES).reason(),
              "cannot delete item");
    EXPECT_EQ(
        raisedBy([&] { directory->createSubdirectoryWithNameMode("new", 0755); }, EACCES).reason(),
        "could not create directory");
}

TEST_F(KTOtherUserTest, MayNotUnmountTheVolume) {
    const auto volume = KTVolumeInfo::volumeInfoForPath(place_);
    for (const bool force : {false, true}) {
        const SVException exception = raisedBy([&] { volume->unmountForcibly(force); }, EPERM);

        EXPECT_EQ(exception.reason(), "cannot unmount volume");
        EXPECT_EQ(*exception.details().find("name"), Value("mount"));
        EXPECT_EQ(*exception.details().find("Path"), Value(place_));
        EXPECT_EQ(*exception.details().find("forcably"), Value(force ? 1 : 0));
    }
    EXPECT_TRUE(KTVolumeInfo::volumeInfoForPath(place_)->isEqual(*volume));
}

}  // namespace
}  // namespace sevrin
