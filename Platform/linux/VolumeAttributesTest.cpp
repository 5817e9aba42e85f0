// What volumes say of themselves, held against what the kernel then does on real ones.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>

#include <optional>

#include "Platform/AttributeList.h"
#include "Platform/DirectoryReader.h"
#include "Platform/MountTable.h"
#include "Platform/TestAttributes.h"
#include "Platform/TestMounts.h"
#include "Platform/UniqueFd.h"
#include "Platform/VolumeCapabilities.h"

namespace sevrin::platform {
namespace {

constexpr unsigned long kOptions = FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE | FSOPT_PACK_INVAL_ATTRS;
constexpr attrgroup_t kVolumeInfo = 0xC006'201C;  // what a volume object asks for

struct Volume {
    attribute_set_t returned{};
    timespec created{};
    std::int64_t size = 0;
    std::int64_t spaceFree = 0;
    std::int64_t spaceAvailable = 0;
    std::string name;
    vol_capabilities_attr_t capabilities{};
    std::array<unsigned char, 16> uuid{};
    vol_attributes_attr_t attributes{};

    [[nodiscard]] bool has(std::size_t word, std::uint32_t bit) const {
        return (capabilities.capabilities[word] & capabilities.valid[word] & bit) != 0;
    }
    [[nodiscard]] bool format(std::uint32_t bit) const { return has(VOL_CAPABILITIES_FORMAT, bit); }
    [[nodiscard]] bool interface(std::uint32_t bit) const {
        return has(VOL_CAPABILITIES_INTERFACES, bit);
    }
};

// Reads the record in the order of its bits, up to its last byte.
Volume volumeAt(const std::string& path) {
    const attrlist list = listOf(ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_CRTIME, 0, 0, kVolumeInfo);
    std::array<char, 420> buffer;
    EXPECT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), kOptions), 0)
        << path << ": " << std::strerror(errno);
    RecordReader record(buffer.data());
    Volume volume;
    const auto length = record.take<std::uint32_t>();
    volume.returned = record.take<attribute_set_t>();
    volume.created = record.take<timespec>();
    volume.size = record.take<std::int64_t>();
    volume.spaceFree = record.take<std::int64_t>();
    volume.spaceAvailable = record.take<std::int64_t>();
    volume.name = record.takeText();
    volume.capabilities = record.take<vol_capabilities_attr_t>();
    volume.uuid = record.take<std::array<unsigned char, 16>>();
    volume.attributes = record.take<vol_attributes_attr_t>();
    EXPECT_EQ(record.distanceFrom(buffer.data()), 24U + 136U);
    const std::size_t text = volume.name.empty() ? 0 : (volume.name.size() + 4) / 4 * 4;
    EXPECT_EQ(length, 24U + 136U + text);
    return volume;
}

std::string textOf(const std::array<unsigned char, 16>& uuid) {
    std::string text;
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        constexpr const char* kDigits = "0123456789abcdef";
        text += {kDigits[uuid[i] / 16], kDigits[uuid[i] % 16]};
    }
    return text;
}

// A kind of volume that a test makes: how, and what its kind must claim.
struct Kind {
    const char* name;
    const char*
        make;  // of mkfs; gives the volume the label "Archive" and, instead of the word UUID, one
    const char* size;
    std::uint32_t formatExpected;
    bool clones;
};

constexpr std::uint32_t kUnix = VOL_CAP_FMT_SYMBOLICLINKS | VOL_CAP_FMT_HARDLINKS |
                                VOL_CAP_FMT_CASE_SENSITIVE | VOL_CAP_FMT_CASE_PRESERVING |
                                VOL_CAP_FMT_SPARSE_FILES | VOL_CAP_FMT_2TB_FILESIZE |
                                VOL_CAP_FMT_PERSISTENTOBJECTIDS;
constexpr std::uint32_t kJournal = VOL_CAP_FMT_JOURNAL | VOL_CAP_FMT_JOURNAL_ACTIVE;

const std::array kKinds = {
    Kind{"ext4", "ext4 -q -L Archive -U UUID", "32M", kUnix | kJournal, false},
    Kind{"ext2", "ext2 -q -L Archive -U UUID", "8M", kUnix, false},
    Kind{"xfs", "xfs -q -L Archive -m reflink=1,uuid=UUID", "320M", kUnix | kJournal, true},
    Kind{"btrfs", "btrfs -q -L Archive -U UUID", "128M", kUnix, true},
};

class VolumeKindTest : public ::testing::TestWithParam<Kind> {};

// Whether two files can be renamed with `flags`, as the kernel does it.
bool renames(const std::string& place, unsigned flags) {
    const std::string from = place + "/rename-from";
    const std::string to = place + "/rename-to";
    std::ofstream(from) << 1;
    if ((flags & RENAME_EXCHANGE) != 0) std::ofstream(to) << 2;
    const bool isDone = ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags) == 0;
    (void)::unlink(from.c_str());
    (void)::unlink(to.c_str());
    return isDone;
}

bool clones(const std::string& place) {
    std::ofstream(place + "/clone-from") << std::string(100000, 'x');
    const UniqueFd from(::open((place + "/clone-from").c_str(), O_RDONLY | O_CLOEXEC));
    const UniqueFd to(::open((place + "/clone-to").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    return ::ioctl(to.get(), FICLONE, from.get()) == 0;
}

bool allocates(const std::string& place) {
    const UniqueFd file(::open((place + "/big").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    return ::fallocate(file.get(), 0, 0, 65536) == 0;
}

bool hasAttributes(const std::string& place) {
    const std::string path = place + "/attributed";
    std::ofstream(path) << 1;
    return ::setxattr(path.c_str(), "user.test", "v", 1, 0) == 0;
}

// A list that gives user 1234 the right to read.
bool hasAcls(const std::string& place) {
    const std::string path = place + "/listed";
    std::ofstream(path) << 1;
    constexpr unsigned char kList[] = {2,    0, 0, 0,                           // version
                                       1,    0, 6, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // owner
                                       2,    0, 4, 0, 0xD2, 0x04, 0,    0,      // user 1234
                                       4,    0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // group
                                       0x10, 0, 4, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // mask
                                       0x20, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};  // others
    return ::setxattr(path.c_str(), "system.posix_acl_access", kList, sizeof kList, 0) == 0;
}

void expectClaimsKept(const Volume& volume, const std::string& place) {
    EXPECT_EQ(volume.interface(VOL_CAP_INT_RENAME_SWAP), renames(place, RENAME_EXCHANGE));
    EXPECT_EQ(volume.interface(VOL_CAP_INT_RENAME_EXCL), renames(place, RENAME_NOREPLACE));
    EXPECT_EQ(volume.interface(VOL_CAP_INT_CLONE), clones(place));
    EXPECT_EQ(volume.interface(VOL_CAP_INT_ALLOCATE), allocates(place));
    EXPECT_EQ(volume.interface(VOL_CAP_INT_EXTENDED_ATTR), hasAttributes(place));
    EXPECT_EQ(volume.interface(VOL_CAP_INT_EXTENDED_SECURITY), hasAcls(place));
    EXPECT_TRUE(volume.interface(VOL_CAP_INT_ATTRLIST));
    EXPECT_TRUE(volume.interface(VOL_CAP_INT_READDIRATTR));
    EXPECT_TRUE(volume.interface(VOL_CAP_INT_USERACCESS));
    EXPECT_FALSE(volume.interface(VOL_CAP_INT_EXCHANGEDATA));
    EXPECT_FALSE(volume.interface(VOL_CAP_INT_VOL_RENAME));
}

TEST_P(VolumeKindTest, TellsItsIdentityAndKeepsItsClaims) {
    TestMounts mounts;
    const Kind& kind = GetParam();
    const std::string uuid = newUuid();
    std::string make = kind.make;
    make.replace(make.find("UUID"), 4, uuid);
    const std::string place = mounts.mountImage("mount", make, kind.size);
    SEVRIN_SKIP_WITHOUT(mounts);
    struct statvfs raw {};
    ASSERT_EQ(::statvfs(place.c_str(), &raw), 0);

    const Volume volume = volumeAt(place);

    EXPECT_EQ(volume.returned.volattr, kVolumeInfo);
    EXPECT_EQ(volume.name, "Archive");
    EXPECT_EQ(textOf(volume.uuid), uuid);
    EXPECT_EQ(volume.size, static_cast<std::int64_t>(raw.f_blocks * raw.f_frsize));
    EXPECT_LE(volume.spaceAvailable, volume.spaceFree);
    EXPECT_LT(volume.spaceFree, volume.size);
    EXPECT_EQ(volume.capabilities.capabilities[VOL_CAPABILITIES_FORMAT] &
                  (kUnix | kJournal | VOL_CAP_FMT_NO_VOLUME_SIZES),
              kind.formatExpected);
    EXPECT_EQ(volume.interface(VOL_CAP_INT_CLONE), kind.clones);
    expectClaimsKept(volume, place);
}

INSTANTIATE_TEST_SUITE_P(Images, VolumeKindTest, ::testing::ValuesIn(kKinds),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(VolumeAttributesTest, AVolumeInMemoryHasNeitherNameNorUuid) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");

    const Volume volume = volumeAt(place);

    EXPECT_EQ(volume.returned.volattr, kVolumeInfo & ~(ATTR_VOL_NAME | ATTR_VOL_UUID));
    EXPECT_EQ(volume.size, 1024 * 1024);
    EXPECT_EQ(volume.uuid, (std::array<unsigned char, 16>{}));
    EXPECT_FALSE(volume.format(VOL_CAP_FMT_PERSISTENTOBJECTIDS));
    expectClaimsKept(volume, place);
}

TEST(VolumeAttributesTest, AVolumeWithoutSizesSaysSo) {
    const Volume volume = volumeAt("/proc");

    EXPECT_EQ(volume.returned.volattr & (ATTR_VOL_SIZE | ATTR_VOL_SPACEFREE | ATTR_VOL_SPACEAVAIL),
              0U);
    EXPECT_TRUE(volume.format(VOL_CAP_FMT_NO_VOLUME_SIZES));
    EXPECT_EQ(volume.size, 0);
}

TEST(VolumeAttributesTest, AnExt4VolumeWithoutAJournalSaysSo) {
    TestMounts mounts;
    const std::string place = mounts.mountImage("mount", "ext4 -q -O ^has_journal", "16M");
    SEVRIN_SKIP_WITHOUT(mounts);

    const Volume volume = volumeAt(place);

    EXPECT_FALSE(volume.format(VOL_CAP_FMT_JOURNAL_ACTIVE));
    EXPECT_FALSE(volume.returned.volattr & ATTR_VOL_NAME);
}

TEST(VolumeAttributesTest, AnXfsVolumeThatSharesNoBlocksSaysSo) {
    TestMounts mounts;
    const std::string place = mounts.mountImage("mount", "xfs -q -m reflink=0");
    SEVRIN_SKIP_WITHOUT(mounts);

    const Volume volume = volumeAt(place);

    EXPECT_TRUE(volume.format(VOL_CAP_FMT_CASE_SENSITIVE));
    EXPECT_FALSE(volume.interface(VOL_CAP_INT_CLONE));
    EXPECT_FALSE(clones(place));
}

TEST(VolumeAttributesTest, AFatVolumeKeepsNoOwnersAndNoBigFiles) {
    TestMounts mounts;
    const std::string place = mounts.mountImage("mount", "vfat -n ARCHIVE", "16M");
    SEVRIN_SKIP_WITHOUT(mounts);

    const Volume volume = volumeAt(place);

    EXPECT_EQ(volume.name, "ARCHIVE");
    EXPECT_EQ(volume.returned.volattr & ATTR_VOL_UUID, 0U);
    EXPECT_FALSE(volume.format(VOL_CAP_FMT_2TB_FILESIZE));
    EXPECT_FALSE(volume.format(VOL_CAP_FMT_SYMBOLICLINKS));
    struct statfs record {};
    ASSERT_EQ(statfs(place.c_str(), &record), 0);
    EXPECT_EQ(record.f_flags & MNT_IGNORE_OWNERSHIP, MNT_IGNORE_OWNERSHIP);
    EXPECT_EQ(volume.attributes.nativeattr.commonattr & ATTR_CMN_OWNERID, 0U);
}

TEST(VolumeAttributesTest, AttributeSetsSayWhatRecordsThenHold) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    const std::string file = mounts.write("place/a");
    const attrlist all = listOf(0xFFFF'FFFF, 0x3F, 0x37AF);
    AttributeBuffer buffer;
    ASSERT_EQ(getattrlist(file.c_str(), &all, buffer.data(), buffer.size(), kOptions), 0);
    RecordReader record(buffer.data());
    record.take<std::uint32_t>();
    const auto held = record.take<attribute_set_t>();

    const vol_attributes_attr_t sets = volumeAt(place).attributes;

    EXPECT_EQ(sets.validattr.commonattr & ~ATTR_CMN_ERROR, held.commonattr);
    EXPECT_EQ(sets.validattr.fileattr, held.fileattr);
    EXPECT_EQ(sets.validattr.dirattr & 0x7, 0x7U);
    EXPECT_EQ(sets.nativeattr.dirattr & ATTR_DIR_ENTRYCOUNT, 0U);
    EXPECT_EQ(sets.nativeattr.commonattr & ~sets.validattr.commonattr, 0U);
    EXPECT_EQ(sets.validattr.volattr & ATTR_VOL_UUID, 0U);
}

TEST(VolumeAttributesTest, OnlyAMountPointIsAVolume) {
    const FileFolder folder;
    const attrlist list = listOf(0, 0, 0, ATTR_VOL_INFO | ATTR_VOL_SIZE);
    AttributeBuffer buffer;

    EXPECT_EQ(getattrlist(folder.path().c_str(), &list, buffer.data(), buffer.size(), 0), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(VolumeAttributesTest, SizesAloneFitTheirSmallBuffer) {
    const attrlist list = listOf(0, 0, 0, ATTR_VOL_INFO | ATTR_VOL_SPACEFREE | ATTR_VOL_SPACEAVAIL);
    std::array<char, 20> buffer;

    ASSERT_EQ(getattrlist("/", &list, buffer.data(), buffer.size(),
                          FSOPT_NOFOLLOW | FSOPT_REPORT_FULLSIZE),
              0);

    RecordReader record(buffer.data());
    EXPECT_EQ(record.take<std::uint32_t>(), 20U);
    const auto spaceFree = record.take<std::int64_t>();
    EXPECT_GE(spaceFree, record.take<std::int64_t>());
}

TEST(VolumeAttributesTest, MountPointsAreMarkedInListings) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    mounts.mountMemory("place");
    mounts.makeFolder("folder");
    const UniqueFd directory(::open(mounts.path().c_str(), O_RDONLY | O_CLOEXEC));
    const attrlist list =
        listOf(ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_NAME | ATTR_CMN_FSID, ATTR_DIR_MOUNTSTATUS);
    AttributeBuffer buffer;
    ASSERT_EQ(getattrlistbulk(directory.get(), &list, buffer.data(), buffer.size(), 0), 2);

    const char* at = buffer.data();
    for (int i = 0; i < 2; ++i) {
        RecordReader record(at);
        at += record.take<std::uint32_t>();
        record.take<attribute_set_t>();
        const std::string name = record.takeText();
        const auto identity = record.take<fsid_t>();
        struct statfs volume {};
        ASSERT_EQ(statfs((mounts / name).c_str(), &volume), 0);
        EXPECT_EQ(std::memcmp(&identity, &volume.f_fsid, sizeof identity), 0) << name;
        EXPECT_EQ(record.take<std::uint32_t>(), name == "place" ? DIR_MNTSTATUS_MNTPOINT : 0U);
    }
}

TEST(VolumeAttributesTest, TakingReadersAwayReachesTheVolumes) {
    EXPECT_TRUE(hasGetattrlistbulk());
    {
        const DirectoryReaderOverride attribute(DirectoryReader::Attribute);
        EXPECT_FALSE(hasGetattrlistbulk());
        EXPECT_TRUE(volumeAt("/").interface(VOL_CAP_INT_READDIRATTR));
    }
    {
        const DirectoryReaderOverride plain(DirectoryReader::Plain);
        EXPECT_FALSE(hasGetattrlistbulk());
        EXPECT_FALSE(volumeAt("/").interface(VOL_CAP_INT_READDIRATTR));
    }
    EXPECT_TRUE(hasGetattrlistbulk());
    EXPECT_TRUE(volumeAt("/").interface(VOL_CAP_INT_READDIRATTR));
}

}  // namespace
}  // namespace sevrin::platform
