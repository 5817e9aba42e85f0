// Tests of items: how they are made, what kind they are, their names and family. Attributes and
// operations are next door.
#include "Common/Source/Utilities/KTFileInfo.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTNonexistentFile.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/TestFolder.h"
#include "Platform/UniqueFd.h"

namespace sevrin {
namespace {

using platform::TestFolder;
using platform::UniqueFd;
using platform::Value;

Value detailOf(const SVException& exception, std::string_view key) {
    const Value* value = exception.details().find(key);
    return value == nullptr ? Value() : *value;
}

TEST(KTFileInfoTest, AFileIsARegularFile) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    EXPECT_EQ(item->type(), 1U);
    EXPECT_TRUE(item->isRegularFile());
    EXPECT_TRUE(item->isPersistentObject());
    EXPECT_TRUE(item->exists());
    EXPECT_FALSE(item->isDirectory());
    EXPECT_FALSE(item->isSymbolicLink());
    EXPECT_EQ(item->asRegularFile(), item);
    EXPECT_EQ(item->asDirectory(), nullptr);
    EXPECT_EQ(item->asSymbolicLink(), nullptr);
    EXPECT_EQ(item->logDescription(), "file a");
    EXPECT_EQ(item->logFullDescription(), "file " + folder / "a");
}

TEST(KTFileInfoTest, ADirectoryIsADirectory) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForCPath(folder.path().c_str());

    EXPECT_EQ(item->type(), 2U);
    EXPECT_TRUE(item->isDirectory());
    EXPECT_TRUE(item->isPersistentObject());
    EXPECT_EQ(item->asDirectory(), item);
    EXPECT_EQ(item->asRegularFile(), nullptr);
    EXPECT_EQ(item->logDescription(), "folder " + item->name());
}

TEST(KTFileInfoTest, ALinkToADirectoryIsALink) {
    const TestFolder folder;
    folder.makeFolder("d");
    const auto item = KTFileInfo::infoForPath(folder.makeLink("d", "l"));

    EXPECT_EQ(item->type(), 5U);
    EXPECT_TRUE(item->isSymbolicLink());
    EXPECT_TRUE(item->isPersistentObject());
    EXPECT_EQ(item->asSymbolicLink(), item);
    EXPECT_EQ(item->asDirectory(), nullptr);
    EXPECT_EQ(item->asRegularFile(), nullptr);
    EXPECT_EQ(item->logDescription(), "link l");
}

TEST(KTFileInfoTest, OtherThingsAreItemsOfNoSpecialKind) {
    const TestFolder folder;
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder / "socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    const std::vector<std::pair<std::string, std::uint32_t>> expected = {
        {folder / "pipe", 7}, {folder / "socket", 6}, {"/dev/null", 4}};
    for (const auto& [path, type] : expected) {
        const auto item = KTFileInfo::infoForPath(path);
        EXPECT_EQ(item->type(), type);
        EXPECT_FALSE(item->isPersistentObject());
        EXPECT_EQ(item->linkCount(), 1U);
        EXPECT_FALSE(item->isHardLink());
        EXPECT_EQ(item->asRegularFile(), nullptr);
        EXPECT_EQ(item->logDescription(), "item " + item->name());
    }
}

TEST(KTFileInfoTest, WhereNothingIsThereIsANonexistentFile) {
    const auto item = KTFileInfo::infoForURL(platform::NSURL::fileURLWithPath("/nowhere/x"));

    ASSERT_NE(std::dynamic_pointer_cast<KTNonexistentFile>(item), nullptr);
    EXPECT_EQ(item->type(), 0U);
    EXPECT_FALSE(item->exists());
    EXPECT_EQ(item->linkCount(), 0U);
    EXPECT_EQ(item->createdDate(), std::nullopt);
    EXPECT_EQ(item->modifiedDate(), std::nullopt);
    EXPECT_EQ(item->attributeChangedDate(), std::nullopt);
    EXPECT_EQ(item->deviceID(), 0);
    EXPECT_EQ(item->name(), "x");
}

TEST(KTFileInfoTest, BelowAFileNothingExists) {
    const TestFolder folder;

    EXPECT_FALSE(KTFileInfo::infoForPath(folder.write("a") + "/b")->exists());
}

TEST(KTFileInfoTest, APathThatCannotBeLookedAtRaises) {
    const std::string path = "/tmp/" + std::string(256, 'x');
    try {
        static_cast<void>(KTFileInfo::infoForPath(path));
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(exception.reason(), "failed to probe object vtype");
        EXPECT_EQ(detailOf(exception, "POSIXErr"), Value(ENAMETOOLONG));
        EXPECT_EQ(detailOf(exception, "Path"), Value(path));
    }
}

TEST(KTFileInfoTest, ALoopOfLinksRaises) {
    const TestFolder folder;
    folder.makeLink("b", "a");
    folder.makeLink("a", "b");

    EXPECT_EQ(KTFileInfo::infoForPath(folder / "a")->type(), 5U);
    try {
        static_cast<void>(KTFileInfo::infoForPath(folder / "a/c"));
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(detailOf(exception, "POSIXErr"), Value(ELOOP));
    }
}

TEST(KTFileInfoTest, AProbeThatFindsTheSameTypeGivesTheSameItem) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));

    EXPECT_EQ(item->reevaluateType(), item);
}

TEST(KTFileInfoTest, AProbeThatFindsAnotherTypeGivesAnotherItemOfThePath) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::unlink(item->cPath()), 0);
    folder.makeFolder("a");

    const auto now = item->reevaluateType();

    EXPECT_EQ(now->type(), 2U);
    EXPECT_EQ(now->pathObject(), item->pathObject());
}

TEST(KTFileInfoTest, AProbeThatStillFindsNothingGivesTheSameItem) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder / "a");

    EXPECT_EQ(item->reevaluateType(), item);
    folder.write("a");
    EXPECT_EQ(item->reevaluateType()->type(), 1U);
}

TEST(KTFileInfoTest, AnItemThatVanishedIsReevaluatedToNothing) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a"));
    ASSERT_EQ(::unlink(item->cPath()), 0);

    EXPECT_FALSE(item->reevaluateType()->exists());
}

TEST(KTFileInfoTest, AProbeThroughADescriptorNeedsNoPath) {
    const TestFolder folder;
    const UniqueFd file(::open(folder.write("a").c_str(), O_RDONLY | O_CLOEXEC));

    const auto item = KTFileInfo::infoForFilePathObjectIfTypeDifferentFrom(
        file.get(), KTPath::pathWithPath("/nowhere"), nullptr);

    EXPECT_EQ(item->type(), 1U);
    EXPECT_EQ(item->path(), "/nowhere");
}

TEST(KTFileInfoTest, TheClassFollowsTheTypeGiven) {
    const auto path = KTPath::pathWithPath("/nowhere");
    EXPECT_EQ(KTFileInfo::initWithTypePathObject(0, path), nullptr);
    EXPECT_EQ(KTFileInfo::initWithTypePathObject(8, path), nullptr);
    EXPECT_NE(KTFileInfo::initWithTypePathObject(1, path)->asRegularFile(), nullptr);
    EXPECT_NE(KTFileInfo::initWithTypePathObject(2, path)->asDirectory(), nullptr);
    EXPECT_NE(KTFileInfo::initWithTypePathObject(5, path)->asSymbolicLink(), nullptr);
    for (const auto type : std::initializer_list<std::uint8_t>{3, 4, 6, 7, 9, 255}) {
        const auto item = KTFileInfo::initWithTypePathObject(type, path);
        EXPECT_EQ(item->type(), type);
        EXPECT_FALSE(item->isPersistentObject());
    }
}

TEST(KTFileInfoTest, TheTypeOfAnEntryIsThatOfItsNumber) {
    const auto parent = KTPath::pathWithPath("/nowhere");
    const std::vector<std::pair<int, std::uint32_t>> table = {{1, 7}, {2, 4},  {4, 2}, {6, 3},
                                                              {8, 1}, {10, 5}, {12, 6}};
    for (const auto& [entryType, type] : table) {
        dirent entry{};
        std::strcpy(entry.d_name, "name");
        entry.d_type = static_cast<unsigned char>(entryType);
        const auto item = KTFileInfo::initWithDirEntryParentPath(entry, parent);
        ASSERT_NE(item, nullptr) << entryType;
        EXPECT_EQ(item->type(), type);
        EXPECT_EQ(item->path(), "/nowhere/name");
    }
    for (const int entryType : {0, 3, 5, 7, 9, 11, 13, 14, 255}) {
        dirent entry{};
        entry.d_type = static_cast<unsigned char>(entryType);
        EXPECT_EQ(KTFileInfo::initWithDirEntryParentPath(entry, parent), nullptr) << entryType;
    }
}

TEST(KTFileInfoTest, TheNamesAreThoseOfThePath) {
    const TestFolder folder;
    const auto item = KTFileInfo::infoForPath(folder.write("a.\xFFtxt"));

    EXPECT_STREQ(item->cName(), "a.\xFFtxt");
    EXPECT_EQ(item->name(), "a.\xFFtxt");
    EXPECT_EQ(item->displayName(), "a.\xFFtxt");
    EXPECT_EQ(item->extension(), "\xFFtxt");
    EXPECT_EQ(item->path(), folder / "a.\xFFtxt");
    EXPECT_EQ(item->description(), folder / "a.\xFFtxt");
    EXPECT_EQ(item->url(), item->pathObject()->url());
}

TEST(KTFileInfoTest, ItemsOfOnePathAreEqualWhateverTheirKind) {
    const auto path = KTPath::pathWithPath("/nowhere");
    const auto file = KTFileInfo::initWithTypePathObject(1, path);
    const auto directory = KTFileInfo::initWithTypePathObject(2, path);
    const auto other = KTFileInfo::initWithTypePathObject(1, KTPath::pathWithPath("/nowhere/"));

    EXPECT_TRUE(directory->isEqual(*file));
    EXPECT_TRUE(file->isEqual(*directory));
    EXPECT_EQ(file->hash(), directory->hash());
    EXPECT_FALSE(file->isEqual(*other));
    EXPECT_FALSE(file->isEqual(*path));
}

TEST(KTFileInfoTest, AnItemOfAListingFindsItsDirectoryWhileThatLives) {
    const TestFolder folder;
    folder.write("a");
    auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto item = directory->firstObject();

    EXPECT_EQ(item->livingParent(), directory);
    EXPECT_EQ(item->abstractParent(), KTAbstractDirectoryPtr(directory));
    EXPECT_EQ(item->parentDirectoryInfo(), directory);

    directory.reset();
    EXPECT_EQ(item->livingParent(), nullptr);
    ASSERT_NE(item->parentDirectoryInfo(), nullptr);
    EXPECT_EQ(item->parentDirectoryInfo()->path(), folder.path());
}

TEST(KTFileInfoTest, TheDisplayPathOfAnItemWithoutADirectoryBeginsWithAQuestion) {
    const auto item = KTFileInfo::infoForPath("/nowhere/at/all");

    EXPECT_EQ(item->parentDirectoryInfo(), nullptr);
    EXPECT_TRUE(item->displayPath().starts_with("?/")) << item->displayPath();
}

TEST(KTFileInfoTest, WhatIsItsOwnParentAsTextHasNoDirectoryAboveIt) {
    const KTFileInfoPtr item = KTFileInfo::infoForPath(".");

    EXPECT_EQ(item->parentDirectoryInfo(), nullptr);
    EXPECT_FALSE(item->displayPath().empty());
}

TEST(KTFileInfoTest, TheDisplayPathIsThatOfTheDirectoryAndTheName) {
    const TestFolder folder;
    folder.write("a");
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(directory->firstObject()->displayPath(), directory->displayPath() + "a");
}

TEST(KTFileInfoTest, AnItemOfAListingMakesItsPathWithinThatOfTheDirectory) {
    const TestFolder folder;
    folder.write("a");
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto item = directory->firstObject();
    const char* const name = item->cName();

    const auto path = item->pathObject();

    EXPECT_EQ(path->isa().name(), "KTSubPath");
    EXPECT_EQ(path->parent(), directory->pathObject());
    EXPECT_EQ(item->pathObject(), path);
    EXPECT_EQ(item->cName(), name);
    EXPECT_EQ(item->path(), folder / "a");
}

TEST(KTFileInfoTest, AnItemGivenAnotherPathHasItsNames) {
    const TestFolder folder;
    folder.write("a");
    const auto item = KTDirectory::directoryWithPath(folder.path())->firstObject();

    item->setPathObject(KTPath::pathWithPath("/elsewhere/b"));

    EXPECT_EQ(item->name(), "b");
    EXPECT_EQ(item->path(), "/elsewhere/b");
    EXPECT_EQ(item->livingParent(), nullptr);
}

TEST(KTFileInfoTest, AnItemWithoutLinksInItsPathIsItsOwnHardenedItem) {
    const TestFolder folder;
    folder.write("a");
    folder.makeLink("a", "l");
    const std::string root = KTPath::realPath(folder.path())->path();
    const auto item = KTFileInfo::infoForPath(root + "/a");
    const auto link = KTFileInfo::infoForPath(root + "/l");

    EXPECT_EQ(item->hardened(), item);
    EXPECT_TRUE(link->hardened()->isEqual(*item));
    EXPECT_EQ(link->hardened()->type(), 1U);
}

TEST(KTFileInfoTest, APathGivesItsItem) {
    const TestFolder folder;
    const auto file = KTPath::pathWithPath(folder.write("a"));
    const auto place = KTPath::pathWithPath(folder.path());

    EXPECT_EQ(file->fileInfo()->type(), 1U);
    EXPECT_EQ(file->directory(), nullptr);
    const auto directory = place->directory();
    ASSERT_NE(directory, nullptr);
    EXPECT_EQ(place->fileInfo(), directory);
    EXPECT_EQ(place->directoryInfo(), directory);
}

TEST(KTFileInfoTest, APathForgetsADirectoryThatIsGone) {
    const TestFolder folder;
    const auto place = KTPath::pathWithPath(folder.path());
    auto directory = place->directory();
    directory.reset();

    EXPECT_EQ(place->directoryInfo(), nullptr);
    EXPECT_NE(place->directory(), nullptr);
}

TEST(KTFileInfoTest, ASecondDirectoryOfAPathHasAPathOfItsOwn) {
    const TestFolder folder;
    const auto path = KTPath::pathWithPath(folder.path());
    const auto first = KTFileInfo::infoForPathObject(path);
    const auto second = KTFileInfo::infoForPathObject(path);

    EXPECT_EQ(first->pathObject(), path);
    EXPECT_NE(second->pathObject(), path);
    EXPECT_TRUE(second->isEqual(*first));
    EXPECT_EQ(path->directoryInfo(), first);
    EXPECT_EQ(second->pathObject()->directoryInfo(), second);
}

TEST(KTFileInfoTest, NamesAreComparedAsPeopleExpect) {
    const auto item = [](const char* path) {
        return KTFileInfo::initWithTypePathObject(1, KTPath::initWithCPath(path));
    };

    EXPECT_EQ(item("/z/a9")->compareNames(*item("/a/A10")), -1);
    EXPECT_EQ(item("/z/b")->compareNames(*item("/a/A")), 1);
    EXPECT_EQ(item("/z/b")->compareNames(*item("/a/b")), 0);
}

}  // namespace
}  // namespace sevrin
