// Tests of directories whose reading fails, or that change meanwhile, of very large ones, and of
// many threads at once.
#include "Common/Source/Utilities/KTDirectoryReading.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/DirectoryReader.h"
#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

using platform::attrlist;
using platform::DirectoryReader;
using platform::DirectoryReaderOverride;
using platform::TestFolder;
using platform::Value;

// What the calls below do next.
std::vector<int> errorsToGive;
std::string fileMadeAfterFirstBatch;
int callsMade = 0;
std::uint32_t firstBatch = 0;

class KTDirectoryReadingTest : public testing::Test {
protected:
    void SetUp() override {
        errorsToGive.clear();
        callsMade = 0;
    }
};

int failingBulk(platform::BulkReading& reading, void* buffer, std::size_t size) {
    const auto call = static_cast<std::size_t>(callsMade++);
    if (call < errorsToGive.size() && errorsToGive[call] != 0) {
        errno = errorsToGive[call];
        return -1;
    }
    return reading.next(buffer, size);
}

int failingAttributes(int, const attrlist*, void*, std::size_t, std::uint32_t*, std::uint32_t*,
                      std::uint32_t*, std::uint32_t) {
    errno = EIO;
    return -1;
}

// After the first batch somebody adds a file.
int changingAttributes(int fd, const attrlist* list, void* buffer, std::size_t size,
                       std::uint32_t* count, std::uint32_t* base, std::uint32_t* state,
                       std::uint32_t options) {
    if (callsMade++ == 1) {
        const int file = ::open(fileMadeAfterFirstBatch.c_str(), O_CREAT | O_WRONLY, 0600);
        ::close(file);
    }
    const int result =
        platform::getdirentriesattr(fd, list, buffer, size, count, base, state, options);
    if (callsMade == 1) firstBatch = *count;
    return result;
}

std::multiset<std::string> namesIn(KTDirectory& directory) {
    std::multiset<std::string> names;
    for (const KTFileInfoPtr& item : directory)
        names.insert(item->name());
    return names;
}

std::multiset<std::string> writeFiles(const TestFolder& folder, int count) {
    std::multiset<std::string> names;
    for (int i = 0; i < count; ++i) {
        names.insert(std::to_string(i));
        folder.write(std::to_string(i));
    }
    return names;
}

void expectReadFailure(KTDirectory& directory, int error, std::string_view api) {
    try {
        static_cast<void>(directory.firstObject());
        FAIL();
    } catch (const SVException& exception) {
        EXPECT_EQ(exception.name(), "IO");
        EXPECT_EQ(exception.reason(), "failed to read directory");
        EXPECT_EQ(*exception.details().find("POSIXErr"), Value(error));
        EXPECT_EQ(*exception.details().find("API"), Value(api));
        EXPECT_EQ(*exception.details().find("Path"), Value(directory.path()));
    }
}

TEST_F(KTDirectoryReadingTest, AnEntryThatDoesNotFitOnceIsAskedForAgain) {
    const TestFolder folder;
    const auto names = writeFiles(folder, 300);
    const KTDirectoryCallsOverride calls({.getattrlistbulk = &failingBulk});
    errorsToGive = {ERANGE, 0, ERANGE, 0, ERANGE};
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(namesIn(*directory), names);
    EXPECT_GE(callsMade, 6);
}

TEST_F(KTDirectoryReadingTest, AnEntryThatDoesNotFitTwiceRaises) {
    const TestFolder folder;
    const auto names = writeFiles(folder, 300);
    const KTDirectoryCallsOverride calls({.getattrlistbulk = &failingBulk});
    errorsToGive = {0, ERANGE, ERANGE};
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    expectReadFailure(*directory, ERANGE, "getattrlistbulk");
    EXPECT_EQ(namesIn(*directory), names);
    EXPECT_EQ(directory->count(), 300U);
}

TEST_F(KTDirectoryReadingTest, AnyOtherFailureRaisesAtOnce) {
    const TestFolder folder;
    const auto names = writeFiles(folder, 3);
    const KTDirectoryCallsOverride calls({.getattrlistbulk = &failingBulk});
    errorsToGive = {EIO};
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    expectReadFailure(*directory, EIO, "getattrlistbulk");
    EXPECT_EQ(callsMade, 1);
}

TEST_F(KTDirectoryReadingTest, AFileInTheDirectorysPlaceRaises) {
    const TestFolder folder;
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath(folder.write("a")))
            ->asDirectory();

    expectReadFailure(*directory, ENOTDIR, "getattrlistbulk");
}

TEST_F(KTDirectoryReadingTest, TheAttributeReaderRaisesToo) {
    const TestFolder folder;
    const DirectoryReaderOverride reader(DirectoryReader::Attribute);
    const KTDirectoryCallsOverride calls({.getdirentriesattr = &failingAttributes});

    expectReadFailure(*KTDirectory::directoryWithPath(folder.path()), EIO, "getdirentriesattr");
}

TEST_F(KTDirectoryReadingTest, ADirectoryThatChangesIsReadFromItsStart) {
    const TestFolder folder;
    auto names = writeFiles(folder, 350);
    fileMadeAfterFirstBatch = folder / "new";
    names.insert("new");
    const DirectoryReaderOverride reader(DirectoryReader::Attribute);
    const KTDirectoryCallsOverride calls({.getdirentriesattr = &changingAttributes});
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_EQ(namesIn(*directory), names);
    // What had been counted before it changed stays counted.
    EXPECT_GT(firstBatch, 0U);
    EXPECT_EQ(directory->count(), 351U + firstBatch);
}

TEST_F(KTDirectoryReadingTest, AFileInTheDirectorysPlaceIsNothingToThePlainReader) {
    const TestFolder folder;
    const DirectoryReaderOverride reader(DirectoryReader::Plain);
    const auto directory =
        KTFileInfo::initWithTypePathObject(2, KTPath::pathWithPath(folder.write("a")))
            ->asDirectory();

    EXPECT_EQ(directory->firstObject(), nullptr);
}

// Waits until an item has ended; the queue that ends them is in the background.
void waitForEndOf(const std::weak_ptr<KTFileInfo>& item) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!item.expired() && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();
}

TEST_F(KTDirectoryReadingTest, AVeryLargeDirectoryIsListedSortedAndReleased) {
    constexpr int kEntries = 200'000;
    const TestFolder folder(::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp");
    const int place = ::open(folder.path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (int i = 0; i < kEntries; ++i) {
        const std::string name = "entry " + std::to_string(i);
        ASSERT_EQ(::symlinkat("x", place, name.c_str()), 0);
    }
    ::close(place);
    std::weak_ptr<KTFileInfo> last;
    {
        const auto directory = KTDirectory::directoryWithPath(folder.path());
        directory->sort();
        int number = 0;
        for (const KTFileInfoPtr& item : *directory) {
            ASSERT_EQ(item->name(), "entry " + std::to_string(number++));
            last = item;
        }
        EXPECT_EQ(number, kEntries);
        EXPECT_EQ(directory->count(), static_cast<std::uint64_t>(kEntries));
    }
    waitForEndOf(last);
    EXPECT_TRUE(last.expired());
}

// Everything that the list says of its items, in its order.
std::string describe(KTDirectory& directory) {
    std::string text;
    for (const KTFileInfoPtr& item : directory) {
        text.append(item->name() + " " + std::to_string(item->type()));
        text.append(" " + std::to_string(item->localIdentifier()));
        text.append(" " + std::to_string(item->linkCount()));
        text.append(" " + std::to_string(item->effectiveAccess()));
        text.append(" " + std::to_string(item->modifiedTimeSpec().tv_nsec));
        if (const auto file = item->asRegularFile())
            text.append(" " + std::to_string(file->logicalSize()));
        text.append("\n");
    }
    return text;
}

TEST_F(KTDirectoryReadingTest, ALargeDirectoryHasTheItemsOfThePlainReaderInItsOrder) {
    // So many that the bulk reader has help where there are two processors.
    constexpr int kEntries = 6000;
    const TestFolder folder;
    for (int i = 0; i < kEntries; ++i) {
        const std::string name = "entry " + std::to_string(i);
        switch (i % 10) {
            case 0:
                folder.makeFolder(name);
                break;
            case 1:
                folder.makeLink("entry 2", name);
                break;
            default:
                folder.write(name, std::string(static_cast<std::size_t>(i % 7), 'x'));
                break;
        }
    }
    std::string expected;
    {
        const DirectoryReaderOverride reader(DirectoryReader::Plain);
        expected = describe(*KTDirectory::directoryWithPath(folder.path()));
    }
    const auto directory = KTDirectory::directoryWithPath(folder.path());

    EXPECT_TRUE(describe(*directory) == expected);
    EXPECT_EQ(directory->count(), static_cast<std::uint64_t>(kEntries));
}

TEST_F(KTDirectoryReadingTest, AnItemThatIsKeptKeepsTheRestOfTheListing) {
    const TestFolder folder;
    writeFiles(folder, 10);
    auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->sort();
    std::weak_ptr<KTFileInfo> first = directory->firstObject();
    const KTFileInfoPtr kept = directory->objectMatchingCName("5");

    directory.reset();
    waitForEndOf(first);

    EXPECT_TRUE(first.expired());
    EXPECT_EQ(kept->nextObj()->nextObj()->nextObj()->nextObj()->name(), "9");
    EXPECT_EQ(kept->path(), folder / "5");
}

// One of many who do everything at once; every name that comes has to be one of the directory's.
void listSortFlushAndDrop(const KTDirectoryPtr& shared, const std::string& path, int seed,
                          std::atomic<int>& wrong) {
    for (int round = 0; round < 40; ++round) {
        const KTDirectoryPtr own = KTDirectory::directoryWithPath(path);
        const KTDirectoryPtr& directory = round % 3 == 0 ? own : shared;
        switch ((round + seed) % 4) {
            case 0:
                directory->sort();
                break;
            case 1:
                directory->flushDirectoryContents();
                break;
            case 2:
                directory->resortUsing([](const KTFileInfo& left, const KTFileInfo& right) {
                    return right.compareNames(left);
                });
                break;
            default:
                directory->flushAttributes();
                break;
        }
        for (const KTFileInfoPtr& item : *directory) {
            if (item->path() != path + "/" + item->cName() || item->ownerID() != ::geteuid()) {
                ++wrong;
            }
            if (round % 5 == 0) item->flushAttributes();
        }
        static_cast<void>(directory->count());
        static_cast<void>(directory->objectMatchingCName("7"));
        if (directory->displayPath() != directory->volumeInfo()->rootDirectory()->displayPath() +
                                            *directory->volumeRelativePath() + "/") {
            ++wrong;
        }
    }
}

TEST_F(KTDirectoryReadingTest, ManyThreadsListSortFlushAndDropAtOnce) {
    const TestFolder folder;
    const std::string first = folder.makeFolder("first");
    const std::string second = folder.makeFolder("second");
    for (int i = 0; i < 60; ++i) {
        folder.write("first/" + std::to_string(i));
        folder.write("second/" + std::to_string(i));
    }
    const KTDirectoryPtr directories[] = {KTDirectory::directoryWithPath(first),
                                          KTDirectory::directoryWithPath(second)};
    std::atomic<int> wrong = 0;

    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([&, i] {
            const KTDirectoryPtr& directory = directories[i % 2];
            listSortFlushAndDrop(directory, directory->path(), i, wrong);
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(wrong, 0);
    for (const KTDirectoryPtr& directory : directories) {
        directory->sort();
        EXPECT_EQ(namesIn(*directory).size(), 60U);
    }
}

TEST_F(KTDirectoryReadingTest, WhoWalksAListThatIsBeingSortedWaitsForItsNewOrder) {
    const TestFolder folder;
    writeFiles(folder, 9);
    const auto directory = KTDirectory::directoryWithPath(folder.path());
    directory->sort();
    const KTFileInfoPtr first = directory->firstObject();
    std::atomic<bool> isSorting = false;
    std::atomic<bool> mayGoOn = false;
    std::thread sorter([&] {
        directory->resortUsing([&](const KTFileInfo& left, const KTFileInfo& right) {
            isSorting = true;
            isSorting.notify_all();
            mayGoOn.wait(false);
            return right.compareNames(left);
        });
    });
    isSorting.wait(false);
    std::atomic<bool> hasAsked = false;
    KTFileInfoPtr next = first;
    std::thread walker([&] {
        hasAsked = true;
        hasAsked.notify_all();
        next = first->nextObj();
    });
    hasAsked.wait(false);

    mayGoOn = true;
    mayGoOn.notify_all();
    walker.join();
    sorter.join();

    // "0" was the first and is the last.
    EXPECT_EQ(next, nullptr);
}

}  // namespace
}  // namespace sevrin
