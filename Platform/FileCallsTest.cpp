// Tests of the platform's single calls on files.
#include "Platform/FileCalls.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <string>

#include "Platform/TestFolder.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

int rename(const std::string& from, const std::string& to, std::uint32_t flags) {
    return renamex_np(from.c_str(), to.c_str(), flags);
}

TEST(FileCallsTest, SwappingChangesThePlacesOfTwoItemsOfAnyKind) {
    const TestFolder folder;
    folder.write("file", "content");
    folder.makeFolder("folder");
    folder.write("folder/inside", "inside");

    ASSERT_EQ(rename(folder / "file", folder / "folder", RENAME_SWAP), 0);

    EXPECT_EQ(folder.read("folder"), "content");
    EXPECT_EQ(folder.read("file/inside"), "inside");
}

TEST(FileCallsTest, SwappingNeedsBothItems) {
    const TestFolder folder;
    folder.write("a", "a");

    EXPECT_EQ(rename(folder / "a", folder / "b", RENAME_SWAP), -1);

    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(folder.read("a"), "a");
}

TEST(FileCallsTest, SwappingTakesALinkItselfAndNotItsTarget) {
    const TestFolder folder;
    folder.write("target", "target");
    folder.makeLink("target", "link");
    folder.write("other", "other");

    ASSERT_EQ(rename(folder / "link", folder / "other", RENAME_SWAP), 0);

    EXPECT_EQ(folder.read("link"), "other");
    EXPECT_EQ(folder.read("target"), "target");
    EXPECT_TRUE(S_ISLNK(folder.attributes("other").st_mode));
}

TEST(FileCallsTest, AnExclusiveRenameRefusesWhateverIsThere) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");
    folder.makeLink("nowhere", "dangling");

    EXPECT_EQ(rename(folder / "a", folder / "b", RENAME_EXCL), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(rename(folder / "a", folder / "dangling", RENAME_EXCL), -1);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(folder.read("b"), "b");
    EXPECT_EQ(rename(folder / "a", folder / "c", RENAME_EXCL), 0);
    EXPECT_EQ(folder.read("c"), "a");
}

TEST(FileCallsTest, APlainRenameReplaces) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");

    EXPECT_EQ(rename(folder / "a", folder / "b", 0), 0);

    EXPECT_EQ(folder.read("b"), "a");
    EXPECT_FALSE(folder.has("a"));
}

TEST(FileCallsTest, BothFlagsAndUnknownOnesAreInvalid) {
    const TestFolder folder;
    folder.write("a");
    folder.write("b");

    for (const std::uint32_t flags : {1U, 6U, 8U}) {
        EXPECT_EQ(rename(folder / "a", folder / "b", flags), -1);
        EXPECT_EQ(errno, EINVAL) << flags;
    }
}

TEST(FileCallsTest, AFolderThatWouldGetIntoItselfIsInvalidAndNotUnsupported) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/b");

    EXPECT_EQ(rename(folder / "a", folder / "a/b/c", RENAME_EXCL), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rename(folder / "a", folder / "a/b", RENAME_SWAP), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rename(folder / "a/b", folder / "a", RENAME_SWAP), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(FileCallsTest, ExchangingDataIsNotSupportedAndChangesNothing) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");

    EXPECT_EQ(exchangedata((folder / "a").c_str(), (folder / "b").c_str(), 0), -1);

    EXPECT_EQ(errno, ENOTSUP);
    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_EQ(folder.read("b"), "b");
}

TEST(FileCallsTest, LimitsAreTheFileSystems) {
    const TestFolder folder;

    EXPECT_EQ(platform::pathconf(folder.path().c_str(), _PC_NAME_MAX), 255);
    EXPECT_GE(platform::pathconf(folder.path().c_str(), _PC_FILESIZEBITS), 33);
    EXPECT_LE(platform::pathconf(folder.path().c_str(), _PC_FILESIZEBITS), 64);
    for (const int name : {_PC_NAME_MAX, _PC_FILESIZEBITS}) {
        errno = 0;
        EXPECT_EQ(platform::pathconf((folder / "nothing/there").c_str(), name), -1);
        EXPECT_EQ(errno, ENOENT);
    }
}

TEST(FileCallsTest, AnOpenItemKnowsItsPathWithoutLinks) {
    const TestFolder folder;
    const std::string real = *realPath(folder.path().c_str());
    folder.makeFolder("folder");
    folder.write("folder/a\nb \xff (deleted)");
    folder.makeLink("folder", "link");

    const UniqueFd file(
        ::open((folder / "link/a\nb \xff (deleted)").c_str(), O_RDONLY | O_CLOEXEC));

    EXPECT_EQ(pathWithoutFirmlinks(file.get()), real + "/folder/a\nb \xff (deleted)");
}

TEST(FileCallsTest, ARemovedItemHasNoPath) {
    const TestFolder folder;
    const UniqueFd file(::open(folder.write("a").c_str(), O_RDONLY | O_CLOEXEC));
    ::unlink((folder / "a").c_str());

    EXPECT_EQ(pathWithoutFirmlinks(file.get()), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    folder.write("a (deleted)");
    EXPECT_EQ(pathWithoutFirmlinks(file.get()), std::nullopt);
}

TEST(FileCallsTest, NoDescriptorHasNoPath) {
    EXPECT_EQ(pathWithoutFirmlinks(-1), std::nullopt);
    EXPECT_EQ(errno, EBADF);
}

TEST(FileCallsTest, ARealPathHasNoLinks) {
    const TestFolder folder;
    const std::string real = *realPath(folder.path().c_str());
    folder.makeFolder("folder");
    folder.makeLink("folder", "link");

    EXPECT_EQ(realPath((folder / "link/../link/.").c_str()), real + "/folder");
    EXPECT_EQ(realPath((folder / "link/missing").c_str()), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
}

TEST(FileCallsTest, ALoopOfLinksHasNoRealPath) {
    const TestFolder folder;
    folder.makeLink("b", "a");
    folder.makeLink("a", "b");

    EXPECT_EQ(realPath((folder / "a").c_str()), std::nullopt);
    EXPECT_EQ(errno, ELOOP);
}

TEST(FileCallsTest, RandomNumbersDiffer) {
    std::set<std::uint32_t> numbers;
    for (int i = 0; i < 64; ++i)
        numbers.insert(arc4random());

    EXPECT_GT(numbers.size(), 60U);
}

}  // namespace
}  // namespace sevrin::platform
