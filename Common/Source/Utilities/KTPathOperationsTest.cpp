// Tests of what a path does to its item.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogFile.h"
#include "Platform/PathString.h"
#include "Platform/SequentialCoder.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::TestFolder;
using platform::Value;

KTPathPtr pathIn(const TestFolder& folder, std::string_view name) {
    return KTPath::pathWithPath(folder / name);
}

// What `work` raises.
std::optional<SVException> raisedBy(const std::function<void()>& work) {
    try {
        work();
    } catch (const SVException& exception) {
        return exception;
    }
    return std::nullopt;
}

// Expects an exception "IO" with the reason and the path, and gives its details.
platform::Dictionary detailsOf(const std::function<void()>& work, std::string_view reason,
                               const std::string& path) {
    const std::optional<SVException> raised = raisedBy(work);
    if (!raised) {
        ADD_FAILURE() << "nothing was raised";
        return {};
    }
    EXPECT_EQ(raised->name(), "IO");
    EXPECT_EQ(raised->reason(), reason);
    EXPECT_EQ(*raised->details().find("Path"), Value(path));
    return raised->details();
}

// --- Moving.

TEST(KTPathOperationsTest, ANameAloneRenamesTheItemInItsDirectory) {
    const TestFolder folder;
    folder.write("a", "content");

    const KTPathPtr moved = pathIn(folder, "a")->moveToOverwriting("b", false);

    EXPECT_EQ(moved->path(), folder / "b");
    EXPECT_EQ(folder.read("b"), "content");
    EXPECT_FALSE(folder.has("a"));
}

TEST(KTPathOperationsTest, ATargetIsRelativeToTheDirectoryOfTheItemAndStandardized) {
    const TestFolder folder;
    folder.makeFolder("sub");
    folder.write("sub/a");
    folder.write("c");

    EXPECT_EQ(pathIn(folder, "sub/a")->moveToOverwriting(".././/b/", true)->path(), folder / "b");
    EXPECT_EQ(pathIn(folder, "c")->moveToOverwriting(folder / "sub/./../d", true)->path(),
              folder / "d");
    EXPECT_TRUE(folder.has("b"));
    EXPECT_TRUE(folder.has("d"));
}

TEST(KTPathOperationsTest, ATildeInsideATargetIsAName) {
    const TestFolder folder;
    folder.write("a");

    EXPECT_EQ(pathIn(folder, "a")->moveToOverwriting("~", false)->path(), folder / "~");
    EXPECT_TRUE(folder.has("~"));
}

TEST(KTPathOperationsTest, DirectoryAndNameDefaultToTheItemsOwn) {
    const TestFolder folder;
    folder.makeFolder("to");
    folder.write("a");

    EXPECT_EQ(pathIn(folder, "a")
                  ->moveToDirectoryWithNameOverwriting(folder / "to/", std::nullopt, false)
                  ->path(),
              folder / "to/a");
    EXPECT_EQ(
        pathIn(folder, "to/a")->moveToDirectoryWithNameOverwriting(std::nullopt, "b", true)->path(),
        folder / "to/b");
    EXPECT_TRUE(folder.has("to/b"));
}

TEST(KTPathOperationsTest, TheDirectoryOfAnItemIsTheParentThatItsPathKeeps) {
    const TestFolder folder;
    folder.makeFolder("sub");
    folder.write("sub/a", "content");
    const KTPathPtr item = KTSubPath::initAssumingCNameParentPath(
        makeCString("sub/a"), KTPath::pathWithPath(folder.path()));

    EXPECT_EQ(item->copyToOverwriting("b", false)->path(), folder / "b");
    EXPECT_EQ(item->moveToDirectoryWithNameOverwriting(std::nullopt, "c", false)->path(),
              folder / "c");
    EXPECT_EQ(folder.read("b"), "content");
    EXPECT_EQ(folder.read("c"), "content");
}

TEST(KTPathOperationsTest, APathFromAnArchiveKeepsNoParentAndMovesByItsText) {
    const TestFolder folder;
    folder.write("a");
    platform::SequentialEncoder encoder;
    encoder.encodeObject(KTSubPath::initAssumingCNameParentPath(
        makeCString("a"), KTPath::pathWithPath(folder.path())));
    platform::SequentialDecoder decoder(encoder.values());
    const auto item = decoder.decodeObject().object<KTPath>();
    ASSERT_EQ(item->parent(), nullptr);

    EXPECT_EQ(item->moveToOverwriting("b", false)->path(), folder / "b");
    EXPECT_EQ(
        pathIn(folder, "b")->copyToDirectoryWithNameOverwriting(std::nullopt, "a", false)->path(),
        folder / "a");
}

TEST(KTPathOperationsTest, ADirectoryThatIsNotAbsoluteLiesInThatOfTheItem) {
    const TestFolder folder;
    folder.makeFolder("to");
    folder.write("a");

    EXPECT_EQ(
        pathIn(folder, "a")->moveToDirectoryWithNameOverwriting("to", std::nullopt, false)->path(),
        folder / "to/a");
    EXPECT_TRUE(folder.has("to/a"));
}

TEST(KTPathOperationsTest, ATildeInFrontOfTheWholeTargetIsTheHomeFolder) {
    const KTPathPtr item = KTPath::pathWithPath("~/no such item");

    const auto details = detailsOf([&] { item->copyToOverwriting("none/x", false); },
                                   "cannot copy item", "~/no such item");

    EXPECT_EQ(*details.find("target"),
              Value(platform::stringByAppendingPathComponent(platform::homeDirectory(), "none/x")));
}

TEST(KTPathOperationsTest, SeparatorsThatAreDoubledOrAtTheEndOfATargetGo) {
    const TestFolder folder;
    folder.makeFolder("to");
    folder.write("a");

    EXPECT_EQ(pathIn(folder, "a")->moveToOverwriting("to//b///", false)->path(), folder / "to/b");
    EXPECT_EQ(pathIn(folder, "to/b")->copyToOverwriting("/" + folder / "c/", false)->path(),
              folder / "c");
}

TEST(KTPathOperationsTest, APathWithinAParentMovesByItsParent) {
    const TestFolder folder;
    folder.write("a");
    const KTPathPtr parent = KTPath::pathWithPath(folder.path());
    const KTPathPtr item = KTSubPath::initAssumingCNameParentPath(makeCString("a"), parent);

    EXPECT_EQ(item->moveToOverwriting("b", false)->path(), folder / "b");
    EXPECT_TRUE(folder.has("b"));
}

TEST(KTPathOperationsTest, MovingWithoutOverwritingRefusesAndLeavesBoth) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");

    const auto details = detailsOf([&] { pathIn(folder, "a")->moveToOverwriting("b", false); },
                                   "cannot move item", folder / "a");

    EXPECT_EQ(*details.find("target"), Value(folder / "b"));
    EXPECT_EQ(*details.find("POSIXErr"), Value(EEXIST));
    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_EQ(folder.read("b"), "b");
}

TEST(KTPathOperationsTest, MovingWithOverwritingReplacesAFile) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");

    pathIn(folder, "a")->moveToOverwriting("b", true);

    EXPECT_EQ(folder.read("b"), "a");
    EXPECT_FALSE(folder.has("a"));
}

TEST(KTPathOperationsTest, WhatARenameCannotReplaceStays) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.makeFolder("b");

    const auto details = detailsOf([&] { pathIn(folder, "a")->moveToOverwriting("b", true); },
                                   "cannot rename filesystem object", folder / "a");

    EXPECT_EQ(*details.find("to"), Value(folder / "b"));
    EXPECT_EQ(*details.find("POSIXErr"), Value(EISDIR));
    EXPECT_EQ(folder.read("a"), "a");
}

TEST(KTPathOperationsTest, MovingGetsToAnotherVolumeUnlessItOverwrites) {
    const TestFolder folder;
    struct stat other {};
    if (::stat("/dev/shm", &other) != 0 || other.st_dev == folder.attributes("").st_dev)
        GTEST_SKIP() << "no second volume";
    const TestFolder there("/dev/shm");
    folder.makeFolder("a");
    folder.write("a/file", "content");

    const auto details =
        detailsOf([&] { pathIn(folder, "a")->moveToOverwriting(there / "b", true); },
                  "cannot rename filesystem object", folder / "a");
    EXPECT_EQ(*details.find("POSIXErr"), Value(EXDEV));

    EXPECT_EQ(pathIn(folder, "a")->moveToOverwriting(there / "b", false)->path(), there / "b");
    EXPECT_EQ(there.read("b/file"), "content");
    EXPECT_FALSE(folder.has("a"));
}

// --- Copying.

TEST(KTPathOperationsTest, CloningMakesNoDifference) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file", "content");

    for (const bool clone : {true, false}) {
        const std::string name = clone ? "b" : "c";
        EXPECT_EQ(pathIn(folder, "a")->copyToOverwritingClone(name, false, clone)->path(),
                  folder / name);
        EXPECT_EQ(folder.read(name + "/file"), "content");
    }
    EXPECT_EQ(pathIn(folder, "a")->copyToOverwriting("d", false)->path(), folder / "d");
    EXPECT_EQ(pathIn(folder, "a/file")
                  ->copyToDirectoryWithNameOverwriting(folder.path(), std::nullopt, false)
                  ->path(),
              folder / "file");
    EXPECT_EQ(pathIn(folder, "file")
                  ->copyToDirectoryWithNameOverwritingClone(std::nullopt, "g", false, false)
                  ->path(),
              folder / "g");
    EXPECT_EQ(folder.read("g"), "content");
    EXPECT_TRUE(folder.has("a"));
}

TEST(KTPathOperationsTest, CopyingOntoSomethingNeedsOverwriting) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");

    const auto details = detailsOf([&] { pathIn(folder, "a")->copyToOverwriting("b", false); },
                                   "cannot copy item", folder / "a");

    EXPECT_EQ(*details.find("target"), Value(folder / "b"));
    EXPECT_EQ(folder.read("b"), "b");
}

TEST(KTPathOperationsTest, OverwritingADirectoryRemovesItFirst) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/new");
    folder.makeFolder("b");
    folder.write("b/old");

    pathIn(folder, "a")->copyToOverwriting("b", true);

    EXPECT_TRUE(folder.has("b/new"));
    EXPECT_FALSE(folder.has("b/old"));
    EXPECT_TRUE(folder.has("a/new"));
}

TEST(KTPathOperationsTest, OverwritingALinkLeavesWhatItLeadsTo) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("target", "target");
    folder.makeLink("target", "link");

    pathIn(folder, "a")->copyToOverwriting("link", true);

    EXPECT_TRUE(S_ISREG(folder.attributes("link").st_mode));
    EXPECT_EQ(folder.read("target"), "target");
}

TEST(KTPathOperationsTest, ADanglingLinkAtTheTargetIsNoItemToOverwrite) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.makeLink("nowhere", "link");

    detailsOf([&] { pathIn(folder, "a")->copyToOverwriting("link", true); }, "cannot copy item",
              folder / "a");

    EXPECT_TRUE(S_ISLNK(folder.attributes("link").st_mode));
}

TEST(KTPathOperationsTest, AnItemIsNotRemovedToBeReplacedByItsOwnCopy) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file", "content");
    folder.makeLink("a", "link");

    for (const char* target : {"file", "../a/file", "../link/file", "../a", ".."}) {
        const auto details =
            detailsOf([&] { pathIn(folder, "a/file")->copyToOverwriting(target, true); },
                      "cannot overwrite item", folder / "a/file");
        EXPECT_EQ(*details.find("POSIXErr"), Value(EINVAL));
        EXPECT_EQ(*details.find("target"),
                  Value(platform::stringByStandardizingPath(folder / "a/" + std::string(target))));
    }

    EXPECT_EQ(folder.read("a/file"), "content");
}

TEST(KTPathOperationsTest, WhatCannotBeRemovedIsNotOverwrittenAndTheSourceStays) {
    const TestFolder folder;
    folder.write("a", "a");

    const auto details =
        detailsOf([&] { pathIn(folder, "a")->copyToOverwriting("/proc/self/status", true); },
                  "cannot overwrite item", folder / "a");

    EXPECT_EQ(*details.find("target"), Value("/proc/self/status"));
    EXPECT_NE(details.find("POSIXErr"), nullptr);
    EXPECT_EQ(folder.read("a"), "a");
}

TEST(KTPathOperationsTest, CopyingNothingLeavesNothing) {
    const TestFolder folder;

    const auto details = detailsOf([&] { pathIn(folder, "none")->copyToOverwriting("b", true); },
                                   "cannot copy item", folder / "none");

    EXPECT_EQ(*details.find("POSIXErr"), Value(ENOENT));
    EXPECT_FALSE(folder.has("b"));
}

// --- Deleting and touching.

TEST(KTPathOperationsTest, DeletingTakesAFolderWithAllInIt) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file");
    folder.write("b");

    pathIn(folder, "a")->deleteFile();

    EXPECT_FALSE(folder.has("a"));
    EXPECT_TRUE(pathIn(folder, "b")->tryToDeleteFile());
    EXPECT_FALSE(folder.has("b"));
}

TEST(KTPathOperationsTest, DeletingNothingIsRaisedUnlessItWasOnlyTried) {
    const TestFolder folder;
    const KTPathPtr path = pathIn(folder, "none");

    EXPECT_FALSE(path->tryToDeleteFile());
    const auto details =
        detailsOf([&] { path->deleteFile(); }, "cannot delete item", folder / "none");
    EXPECT_EQ(*details.find("POSIXErr"), Value(ENOENT));
}

TEST(KTPathOperationsTest, DeletingALinkLeavesWhatItLeadsTo) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file");
    folder.makeLink("a", "link");

    pathIn(folder, "link")->deleteFile();

    EXPECT_TRUE(folder.has("a/file"));
    EXPECT_FALSE(folder.has("link"));
}

TEST(KTPathOperationsTest, TouchingSetsTheTimesAndReportsNothing) {
    const TestFolder folder;
    const std::string file = folder.write("a");
    const timespec old[2] = {{1000, 0}, {1000, 0}};
    ::utimensat(AT_FDCWD, file.c_str(), old, 0);

    KTPath::pathWithPath(file)->touch();
    pathIn(folder, "none")->touch();

    EXPECT_GT(folder.attributes("a").st_mtime, 1000);
    EXPECT_GT(folder.attributes("a").st_atime, 1000);
    EXPECT_FALSE(folder.has("none"));
}

// --- What the file system refuses.

// The number of errno that `work` raises; 0 when it raises nothing.
std::int64_t numberRaisedBy(const std::function<void()>& work) {
    const std::optional<SVException> raised = raisedBy(work);
    if (!raised) return 0;
    const Value* number = raised->details().find("POSIXErr");
    return number != nullptr && number->ifSigned() != nullptr ? *number->ifSigned() : -1;
}

TEST(KTPathOperationsTest, ANameThatIsTooLongIsRefusedByEveryOperation) {
    const TestFolder folder;
    folder.write("a", "a");
    const KTPathPtr path = pathIn(folder, "a");
    const std::string name(256, 'n');

    EXPECT_EQ(numberRaisedBy([&] { path->moveToOverwriting(name, false); }), ENAMETOOLONG);
    EXPECT_EQ(numberRaisedBy([&] { path->moveToOverwriting(name, true); }), ENAMETOOLONG);
    EXPECT_EQ(numberRaisedBy([&] { path->copyToOverwriting(name, true); }), ENAMETOOLONG);
    EXPECT_EQ(numberRaisedBy([&] { pathIn(folder, name)->deleteFile(); }), ENAMETOOLONG);
    EXPECT_EQ(numberRaisedBy([&] { path->swapWith(*pathIn(folder, name)); }), ENAMETOOLONG);
    EXPECT_EQ(folder.read("a"), "a");
}

TEST(KTPathOperationsTest, ALoopOfLinksIsRefusedByEveryOperation) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.makeLink("loop", "loop");
    const KTPathPtr path = pathIn(folder, "a");

    EXPECT_EQ(numberRaisedBy([&] { path->moveToOverwriting("loop/b", false); }), ELOOP);
    EXPECT_EQ(numberRaisedBy([&] { path->moveToOverwriting("loop/b", true); }), ELOOP);
    EXPECT_EQ(numberRaisedBy([&] { path->copyToOverwriting("loop/b", true); }), ELOOP);
    EXPECT_EQ(numberRaisedBy([&] { pathIn(folder, "loop/b")->deleteFile(); }), ELOOP);
    EXPECT_EQ(numberRaisedBy([&] { path->swapWith(*pathIn(folder, "loop/b")); }), ELOOP);
    EXPECT_EQ(folder.read("a"), "a");
}

TEST(KTPathOperationsTest, WhoMayNotChangeTheDirectoryIsRefusedByEveryOperation) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    const TestFolder folder;
    ::chmod(folder.path().c_str(), 0755);
    folder.write("a", "a");
    folder.write("b", "b");

    const pid_t child = ::fork();
    if (child == 0) {
        const KTPathPtr path = pathIn(folder, "a");
        const bool isRefused =
            ::setgid(4321) == 0 && ::setuid(4321) == 0 &&
            numberRaisedBy([&] { path->moveToOverwriting("c", false); }) == EACCES &&
            numberRaisedBy([&] { path->moveToOverwriting("b", true); }) == EACCES &&
            numberRaisedBy([&] { path->copyToOverwriting("c", false); }) == EACCES &&
            numberRaisedBy([&] { path->copyToOverwriting("b", true); }) == EACCES &&
            numberRaisedBy([&] { path->deleteFile(); }) == EACCES && !path->tryToDeleteFile() &&
            numberRaisedBy([&] { path->swapWith(*pathIn(folder, "b")); }) == EACCES;
        ::_exit(isRefused ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);

    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_EQ(folder.read("b"), "b");
    EXPECT_FALSE(folder.has("c"));
}

// --- Names and paths of every kind.

// Names that have broken programs.
std::vector<std::string> difficultNames() {
    return {std::string(255, 'n'),
            "-rf",
            "line\nbreak",
            "\x1b[2J\x7f",
            "\xff\xfe not text \xc3",
            "cafe\u0301",
            "caf\u00e9",
            " ",
            "...",
            "~root",
            "*?[]",
            "a\\b\"'`$(x)",
            "\u202egnp.exe"};
}

TEST(KTPathOperationsTest, DifficultNamesAreListedSortedMovedCopiedSwappedAndDeleted) {
    const TestFolder folder;
    folder.makeFolder("from");
    folder.makeFolder("to");
    folder.write("other", "other");
    for (const std::string& name : difficultNames())
        folder.write("from/" + name, name);
    const KTDirectoryPtr directory = KTDirectory::directoryWithPath(folder / "from");
    directory->sort();
    ASSERT_EQ(directory->count(), difficultNames().size());

    for (const KTFileInfoPtr& item : *directory) {
        const std::string name = item->name();
        const KTPathPtr path = item->pathObject();

        const KTPathPtr copy = path->copyToDirectoryWithNameOverwriting(folder / "to", {}, false);
        EXPECT_EQ(folder.read("to/" + name), name);
        copy->swapWith(*pathIn(folder, "other"));
        EXPECT_EQ(folder.read("to/" + name), "other");
        copy->swapWith(*pathIn(folder, "other"));
        path->moveToDirectoryWithNameOverwriting(folder / "to", {}, true);
        EXPECT_FALSE(path->exists());
        EXPECT_EQ(folder.read("to/" + name), name);
        copy->deleteFile();
        EXPECT_FALSE(folder.has("to/" + name));
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder / "to"));
}

// A line break in a message stays one in the log: what tells records apart is the date in front and
// the identifier at the end.
TEST(KTPathOperationsTest, FailuresOfDifficultNamesAreWholeRecordsOfPlainTextInTheLog) {
    Logger::releaseDefaultLogger();
    const TestLogFile log;
    const TestFolder folder;

    for (const std::string& name : difficultNames()) {
        const auto raised = raisedBy([&] { pathIn(folder, name + "/none")->deleteFile(); });
        ASSERT_TRUE(raised);
        Logger::logException(*raised);
        Logger::logFormat(LogClassification::Failure, "%@", pathIn(folder, name)->description());
    }
    Logger::releaseDefaultLogger();

    EXPECT_TRUE(std::ranges::all_of(log.read(), [](char byte) { return byte > 0; }));
    const std::regex start("[0-9]{4}(-[0-9]{2}){2} [0-9:]{8}\\.[0-9]{3} [+-][0-9]{4} [^ ]{7} .*");
    const std::regex end(".*\\[[0-9.]+\\]");
    bool isWhole = true;
    std::size_t records = 0;
    for (const std::string& line : log.lines()) {
        const bool isStart = std::regex_match(line, start);
        EXPECT_EQ(isStart, isWhole) << line;
        isWhole = std::regex_match(line, end);
        records += isStart ? 1 : 0;
    }
    EXPECT_TRUE(isWhole);
    EXPECT_GT(records, 3 * difficultNames().size());
}

TEST(KTPathOperationsTest, NamesThatAreNoTextAreMovedAndDeleted) {
    const TestFolder folder;
    const std::string name = "-\xff\n\x01" + std::string(200, 'n');
    folder.write(name, "content");

    const KTPathPtr moved = pathIn(folder, name)->moveToOverwriting("\xfe\n", false);
    const KTPathPtr copied = moved->copyToOverwriting(name, false);

    EXPECT_EQ(folder.read(name), "content");
    moved->deleteFile();
    copied->deleteFile();
    EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
}

TEST(KTPathOperationsTest, ALongPathIsMovedCopiedAndDeleted) {
    const TestFolder folder;
    std::string deep = folder / "a";
    while (deep.size() < 3800)
        deep += "/" + std::string(100, 'd');
    std::filesystem::create_directories(deep);
    const KTPathPtr path = KTPath::pathWithPath(deep + "/file");
    ASSERT_FALSE(path->exists());
    std::fclose(std::fopen(path->cPath(), "w"));

    const KTPathPtr moved = path->moveToOverwriting("moved", true);
    const KTPathPtr copied = moved->copyToOverwriting("copied", false);

    EXPECT_TRUE(moved->exists());
    EXPECT_TRUE(copied->exists());
    KTPath::pathWithPath(folder / "a")->deleteFile();
    EXPECT_FALSE(folder.has("a"));
}

TEST(KTPathOperationsTest, APathOfTheGreatestLengthIsMovedCopiedSwappedAndDeleted) {
    constexpr std::size_t kLengthMax = 4095;  // bytes that system calls take, without the NUL
    const TestFolder folder;
    std::string deep = folder / "a";
    while (deep.size() < kLengthMax - 250)
        deep += "/" + std::string(100, 'd');
    std::filesystem::create_directories(deep);
    const std::string name(kLengthMax - deep.size() - 1, 'n');
    std::string other = name;
    other.back() = 'o';
    const KTPathPtr path = KTPath::pathWithPath(deep)->pathOfChild(name);
    ASSERT_EQ(path->path().size(), kLengthMax);
    std::fclose(std::fopen(path->cPath(), "w"));

    const KTPathPtr moved = path->moveToOverwriting(other, true);
    const KTPathPtr copied = moved->copyToOverwriting(name, false);
    copied->swapWith(*moved);
    const auto longer = detailsOf([&] { moved->moveToOverwriting(name + "x", true); },
                                  "cannot rename filesystem object", moved->path());

    EXPECT_EQ(*longer.find("POSIXErr"), Value(ENAMETOOLONG));
    EXPECT_TRUE(moved->exists());
    moved->deleteFile();
    copied->deleteFile();
    EXPECT_TRUE(std::filesystem::is_empty(deep));
}

}  // namespace
}  // namespace sevrin
