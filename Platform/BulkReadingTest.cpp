// Readings of whole directories: the same as getattrlistbulk() gives, for small directories and
// for those large enough to have a second thread help.
#include "Platform/BulkReading.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Platform/TestAttributes.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

constexpr attrgroup_t kItem = 0x0227'8F0B;  // a file item's attributes and its name
const attrlist kList = listOf(kItem | ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_ERROR, 0x7, 0x207);

// More than a reading reads before it looks for help.
constexpr int kMany = 6000;

UniqueFd openFolder(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
}

// Files and folders with names of all lengths, as links of one file where they are files.
void fill(const FileFolder& folder, int count) {
    const std::string file = folder.file("0");
    for (int i = 1; i < count; ++i) {
        const std::string name =
            std::to_string(i) + std::string(static_cast<std::size_t>(i * 7 % 240), 'n');
        if (i % 100 == 0) {
            folder.folder(name);
        } else {
            ASSERT_EQ(::link(file.c_str(), folder.at(name).c_str()), 0);
        }
    }
}

// All records one after the other, as `next` gives them in portions of `size` bytes.
std::string recordsOf(const std::function<int(void*, std::size_t)>& next, std::size_t size) {
    std::string records;
    std::vector<char> buffer(size);
    for (;;) {
        const int count = next(buffer.data(), buffer.size());
        EXPECT_GE(count, 0) << std::strerror(errno);
        if (count <= 0) return records;
        std::size_t used = 0;
        for (int i = 0; i < count; ++i)
            used += RecordReader(buffer.data() + used).take<std::uint32_t>();
        EXPECT_LE(used, size);
        records.append(buffer.data(), used);
    }
}

std::string readAtOnce(const std::string& path, std::size_t size = kBufferSize) {
    const UniqueFd directory = openFolder(path);
    BulkReading reading(directory.get(), kList, FSOPT_PACK_INVAL_ATTRS);
    return recordsOf([&](void* buffer, std::size_t room) { return reading.next(buffer, room); },
                     size);
}

std::string readCallByCall(const std::string& path) {
    const UniqueFd directory = openFolder(path);
    const auto next = [&](void* buffer, std::size_t size) {
        return getattrlistbulk(directory.get(), &kList, buffer, size, FSOPT_PACK_INVAL_ATTRS);
    };
    return recordsOf(next, kBufferSize);
}

std::multiset<std::string> namesIn(const std::string& records) {
    std::multiset<std::string> names;
    for (std::size_t at = 0; at < records.size();) {
        RecordReader record(records.data() + at);
        at += record.take<std::uint32_t>();
        record.take<attribute_set_t>();
        record.take<std::uint32_t>();
        names.insert(record.takeText());
    }
    return names;
}

class BulkReadingTest : public testing::TestWithParam<int> {
protected:
    BulkReadingTest() { fill(folder_, GetParam()); }

    const FileFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(Sizes, BulkReadingTest, testing::Values(1, 10, 1000, kMany));

TEST_P(BulkReadingTest, TheRecordsAreThoseOfTheCalls) {
    const std::string expected = readCallByCall(folder_.path());

    EXPECT_EQ(namesIn(expected).size(), static_cast<std::size_t>(GetParam()));
    EXPECT_TRUE(readAtOnce(folder_.path()) == expected);
}

TEST_P(BulkReadingTest, TheRecordsAreTheSameWhateverTheBuffer) {
    const std::string expected = readCallByCall(folder_.path());

    for (const std::size_t size : {500UL, 4000UL, 1UL << 20U})
        EXPECT_TRUE(readAtOnce(folder_.path(), size) == expected) << size;
}

TEST_P(BulkReadingTest, ABufferForNotEvenOneRecordLosesNothing) {
    const UniqueFd directory = openFolder(folder_.path());
    BulkReading reading(directory.get(), kList, FSOPT_PACK_INVAL_ATTRS);
    std::size_t failures = 0;
    const auto next = [&](void* buffer, std::size_t size) {
        char tooSmall[100];
        const int count = reading.next(tooSmall, sizeof tooSmall);
        if (count < 0 && errno == ERANGE) ++failures;
        return count == 0 ? 0 : reading.next(buffer, size);
    };

    const std::string records = recordsOf(next, kBufferSize);

    EXPECT_TRUE(records == readCallByCall(folder_.path()));
    EXPECT_GE(failures, 1U);
}

TEST_P(BulkReadingTest, WhatVanishesMeanwhileHidesNothingElse) {
    // Every tenth folder or file goes while all are read.
    const std::multiset<std::string> before = namesIn(readCallByCall(folder_.path()));
    std::vector<std::string> going;
    std::multiset<std::string> staying;
    int number = 0;
    for (const std::string& name : before) {
        if (++number % 10 == 0) {
            going.push_back(name);
        } else {
            staying.insert(name);
        }
    }
    std::atomic<bool> isOver = false;
    std::thread remover([&] {
        for (const std::string& name : going) {
            if (isOver) return;
            const std::string path = folder_.at(name);
            if (::unlink(path.c_str()) != 0) (void)::rmdir(path.c_str());
        }
    });

    std::multiset<std::string> names = namesIn(readAtOnce(folder_.path()));
    isOver = true;
    remover.join();
    for (const std::string& name : going) {
        EXPECT_LE(names.count(name), 1U);
        names.erase(name);
    }

    EXPECT_TRUE(names == staying);
}

TEST_P(BulkReadingTest, AReadingMayBeLeftAtAnyPoint) {
    const UniqueFd directory = openFolder(folder_.path());

    for (int portions = 0; portions < 60; ++portions) {
        ASSERT_EQ(::lseek(directory.get(), 0, SEEK_SET), 0);
        BulkReading reading(directory.get(), kList, FSOPT_PACK_INVAL_ATTRS);
        AttributeBuffer buffer;
        for (int i = 0; i < portions; ++i)
            EXPECT_GE(reading.next(buffer.data(), buffer.size()), 0);
    }
}

TEST_P(BulkReadingTest, ManyThreadsReadTheSameDirectoryAtOnce) {
    const std::string expected = readCallByCall(folder_.path());
    std::atomic<int> same = 0;
    std::vector<std::thread> threads;

    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] { same += readAtOnce(folder_.path()) == expected ? 1 : 0; });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(same, 4);
}

TEST(BulkReadingFailureTest, AListThatMakesNoSenseIsRefused) {
    const FileFolder folder;
    const UniqueFd directory = openFolder(folder.path());
    AttributeBuffer buffer;
    BulkReading reading(directory.get(), listOf(ATTR_CMN_NAME), 0);

    EXPECT_EQ(reading.next(buffer.data(), buffer.size()), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(BulkReadingFailureTest, WithoutABufferThereIsNoReading) {
    const FileFolder folder;
    const UniqueFd directory = openFolder(folder.path());
    BulkReading reading(directory.get(), kList, 0);

    EXPECT_EQ(reading.next(nullptr, 100), -1);
    EXPECT_EQ(errno, EFAULT);
}

TEST(BulkReadingFailureTest, WhatIsNoDirectoryHasNoEntries) {
    const FileFolder folder;
    const UniqueFd file = openFolder(folder.file("a"));
    AttributeBuffer buffer;
    BulkReading reading(file.get(), kList, 0);

    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(reading.next(buffer.data(), buffer.size()), -1);
        EXPECT_EQ(errno, ENOTDIR);
    }
}

}  // namespace
}  // namespace sevrin::platform
