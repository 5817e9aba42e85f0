// Two threads on one directory, also where the machine would have only one of them start, and where
// reading fails.
#include "Platform/linux/HelpedReading.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <set>
#include <string>
#include <thread>

#include "Platform/BulkReading.h"
#include "Platform/TestAttributes.h"

namespace sevrin::platform {
namespace {

constexpr attrgroup_t kItem = 0x0227'8F0B | ATTR_CMN_RETURNED_ATTRS;

AttributeRequest requestOf(const attrlist& list) {
    AttributeRequest request;
    EXPECT_EQ(readBulkRequest(&list, FSOPT_PACK_INVAL_ATTRS, request), 0);
    return request;
}

UniqueFd openFolder(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
}

std::multiset<std::string> fill(const FileFolder& folder, int count) {
    std::multiset<std::string> names;
    for (int i = 0; i < count; ++i) {
        folder.file(std::to_string(i));
        names.insert(std::to_string(i));
    }
    return names;
}

std::multiset<std::string> namesLeft(HelpedReading& reading) {
    std::multiset<std::string> names;
    alignas(8) std::array<std::byte, kBufferSize> buffer;
    for (int count; (count = reading.next(buffer.data(), buffer.size())) > 0;) {
        const std::byte* at = buffer.data();
        for (int i = 0; i < count; ++i) {
            RecordReader record(at);
            at += record.take<std::uint32_t>();
            record.take<attribute_set_t>();
            names.insert(record.takeText());
        }
    }
    return names;
}

TEST(HelpedReadingTest, AFewEntriesComeOnce) {
    for (const int count : {0, 1, 2, 300}) {
        const FileFolder folder;
        const auto names = fill(folder, count);
        const UniqueFd directory = openFolder(folder.path());
        const AttributeRequest request = requestOf(listOf(kItem, 0x7, 0x207));
        const auto reading = HelpedReading::tryToStart(directory.get(), request);
        ASSERT_NE(reading, nullptr);

        EXPECT_EQ(namesLeft(*reading), names);
    }
}

// While it lives, this thread has one processor.
class OneProcessor {
public:
    OneProcessor() {
        EXPECT_EQ(::sched_getaffinity(0, sizeof before_, &before_), 0);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(::sched_getcpu(), &one);
        EXPECT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
    }
    ~OneProcessor() { ::sched_setaffinity(0, sizeof before_, &before_); }

private:
    cpu_set_t before_;
};

// How many threads this process has, whether they have run or not.
std::ptrdiff_t threadCount() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"),
                         std::filesystem::directory_iterator());
}

// Whether a helper turns up before the whole of a large directory has been read.
bool hasHelpReading(const std::string& path) {
    const UniqueFd directory = openFolder(path);
    const std::ptrdiff_t before = threadCount();
    BulkReading reading(directory.get(), listOf(kItem, 0x7, 0x207), FSOPT_PACK_INVAL_ATTRS);
    alignas(8) std::array<std::byte, kBufferSize> buffer;
    while (reading.next(buffer.data(), buffer.size()) > 0) {
        if (threadCount() > before) return true;
    }
    return false;
}

TEST(HelpedReadingTest, OnOneProcessorALargeDirectoryIsReadByOne) {
    const FileFolder folder;
    fill(folder, 6000);
    const OneProcessor one;

    EXPECT_FALSE(hasHelpReading(folder.path()));
}

TEST(HelpedReadingTest, WhereThereAreTwoProcessorsALargeDirectoryIsReadByTwo) {
    cpu_set_t all;
    ASSERT_EQ(::sched_getaffinity(0, sizeof all, &all), 0);
    if (CPU_COUNT(&all) < 2) GTEST_SKIP() << "this process has one processor only";
    const FileFolder folder;
    fill(folder, 6000);

    EXPECT_TRUE(hasHelpReading(folder.path()));
}

TEST(HelpedReadingTest, ASmallDirectoryIsReadByOne) {
    const FileFolder folder;
    fill(folder, 1000);

    EXPECT_FALSE(hasHelpReading(folder.path()));
}

TEST(HelpedReadingTest, TwoThreadsOnOneProcessorGiveAllEntries) {
    const FileFolder folder;
    const auto names = fill(folder, 3000);
    const OneProcessor one;
    const UniqueFd directory = openFolder(folder.path());
    const AttributeRequest request = requestOf(listOf(kItem, 0x7, 0x207));
    const auto reading = HelpedReading::tryToStart(directory.get(), request);
    ASSERT_NE(reading, nullptr);

    EXPECT_EQ(namesLeft(*reading), names);
}

TEST(HelpedReadingTest, ItBeginsWhereTheDescriptorIs) {
    const FileFolder folder;
    fill(folder, 300);
    const UniqueFd directory = openFolder(folder.path());
    const AttributeRequest request = requestOf(listOf(kItem, 0x7, 0x207));
    alignas(8) std::array<std::byte, 4096> names;
    std::size_t before = 0;
    const long read = readEntries(directory.get(), names.data(), names.size());
    for (std::size_t at = 0; at < static_cast<std::size_t>(read);) {
        const DirectoryEntry& entry = entryAt(names.data() + at);
        if (!isDotEntry(entry)) ++before;
        at += entry.length;
    }
    const auto reading = HelpedReading::tryToStart(directory.get(), request);
    ASSERT_NE(reading, nullptr);

    EXPECT_EQ(namesLeft(*reading).size(), 300 - before);
}

TEST(HelpedReadingTest, AFailureComesAfterWhatWasReadAndMayBeRetried) {
    const FileFolder folder;
    const auto names = fill(folder, 300);
    UniqueFd directory = openFolder(folder.path());
    const int number = directory.get();
    const AttributeRequest request = requestOf(listOf(kItem, 0x7, 0x207));
    const auto reading = HelpedReading::tryToStart(number, request);
    ASSERT_NE(reading, nullptr);
    // What takes the directory's place has no entries; the helper has its own.
    const UniqueFd file = openFolder(folder.at("0"));
    const UniqueFd kept(::dup(number));
    alignas(8) std::array<std::byte, kBufferSize> buffer;

    ASSERT_EQ(::dup2(file.get(), number), number);
    EXPECT_EQ(reading->next(buffer.data(), buffer.size()), -1);
    EXPECT_EQ(errno, ENOTDIR);
    ASSERT_EQ(::dup2(kept.get(), number), number);

    EXPECT_EQ(namesLeft(*reading), names);
}

// In each record: a name, no attributes, and why not.
void expectNamesAndErrorsOnly(const std::byte* records, int count) {
    for (int i = 0; i < count; ++i) {
        RecordReader record(records);
        records += record.take<std::uint32_t>();
        EXPECT_EQ(record.take<attribute_set_t>().commonattr & ATTR_CMN_MODTIME, 0U);
        EXPECT_EQ(record.take<std::uint32_t>(), static_cast<std::uint32_t>(EACCES));
        EXPECT_FALSE(record.takeText().empty());
    }
}

TEST(HelpedReadingTest, TheHelperSeesNoMoreThanTheThreadThatItHelps) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
    const FileFolder folder;
    fill(folder, 3000);
    ASSERT_EQ(::chmod(folder.path().c_str(), 0744), 0);  // to be read, not to be searched
    int entries = 0;

    // The calls themselves, not those of the C library, change the one thread alone.
    std::thread nobody([&] {
        ASSERT_EQ(::syscall(SYS_setresgid, 65534, 65534, 65534), 0);
        ASSERT_EQ(::syscall(SYS_setresuid, 65534, 65534, 65534), 0);
        const UniqueFd directory = openFolder(folder.path());
        const AttributeRequest request = requestOf(listOf(kItem | ATTR_CMN_ERROR, 0x7, 0x207));
        const auto reading = HelpedReading::tryToStart(directory.get(), request);
        ASSERT_NE(reading, nullptr);
        alignas(8) std::array<std::byte, kBufferSize> buffer;
        for (int count; (count = reading->next(buffer.data(), buffer.size())) > 0;) {
            expectNamesAndErrorsOnly(buffer.data(), count);
            entries += count;
        }
    });
    nobody.join();

    EXPECT_EQ(entries, 3000);
}

TEST(HelpedReadingTest, AfterTheEndThereIsNothing) {
    const FileFolder folder;
    fill(folder, 10);
    const UniqueFd directory = openFolder(folder.path());
    const AttributeRequest request = requestOf(listOf(kItem, 0x7, 0x207));
    const auto reading = HelpedReading::tryToStart(directory.get(), request);
    ASSERT_NE(reading, nullptr);
    static_cast<void>(namesLeft(*reading));
    alignas(8) std::array<std::byte, kBufferSize> buffer;

    EXPECT_EQ(reading->next(buffer.data(), buffer.size()), 0);
    EXPECT_EQ(reading->next(buffer.data(), buffer.size()), 0);
}

TEST(HelpedReadingTest, RecordsLongerThanASliceExpectsAreReadAlone) {
    const FileFolder folder;
    const UniqueFd directory = openFolder(folder.path());
    const AttributeRequest everything = requestOf(listOf(0xFFFF'FFFF, 0x3F, 0x37AF));

    EXPECT_EQ(HelpedReading::tryToStart(directory.get(), everything), nullptr);
}

}  // namespace
}  // namespace sevrin::platform
