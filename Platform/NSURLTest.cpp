// Tests of file URLs and of the resource values behind them.
#include "Platform/NSURL.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "Platform/TestFolder.h"

namespace sevrin::platform {
namespace {

// The value of the item at `path`, by a URL of its own.
Value valueOf(const std::string& path, std::string_view key) {
    return std::get<Value>(NSURL::fileURLWithPath(path)->resourceValueForKey(key));
}

TEST(NSURLTest, AURLEscapesWhatItsTextCannotHold) {
    EXPECT_EQ(NSURL::fileURLWithPath("/a b/c%d")->absoluteString(), "file:///a%20b/c%25d");
    EXPECT_EQ(NSURL::fileURLWithPath("/\xc3\xa9\xff\n;?#")->absoluteString(),
              "file:///%C3%A9%FF%0A%3B%3F%23");
    EXPECT_EQ(NSURL::fileURLWithPath("/")->absoluteString(), "file:///");
}

TEST(NSURLTest, EveryPathComesBackFromItsText) {
    std::string path = "/";
    for (int byte = 1; byte < 256; ++byte)
        path += static_cast<char>(byte);

    const NSURLPtr url = NSURL::URLWithString(NSURL::fileURLWithPath(path)->absoluteString());

    ASSERT_TRUE(url);
    EXPECT_EQ(url->path(), path);
}

TEST(NSURLTest, AFileURLMayNameThisMachineAndNoOther) {
    EXPECT_EQ(NSURL::URLWithString("file://localhost/a")->path(), "/a");
    EXPECT_EQ(NSURL::URLWithString("file:/a")->path(), "/a");
    EXPECT_EQ(NSURL::URLWithString("file:///a%2fb%2Fc")->path(), "/a/b/c");
    EXPECT_EQ(NSURL::URLWithString("file://elsewhere/a"), nullptr);
}

TEST(NSURLTest, WhatIsNoFileURLGivesNone) {
    for (const char* text : {"", "file:", "file://", "file:a", "http:///a", "/a", "file:///a%",
                             "file:///a%4", "file:///a%gg", "file:///a%00b", "file:///a?b"}) {
        EXPECT_EQ(NSURL::URLWithString(text), nullptr) << text;
    }
}

TEST(NSURLTest, URLsOfOnePathAreEqual) {
    const NSURLPtr url = NSURL::fileURLWithPath("/a");

    EXPECT_TRUE(url->isEqual(*NSURL::fileURLWithPath("/a")));
    EXPECT_EQ(url->hash(), NSURL::fileURLWithPath("/a")->hash());
    EXPECT_FALSE(url->isEqual(*NSURL::fileURLWithPath("/b")));
}

TEST(NSURLTest, TheLocalizedNameIsTheLastComponent) {
    const TestFolder folder;
    folder.write("a \xff\n.txt");

    EXPECT_EQ(valueOf(folder / "a \xff\n.txt", NSURLLocalizedNameKey), Value("a \xff\n.txt"));
    EXPECT_EQ(valueOf("/", NSURLLocalizedNameKey), Value("/"));
}

TEST(NSURLTest, AMissingItemHasNoValuesButAnError) {
    const TestFolder folder;

    const auto result =
        NSURL::fileURLWithPath(folder / "missing")->resourceValueForKey(NSURLLocalizedNameKey);

    const NSErrorPtr error = std::get<NSErrorPtr>(result);
    EXPECT_EQ(error->domain(), NSPOSIXErrorDomain);
    EXPECT_EQ(error->code(), ENOENT);
    EXPECT_EQ(*error->userInfo().find(NSFilePathErrorKey), Value(folder / "missing"));
}

TEST(NSURLTest, ADanglingLinkHasValuesOfItsOwn) {
    const TestFolder folder;
    folder.makeLink("nowhere", ".link");

    EXPECT_EQ(valueOf(folder / ".link", NSURLIsHiddenKey), Value(true));
}

TEST(NSURLTest, AnUnknownKeyGivesNull) {
    EXPECT_TRUE(valueOf("/", "NSURLNoSuchKey").isNull());
}

TEST(NSURLTest, ANameThatBeginsWithAPointIsHidden) {
    const TestFolder folder;
    folder.write(".hidden");
    folder.write("shown.");

    EXPECT_EQ(valueOf(folder / ".hidden", NSURLIsHiddenKey), Value(true));
    EXPECT_EQ(valueOf(folder / "shown.", NSURLIsHiddenKey), Value(false));
    EXPECT_EQ(valueOf(folder / ".", NSURLIsHiddenKey), Value(false));
}

TEST(NSURLTest, AnItemIsExcludedFromBackupUntilItIsIncludedAgain) {
    const TestFolder folder;
    for (const std::string& path : {folder.write("file"), folder.makeFolder("folder")}) {
        ASSERT_EQ(valueOf(path, NSURLIsExcludedFromBackupKey), Value(false));

        const NSErrorPtr error = NSURL::fileURLWithPath(path)->setResourceValueForKey(
            true, NSURLIsExcludedFromBackupKey);
        if (error && error->code() == ENOTSUP) GTEST_SKIP() << "no such flag on this file system";

        EXPECT_EQ(error, nullptr);
        EXPECT_EQ(valueOf(path, NSURLIsExcludedFromBackupKey), Value(true));
        EXPECT_EQ(NSURL::fileURLWithPath(path)->setResourceValueForKey(
                      false, NSURLIsExcludedFromBackupKey),
                  nullptr);
        EXPECT_EQ(valueOf(path, NSURLIsExcludedFromBackupKey), Value(false));
    }
}

TEST(NSURLTest, ValuesAreRememberedUntilTheyAreDropped) {
    const TestFolder folder;
    const NSURLPtr url = NSURL::fileURLWithPath(folder.write("file"));
    ASSERT_EQ(std::get<Value>(url->resourceValueForKey(NSURLIsHiddenKey)), Value(false));
    ::unlink((folder / "file").c_str());

    EXPECT_EQ(std::get<Value>(url->resourceValueForKey(NSURLIsHiddenKey)), Value(false));

    url->removeAllCachedResourceValues();
    EXPECT_TRUE(std::holds_alternative<NSErrorPtr>(url->resourceValueForKey(NSURLIsHiddenKey)));
}

TEST(NSURLTest, AFailureIsNotRemembered) {
    const TestFolder folder;
    const NSURLPtr url = NSURL::fileURLWithPath(folder / "file");
    ASSERT_TRUE(std::holds_alternative<NSErrorPtr>(url->resourceValueForKey(NSURLIsHiddenKey)));
    folder.write("file");

    EXPECT_TRUE(std::holds_alternative<Value>(url->resourceValueForKey(NSURLIsHiddenKey)));
}

TEST(NSURLTest, AValueOfTheWrongKindIsInvalid) {
    const TestFolder folder;
    const NSURLPtr url = NSURL::fileURLWithPath(folder.write("file"));

    EXPECT_EQ(url->setResourceValueForKey("yes", NSURLIsExcludedFromBackupKey)->code(), EINVAL);
    EXPECT_EQ(url->setResourceValueForKey(1, NSURLIsHiddenKey)->code(), EINVAL);
}

TEST(NSURLTest, WhatCannotBeSetIsUnsupportedUnlessItIsSoAlready) {
    const TestFolder folder;
    const NSURLPtr url = NSURL::fileURLWithPath(folder.write("file"));

    EXPECT_EQ(url->setResourceValueForKey(true, NSURLHasHiddenExtensionKey)->code(), ENOTSUP);
    EXPECT_EQ(url->setResourceValueForKey(false, NSURLHasHiddenExtensionKey), nullptr);
    EXPECT_EQ(url->setResourceValueForKey(true, "NSURLNoSuchKey")->code(), ENOTSUP);
}

TEST(NSURLTest, ItemsOfOneVolumeHaveOneIdentifier) {
    const TestFolder folder;
    folder.makeFolder("folder");
    folder.write("folder/file");

    const Value identifier = valueOf(folder.path(), NSURLVolumeIdentifierKey);

    EXPECT_FALSE(identifier.isNull());
    EXPECT_EQ(valueOf(folder / "folder/file", NSURLVolumeIdentifierKey), identifier);
    EXPECT_NE(valueOf("/proc", NSURLVolumeIdentifierKey), identifier);
}

}  // namespace
}  // namespace sevrin::platform
