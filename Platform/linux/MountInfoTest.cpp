// The text of the mount table, as kernels write it and as they do not.
#include "Platform/linux/MountInfo.h"

#include <gtest/gtest.h>

namespace sevrin::platform {
namespace {

TEST(MountInfoTest, ALineHasEachFieldInItsPlace) {
    const auto entries = parseMountInfo(
        "36 35 98:3 /inner /mnt/a rw,noatime master:1 shared:2 - ext4 /dev/sda3 rw,errors=cont\n");

    ASSERT_EQ(entries.size(), 1U);
    const MountEntry& entry = entries[0];
    EXPECT_EQ(entry.id, 36);
    EXPECT_EQ(entry.deviceMajor, 98U);
    EXPECT_EQ(entry.deviceMinor, 3U);
    EXPECT_EQ(entry.root, "/inner");
    EXPECT_EQ(entry.mountPoint, "/mnt/a");
    EXPECT_EQ(entry.options, "rw,noatime");
    EXPECT_EQ(entry.type, "ext4");
    EXPECT_EQ(entry.source, "/dev/sda3");
    EXPECT_EQ(entry.superOptions, "rw,errors=cont");
}

TEST(MountInfoTest, OptionalFieldsMayBeMissing) {
    const auto entries = parseMountInfo("1 0 0:5 / / rw - tmpfs none rw\n2 1 0:6 / /b ro - a b c");

    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].type, "tmpfs");
    EXPECT_EQ(entries[1].mountPoint, "/b");
}

TEST(MountInfoTest, EscapesAreResolved) {
    const auto entries = parseMountInfo("1 0 0:5 / /a\\040b\\011\\012\\134c\\04 rw - x y z");

    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].mountPoint, "/a b\t\n\\c\\04");
}

TEST(MountInfoTest, LinesThatAreNoneAreSkipped) {
    const auto entries = parseMountInfo(
        "\nnonsense\n1 0 05 / / rw - a b c\n1 0 0:x / / rw - a b c\n1 0 0:5 / / rw shared:1\n"
        "1 0 0:5 / unreachable rw - a b c\n7 0 0:5 / /fine rw - a b c\n");

    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].id, 7);
}

TEST(MountInfoTest, AnOptionIsFoundByItsWholeName) {
    EXPECT_TRUE(hasOption("rw,usrquota", "usrquota"));
    EXPECT_TRUE(hasOption("user_id=5,rw", "user_id"));
    EXPECT_FALSE(hasOption("errors=remount-ro", "ro"));
    EXPECT_FALSE(hasOption("noatime", "atime"));
    EXPECT_FALSE(hasOption("", "ro"));
    EXPECT_EQ(valueOfOption("rw,user_id=1000,x=", "user_id"), "1000");
    EXPECT_EQ(valueOfOption("rw,user_id=1000", "rw"), "");
}

TEST(MountInfoTest, TheTableHasTheRoot) {
    bool hasRoot = false;
    for (const MountEntry& entry : readMountInfo())
        hasRoot = hasRoot || entry.mountPoint == "/";

    EXPECT_TRUE(hasRoot);
}

}  // namespace
}  // namespace sevrin::platform
