// Tests of directories on real ones, by each of the three readers; then their names, sorting and
// subdirectories. Readers that fail, and many threads, are next door.
#include "Common/Source/Utilities/KTDirectory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSubPath.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Platform/DirectoryReader.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::DirectoryReader;
using platform::DirectoryReaderOverride;
using platform::TestFolder;
using platform::Value;

std::vector<std::string> namesOf(KTDirectory& directory) {
    std::vector<std::string> names;
    for (const KTFileInfoPtr& item : directory)
        names.push_back(item->name());
    return names;
}

std::multiset<std::string> setOf(const std::vector<std::string>& names) {
    return {names.begin(), names.end()};
}

class KTDirectoryReaderTest : public testing::TestWithParam<DirectoryReader> {
protected:
    const DirectoryReaderOverride override_{GetParam()};
    const TestFolder folder_;
};

std::string nameOf(const testing::TestParamInfo<DirectoryReader>& parameter) {
    switch (parameter.param) {
        case DirectoryReader::Bulk:
            return "Bulk";
        case DirectoryReader::Attribute:
            return "Attribute";
        default:
            return "Plain";
    }
}

INSTANTIATE_TEST_SUITE_P(Readers, KTDirectoryReaderTest,
                         testing::Values(DirectoryReader::Bulk, DirectoryReader::Attribute,
                                         DirectoryReader::Plain),
                         nameOf);

TEST_P(KTDirectoryReaderTest, AnEmptyDirectoryHasNoItemsAndIsReadOnce) {
    const auto directory = KTDirectory::directoryWithPath(folder_.path());

    EXPECT_EQ(directory->firstObject(), nullptr);
    EXPECT_EQ(directory->count(), 0U);
    folder_.write("a");
    EXPECT_EQ(directory->firstObject(), nullptr);
    EXPECT_EQ(directory->count(), 0U);
    directory->flushDirectoryContents();
    EXPECT_EQ(namesOf(*directory), std::vector<std::string>{"a"});
    EXPECT_EQ(directory->count(), 1U);
}

TEST_P(KTDirectoryReaderTest, EveryNameIsListedOnceAsTheBytesItIs) {
    const std::vector<std::string> names = {
        "a",      "-rf", ".hidden", "a\nb", "\xFF\xFE",           "e\u0301",
        "\u00E9", " ",   "...",     "..a",  std::string(255, 'x')};
    for (const std::string& name : names)
        folder_.write(name);

    const auto directory = KTDirectory::directoryWithPath(folder_.path());

    EXPECT_EQ(setOf(namesOf(*directory)), setOf(names));
    EXPECT_EQ(directory->count(), names.size());
}

TEST_P(KTDirectoryReaderTest, MoreEntriesThanABufferHoldsAreAllListed) {
    std::multiset<std::string> expected;
    for (int i = 0; i < 1000; ++i) {
        expected.insert("entry " + std::to_string(i));
        folder_.write("entry " + std::to_string(i));
    }
    const auto directory = KTDirectory::directoryWithPath(folder_.path());

    EXPECT_EQ(setOf(namesOf(*directory)), expected);
    EXPECT_EQ(directory->count(), 1000U);
}

TEST_P(KTDirectoryReaderTest, EveryEntryHasItsKindAndAttributes) {
    folder_.write("file", "hello");
    folder_.makeFolder("folder");
    folder_.write("folder/inner");
    folder_.makeLink("folder", "link");
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0620), 0);
    const auto directory = KTDirectory::directoryWithPath(folder_.path());

    const auto file = directory->objectMatchingCName("file")->asRegularFile();
    const auto inner = directory->subdirectoryMatchingName("folder");
    const auto link = directory->objectMatchingName("link");
    const auto pipe = directory->objectMatchingCName("pipe");

    EXPECT_EQ(file->logicalSize(), 5);
    EXPECT_EQ(file->linkCount(), 1U);
    EXPECT_EQ(inner->count(), 1U);
    EXPECT_EQ(inner->linkCount(), folder_.attributes("folder").st_nlink);
    EXPECT_FALSE(inner->isMountPoint());
    EXPECT_EQ(link->type(), 5U);
    EXPECT_EQ(link->asDirectory(), nullptr);
    EXPECT_EQ(pipe->type(), 7U);
    for (const KTFileInfoPtr& item : *directory) {
        const struct stat expected = folder_.attributes(item->name());
        EXPECT_EQ(item->localIdentifier(), expected.st_ino) << item->name();
        EXPECT_EQ(item->access(), expected.st_mode & 07777U) << item->name();
        EXPECT_EQ(item->modifiedTimeSpec().tv_nsec, expected.st_mtim.tv_nsec) << item->name();
        EXPECT_EQ(item->path(), folder_ / item->name());
    }
}

TEST_P(KTDirectoryReaderTest, AnEntryThatVanishesAfterTheListingSaysSoWhenItIsAsked) {
    folder_.write("gone");
    const auto directory = KTDirectory::directoryWithPath(folder_.path());
    const KTFileInfoPtr item = directory->firstObject();
    ASSERT_EQ(::unlink((folder_ / "gone").c_str()), 0);
    item->flushAttributes();

    try {
        static_cast<void>(item->ownerID());
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.reason(), "failed to get attributes");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(ENOENT));
        EXPECT_EQ(*exception.details().find("Path"), Value(folder_ / "gone"));
    }
    EXPECT_FALSE(item->reevaluateType()->exists());
    EXPECT_EQ(directory->infoForName("gone"), item);
}

TEST_P(KTDirectoryReaderTest, AnEntryThatBecomesAnotherThingAfterTheListingIsItWhenLookedAtAnew) {
    folder_.makeFolder("changes");
    const auto directory = KTDirectory::directoryWithPath(folder_.path());
    const KTDirectoryPtr item = directory->firstDirectory();
    ASSERT_EQ(::rmdir((folder_ / "changes").c_str()), 0);
    folder_.makeLink("elsewhere", "changes");

    EXPECT_EQ(item->firstObject(), nullptr);
    const KTFileInfoPtr now = item->reevaluateType();
    EXPECT_EQ(now->type(), 5U);
    EXPECT_EQ(now->livingParent(), directory);
}

TEST_P(KTDirectoryReaderTest, ADirectoryThatCannotBeOpenedListsAsEmptyAndIsTriedAgain) {
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath(folder_ / "later"))
            ->asDirectory();

    EXPECT_EQ(directory->firstObject(), nullptr);
    folder_.makeFolder("later");
    folder_.write("later/a");
    EXPECT_EQ(namesOf(*directory), std::vector<std::string>{"a"});
}

TEST_P(KTDirectoryReaderTest, AnEmptyListIsToldFromOneThatCouldNotBeRead) {
    folder_.makeFolder("empty");
    const auto empty = KTDirectory::directoryWithPath(folder_ / "empty");
    const auto missing =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath(folder_ / "missing"))
            ->asDirectory();
    EXPECT_FALSE(empty->isListed());

    empty->lazyDirectoryRead();
    missing->lazyDirectoryRead();

    EXPECT_TRUE(empty->isListed());
    EXPECT_FALSE(missing->isListed());
    empty->flushDirectoryContents();
    EXPECT_FALSE(empty->isListed());
}

TEST_P(KTDirectoryReaderTest, ALinkInTheDirectorysPlaceIsNotFollowed) {
    folder_.makeFolder("d");
    const auto directory = KTDirectory::directoryWithPath(folder_ / "d");
    ASSERT_EQ(::rmdir((folder_ / "d").c_str()), 0);
    folder_.makeFolder("secret");
    folder_.write("secret/a");
    folder_.makeLink("secret", "d");

    EXPECT_EQ(directory->firstObject(), nullptr);
}

TEST_P(KTDirectoryReaderTest, AnotherUsersDirectoryListsAsEmpty) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root becomes another user";
    folder_.makeFolder("private");
    folder_.write("private/a");
    ASSERT_EQ(::chmod((folder_ / "private").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    const auto directory = KTDirectory::directoryWithPath(folder_ / "private");

    ASSERT_EQ(::seteuid(12345), 0);
    const KTFileInfoPtr seen = directory->firstObject();
    ASSERT_EQ(::seteuid(0), 0);

    EXPECT_EQ(seen, nullptr);
    EXPECT_EQ(namesOf(*directory), std::vector<std::string>{"a"});
}

TEST(KTDirectoryTest, AnEntryWhoseAttributesMayNotBeSeenSaysSoWhenAsked) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root becomes another user";
    const TestFolder folder;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    folder.makeFolder("d");
    folder.write("d/a");
    ASSERT_EQ(::chmod((folder / "d").c_str(), 0744), 0);
    const auto directory = KTDirectory::directoryWithPath(folder / "d");

    ASSERT_EQ(::seteuid(12345), 0);
    const KTFileInfoPtr item = directory->firstObject();
    std::string reason;
    try {
        static_cast<void>(item->ownerID());
    } catch (const SVException& exception) {
        reason = exception.reason().value_or("");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(EACCES));
    }
    ASSERT_EQ(::seteuid(0), 0);

    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->name(), "a");
    EXPECT_EQ(item->type(), 1U);
    EXPECT_EQ(reason, "failed to get attributes");
}

TEST(KTDirectoryTest, WhatIsNoDirectoryIsNotOne) {
    const TestFolder folder;

    EXPECT_EQ(KTDirectory::directoryWithPath(folder.write("a")), nullptr);
    EXPECT_EQ(KTDirectory::directoryWithPath(folder / "b"), nullptr);
    EXPECT_EQ(KTDirectory::directoryWithPath(folder.makeLink(".", "l")), nullptr);
}

TEST(KTDirectoryTest, BeforeItIsReadTheCountIsThatOfTheEntries) {
    const TestFolder folder;
    folder.write("a");
    folder.makeFolder("b");
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(directory->count(), 2U);
    folder.write("c");
    EXPECT_EQ(directory->count(), 2U);
    directory->lazyDirectoryRead();
    EXPECT_EQ(directory->count(), 3U);
}

TEST(KTDirectoryTest, AfterAFlushTheCountIsThatOfTheEntriesAgain) {
    const TestFolder folder;
    folder.write("a");
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->lazyDirectoryRead();
    folder.write("b");
    EXPECT_EQ(directory->count(), 1U);

    directory->flushDirectoryContents();

    EXPECT_EQ(directory->count(), 2U);
}

TEST(KTDirectoryTest, ItsAttributesAreToldWithoutReadingIt) {
    const TestFolder folder;
    folder.write("a");
    // Reading a directory sets its time of access when that is before the last change.
    const timespec times[] = {{1, 0}, {0, UTIME_NOW}};
    ASSERT_EQ(::utimensat(AT_FDCWD, folder.path().c_str(), times, 0), 0);
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(directory->linkCount(), folder.attributes(".").st_nlink);
    EXPECT_FALSE(directory->isMountPoint());
    const auto before = folder.attributes(".").st_atim.tv_sec;
    EXPECT_EQ(directory->count(), 1U);

    EXPECT_EQ(before, 1);
    if (folder.attributes(".").st_atim.tv_sec == 1) GTEST_SKIP() << "no times of access are kept";
}

TEST(KTDirectoryTest, ALongPathIsListedWhole) {
    const TestFolder folder;
    std::string path = folder.path();
    while (path.size() < 3700) {
        path += "/" + std::string(250, 'd');
        ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
    }
    ASSERT_EQ(::symlink("x", (path + "/" + std::string(255, 'l')).c_str()), 0);
    const auto directory = KTDirectory::directoryWithPath(path);

    EXPECT_EQ(namesOf(*directory), std::vector<std::string>{std::string(255, 'l')});
    EXPECT_EQ(directory->firstObject()->localIdentifier() != 0, true);
    EXPECT_EQ(directory->firstObject()->path(), path + "/" + std::string(255, 'l'));
}

TEST(KTDirectoryTest, TheFirstOfAKindIsTheFirstInTheList) {
    const TestFolder folder;
    folder.makeFolder("1");
    folder.makeLink("x", "2");
    folder.write("3");
    ASSERT_EQ(::mkfifo((folder / "0").c_str(), 0600), 0);
    folder.write("4");
    folder.makeFolder("5");
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->sort();

    EXPECT_EQ(directory->firstObject()->name(), "0");
    EXPECT_EQ(directory->firstDirectory()->name(), "1");
    EXPECT_EQ(directory->firstContentFile()->name(), "2");
    EXPECT_EQ(directory->firstRegularFile()->name(), "3");
    EXPECT_EQ(directory->firstContentFile()->nextContentFile()->name(), "3");
    EXPECT_EQ(directory->firstRegularFile()->nextRegularFile()->name(), "4");
    EXPECT_EQ(directory->firstDirectory()->nextDirectory()->name(), "5");
    EXPECT_EQ(directory->firstDirectory()->nextDirectory()->nextObj(), nullptr);
    EXPECT_EQ(directory->firstDirectory()->nextDirectory()->nextDirectory(), nullptr);
    EXPECT_EQ(directory->firstAbstractObject(), directory->firstObject());
    EXPECT_EQ(directory->firstAbstractContentFile()->nextAbstractContentFile()->name(), "3");
    EXPECT_EQ(directory->firstAbstractRegularFile()->nextAbstractRegularFile()->name(), "4");
    EXPECT_EQ(directory->firstAbstractDirectory(), directory->firstDirectory());
    EXPECT_EQ(directory->firstAbstractObject()->nextAbstractObj()->name(), "1");
    EXPECT_EQ(directory->firstObject()->nextAbstractDirectory(), directory->firstDirectory());
}

TEST(KTDirectoryTest, AnEmptyListHasNoFirstOfAnyKind) {
    const TestFolder folder;
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(directory->firstContentFile(), nullptr);
    EXPECT_EQ(directory->firstRegularFile(), nullptr);
    EXPECT_EQ(directory->firstDirectory(), nullptr);
}

TEST(KTDirectoryTest, PortionsGiveTheWholeListInOrder) {
    const TestFolder folder;
    for (const char* name : {"1", "2", "3", "4", "5"})
        folder.write(name);
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->sort();

    FastEnumerationState state;
    std::array<KTFileInfoPtr, 2> portion;
    std::string names;
    std::vector<std::size_t> counts;
    for (std::size_t count = 1; count != 0;) {
        count = directory->countByEnumeratingWithStateObjectsCount(state, portion);
        counts.push_back(count);
        for (std::size_t i = 0; i < count; ++i)
            names += portion[i]->name();
    }

    EXPECT_EQ(names, "12345");
    EXPECT_EQ(counts, (std::vector<std::size_t>{2, 2, 1, 0}));
    EXPECT_EQ(state.state, 1U);
    EXPECT_NE(state.mutationsPtr, nullptr);
}

TEST(KTDirectoryTest, SearchingComparesBytes) {
    const TestFolder folder;
    folder.write("a");
    folder.makeFolder("d");
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(directory->objectMatchingCName("a")->name(), "a");
    EXPECT_EQ(directory->objectMatchingName("A"), nullptr);
    EXPECT_EQ(directory->subdirectoryMatchingCName("a"), nullptr);
    EXPECT_EQ(directory->subdirectoryMatchingCName("d")->name(), "d");
    EXPECT_EQ(directory->abstractObjectMatchingCName("a"), directory->objectMatchingName("a"));
    EXPECT_EQ(directory->abstractObjectMatchingName("a"), directory->objectMatchingName("a"));
    EXPECT_NE(directory->abstractSubdirectoryMatchingCName("d"), nullptr);
    EXPECT_EQ(directory->abstractSubdirectoryMatchingName("a"), nullptr);
}

TEST(KTDirectoryTest, APathWithinItIsMadeWithoutLooking) {
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath("/nowhere"))->asDirectory();

    EXPECT_EQ(directory->pathForName("a")->path(), "/nowhere/a");
    EXPECT_EQ(directory->pathForCName("a")->parent(), directory->pathObject());
}

TEST(KTDirectoryTest, TheItemOfANameIsThatOfTheListOrANewOne) {
    const TestFolder folder;
    folder.write("a");
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto listed = directory->firstObject();
    folder.write("later");

    EXPECT_EQ(directory->infoForName("a"), listed);
    EXPECT_EQ(directory->infoForCName("later")->type(), 1U);
    EXPECT_EQ(directory->infoForCName("later")->livingParent(), directory);
    EXPECT_FALSE(directory->infoForName("never")->exists());
}

TEST(KTDirectoryTest, ContainingIsAMatterOfTheText) {
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath("/a/b"))->asDirectory();

    EXPECT_TRUE(directory->containsFile(*KTPath::pathWithPath("/a/b/c")));
    EXPECT_FALSE(directory->containsFile(*KTPath::pathWithPath("/a/bc")));
    EXPECT_FALSE(directory->containsFile(*KTPath::pathWithPath("/a/b")));
    EXPECT_FALSE(directory->containsFile(*directory));
}

TEST(KTDirectoryTest, SortingByNameIsThatOfPeople) {
    const TestFolder folder;
    for (const char* name : {"b", "a10", "A9", "\u00E9", "z", "d"})
        folder.write(name);
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    directory->sort();

    EXPECT_EQ(namesOf(*directory),
              (std::vector<std::string>{"A9", "a10", "b", "d", "\u00E9", "z"}));
}

TEST(KTDirectoryTest, ACustomOrderIsTakenBackBySortingByName) {
    const TestFolder folder;
    for (const char* name : {"1", "2", "3"})
        folder.write(name);
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    directory->sort();
    directory->resortUsing(
        [](const KTFileInfo& left, const KTFileInfo& right) { return right.compareNames(left); });
    EXPECT_EQ(namesOf(*directory), (std::vector<std::string>{"3", "2", "1"}));
    directory->sort();
    EXPECT_EQ(namesOf(*directory), (std::vector<std::string>{"1", "2", "3"}));
}

TEST(KTDirectoryTest, AnEqualOrderKeepsTheList) {
    const TestFolder folder;
    for (int i = 0; i < 101; ++i)
        folder.write(std::to_string(i));
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto before = namesOf(*directory);

    directory->resortUsing([](const KTFileInfo&, const KTFileInfo&) { return 0; });

    EXPECT_EQ(namesOf(*directory), before);
}

TEST(KTDirectoryTest, ItemsThatCompareEqualKeepTheirOrder) {
    const TestFolder folder;
    for (int i = 0; i < 200; ++i)
        folder.write(std::to_string(i));
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto before = namesOf(*directory);
    const auto lastDigit = [](const std::string& name) { return name.back(); };

    directory->resortUsing([](const KTFileInfo& left, const KTFileInfo& right) {
        return left.name().back() - right.name().back();
    });

    auto expected = before;
    std::stable_sort(expected.begin(), expected.end(),
                     [&](const auto& a, const auto& b) { return lastDigit(a) < lastDigit(b); });
    EXPECT_EQ(namesOf(*directory), expected);
}

TEST(KTDirectoryTest, AComparisonThatThrowsLosesNoItem) {
    const TestFolder folder;
    for (int i = 0; i < 50; ++i)
        folder.write(std::to_string(i));
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    const auto before = setOf(namesOf(*directory));
    int calls = 0;

    EXPECT_THROW(directory->resortUsing([&](const KTFileInfo& left, const KTFileInfo& right) {
        if (++calls == 100) throw std::runtime_error("enough");
        return right.compareNames(left);
    }),
                 std::runtime_error);

    EXPECT_EQ(setOf(namesOf(*directory)), before);
    directory->sort();
    EXPECT_EQ(namesOf(*directory).front(), "0");
}

TEST(KTDirectoryTest, SortingTwiceByNameSortsOnce) {
    const TestFolder folder;
    for (const char* name : {"1", "2"})
        folder.write(name);
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->sort();
    const auto moved = directory->firstObject();
    moved->setPathObject(KTPath::pathWithPath("/z"));

    directory->sort();
    EXPECT_EQ(directory->firstObject(), moved);
    directory->resortUsing([](const KTFileInfo&, const KTFileInfo&) { return 0; });
    directory->sort();
    EXPECT_NE(directory->firstObject(), moved);
}

TEST(KTDirectoryTest, AFlushedListIsReadAndSortedAfresh) {
    const TestFolder folder;
    folder.write("2");
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->sort();
    const auto old = directory->firstObject();
    folder.write("1");

    directory->flushDirectoryContents();
    directory->sort();

    EXPECT_EQ(namesOf(*directory), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(old->nextObj(), nullptr);
}

TEST(KTDirectoryTest, ANewSubdirectoryIsAnItemAndNotInTheList) {
    const TestFolder folder;
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->lazyDirectoryRead();

    const auto made = directory->createSubdirectoryWithNameMode("sub", 0700);

    EXPECT_EQ(made->path(), folder / "sub");
    EXPECT_EQ(made->access(), 0700U);
    EXPECT_EQ(made->livingParent(), directory);
    EXPECT_EQ(directory->firstObject(), nullptr);
}

TEST(KTDirectoryTest, ASubdirectoryThatCannotBeMadeRaises) {
    const TestFolder folder;
    folder.write("sub");
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    try {
        directory->createSubdirectoryWithNameMode("sub", 0751);
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(exception.reason(), "could not create directory");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(EEXIST));
        EXPECT_EQ(*exception.details().find("Path"), Value(folder / "sub"));
        EXPECT_EQ(*exception.details().find("mode"), Value(0751));
    }
}

TEST(KTDirectoryTest, AUniqueSubdirectoryHasARandomName) {
    const TestFolder folder;
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    const auto first = directory->createUniqueSubdirectoryWithPrefixExtensionMode("tmp", "x", 0700);
    const auto second =
        directory->createUniqueSubdirectoryWithPrefixExtensionMode("tmp", std::nullopt, 0700);

    EXPECT_TRUE(std::regex_match(first->name(), std::regex("tmp\\.[0-9a-f]{8}\\.x")));
    EXPECT_TRUE(std::regex_match(second->name(), std::regex("tmp\\.[0-9a-f]{8}")));
    EXPECT_TRUE(folder.has(first->name()));
}

TEST(KTDirectoryTest, AUniqueNameIsUniqueAlsoWhereItsPrefixEndsEarly) {
    using namespace std::string_view_literals;
    const TestFolder folder;
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    for (int i = 0; i < 2; ++i) {
        const auto made =
            directory->createUniqueSubdirectoryWithPrefixExtensionMode("a\0b"sv, "x", 0700);
        EXPECT_TRUE(std::regex_match(made->name(), std::regex("a\\.[0-9a-f]{8}\\.x")));
    }
}

TEST(KTDirectoryTest, AUniqueSubdirectoryThatCannotBeMadeRaises) {
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath("/nowhere"))->asDirectory();
    try {
        directory->createUniqueSubdirectoryWithPrefixExtensionMode("tmp", "x", 0700);
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(ENOENT));
    }
}

TEST(KTDirectoryTest, WhetherItIsAPackageIsNoWhereThatCannotBeToldAndNothingIsLogged) {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath("/nowhere"))->asDirectory();

    EXPECT_FALSE(directory->isPackage());

    EXPECT_TRUE(logger->lines().empty());
}

TEST(KTDirectoryTest, ADirectoryIsNoPackage) {
    const TestFolder folder;

    EXPECT_FALSE(KTDirectory::directoryWithPath(folder.path())->isPackage());
}

}  // namespace
}  // namespace sevrin
