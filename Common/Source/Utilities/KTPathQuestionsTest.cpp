// Tests of what paths ask the file system, on files and folders of the test's own.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <regex>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::TestFolder;

TEST(KTPathTest, APathThatHoldsNoLinksIsItsOwnRealPath) {
    const TestFolder folder;
    const auto path = KTPath::realPath(folder.path());

    EXPECT_EQ(path->real(), path);
    EXPECT_EQ(path->hardenedReal(), path);
}

TEST(KTPathTest, TheRealPathOfALinkIsThatOfItsTarget) {
    const TestFolder folder;
    const std::string target = KTPath::realPath(folder.write("file"))->path();
    const auto link = KTPath::pathWithPath(folder.makeLink("file", "link"));

    EXPECT_EQ(link->real()->path(), target);
    EXPECT_EQ(link->hardenedReal()->path(), target);
}

TEST(KTPathTest, WhatIsNotThereHasNoOtherRealPath) {
    const auto path = KTPath::pathWithPath("/nowhere/at/all");

    EXPECT_EQ(path->real(), path);
    EXPECT_EQ(path->hardenedReal(), path);
}

TEST(KTPathTest, ANamedPipeIsNotWaitedFor) {
    const TestFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    const auto path = KTPath::realPath(folder / "pipe");

    EXPECT_EQ(path->hardenedReal(), path);
}

TEST(KTPathTest, WhatCannotBeOpenedIsHardenedAsFarAsLinksGo) {
    const TestFolder folder;
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder / "socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(listener);
    const auto link = KTPath::pathWithPath(folder.makeLink("socket", "link"));

    EXPECT_EQ(link->hardenedReal()->path(), KTPath::realPath(folder / "socket")->path());
}

TEST(KTPathTest, ARelativePathHasAnotherRealPath) {
    const auto path = KTPath::pathWithPath(".");

    EXPECT_EQ(path->real()->path(), std::filesystem::current_path());
    EXPECT_EQ(path->hardenedReal()->path(), std::filesystem::current_path());
}

TEST(KTPathTest, ALinkWithoutATargetDoesNotExist) {
    const TestFolder folder;
    const std::string file = folder.write("file");
    const std::string good = folder.makeLink("file", "good");
    const std::string dangling = folder.makeLink("nothing", "dangling");

    EXPECT_TRUE(KTPath::pathWithPath(file)->exists());
    EXPECT_TRUE(KTPath::pathWithPath(good)->exists());
    EXPECT_FALSE(KTPath::pathWithPath(dangling)->exists());
}

TEST(KTPathTest, TheTemporaryFolderIsOneObjectWithoutLinks) {
    EXPECT_EQ(KTPath::tempPath(), KTPath::tempPath());
    EXPECT_EQ(KTPath::tempPath()->real(), KTPath::tempPath());
}

TEST(KTPathTest, ATemporaryPathIsNewAndNothingIsThere) {
    const auto path = KTPath::tempPathWithPrefixExtension("x", "tmp");

    EXPECT_TRUE(std::regex_match(path->name(), std::regex("x-[0-9a-f]{8}\\.tmp"))) << path->name();
    EXPECT_EQ(path->parent()->path(), KTPath::tempPath()->path());
    EXPECT_FALSE(path->exists());
    EXPECT_NE(KTPath::tempPathWithPrefixExtension("x", "tmp")->name(), path->name());
}

TEST(KTPathTest, ATemporaryPathIsNewAlsoWhereItsPrefixEndsEarlyAtAnItem) {
    const TestFolder folder(KTPath::tempPath()->path());
    const std::string name = KTPath::pathWithPath(folder.path())->name();

    const auto path = KTPath::tempPathWithPrefixExtension(name + std::string("\0x", 2), "tmp");

    EXPECT_EQ(path->name().size(), name.size() + 13);
    EXPECT_TRUE(path->name().starts_with(name + "-"));
    EXPECT_FALSE(path->exists());
}

TEST(KTPathTest, TheDisplayNameOfAnItemIsItsName) {
    const TestFolder folder;

    EXPECT_EQ(KTPath::pathWithPath(folder.write("a b.txt"))->displayName(), "a b.txt");
}

TEST(KTPathTest, TheDisplayNameOfNothingIsItsNameAndALine) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);

    EXPECT_EQ(KTPath::pathWithPath("/nowhere/x")->displayName(), "x");

    const auto lines = logger->lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_TRUE(lines[0].starts_with(
        "9 -[KTPath displayName] could not obtain display name for /nowhere/x ("))
        << lines[0];
}

TEST(KTPathTest, APathContainsItselfWithoutAskingAnybody) {
    EXPECT_TRUE(KTPath::pathWithPath("/nowhere")->containsPath(*KTPath::pathWithPath("/nowhere")));
}

TEST(KTPathTest, APathContainsWhatLiesBelowOnItsVolume) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.path());

    EXPECT_TRUE(path->containsPath(*KTPath::pathWithPath(folder.write("a"))));
    EXPECT_FALSE(KTPath::pathWithPath(folder / "a")->containsPath(*path));
}

TEST(KTPathTest, APathDoesNotContainALongerName) {
    const TestFolder folder;
    const auto a = KTPath::pathWithPath(folder.makeFolder("a"));

    EXPECT_FALSE(a->containsPath(*KTPath::pathWithPath(folder.write("ab"))));
}

TEST(KTPathTest, APathThatEndsWithASeparatorContainsOnlyItself) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.path() + "/");

    EXPECT_TRUE(path->containsPath(*KTPath::pathWithPath(folder.path() + "/")));
    EXPECT_FALSE(path->containsPath(*KTPath::pathWithPath(folder.write("a"))));
    EXPECT_FALSE(path->containsPath(*KTPath::pathWithPath(folder.path())));
}

TEST(KTPathTest, WhatIsThereDoesNotContainWhatIsNot) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.path());

    EXPECT_FALSE(path->containsPath(*KTPath::pathWithPath(folder / "nothing")));
}

TEST(KTPathTest, TwoPathsThatAreNowhereAreOnOneVolume) {
    EXPECT_TRUE(
        KTPath::pathWithPath("/nowhere")->containsPath(*KTPath::pathWithPath("/nowhere/x")));
}

TEST(KTPathTest, TheRootDoesNotContainWhatIsOnAnotherVolume) {
    const auto root = KTPath::pathWithPath("/");

    EXPECT_FALSE(root->containsPath(*KTPath::pathWithPath("/proc/self")));
    EXPECT_TRUE(root->containsPath(*KTPath::pathWithPath("/etc")));
}

TEST(KTPathTest, LimitsThatCannotBeToldAreZero) {
    const auto path = KTPath::pathWithPath("/nowhere/at/all");

    EXPECT_EQ(path->minTransferSize(), 0U);
    EXPECT_EQ(path->maxTransferSize(), 0U);
    EXPECT_EQ(path->fileSizeBits(), 0U);
}

TEST(KTPathTest, AFolderTellsTheSizeOfItsFiles) {
    const TestFolder folder;

    EXPECT_GE(KTPath::pathWithPath(folder.path())->fileSizeBits(), 32U);
}

TEST(KTPathTest, ATransferSizeIsWhatTheSystemTells) {
    const TestFolder folder;
    const long told = ::pathconf(folder.path().c_str(), _PC_REC_MIN_XFER_SIZE);

    EXPECT_EQ(KTPath::pathWithPath(folder.path())->minTransferSize(),
              told < 0 ? 0U : static_cast<std::uint64_t>(told));
}

TEST(KTPathTest, TheVolumeIsThatOfTheDirectoryThatStandsForThePathElseANewObject) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.path());
    const auto early = path->volumeInfo();
    EXPECT_NE(path->volumeInfo(), early);

    const auto directory = path->directory();

    EXPECT_EQ(path->volumeInfo(), directory->volumeInfo());
    EXPECT_TRUE(path->volumeInfo()->isEqual(*early));
}

TEST(KTPathTest, FlushingKeepsTheDirectoryThatStandsForThePath) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.path());
    const auto directory = path->directory();

    path->flushInfo();

    EXPECT_EQ(path->directoryInfo(), directory);
    EXPECT_EQ(path->fileInfo(), directory);
}

TEST(KTPathTest, WhatIsNoDirectoryHasAnItemAndNoDirectory) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.write("a"));
    const auto link = KTPath::pathWithPath(folder.makeLink(".", "link"));

    EXPECT_TRUE(path->fileInfo()->isRegularFile());
    EXPECT_EQ(path->directory(), nullptr);
    EXPECT_TRUE(link->fileInfo()->isSymbolicLink());
    EXPECT_EQ(link->directory(), nullptr);
    EXPECT_FALSE(KTPath::pathWithPath(folder / "nothing")->fileInfo()->exists());
}

TEST(KTPathTest, ManyThreadsMayUseOnePath) {
    const auto parent = KTPath::initWithCPath("/a");
    const auto path = KTSubPath::initAssumingCNameParentPath(makeCString("b"), parent);
    std::atomic<int> wrong = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 1000; ++round) {
                if (path->path() != "/a/b" || path->url()->path() != "/a/b") ++wrong;
                if (parent->url()->path() != "/a") ++wrong;
                if (round % 16 == 0) path->flushInfo();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace sevrin
