// Tests of what items do by way of their paths, and of regular files and symbolic links.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::TestFolder;
using platform::Value;

TEST(KTFileInfoTest, AnItemThatMovesIsTheSameItemUnderAnotherPath) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    item->moveToOverwriting("b", false);
    EXPECT_EQ(item->path(), folder / "b");
    item->moveToDirectoryWithNameOverwriting(folder.makeFolder("d"), "c", true);

    EXPECT_EQ(item->path(), folder / "d/c");
    EXPECT_EQ(item->name(), "c");
    EXPECT_TRUE(folder.has("d/c"));
    EXPECT_FALSE(folder.has("a"));
}

TEST(KTFileInfoTest, AFailedMoveLeavesTheItemWhereItIs) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    folder.write("b");

    EXPECT_THROW(item->moveToOverwriting("b", false), SVException);
    EXPECT_EQ(item->path(), folder / "a");
}

TEST(KTFileInfoTest, ACopyIsAnotherItem) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a", "text"));

    const auto copy = item->copyToOverwriting("b", false);
    const auto other =
        item->copyToDirectoryWithNameOverwriting(folder.makeFolder("d"), std::nullopt, false);

    EXPECT_EQ(copy->path(), folder / "b");
    EXPECT_EQ(folder.read("b"), "text");
    EXPECT_EQ(other->path(), folder / "d/a");
    EXPECT_EQ(item->path(), folder / "a");
}

TEST(KTFileInfoTest, DeletingGivesTheItemOfNothing) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    const auto nothing = item->deleteFile();

    EXPECT_FALSE(nothing->exists());
    EXPECT_EQ(nothing->pathObject(), item->pathObject());
    EXPECT_EQ(item->type(), 1U);
    EXPECT_FALSE(item->tryToDeleteFile());
    EXPECT_THROW(static_cast<void>(item->deleteFile()), SVException);
}

TEST(KTFileInfoTest, WhatWasDeletedIsOnTheDeviceOfItsDirectoryWhileThatLives) {
    const TestFolder folder;
    folder.makeFolder("a");
    auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto item = directory->firstDirectory();

    const auto nothing = item->deleteFile();

    EXPECT_NE(directory->deviceID(), 0);
    EXPECT_EQ(nothing->deviceID(), directory->deviceID());
    directory.reset();
    EXPECT_EQ(nothing->deviceID(), 0);
}

TEST(KTFileInfoTest, CopiesAreTheSameWhetherCloningIsAskedForOrNot) {
    const TestFolder folder;
    folder.makeFolder("d");
    folder.write("d/inner", "inner");
    for (const std::string& path : {folder.write("a", "text"), folder / "d"}) {
        const auto item = KTFileInfo::infoForPath(path);
        for (const bool clone : {false, true}) {
            const auto copy = item->copyToOverwritingClone("copy", true, clone);

            EXPECT_EQ(copy->type(), item->type());
            EXPECT_EQ(copy->path(), folder / "copy");
            EXPECT_EQ(folder.read(item->isDirectory() ? "copy/inner" : "copy"),
                      item->isDirectory() ? "inner" : "text");
            EXPECT_TRUE(copy->tryToDeleteFile());
        }
    }
}

TEST(KTFileInfoTest, ASwapGivesTheItemAtTheOtherPath) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    const auto other = KTFileInfo::infoForPath(folder.makeFolder("b"));

    const auto swapped = item->swapWith(*other);

    EXPECT_EQ(swapped->path(), folder / "b");
    EXPECT_EQ(swapped->type(), 1U);
    EXPECT_EQ(item->reevaluateType()->type(), 2U);
}

TEST(KTRegularFileTest, TellsItsLinksAndSizes) {
    const TestFolder folder;
    const auto item = KTRegularFile::regularInfoForPathObject(
        KTPath::pathWithPath(folder.write("a", std::string(5000, 'x'))));
    ASSERT_EQ(::link(item->cPath(), (folder / "b").c_str()), 0);

    EXPECT_EQ(item->linkCount(), 2U);
    EXPECT_TRUE(item->isHardLink());
    EXPECT_EQ(item->logicalSize(), 5000);
    EXPECT_EQ(item->dataLength(), 5000);
    EXPECT_EQ(item->physicalSize(), folder.attributes("a").st_blocks * 512);
}

TEST(KTRegularFileTest, AnotherThingThanAFileRaises) {
    const TestFolder folder;
    folder.write("a");
    for (const std::string& path : {folder.path(), folder.makeLink("a", "l")}) {
        try {
            static_cast<void>(KTRegularFile::regularInfoForPathObject(KTPath::pathWithPath(path)));
            FAIL();
        } catch (const SVException& exception) {
            EXPECT_EQ(exception.name(), "IO");
            EXPECT_EQ(exception.reason(), "expected regular file");
            EXPECT_EQ(*exception.details().find("Path"), Value(path));
        }
    }
}

TEST(KTRegularFileTest, AnotherThingThanAFileIsNothingWithoutAReason) {
    const TestFolder folder;

    EXPECT_EQ(KTRegularFile::regularInfoForPathObjectThrowingException(
                  KTPath::pathWithPath(folder.path()), std::nullopt),
              nullptr);
}

TEST(KTRegularFileTest, WhereNothingIsThereIsNoFileAndNoFailure) {
    EXPECT_EQ(KTRegularFile::regularInfoForPathObject(KTPath::pathWithPath("/nowhere/x")), nullptr);
}

std::shared_ptr<KTSymbolicLink> linkAt(const std::string& path) {
    return KTFileInfo::infoForPath(path)->asSymbolicLink();
}

TEST(KTSymbolicLinkTest, TellsItsText) {
    const TestFolder folder;
    const auto link = linkAt(folder.makeLink("where/\xFF", "l"));

    EXPECT_STREQ(link->contents(), "where/\xFF");
    EXPECT_EQ(link->dataLength(), 7);
    EXPECT_EQ(link->totalLength(), 7);
    EXPECT_EQ(link->rsrcLength(), 0);
    EXPECT_EQ(link->logicalSize(), 7);
    EXPECT_EQ(link->linkCount(), 1U);
}

TEST(KTSymbolicLinkTest, OfALongTextOnlyTheBeginningIsRead) {
    const TestFolder folder;
    const auto exact = linkAt(folder.makeLink(std::string(1025, 'x'), "exact"));
    const auto longer = linkAt(folder.makeLink(std::string(1026, 'x'), "longer"));

    EXPECT_EQ(exact->contents(), std::string(1025, 'x'));
    EXPECT_EQ(longer->contents(), std::string(1025, 'x'));
    EXPECT_EQ(longer->dataLength(), 1025);
    EXPECT_EQ(longer->logicalSize(), 1026);
}

TEST(KTSymbolicLinkTest, TheTextIsReadOnce) {
    const TestFolder folder;
    const auto link = linkAt(folder.makeLink("a", "l"));
    EXPECT_STREQ(link->contents(), "a");
    ASSERT_EQ(::unlink(link->cPath()), 0);

    EXPECT_STREQ(link->contents(), "a");
}

TEST(KTSymbolicLinkTest, ALinkThatIsGoneCannotBeRead) {
    const TestFolder folder;
    const auto link = linkAt(folder.makeLink("a", "l"));
    ASSERT_EQ(::unlink(link->cPath()), 0);
    try {
        static_cast<void>(link->contents());
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "cannot read content of symbolic link");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(ENOENT));
        EXPECT_EQ(*exception.details().find("Type"), Value("symblic link"));
        EXPECT_EQ(*exception.details().find("Path"), Value(folder / "l"));
    }
}

TEST(KTSymbolicLinkTest, ASetTextReplacesTheLinkAndIsKept) {
    const TestFolder folder;
    const auto link = linkAt(folder.makeLink("a", "l"));
    static_cast<void>(link->contents());

    link->setContents("another");

    EXPECT_EQ(linkAt(folder / "l")->contents(), std::string("another"));
    ASSERT_EQ(::unlink(link->cPath()), 0);
    EXPECT_STREQ(link->contents(), "another");
    EXPECT_EQ(link->dataLength(), 7);
}

TEST(KTSymbolicLinkTest, ATextThatNoLinkCanHaveCostsTheOldLink) {
    const TestFolder folder;
    const auto link = linkAt(folder.makeLink("a", "l"));
    try {
        link->setContents("");
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "cannot write content of symbolic link");
        EXPECT_EQ(*exception.details().find("Path"), Value(folder / "l"));
    }
    EXPECT_FALSE(folder.has("l"));
    EXPECT_THROW(static_cast<void>(link->contents()), SVException);
}

}  // namespace
}  // namespace sevrin
