// Tests of the file manager that hold on every system.
#include "Platform/NSFileManager.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "Platform/TestFolder.h"

namespace sevrin::platform {
namespace {

const NSFileManager& manager() {
    return NSFileManager::defaultManager();
}

// The POSIX number of the error; 0 for none.
std::int64_t codeOf(const NSErrorPtr& error) {
    if (!error) return 0;
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    return error->code();
}

std::string pathOf(const NSErrorPtr& error) {
    return *error->userInfo().find(NSFilePathErrorKey)->ifString();
}

Dictionary attributesAt(const std::string& path) {
    return std::get<Dictionary>(manager().attributesOfItemAtPath(path));
}

TEST(NSFileManagerTest, AnItemExistsWhenItsTargetDoes) {
    const TestFolder folder;
    folder.write("file");
    folder.makeLink("file", "link");
    folder.makeLink("nowhere", "dangling");
    folder.makeLink("loop", "loop");

    EXPECT_TRUE(manager().fileExistsAtPath(folder / "file"));
    EXPECT_TRUE(manager().fileExistsAtPath(folder / "link"));
    EXPECT_FALSE(manager().fileExistsAtPath(folder / "dangling"));
    EXPECT_FALSE(manager().fileExistsAtPath(folder / "loop"));
    EXPECT_FALSE(manager().fileExistsAtPath(folder / "file/below"));
    EXPECT_FALSE(manager().fileExistsAtPath(""));
    EXPECT_TRUE(manager().fileExistsAtPath("/"));
}

TEST(NSFileManagerTest, AFolderIsToldFromAFileThroughALink) {
    const TestFolder folder;
    folder.makeFolder("folder");
    folder.makeLink("folder", "link");
    folder.write("file");
    bool isDirectory = false;

    EXPECT_TRUE(manager().fileExistsAtPathIsDirectory(folder / "link", isDirectory));
    EXPECT_TRUE(isDirectory);
    EXPECT_TRUE(manager().fileExistsAtPathIsDirectory(folder / "file", isDirectory));
    EXPECT_FALSE(isDirectory);
    EXPECT_FALSE(manager().fileExistsAtPathIsDirectory(folder / "none", isDirectory));
}

TEST(NSFileManagerTest, APathWithANULNamesNothing) {
    const TestFolder folder;
    folder.write("a");
    const std::string path = (folder / "a") + std::string("\0b", 2);

    EXPECT_FALSE(manager().fileExistsAtPath(path));
    EXPECT_EQ(codeOf(manager().removeItemAtPath(path)), EINVAL);
    EXPECT_TRUE(folder.has("a"));
}

TEST(NSFileManagerTest, MovingRenamesAndRefusesWhateverIsThere) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");
    folder.makeLink("nowhere", "dangling");
    folder.makeFolder("empty");

    for (const char* taken : {"b", "dangling", "empty"}) {
        const NSErrorPtr error = manager().moveItemAtPathToPath(folder / "a", folder / taken);
        EXPECT_EQ(codeOf(error), EEXIST);
        EXPECT_EQ(pathOf(error), folder / taken);
    }
    EXPECT_EQ(folder.read("b"), "b");
    EXPECT_EQ(manager().moveItemAtPathToPath(folder / "a", folder / "c"), nullptr);
    EXPECT_EQ(folder.read("c"), "a");
    EXPECT_FALSE(folder.has("a"));
}

TEST(NSFileManagerTest, MovingALinkMovesTheLink) {
    const TestFolder folder;
    folder.write("target", "target");
    folder.makeLink("target", "link");

    EXPECT_EQ(manager().moveItemAtPathToPath(folder / "link", folder / "moved"), nullptr);

    EXPECT_TRUE(S_ISLNK(folder.attributes("moved").st_mode));
    EXPECT_TRUE(folder.has("target"));
}

TEST(NSFileManagerTest, MovingNothingFailsWithThePathOfTheSource) {
    const TestFolder folder;

    const NSErrorPtr error = manager().moveItemAtPathToPath(folder / "none", folder / "to");

    EXPECT_EQ(codeOf(error), ENOENT);
    EXPECT_EQ(pathOf(error), folder / "none");
}

TEST(NSFileManagerTest, AFolderIsNotMovedOrCopiedIntoItself) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file", "content");

    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "a", folder / "a/b")), EINVAL);
    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "a", folder / "a/b")), EINVAL);

    EXPECT_EQ(folder.read("a/file"), "content");
    EXPECT_FALSE(folder.has("a/b"));
}

TEST(NSFileManagerTest, CopyingRefusesWhateverIsThereAndLeavesIt) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");
    folder.makeFolder("folder");
    folder.makeFolder("taken");
    folder.write("taken/kept");
    folder.makeLink("nowhere", "dangling");

    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "a", folder / "b")), EEXIST);
    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "folder", folder / "taken")), EEXIST);
    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "a", folder / "dangling")), EEXIST);
    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "a", folder / "a")), EEXIST);

    EXPECT_EQ(folder.read("b"), "b");
    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_TRUE(folder.has("taken/kept"));
    EXPECT_FALSE(folder.has("nowhere"));
}

TEST(NSFileManagerTest, ACopyHasContentModeAndTime) {
    const TestFolder folder;
    const std::string content(300'000, 'x');
    folder.write("a", content);
    ::chmod((folder / "a").c_str(), 0604);
    const timespec times[2] = {{1'000'000'000, 5}, {1'100'000'000, 7}};
    ::utimensat(AT_FDCWD, (folder / "a").c_str(), times, 0);

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_EQ(folder.read("b"), content);
    EXPECT_EQ(folder.attributes("b").st_mode & 07777U, 0604U);
    EXPECT_EQ(
        attributesAt(folder / "b").find(NSFileModificationDate)->ifDate()->timeIntervalSince1970(),
        1'100'000'000 + 7e-9);
    EXPECT_TRUE(folder.has("a"));
}

TEST(NSFileManagerTest, AFolderIsCopiedWhole) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/empty");
    folder.makeFolder("a/inner");
    folder.write("a/inner/file", "content");
    folder.makeLink("../outside", "a/inner/link");
    ::chmod((folder / "a/inner").c_str(), 0711);
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ::utimensat(AT_FDCWD, (folder / "a/inner").c_str(), times, 0);

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_TRUE(S_ISDIR(folder.attributes("b/empty").st_mode));
    EXPECT_EQ(folder.read("b/inner/file"), "content");
    EXPECT_EQ(std::filesystem::read_symlink(folder / "b/inner/link"), "../outside");
    EXPECT_EQ(folder.attributes("b/inner").st_mode & 07777U, 0711U);
    EXPECT_EQ(folder.attributes("b/inner").st_mtime, 1'000'000'000);
}

TEST(NSFileManagerTest, NamesAreBytes) {
    const TestFolder folder;
    folder.makeFolder("a");
    const std::vector<std::string> names = {
        "\xff\xfe", "line\nbreak", "-rf", "cafe\xcc\x81", " ", "\x01", std::string(255, 'n')};
    for (const std::string& name : names)
        folder.write("a/" + name, name);

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);
    for (const std::string& name : names)
        EXPECT_EQ(folder.read("b/" + name), name);
    ASSERT_EQ(manager().moveItemAtPathToPath(folder / "b", folder / "\xff\n"), nullptr);
    ASSERT_EQ(manager().removeItemAtPath(folder / "\xff\n"), nullptr);
    EXPECT_FALSE(folder.has("\xff\n"));
}

TEST(NSFileManagerTest, ANameThatIsTooLongSaysSo) {
    const TestFolder folder;
    folder.write("a");
    const std::string name(256, 'n');

    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "a", folder / name)), ENAMETOOLONG);
    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "a", folder / name)), ENAMETOOLONG);
    EXPECT_EQ(codeOf(manager().createDirectoryAtPath(folder / name, false)), ENAMETOOLONG);
    EXPECT_FALSE(manager().fileExistsAtPath(folder / name));
}

TEST(NSFileManagerTest, RemovingTakesAFolderWithAllInIt) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/b");
    folder.write("a/b/file");
    folder.makeFolder("outside");
    folder.write("outside/kept");
    folder.makeLink("../outside", "a/link");
    folder.makeLink("outside", "link");

    EXPECT_EQ(manager().removeItemAtPath(folder / "a"), nullptr);
    EXPECT_EQ(manager().removeItemAtPath(folder / "link"), nullptr);

    EXPECT_FALSE(folder.has("a"));
    EXPECT_FALSE(folder.has("link"));
    EXPECT_TRUE(folder.has("outside/kept"));
}

TEST(NSFileManagerTest, RemovingNothingIsAnError) {
    const TestFolder folder;

    EXPECT_EQ(codeOf(manager().removeItemAtPath(folder / "none")), ENOENT);
    EXPECT_EQ(codeOf(manager().removeItemAtPath(folder.write("file") + "/below")), ENOTDIR);
    EXPECT_EQ(codeOf(manager().removeItemAtPath("")), ENOENT);
}

TEST(NSFileManagerTest, AttributesAreThoseOfALinkItself) {
    const TestFolder folder;
    folder.write("file", "12345");
    ::chmod((folder / "file").c_str(), 0640);
    folder.makeLink("file", "link");

    const Dictionary file = attributesAt(folder / "file");
    EXPECT_EQ(*file.find(NSFileType), Value(NSFileTypeRegular));
    EXPECT_EQ(*file.find(NSFileSize), Value(5));
    EXPECT_EQ(*file.find(NSFilePosixPermissions), Value(0640));
    EXPECT_EQ(*file.find(NSFileReferenceCount), Value(1));
    EXPECT_EQ(*file.find(NSFileOwnerAccountID), Value(::geteuid()));
    EXPECT_EQ(*file.find(NSFileSystemFileNumber), Value(folder.attributes("file").st_ino));
    EXPECT_EQ(*attributesAt(folder / "link").find(NSFileType), Value(NSFileTypeSymbolicLink));
    EXPECT_EQ(*attributesAt(folder.path()).find(NSFileType), Value(NSFileTypeDirectory));
    EXPECT_EQ(*attributesAt("/dev/null").find(NSFileType), Value(NSFileTypeCharacterSpecial));
    EXPECT_NE(attributesAt("/dev/null").find(NSFileDeviceIdentifier), nullptr);
    EXPECT_EQ(file.find(NSFileImmutable), nullptr);
}

TEST(NSFileManagerTest, NothingHasNoAttributes) {
    const TestFolder folder;

    const auto result = manager().attributesOfItemAtPath(folder / "none");

    EXPECT_EQ(codeOf(std::get<NSErrorPtr>(result)), ENOENT);
}

TEST(NSFileManagerTest, AFileSystemHasSizesAndANumber) {
    const TestFolder folder;

    const auto found = std::get<Dictionary>(manager().attributesOfFileSystemForPath(folder.path()));

    EXPECT_GT(*found.find(NSFileSystemSize)->ifSigned(), 0);
    EXPECT_LE(*found.find(NSFileSystemFreeSize)->ifSigned(),
              *found.find(NSFileSystemSize)->ifSigned());
    EXPECT_EQ(*found.find(NSFileSystemNumber),
              *attributesAt(folder.path()).find(NSFileSystemNumber));
    EXPECT_TRUE(std::holds_alternative<NSErrorPtr>(
        manager().attributesOfFileSystemForPath(folder / "none")));
}

TEST(NSFileManagerTest, AttributesAreSet) {
    const TestFolder folder;
    folder.write("file");

    ASSERT_EQ(manager().setAttributesOfItemAtPath(
                  {{NSFilePosixPermissions, 0600},
                   {NSFileModificationDate, NSDate::dateWithTimeIntervalSince1970(1e9 + 0.5)},
                   {NSFileSize, 77}},
                  folder / "file"),
              nullptr);

    EXPECT_EQ(folder.attributes("file").st_mode & 07777U, 0600U);
    EXPECT_EQ(folder.attributes("file").st_mtim.tv_sec, 1'000'000'000);
    EXPECT_EQ(folder.attributes("file").st_mtim.tv_nsec, 500'000'000);
    EXPECT_EQ(folder.attributes("file").st_size, 0);
}

TEST(NSFileManagerTest, WhatCannotBeSetChangesNothing) {
    const TestFolder folder;
    const std::string path = folder.write("file");
    ::chmod(path.c_str(), 0644);
    const auto set = [&](std::string_view key, const Value& value) {
        return codeOf(manager().setAttributesOfItemAtPath(
            {{NSFilePosixPermissions, 0600}, {key, value}}, path));
    };

    EXPECT_EQ(set(NSFileCreationDate, NSDate::date()), ENOTSUP);
    EXPECT_EQ(set(NSFileModificationDate, 5), EINVAL);
    EXPECT_EQ(set(NSFileOwnerAccountID, -1), EINVAL);
    EXPECT_EQ(set(NSFileOwnerAccountName, "no such user"), EINVAL);
    EXPECT_EQ(set(NSFileGroupOwnerAccountName, 7), EINVAL);
    EXPECT_EQ(codeOf(manager().setAttributesOfItemAtPath({{NSFilePosixPermissions, 010000}}, path)),
              EINVAL);

    EXPECT_EQ(folder.attributes("file").st_mode & 07777U, 0644U);
}

TEST(NSFileManagerTest, AFolderIsMadeOnceWithItsPermissions) {
    const TestFolder folder;

    EXPECT_EQ(
        manager().createDirectoryAtPath(folder / "a", false, {{NSFilePosixPermissions, 0777}}),
        nullptr);

    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, 0777U);
    EXPECT_EQ(codeOf(manager().createDirectoryAtPath(folder / "a", false)), EEXIST);
    EXPECT_EQ(manager().createDirectoryAtPath(folder / "a", true), nullptr);
}

TEST(NSFileManagerTest, MissingFoldersAboveAreMadeOnlyWhenAskedFor) {
    const TestFolder folder;

    EXPECT_EQ(codeOf(manager().createDirectoryAtPath(folder / "a/b/c", false)), ENOENT);
    EXPECT_FALSE(folder.has("a"));
    EXPECT_EQ(manager().createDirectoryAtPath(folder / "a/b//c/", true), nullptr);
    EXPECT_TRUE(folder.has("a/b/c"));
}

TEST(NSFileManagerTest, AFileWhereAFolderShouldBeIsAnError) {
    const TestFolder folder;
    folder.write("file");

    EXPECT_EQ(codeOf(manager().createDirectoryAtPath(folder / "file", true)), EEXIST);
    EXPECT_EQ(codeOf(manager().createDirectoryAtPath(folder / "file/below", true)), ENOTDIR);
}

TEST(NSFileManagerTest, AFolderWhoseAttributesCannotBeSetIsNotLeftBehind) {
    const TestFolder folder;

    EXPECT_EQ(codeOf(manager().createDirectoryAtPath(folder / "a", false,
                                                     {{NSFileOwnerAccountName, "no such user"}})),
              EINVAL);

    EXPECT_FALSE(folder.has("a"));
}

TEST(NSFileManagerTest, AFileIsMadeOrReplaced) {
    const TestFolder folder;

    ASSERT_EQ(manager().createFileAtPath(folder / "a", "longer content"), nullptr);
    ASSERT_EQ(manager().createFileAtPath(folder / "a", "short", {{NSFilePosixPermissions, 0606}}),
              nullptr);

    EXPECT_EQ(folder.read("a"), "short");
    EXPECT_EQ(folder.attributes("a").st_mode & 07777U, 0606U);
    EXPECT_EQ(codeOf(manager().createFileAtPath(folder / "none/a", "")), ENOENT);
    EXPECT_EQ(codeOf(manager().createFileAtPath(folder.path(), "")), EISDIR);
}

}  // namespace
}  // namespace sevrin::platform
