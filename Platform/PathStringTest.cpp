// Tests of paths as strings.
#include "Platform/PathString.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

namespace sevrin::platform {
namespace {

TEST(PathStringTest, TheBaseNameIsTheLastComponent) {
    EXPECT_EQ(basename("/usr/lib"), "lib");
    EXPECT_EQ(basename("/usr/lib//"), "lib");
    EXPECT_EQ(basename("lib"), "lib");
    EXPECT_EQ(basename("a/.."), "..");
}

TEST(PathStringTest, TheBaseNameOfTheRootIsTheRootAndOfNothingThePoint) {
    EXPECT_EQ(basename("/"), "/");
    EXPECT_EQ(basename("///"), "/");
    EXPECT_EQ(basename(""), ".");
}

TEST(PathStringTest, TheDirectoryNameIsWhatComesBefore) {
    EXPECT_EQ(dirname("/usr/lib"), "/usr");
    EXPECT_EQ(dirname("/usr//lib/"), "/usr");
    EXPECT_EQ(dirname("/usr"), "/");
    EXPECT_EQ(dirname("//usr"), "/");
    EXPECT_EQ(dirname("a/b"), "a");
}

TEST(PathStringTest, TheDirectoryNameOfTheRootIsTheRootAndOfOneComponentThePoint) {
    EXPECT_EQ(dirname("/"), "/");
    EXPECT_EQ(dirname("a"), ".");
    EXPECT_EQ(dirname("a/"), ".");
    EXPECT_EQ(dirname(""), ".");
}

TEST(PathStringTest, TheLastComponentOfNothingIsNothing) {
    EXPECT_EQ(lastPathComponent(""), "");
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent("/tmp/scratch.tiff"), "scratch.tiff");
    EXPECT_EQ(lastPathComponent("scratch///"), "scratch");
}

TEST(PathStringTest, TheExtensionFollowsTheLastPoint) {
    EXPECT_EQ(pathExtension("/tmp/archive.tar.gz"), "gz");
    EXPECT_EQ(pathExtension("a..b"), "b");
    EXPECT_EQ(pathExtension(".hidden.txt"), "txt");
    EXPECT_EQ(pathExtension("folder.app/"), "app");
}

TEST(PathStringTest, ANameWithoutAPointInsideHasNoExtension) {
    EXPECT_EQ(pathExtension("file"), "");
    EXPECT_EQ(pathExtension("file."), "");
    EXPECT_EQ(pathExtension(".hidden"), "");
    EXPECT_EQ(pathExtension("/folder.d/file"), "");
    EXPECT_EQ(pathExtension(""), "");
}

TEST(PathStringTest, AppendingPutsExactlyOneSeparatorBetween) {
    EXPECT_EQ(stringByAppendingPathComponent("/tmp", "a"), "/tmp/a");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp/", "a"), "/tmp/a");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp//", "//a/"), "/tmp/a");
    EXPECT_EQ(stringByAppendingPathComponent("/", "a"), "/a");
    EXPECT_EQ(stringByAppendingPathComponent("a", "b/c"), "a/b/c");
}

TEST(PathStringTest, AppendingToOrOfNothingGivesTheOther) {
    EXPECT_EQ(stringByAppendingPathComponent("", "a"), "a");
    EXPECT_EQ(stringByAppendingPathComponent("", "/a"), "/a");
    EXPECT_EQ(stringByAppendingPathComponent("/tmp", ""), "/tmp");
    EXPECT_EQ(stringByAppendingPathComponent("", ""), "");
}

TEST(PathStringTest, AppendingKeepsBytesThatAreNoText) {
    EXPECT_EQ(stringByAppendingPathComponent("/\xff", "\xc3\n-"), "/\xff/\xc3\n-");
}

TEST(PathStringTest, StandardizingDropsPointsAndDoubledSeparators) {
    EXPECT_EQ(stringByStandardizingPath("/a/./b//c/"), "/a/b/c");
    EXPECT_EQ(stringByStandardizingPath("./a"), "a");
    EXPECT_EQ(stringByStandardizingPath("/"), "/");
    EXPECT_EQ(stringByStandardizingPath("//"), "/");
    EXPECT_EQ(stringByStandardizingPath(""), "");
}

TEST(PathStringTest, StandardizingTakesBackWhatTwoPointsTakeBack) {
    EXPECT_EQ(stringByStandardizingPath("/a/b/../c"), "/a/c");
    EXPECT_EQ(stringByStandardizingPath("/a/../../b"), "/b");
    EXPECT_EQ(stringByStandardizingPath("/.."), "/");
    EXPECT_EQ(stringByStandardizingPath("a/../../b"), "../b");
    EXPECT_EQ(stringByStandardizingPath("../../b"), "../../b");
    EXPECT_EQ(stringByStandardizingPath("a/.."), ".");
    EXPECT_EQ(stringByStandardizingPath("/a/..b/...c"), "/a/..b/...c");
}

// The environment belongs to the whole process; the test runner gives every test one of its own.
TEST(PathStringTest, ATildeIsTheHomeFolder) {
    ::setenv("CFFIXED_USER_HOME", "/fixed", 1);

    EXPECT_EQ(homeDirectory(), "/fixed");
    EXPECT_EQ(stringByExpandingTildeInPath("~"), "/fixed");
    EXPECT_EQ(stringByExpandingTildeInPath("~/a"), "/fixed/a");
    EXPECT_EQ(stringByStandardizingPath("~/../b"), "/b");
    EXPECT_EQ(stringByExpandingTildeInPath("/a/~"), "/a/~");
}

TEST(PathStringTest, ATildeWithANameIsThatUsersHomeFolder) {
    EXPECT_EQ(stringByExpandingTildeInPath("~root/a"), "/root/a");
    EXPECT_EQ(stringByExpandingTildeInPath("~no-such-user/a"), "~no-such-user/a");
}

TEST(PathStringTest, AHomeThatIsNoAbsolutePathIsNotTaken) {
    ::setenv("CFFIXED_USER_HOME", "relative", 1);
    ::setenv("HOME", "/second", 1);

    EXPECT_EQ(homeDirectory(), "/second");
}

}  // namespace
}  // namespace sevrin::platform
