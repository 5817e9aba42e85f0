// What is mounted, on mounts of the tests' own.
#include "Platform/MountTable.h"

#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/statfs.h>

#include <algorithm>
#include <vector>

#include "Platform/TestAttributes.h"
#include "Platform/TestFileServer.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

struct statfs recordOf(const std::string& path) {
    struct statfs record {};
    EXPECT_EQ(statfs(path.c_str(), &record), 0) << path << ": " << std::strerror(errno);
    return record;
}

std::vector<struct statfs> allRecords(int mode = MNT_NOWAIT) {
    const int count = getfsstat(nullptr, 0, mode);
    EXPECT_GT(count, 0);
    std::vector<struct statfs> records(static_cast<std::size_t>(count));
    EXPECT_EQ(getfsstat(records.data(), records.size() * sizeof records[0], mode), count);
    return records;
}

std::ptrdiff_t countAt(const std::vector<struct statfs>& records, const std::string& path) {
    return std::count_if(records.begin(), records.end(),
                         [&](const struct statfs& record) { return path == record.f_mntonname; });
}

bool isSameVolume(const struct statfs& a, const struct statfs& b) {
    return std::memcmp(&a.f_fsid, &b.f_fsid, sizeof a.f_fsid) == 0;
}

TEST(MountTableTest, APathIsOnTheVolumeThatHoldsIt) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    const std::string file = mounts.write("place/inside", std::string(10000, 'x'));
    struct ::statfs raw {};
    ASSERT_EQ(::statfs(place.c_str(), &raw), 0);

    const struct statfs record = recordOf(file);

    EXPECT_STREQ(record.f_mntonname, place.c_str());
    EXPECT_STREQ(record.f_mntfromname, "scratch");
    EXPECT_STREQ(record.f_fstypename, "tmpfs");
    EXPECT_EQ(record.f_bsize, raw.f_frsize);
    EXPECT_EQ(record.f_blocks * record.f_bsize, 1024U * 1024U);
    EXPECT_EQ(record.f_bfree, raw.f_bfree);
    EXPECT_EQ(record.f_bavail, raw.f_bavail);
    EXPECT_EQ(record.f_files, raw.f_files);
    EXPECT_EQ(record.f_ffree, raw.f_ffree);
    EXPECT_EQ(record.f_flags, MNT_LOCAL);
}

TEST(MountTableTest, FlagsOfAMountAreThePlatforms) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::array<std::pair<unsigned long, std::uint32_t>, 6> flags = {
        {{MS_RDONLY, MNT_RDONLY},
         {MS_NOSUID, MNT_NOSUID},
         {MS_NODEV, MNT_NODEV},
         {MS_NOEXEC, MNT_NOEXEC},
         {MS_NOATIME, MNT_NOATIME},
         {MS_SYNCHRONOUS, MNT_SYNCHRONOUS}}};

    for (const auto& [raw, flag] : flags) {
        const std::string place = mounts.mountMemory(std::to_string(raw), raw);
        EXPECT_EQ(recordOf(place).f_flags, MNT_LOCAL | flag) << raw;
    }
}

TEST(MountTableTest, ABindMountIsTheSameVolumeWithAPlaceAndFlagsOfItsOwn) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    mounts.makeFolder("place/inner");
    const std::string other = mounts.makeFolder("other");
    mounts.bind(place + "/inner", other, MS_RDONLY);

    EXPECT_STREQ(recordOf(other).f_mntonname, other.c_str());
    EXPECT_TRUE(isSameVolume(recordOf(other), recordOf(place)));
    EXPECT_EQ(recordOf(other).f_flags & MNT_RDONLY, MNT_RDONLY);
    EXPECT_EQ(recordOf(place).f_flags & MNT_RDONLY, 0U);
}

TEST(MountTableTest, TwoVolumesOfOneKindAreTwo) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);

    const struct statfs one = recordOf(mounts.mountMemory("one"));
    const struct statfs other = recordOf(mounts.mountMemory("other"));

    EXPECT_FALSE(isSameVolume(one, other));
    EXPECT_FALSE(isSameVolume(one, recordOf("/proc")));
}

TEST(MountTableTest, AnOverlayIsAnotherVolumeThanTheOneBelow) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    const std::string merged = mounts.mountOverlay("place/merged");
    SEVRIN_SKIP_WITHOUT(mounts);

    EXPECT_FALSE(isSameVolume(recordOf(place), recordOf(merged)));
    // Objects of an overlay may show the device of the file system below.
    for (const char* name : {"place/merged.lower/old", "place/merged/new"})
        mounts.write(name);
    for (const char* name : {"/old", "/new"}) {
        const std::string path = merged + name;
        EXPECT_TRUE(isSameVolume(recordOf(path), recordOf(merged))) << name;
        const attrlist list = listOf(ATTR_CMN_FSID);
        std::array<char, 12> buffer{};
        ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), 0), 0);
        const struct statfs record = recordOf(path);
        EXPECT_EQ(std::memcmp(buffer.data() + 4, &record.f_fsid, sizeof record.f_fsid), 0);
    }
    EXPECT_STREQ(recordOf(merged).f_fstypename, "overlay");
}

TEST(MountTableTest, OddPathsOfMountPointsComeBackByteForByte) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    std::string deep = "deep";
    mounts.makeFolder(deep);
    for (int i = 0; i < 8; ++i)
        mounts.makeFolder(deep += '/' + std::string(200, 'd'));

    for (const std::string& name :
         {std::string("a b\tc\nd\\040e"), std::string("\xff\xfe"), deep + "/end"}) {
        const std::string place = mounts.mountMemory(name);
        EXPECT_EQ(recordOf(place).f_mntonname, place);
        EXPECT_EQ(countAt(allRecords(), place), 1);
    }
}

TEST(MountTableTest, TheListHasEveryMountWithItsFigures) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string one = mounts.mountMemory("one");
    const std::string other = mounts.mountMemory("other");

    const std::vector<struct statfs> records = allRecords(MNT_WAIT);

    EXPECT_EQ(countAt(records, "/"), 1);
    for (const std::string& place : {one, other}) {
        const auto found =
            std::find_if(records.begin(), records.end(),
                         [&](const struct statfs& record) { return place == record.f_mntonname; });
        ASSERT_NE(found, records.end());
        EXPECT_EQ(found->f_blocks * found->f_bsize, 1024U * 1024U);
        EXPECT_TRUE(isSameVolume(*found, recordOf(place)));
    }
}

TEST(MountTableTest, AMountUnderAnotherIsNotListed) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    ASSERT_EQ(::mount("upper", place.c_str(), "tmpfs", 0, nullptr), 0);

    const std::vector<struct statfs> records = allRecords();

    EXPECT_EQ(countAt(records, place), 1);
    EXPECT_STREQ(recordOf(place).f_mntfromname, "upper");
}

TEST(MountTableTest, ABufferForFewGetsTheFirst) {
    std::array<struct statfs, 2> records{};

    EXPECT_EQ(getfsstat(records.data(), sizeof records[0], MNT_NOWAIT), 1);

    EXPECT_EQ(records[1].f_mntonname[0], '\0');
    EXPECT_NE(records[0].f_mntonname[0], '\0');
}

TEST(MountTableTest, AViewOfTheKernelIsNothingToBrowse) {
    const struct statfs record = recordOf("/proc");

    EXPECT_EQ(record.f_flags & MNT_DONTBROWSE, MNT_DONTBROWSE);
    EXPECT_EQ(record.f_blocks, 0U);
    EXPECT_EQ(recordOf("/").f_flags & (MNT_ROOTFS | MNT_DONTBROWSE), MNT_ROOTFS);
}

TEST(MountTableTest, AVolumeWhoseServerIsGoneIsListedWithoutFigures) {
    TestMounts mounts;
    TestFileServer server(mounts, "served");
    SEVRIN_SKIP_WITHOUT(mounts);
    server.stop();

    for (const int mode : {MNT_NOWAIT, MNT_WAIT}) {
        const std::vector<struct statfs> records = allRecords(mode);

        const auto found = std::find_if(
            records.begin(), records.end(),
            [&](const struct statfs& record) { return server.path() == record.f_mntonname; });
        ASSERT_NE(found, records.end());
        EXPECT_EQ(found->f_blocks, 0U);
        EXPECT_EQ(found->f_flags & MNT_LOCAL, 0U);
        EXPECT_TRUE(found->f_fsid.val[0] != 0 || found->f_fsid.val[1] != 0);
    }
    struct statfs record {};
    EXPECT_EQ(statfs(server.path().c_str(), &record), -1);
    EXPECT_EQ(errno, ENOTCONN);
}

TEST(MountTableTest, AListThatMayNotWaitDoesNotAskAServerThatDoesNotAnswer) {
    TestMounts mounts;
    TestFileServer server(mounts, "served");
    SEVRIN_SKIP_WITHOUT(mounts);
    server.fail(TestFileServer::kNever);

    EXPECT_EQ(countAt(allRecords(MNT_NOWAIT), server.path()), 1);
}

TEST(MountTableTest, AVolumeOfAnotherUserNamesThatUser) {
    TestMounts mounts;
    const TestFileServer server(mounts, "served", ::geteuid() + 77);
    SEVRIN_SKIP_WITHOUT(mounts);

    const struct statfs record = recordOf(server.path());

    EXPECT_EQ(record.f_owner, ::geteuid() + 77);
    EXPECT_STREQ(record.f_fstypename, "fuse.sshfs");
    EXPECT_EQ(countAt(allRecords(), server.path()), 1);
}

TEST(MountTableTest, WhatIsNotThereHasNoVolume) {
    const FileFolder folder;
    struct statfs record {};

    EXPECT_EQ(statfs(folder.at("missing").c_str(), &record), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(statfs((folder.file("a") + "/b").c_str(), &record), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(getfsstat(&record, sizeof record, 0), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(MountTableTest, UnmountingTakesTheVolumeAway) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");

    EXPECT_EQ(unmount(place.c_str(), 0), 0);

    EXPECT_EQ(countAt(allRecords(), place), 0);
    EXPECT_EQ(unmount(place.c_str(), 0), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(MountTableTest, AVolumeInUseIsUnmountedByForceAlone) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    const UniqueFd file(::open(mounts.write("place/a").c_str(), O_RDONLY | O_CLOEXEC));

    EXPECT_EQ(unmount(place.c_str(), 0), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(countAt(allRecords(), place), 1);

    EXPECT_EQ(unmount(place.c_str(), MNT_FORCE), 0);
    EXPECT_EQ(countAt(allRecords(), place), 0);
}

TEST(MountTableTest, UnmountingDoesNotFollowALink) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    const std::string link = mounts.makeLink("place", "link");

    EXPECT_EQ(unmount(link.c_str(), 0), -1);
    EXPECT_EQ(unmount(place.c_str(), 0x1), -1);
    EXPECT_EQ(errno, EINVAL);

    EXPECT_EQ(countAt(allRecords(), place), 1);
}

}  // namespace
}  // namespace sevrin::platform
