// Records of single objects: which bytes they are, and what is said about lists that make no sense.
#include "Platform/AttributeList.h"

#include <gmock/gmock.h>

#include "Platform/TestAttributes.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

constexpr attrgroup_t kItem = 0x0227'8F0A;  // what a file item keeps of every object
constexpr unsigned long kProbeOptions = FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE;
constexpr unsigned long kFetchOptions = kProbeOptions | FSOPT_PACK_INVAL_ATTRS;

void expectTime(timespec actual, timespec expected) {
    EXPECT_EQ(actual.tv_sec, expected.tv_sec);
    EXPECT_EQ(actual.tv_nsec, expected.tv_nsec);
}

// The fields of kItem after the returned set, in the order of their bits.
void expectItem(RecordReader& record, const struct stat& stat, fsobj_type_t type,
                bool hasCreationTime) {
    EXPECT_EQ(record.take<std::int32_t>(), static_cast<std::int32_t>(stat.st_dev));
    EXPECT_EQ(record.take<fsobj_type_t>(), type);
    EXPECT_EQ(record.take<std::uint32_t>(), kUnicodeScript);
    EXPECT_EQ(record.take<timespec>().tv_sec > 0, hasCreationTime);
    expectTime(record.take<timespec>(), stat.st_mtim);
    expectTime(record.take<timespec>(), stat.st_ctim);
    EXPECT_EQ(record.take<std::uint32_t>(), stat.st_uid);
    EXPECT_EQ(record.take<std::uint32_t>(), stat.st_gid);
    EXPECT_EQ(record.take<std::uint32_t>(), stat.st_mode);
    EXPECT_EQ(record.take<std::uint32_t>() & ~std::uint32_t{UF_NODUMP}, 0U);
    EXPECT_EQ(record.take<std::uint32_t>() & ~std::uint32_t{R_OK | W_OK | X_OK}, 0U);
    EXPECT_EQ(record.take<std::uint64_t>(), stat.st_ino);
}

TEST(AttributeListTest, ARecordOfAFileHasEachFieldInItsPlace) {
    const FileFolder folder;
    const std::string path = folder.file("report.txt", std::string(5000, 'x'));
    const struct stat stat = statOf(path);
    const attrlist list = listOf(kItem | ATTR_CMN_RETURNED_ATTRS, 0, 0x207);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), 24 + 116, kFetchOptions), 0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 24U + 116U);
    const auto returned = record.take<attribute_set_t>();
    EXPECT_EQ(returned.commonattr & ~ATTR_CMN_CRTIME,
              (list.commonattr & ~ATTR_CMN_SCRIPT) & ~ATTR_CMN_CRTIME);
    EXPECT_EQ(returned.fileattr, 0x207U);
    EXPECT_EQ(returned.dirattr, 0U);
    expectItem(record, stat, VREG, (returned.commonattr & ATTR_CMN_CRTIME) != 0);
    EXPECT_EQ(record.distanceFrom(buffer.data()), 24U + 88U);
    EXPECT_EQ(record.take<std::uint32_t>(), 1U);
    EXPECT_EQ(record.take<std::int64_t>(), 5000);
    EXPECT_EQ(record.take<std::int64_t>(), stat.st_blocks * 512);
    EXPECT_EQ(record.take<std::int64_t>(), 5000);
}

TEST(AttributeListTest, ARecordOfADirectoryHasEachFieldInItsPlace) {
    const FileFolder folder;
    folder.file("a");
    folder.folder("b");
    folder.link("c", "a");
    const attrlist list = listOf(kItem | ATTR_CMN_RETURNED_ATTRS, 0x7, 0x207);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(folder.path().c_str(), &list, buffer.data(), 24 + 100, kFetchOptions), 0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 24U + 100U);
    const auto returned = record.take<attribute_set_t>();
    EXPECT_EQ(returned.dirattr, 0x7U);
    EXPECT_EQ(returned.fileattr, 0U);
    const struct stat stat = statOf(folder.path());
    expectItem(record, stat, VDIR, (returned.commonattr & ATTR_CMN_CRTIME) != 0);
    EXPECT_EQ(record.take<std::uint32_t>(), stat.st_nlink);
    EXPECT_EQ(record.take<std::uint32_t>(), 3U);
    EXPECT_EQ(record.take<std::uint32_t>(), 0U);
}

TEST(AttributeListTest, WithoutPackingWhatIsNotKnownTakesNoRoom) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const attrlist list =
        listOf(ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_OBJTAG | ATTR_CMN_SCRIPT | ATTR_CMN_FILEID);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 24U + 8U);
    EXPECT_EQ(record.take<attribute_set_t>().commonattr, ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_FILEID);
    EXPECT_EQ(record.take<std::uint64_t>(), statOf(path).st_ino);
}

TEST(AttributeListTest, EveryAttributePackedHasTheSizeOfItsType) {
    const FileFolder folder;
    const std::string path = folder.file("abcdefg");
    const attrlist list = listOf(0xFFFF'FFFF, 0x3F, 0x37AF);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), kFetchOptions), 0);

    RecordReader record(buffer.data());
    const auto length = record.take<std::uint32_t>();
    record.take<attribute_set_t>();
    EXPECT_EQ(record.take<std::uint32_t>(), 0U);  // the error stands before all but the set
    EXPECT_EQ(record.takeText(), "abcdefg");
    record.take<std::array<char, 4 + 8 + 4 + 4 + 8 + 8 + 8 + 4>>();
    record.take<std::array<char, 5 * 16 + 32 + 4 + 4 + 4 + 4 + 4 + 4 + 4>>();
    EXPECT_EQ(record.takeText(), "");  // extended security
    record.take<std::array<char, 16 + 16>>();
    EXPECT_EQ(record.take<std::uint64_t>(), statOf(path).st_ino);
    record.take<std::uint64_t>();
    EXPECT_EQ(record.takeText(), std::filesystem::canonical(path).string());
    record.take<std::array<char, 16 + 4>>();
    record.take<std::array<char, 4 + 8 + 8 + 4 + 4 + 4 + 8 + 8 + 8 + 8 + 8>>();
    const std::size_t texts = 8 + ((path.size() + 4) & ~std::size_t{3});
    EXPECT_EQ(record.distanceFrom(buffer.data()) + texts, length);
}

TEST(AttributeListTest, AProbeGivesTypeAndPath) {
    const FileFolder folder;
    const std::string path = folder.file("name with blanks");
    const attrlist list = listOf(ATTR_CMN_OBJTYPE | ATTR_CMN_FULLPATH);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), 1040, kProbeOptions), 0);

    RecordReader record(buffer.data());
    record.take<std::uint32_t>();
    EXPECT_EQ(record.take<fsobj_type_t>(), VREG);
    EXPECT_EQ(record.takeText(), path);
}

TEST(AttributeListTest, AProbeKnowsEveryKindOfObject) {
    const FileFolder folder;
    ASSERT_EQ(::mkfifo(folder.at("pipe").c_str(), 0600), 0);
    const std::array<std::pair<std::string, fsobj_type_t>, 6> objects = {
        {{folder.file("file"), VREG},
         {folder.folder("folder"), VDIR},
         {folder.link("link", "folder"), VLNK},
         {folder.at("pipe"), VFIFO},
         {"/dev/null", VCHR},
         {folder.link("dangling", "nowhere"), VLNK}}};
    const attrlist list = listOf(ATTR_CMN_OBJTYPE);
    AttributeBuffer buffer;

    for (const auto& [path, type] : objects) {
        ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), 8, kProbeOptions), 0) << path;
        RecordReader record(buffer.data());
        EXPECT_EQ(record.take<std::uint32_t>(), 8U);
        EXPECT_EQ(record.take<fsobj_type_t>(), type) << path;
    }
}

TEST(AttributeListTest, ALinkIsFollowedUnlessForbidden) {
    const FileFolder folder;
    folder.folder("folder");
    const std::string link = folder.link("link", "folder");
    const attrlist list = listOf(ATTR_CMN_OBJTYPE);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(link.c_str(), &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    record.take<std::uint32_t>();
    EXPECT_EQ(record.take<fsobj_type_t>(), VDIR);
}

TEST(AttributeListTest, ADescriptorGivesTheSameRecordAsItsPath) {
    const FileFolder folder;
    const std::string path = folder.file("a", "content");
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const attrlist list =
        listOf(kItem | ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_NAME | ATTR_CMN_FULLPATH, 0x7, 0x207);
    AttributeBuffer byPath{};
    AttributeBuffer byDescriptor{};

    ASSERT_EQ(getattrlist(path.c_str(), &list, byPath.data(), byPath.size(), kFetchOptions), 0);
    ASSERT_EQ(
        fgetattrlist(file.get(), &list, byDescriptor.data(), byDescriptor.size(), kFetchOptions),
        0);

    EXPECT_EQ(byPath, byDescriptor);
}

TEST(AttributeListTest, CountingEntriesLeavesTheDescriptorsPositionAlone) {
    const FileFolder folder;
    folder.file("a");
    const UniqueFd directory(::open(folder.path().c_str(), O_RDONLY | O_CLOEXEC));
    const attrlist list = listOf(0, ATTR_DIR_ENTRYCOUNT);
    AttributeBuffer buffer;

    ASSERT_EQ(fgetattrlist(directory.get(), &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 8U);
    EXPECT_EQ(record.take<std::uint32_t>(), 1U);
    EXPECT_EQ(::lseek(directory.get(), 0, SEEK_CUR), 0);
}

TEST(AttributeListTest, AFileWithoutANameHasAnEmptyPath) {
    const FileFolder folder;
    const std::string path = folder.file("gone");
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(::unlink(path.c_str()), 0);
    const attrlist list = listOf(ATTR_CMN_NAME | ATTR_CMN_OBJTYPE | ATTR_CMN_FULLPATH);
    AttributeBuffer buffer;

    ASSERT_EQ(fgetattrlist(file.get(), &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 24U);
    EXPECT_EQ(record.take<attrreference_t>().attr_length, 0U);
    EXPECT_EQ(record.take<fsobj_type_t>(), VREG);
    EXPECT_EQ(record.take<attrreference_t>().attr_length, 0U);
}

TEST(AttributeListTest, ANameThatEndsLikeADeletedOneIsStillAName) {
    const FileFolder folder;
    const std::string path = folder.file("minutes (deleted)");
    const attrlist list = listOf(ATTR_CMN_NAME);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    record.take<std::uint32_t>();
    EXPECT_EQ(record.takeText(), "minutes (deleted)");
}

TEST(AttributeListTest, TheNameOfTheRootIsASlash) {
    const attrlist list = listOf(ATTR_CMN_NAME);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist("/", &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    record.take<std::uint32_t>();
    EXPECT_EQ(record.takeText(), "/");
}

TEST(AttributeListTest, ANameOf255BytesThatAreNoTextComesBackWhole) {
    const FileFolder folder;
    const std::string name = "\n-\xff" + std::string(252, '\x80');
    const std::string path = folder.file(name);
    const attrlist list = listOf(ATTR_CMN_NAME);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), 0), 0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 4U + 8U + 256U);
    EXPECT_EQ(record.takeText(), name);
}

TEST(AttributeListTest, ANameThatBeginsWithAPointIsHidden) {
    const FileFolder folder;
    const attrlist list = listOf(ATTR_CMN_FLAGS);
    AttributeBuffer buffer;

    ASSERT_EQ(getattrlist(folder.file(".a").c_str(), &list, buffer.data(), 8, 0), 0);
    RecordReader hidden(buffer.data());
    hidden.take<std::uint32_t>();
    EXPECT_EQ(hidden.take<std::uint32_t>() & UF_HIDDEN, UF_HIDDEN);

    ASSERT_EQ(getattrlist((folder.path() + "/.").c_str(), &list, buffer.data(), 8, 0), 0);
    RecordReader shown(buffer.data());
    shown.take<std::uint32_t>();
    EXPECT_EQ(shown.take<std::uint32_t>() & UF_HIDDEN, 0U);
}

TEST(AttributeListTest, ARecordIsCutOffWhereTheBufferEnds) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const attrlist list = listOf(kItem);
    AttributeBuffer buffer;
    buffer.fill('\x55');

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), 10, FSOPT_PACK_INVAL_ATTRS), 0);

    EXPECT_EQ(RecordReader(buffer.data()).take<std::uint32_t>(), 10U);
    EXPECT_EQ(buffer[10], '\x55');
}

TEST(AttributeListTest, TheFullSizeIsReportedOnDemand) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const attrlist list = listOf(kItem | ATTR_CMN_RETURNED_ATTRS);
    AttributeBuffer buffer;
    buffer.fill('\x55');

    ASSERT_EQ(getattrlist(path.c_str(), &list, buffer.data(), 4, kFetchOptions), 0);

    EXPECT_EQ(RecordReader(buffer.data()).take<std::uint32_t>(), 24U + 88U);
    EXPECT_EQ(buffer[4], '\x55');
}

struct Refusal {
    const char* what;
    attrlist list;
    unsigned long options;
    std::size_t size;
    int error;
};

TEST(AttributeListTest, ListsThatMakeNoSenseAreRefused) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    attrlist fewGroups = listOf(ATTR_CMN_OBJTYPE);
    fewGroups.bitmapcount = 4;
    attrlist forks = listOf(ATTR_CMN_OBJTYPE);
    forks.forkattr = 1;
    const attrlist type = listOf(ATTR_CMN_OBJTYPE);
    const std::array refusals = {
        Refusal{"another count of groups", fewGroups, 0, 100, EINVAL},
        Refusal{"forks", forks, 0, 100, EINVAL},
        Refusal{"an option that is none", type, 0x4000'0000, 100, EINVAL},
        Refusal{"a directory bit that is none", listOf(0, 0x40), 0, 100, EINVAL},
        Refusal{"a file bit that is none", listOf(0, 0, 0x10), 0, 100, EINVAL},
        Refusal{"a volume bit that is none", listOf(0, 0, 0, ATTR_VOL_INFO | 0x8'0000), 0, 100,
                EINVAL},
        Refusal{"a volume without its mark", listOf(0, 0, 0, ATTR_VOL_SIZE), 0, 100, EINVAL},
        Refusal{"a volume beside a file", listOf(0, 0, 1, ATTR_VOL_INFO), 0, 100, EINVAL},
        Refusal{"a volume beside a directory", listOf(0, 1, 0, ATTR_VOL_INFO), 0, 100, EINVAL},
        Refusal{"a volume of a file", listOf(0, 0, 0, ATTR_VOL_INFO | ATTR_VOL_SIZE), 0, 100,
                EINVAL},
        Refusal{"what the system has not", listOf(ATTR_CMN_BKUPTIME), 0, 100, EINVAL},
        Refusal{"no room for the length", type, 0, 3, ERANGE},
        Refusal{"no room for the set", listOf(ATTR_CMN_RETURNED_ATTRS), 0, 23, ERANGE},
    };
    AttributeBuffer buffer;

    for (const Refusal& refusal : refusals) {
        errno = 0;
        EXPECT_EQ(
            getattrlist(path.c_str(), &refusal.list, buffer.data(), refusal.size, refusal.options),
            -1)
            << refusal.what;
        EXPECT_EQ(errno, refusal.error) << refusal.what;
    }
}

TEST(AttributeListTest, PathsThatLeadNowhereSayWhy) {
    const FileFolder folder;
    const std::string file = folder.file("a");
    const std::string loop = folder.link("loop", "loop");
    const attrlist list = listOf(ATTR_CMN_OBJTYPE);
    const std::array<std::pair<std::string, int>, 5> paths = {
        {{folder.at("missing"), ENOENT},
         {file + "/below", ENOTDIR},
         {loop + "/below", ELOOP},
         {folder.at(std::string(256, 'n')), ENAMETOOLONG},
         {"/" + std::string(5000, '/'), ENAMETOOLONG}}};
    AttributeBuffer buffer;

    for (const auto& [path, error] : paths) {
        errno = 0;
        EXPECT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), FSOPT_NOFOLLOW),
                  -1);
        EXPECT_EQ(errno, error) << path.substr(0, 80);
    }
    EXPECT_EQ(fgetattrlist(-1, &list, buffer.data(), buffer.size(), 0), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(AttributeListTest, ObjectsOfOneFileSystemShareItsIdentity) {
    const FileFolder folder;
    const attrlist list = listOf(ATTR_CMN_FSID);
    AttributeBuffer one{};
    AttributeBuffer other{};

    ASSERT_EQ(getattrlist(folder.file("a").c_str(), &list, one.data(), one.size(), 0), 0);
    ASSERT_EQ(getattrlist(folder.path().c_str(), &list, other.data(), other.size(), 0), 0);

    EXPECT_EQ(one, other);
    RecordReader record(one.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 12U);
    const auto identity = record.take<fsid_t>();
    EXPECT_TRUE(identity.val[0] != 0 || identity.val[1] != 0);
}

}  // namespace
}  // namespace sevrin::platform
