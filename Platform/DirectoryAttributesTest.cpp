// Records of the entries of directories, from both readers.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <map>
#include <set>
#include <thread>
#include <vector>

#include "Platform/AttributeList.h"
#include "Platform/TestAttributes.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

using ::testing::UnorderedElementsAre;

constexpr attrgroup_t kItem = 0x0227'8F0B;  // a file item's attributes and its name
const attrlist kBulkList = listOf(kItem | ATTR_CMN_RETURNED_ATTRS, 0x7, 0x207);
const attrlist kPlainList = listOf(kItem, 0x7, 0x207);

UniqueFd openFolder(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
}

// What a test wants to know of an entry.
struct Entry {
    attribute_set_t returned{};
    fsobj_type_t type = 0;
    std::uint64_t inode = 0;
    std::size_t length = 0;
    std::vector<char> rest;  // the group of directories or files
};
using Entries = std::map<std::string, Entry>;

// Reads one record; gives where the next one begins.
const char* readEntry(const char* at, bool hasSet, Entries& entries) {
    RecordReader record(at);
    Entry entry;
    entry.length = record.take<std::uint32_t>();
    if (hasSet) entry.returned = record.take<attribute_set_t>();
    const std::string name = record.takeText();
    record.take<std::int32_t>();
    entry.type = record.take<fsobj_type_t>();
    record.take<std::array<char, 4 + 3 * 16 + 5 * 4>>();
    entry.inode = record.take<std::uint64_t>();
    EXPECT_EQ(record.distanceFrom(at), (hasSet ? 24U : 4U) + 8U + 88U);
    const std::size_t group = entry.type == VDIR ? 12 : 28;
    for (std::size_t i = 0; i < group; ++i)
        entry.rest.push_back(record.take<char>());
    const std::size_t text = (name.size() + 4) & ~std::size_t{3};
    EXPECT_EQ(entry.length, record.distanceFrom(at) + text) << name;
    EXPECT_TRUE(entries.emplace(name, entry).second) << name << " came twice";
    return at + entry.length;
}

// Everything the bulk reader gives, in buffers of `size` bytes.
Entries listBulk(int directory, std::size_t size = kBufferSize) {
    Entries entries;
    std::vector<char> buffer(size);
    for (;;) {
        const int count = getattrlistbulk(directory, &kBulkList, buffer.data(), buffer.size(),
                                          FSOPT_PACK_INVAL_ATTRS);
        EXPECT_GE(count, 0) << std::strerror(errno);
        if (count <= 0) return entries;
        const char* at = buffer.data();
        for (int i = 0; i < count; ++i)
            at = readEntry(at, true, entries);
        EXPECT_LE(at, buffer.data() + buffer.size());
    }
}

// The same from the older reader, at most `batch` entries a call.
Entries listPlain(int directory, std::uint32_t batch = 102) {
    Entries entries;
    AttributeBuffer buffer;
    for (;;) {
        std::uint32_t count = batch;
        std::uint32_t base = 0;
        std::uint32_t state = 0;
        const int end = getdirentriesattr(directory, &kPlainList, buffer.data(), buffer.size(),
                                          &count, &base, &state, 0);
        EXPECT_GE(end, 0) << std::strerror(errno);
        EXPECT_LE(count, batch);
        const char* at = buffer.data();
        for (std::uint32_t i = 0; i < count; ++i)
            at = readEntry(at, false, entries);
        if (end != 0) return entries;
    }
}

std::set<std::string> namesOf(const Entries& entries) {
    std::set<std::string> names;
    for (const auto& [name, entry] : entries)
        names.insert(name);
    return names;
}

// A folder of `count` files with names of all lengths.
std::set<std::string> fill(const FileFolder& folder, int count) {
    std::set<std::string> names;
    for (int i = 0; i < count; ++i) {
        const std::string name =
            std::to_string(i) + std::string(static_cast<std::size_t>(i * 7 % 240), 'n');
        folder.file(name);
        names.insert(name);
    }
    return names;
}

TEST(DirectoryAttributesTest, EachKindOfEntryHasItsOwnGroup) {
    const FileFolder folder;
    const std::string file = folder.file("file", "12345");
    const std::string inner = folder.folder("folder");
    folder.link("link", "folder");
    const UniqueFd directory = openFolder(folder.path());

    const Entries entries = listBulk(directory.get());

    ASSERT_THAT(namesOf(entries), UnorderedElementsAre("file", "folder", "link"));
    const Entry& fileEntry = entries.at("file");
    EXPECT_EQ(fileEntry.type, VREG);
    EXPECT_EQ(fileEntry.inode, statOf(file).st_ino);
    EXPECT_EQ(fileEntry.returned.fileattr, 0x207U);
    EXPECT_EQ(fileEntry.returned.dirattr, 0U);
    RecordReader sizes(fileEntry.rest.data());
    EXPECT_EQ(sizes.take<std::uint32_t>(), 1U);
    EXPECT_EQ(sizes.take<std::int64_t>(), 5);
    EXPECT_EQ(entries.at("link").type, VLNK);
    EXPECT_EQ(entries.at("link").returned.fileattr, 0x207U);
    EXPECT_EQ(entries.at("folder").type, VDIR);
    EXPECT_EQ(entries.at("folder").returned.fileattr, 0U);
}

TEST(DirectoryAttributesTest, ASubdirectorysEntryCountIsLeftOut) {
    const FileFolder folder;
    folder.folder("full");
    folder.file("full/a");
    const UniqueFd directory = openFolder(folder.path());

    const Entry entry = listBulk(directory.get()).at("full");

    EXPECT_EQ(entry.returned.dirattr, ATTR_DIR_LINKCOUNT | ATTR_DIR_MOUNTSTATUS);
    RecordReader group(entry.rest.data());
    EXPECT_EQ(group.take<std::uint32_t>(), statOf(folder.at("full")).st_nlink);
    EXPECT_EQ(group.take<std::uint32_t>(), 0U);
}

TEST(DirectoryAttributesTest, TheOlderReaderCountsASubdirectorysEntries) {
    const FileFolder folder;
    folder.folder("full");
    folder.file("full/a");
    folder.file("full/b");
    const UniqueFd directory = openFolder(folder.path());

    const Entry entry = listPlain(directory.get()).at("full");

    RecordReader group(entry.rest.data());
    group.take<std::uint32_t>();
    EXPECT_EQ(group.take<std::uint32_t>(), 2U);
}

TEST(DirectoryAttributesTest, AnEmptyDirectoryHasNoEntries) {
    const FileFolder folder;
    const UniqueFd one = openFolder(folder.path());
    const UniqueFd other = openFolder(folder.path());

    EXPECT_TRUE(listBulk(one.get()).empty());
    EXPECT_TRUE(listPlain(other.get()).empty());
}

TEST(DirectoryAttributesTest, EveryEntryComesOnceWhateverTheBuffer) {
    const FileFolder folder;
    const std::set<std::string> names = fill(folder, 500);

    // From the longest single record to all of them at once.
    for (const std::size_t size : {412U, 500U, 700U, 1024U, 4096U, 16384U, 1U << 20}) {
        const UniqueFd directory = openFolder(folder.path());
        EXPECT_EQ(namesOf(listBulk(directory.get(), size)), names) << size;
    }
}

TEST(DirectoryAttributesTest, EveryEntryComesOnceWhateverTheBatch) {
    const FileFolder folder;
    const std::set<std::string> names = fill(folder, 300);

    for (const std::uint32_t batch : {1U, 2U, 7U, 102U, 1000U}) {
        const UniqueFd directory = openFolder(folder.path());
        EXPECT_EQ(namesOf(listPlain(directory.get(), batch)), names) << batch;
    }
}

TEST(DirectoryAttributesTest, ABufferForNotEvenOneEntryFailsAndLosesNothing) {
    const FileFolder folder;
    folder.file("entry");
    const UniqueFd directory = openFolder(folder.path());
    AttributeBuffer buffer;

    for (int i = 0; i < 2; ++i) {
        errno = 0;
        EXPECT_EQ(getattrlistbulk(directory.get(), &kBulkList, buffer.data(), 100,
                                  FSOPT_PACK_INVAL_ATTRS),
                  -1);
        EXPECT_EQ(errno, ERANGE);
    }

    EXPECT_THAT(namesOf(listBulk(directory.get())), UnorderedElementsAre("entry"));
}

TEST(DirectoryAttributesTest, RecordsDoNotReachBeyondTheBuffer) {
    const FileFolder folder;
    fill(folder, 50);
    const UniqueFd directory = openFolder(folder.path());
    AttributeBuffer buffer;
    buffer.fill('\x55');

    ASSERT_GT(
        getattrlistbulk(directory.get(), &kBulkList, buffer.data(), 1000, FSOPT_PACK_INVAL_ATTRS),
        0);

    EXPECT_EQ(std::string(buffer.data() + 1000, 100), std::string(100, '\x55'));
}

TEST(DirectoryAttributesTest, NamesThatAreNoTextComeBackByteForByte) {
    const FileFolder folder;
    const std::set<std::string> names = {
        "\xff\xfe", "-rf", "line\nbreak", "e\xcc\x81", std::string(255, '\x80'), "..."};
    for (const std::string& name : names)
        folder.file(name);
    const UniqueFd one = openFolder(folder.path());
    const UniqueFd other = openFolder(folder.path());

    EXPECT_EQ(namesOf(listBulk(one.get())), names);
    EXPECT_EQ(namesOf(listPlain(other.get())), names);
}

TEST(DirectoryAttributesTest, WithoutPackingOnlyTheReturnedAttributesTakeRoom) {
    const FileFolder folder;
    folder.file("abc");
    const UniqueFd directory = openFolder(folder.path());
    const attrlist list = listOf(ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_NAME | ATTR_CMN_SCRIPT |
                                 ATTR_CMN_FILEID | ATTR_CMN_ERROR);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlistbulk(directory.get(), &list, buffer.data(), buffer.size(), 0), 1);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 24U + 8U + 8U + 4U);
    EXPECT_EQ(record.take<attribute_set_t>().commonattr,
              ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_NAME | ATTR_CMN_FILEID);
    EXPECT_EQ(record.takeText(), "abc");
    EXPECT_EQ(record.take<std::uint64_t>(), statOf(folder.at("abc")).st_ino);
}

TEST(DirectoryAttributesTest, ReadersRefuseListsThatDoNotFitThem) {
    const FileFolder folder;
    const UniqueFd directory = openFolder(folder.path());
    AttributeBuffer buffer;
    const std::array bulk = {listOf(ATTR_CMN_NAME), listOf(ATTR_CMN_RETURNED_ATTRS),
                             listOf(kBulkList.commonattr, 0, 0, ATTR_VOL_INFO)};
    const std::array older = {kBulkList, listOf(ATTR_CMN_NAME, 0, 0, ATTR_VOL_INFO)};

    for (const attrlist& list : bulk) {
        EXPECT_EQ(getattrlistbulk(directory.get(), &list, buffer.data(), buffer.size(), 0), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    for (const attrlist& list : older) {
        std::uint32_t count = 10;
        std::uint32_t base = 0;
        std::uint32_t state = 0;
        EXPECT_EQ(getdirentriesattr(directory.get(), &list, buffer.data(), buffer.size(), &count,
                                    &base, &state, 0),
                  -1);
        EXPECT_EQ(errno, EINVAL);
    }
}

TEST(DirectoryAttributesTest, OnlyDirectoriesHaveEntries) {
    const FileFolder folder;
    const UniqueFd file(::open(folder.file("a").c_str(), O_RDONLY | O_CLOEXEC));
    AttributeBuffer buffer;

    EXPECT_EQ(getattrlistbulk(file.get(), &kBulkList, buffer.data(), buffer.size(), 0), -1);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(getattrlistbulk(-1, &kBulkList, buffer.data(), buffer.size(), 0), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(DirectoryAttributesTest, ADirectorySwappedForALinkIsNotFollowed) {
    const FileFolder folder;
    folder.folder("a");
    folder.file("a/inside");
    folder.folder("elsewhere");
    folder.file("elsewhere/secret");
    const UniqueFd directory = openFolder(folder.at("a"));
    std::filesystem::rename(folder.at("a"), folder.at("b"));
    folder.link("a", "elsewhere");

    EXPECT_THAT(namesOf(listBulk(directory.get())), UnorderedElementsAre("inside"));
}

TEST(DirectoryAttributesTest, AChangeBetweenBatchesChangesTheState) {
    const FileFolder folder;
    fill(folder, 20);
    const UniqueFd directory = openFolder(folder.path());
    AttributeBuffer buffer;
    std::array<std::uint32_t, 3> states{};
    std::uint32_t base = 0;

    for (std::size_t i = 0; i < states.size(); ++i) {
        std::uint32_t count = 5;
        // A link more is a change that the clock of the file system need not be fine enough for.
        if (i == 2) folder.folder("new");
        ASSERT_EQ(getdirentriesattr(directory.get(), &kPlainList, buffer.data(), buffer.size(),
                                    &count, &base, &states[i], 0),
                  0);
    }

    EXPECT_EQ(states[0], states[1]);
    EXPECT_NE(states[1], states[2]);
}

// Runs `body` in a process of its own as a user who owns nothing; its exit status.
int asNobody(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isNobody = ::setgid(65534) == 0 && ::setuid(65534) == 0;
        ::_exit(isNobody ? body() : 99);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DirectoryAttributesTest, EntriesThatMayNotBeSeenKeepTheirNameTypeAndFileId) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
    const FileFolder folder;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    folder.folder("dim");
    const std::uint64_t inode = statOf(folder.file("dim/file")).st_ino;
    ASSERT_EQ(::chmod(folder.at("dim").c_str(), 0744), 0);  // to be read, not to be searched
    const attrlist list = listOf(kBulkList.commonattr | ATTR_CMN_ERROR, 0x7, 0x207);

    const int status = asNobody([&] {
        const UniqueFd directory = openFolder(folder.at("dim"));
        AttributeBuffer buffer;
        if (getattrlistbulk(directory.get(), &list, buffer.data(), buffer.size(), 0) != 1) return 1;
        RecordReader record(buffer.data());
        record.take<std::uint32_t>();
        const auto returned = record.take<attribute_set_t>();
        if (returned.commonattr != (ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_ERROR | ATTR_CMN_NAME |
                                    ATTR_CMN_OBJTYPE | ATTR_CMN_FILEID)) {
            return 2;
        }
        if (returned.fileattr != 0) return 3;
        if (record.take<std::uint32_t>() != EACCES) return 4;
        if (record.takeText() != "file") return 5;
        if (record.take<fsobj_type_t>() != VREG) return 6;
        return record.take<std::uint64_t>() == inode ? 0 : 7;
    });

    EXPECT_EQ(status, 0);
}

TEST(DirectoryAttributesTest, ADirectoryThatMayNotBeReadHasNoEntryCount) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become somebody else";
    const FileFolder folder;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0711), 0);
    const attrlist list = listOf(ATTR_CMN_RETURNED_ATTRS, ATTR_DIR_ENTRYCOUNT);

    const int status = asNobody([&] {
        AttributeBuffer buffer;
        if (getattrlist(folder.path().c_str(), &list, buffer.data(), buffer.size(), 0) != 0) {
            return 1;
        }
        RecordReader record(buffer.data());
        if (record.take<std::uint32_t>() != 24) return 2;
        return record.take<attribute_set_t>().dirattr == 0 ? 0 : 3;
    });

    EXPECT_EQ(status, 0);
}

TEST(DirectoryAttributesTest, WhatComesAndGoesMeanwhileHidesNothingElse) {
    const FileFolder folder;
    std::set<std::string> lasting;
    for (int i = 0; i < 300; ++i) {
        lasting.insert("lasting" + std::to_string(i));
        folder.file("lasting" + std::to_string(i));
    }
    std::atomic<bool> isOver{false};
    std::thread others([&] {
        for (int i = 0; !isOver; ++i) {
            const std::string path = folder.at("passing" + std::to_string(i % 50));
            if (i / 50 % 2 == 0) {
                std::ofstream(path).flush();
            } else {
                (void)::unlink(path.c_str());
            }
        }
    });

    for (int i = 0; i < 50; ++i) {
        const UniqueFd directory = openFolder(folder.path());
        AttributeBuffer buffer;
        std::multiset<std::string> names;
        int count = 0;
        while ((count = getattrlistbulk(directory.get(), &kBulkList, buffer.data(), buffer.size(),
                                        FSOPT_PACK_INVAL_ATTRS)) > 0) {
            const char* at = buffer.data();
            for (int entry = 0; entry < count; ++entry) {
                RecordReader record(at);
                at += record.take<std::uint32_t>();
                record.take<attribute_set_t>();
                const std::string name = record.takeText();
                if (name.starts_with("lasting")) names.insert(name);
            }
        }
        EXPECT_EQ(count, 0) << std::strerror(errno);
        EXPECT_EQ(names, (std::multiset<std::string>(lasting.begin(), lasting.end())));
    }
    isOver = true;
    others.join();
}

TEST(DirectoryAttributesTest, ManyThreadsReadTheSameDirectoryAtOnce) {
    const FileFolder folder;
    const std::set<std::string> names = fill(folder, 200);
    std::array<std::set<std::string>, 4> results;
    std::vector<std::thread> threads;

    for (std::set<std::string>& result : results) {
        threads.emplace_back([&folder, &result] {
            for (int i = 0; i < 5; ++i) {
                const UniqueFd directory = openFolder(folder.path());
                result = namesOf(listBulk(directory.get()));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    for (const std::set<std::string>& result : results)
        EXPECT_EQ(result, names);
}

TEST(DirectoryAttributesTest, ReadingBeginsAgainAfterARewind) {
    const FileFolder folder;
    const std::set<std::string> names = fill(folder, 40);
    const UniqueFd directory = openFolder(folder.path());
    EXPECT_EQ(namesOf(listPlain(directory.get())), names);

    ASSERT_EQ(::lseek(directory.get(), 0, SEEK_SET), 0);

    EXPECT_EQ(namesOf(listPlain(directory.get())), names);
}

}  // namespace
}  // namespace sevrin::platform
