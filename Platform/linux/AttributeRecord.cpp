// Packing, in the order of the platform's bits. The order of the lines is the layout. A listing
// packs millions of records, so nothing here looks anything up.
#include "Platform/linux/AttributeRecord.h"

#include <time.h>

#include <array>
#include <bit>
#include <cstring>

namespace sevrin::platform {

namespace {

// Bytes of the attribute of each bit; 0 where the bit means none.
constexpr std::array<std::uint8_t, 32> kCommonSizes = {
    8, 4, 8, 4, 4, 8, 8, 8,  4,  16, 16, 16, 16, 16, 32, 4,
    4, 4, 4, 4, 4, 4, 8, 16, 16, 8,  8,  8,  16, 4,  4,  sizeof(attribute_set_t)};
constexpr std::array<std::uint8_t, 32> kVolumeSizes = {4,
                                                       4,
                                                       8,
                                                       8,
                                                       8,
                                                       8,
                                                       8,
                                                       4,
                                                       4,
                                                       4,
                                                       4,
                                                       4,
                                                       8,
                                                       8,
                                                       4,
                                                       8,
                                                       8,
                                                       32,
                                                       16,
                                                       0,
                                                       0,
                                                       0,
                                                       0,
                                                       0,
                                                       0,
                                                       0,
                                                       0,
                                                       0,
                                                       8,
                                                       8,
                                                       sizeof(vol_attributes_attr_t),
                                                       0};
constexpr std::array<std::uint8_t, 32> kDirectorySizes = {4, 4, 4, 8, 4, 8};
constexpr std::array<std::uint8_t, 32> kFileSizes = {4, 8, 8, 4, 0, 4, 0, 4, 8, 8, 8, 0, 8, 8};

std::size_t sizeOfGroup(attrgroup_t group, const std::array<std::uint8_t, 32>& sizes) noexcept {
    std::size_t size = 0;
    for (; group != 0; group &= group - 1) {
        size += sizes[static_cast<std::size_t>(std::countr_zero(group))];
    }
    return size;
}

// Two cursors in one record: where the next attribute goes, and where the next text.
class RecordWriter {
public:
    RecordWriter(std::byte* record, std::size_t fixedSize) noexcept
        : record_(record), next_(record + sizeof(std::uint32_t)), text_(record + fixedSize) {}

    template <class T>
    void put(const T& value) noexcept {
        std::memcpy(next_, &value, sizeof value);
        next_ += sizeof value;
    }

    void time(const struct statx_timestamp& stamp) noexcept {
        put(timespec{stamp.tv_sec, static_cast<long>(stamp.tv_nsec)});
    }

    // A text that there is not has an empty reference.
    void text(std::string_view value) noexcept {
        if (value.data() == nullptr) return put(attrreference_t{});
        put(attrreference_t{static_cast<std::int32_t>(text_ - next_),
                            static_cast<std::uint32_t>(value.size() + 1)});
        // The NUL and what aligns the next text lie in the last four bytes.
        const std::size_t size = textSizeOf(value);
        std::memset(text_ + size - 4, 0, 4);
        std::memcpy(text_, value.data(), value.size());
        text_ += size;
    }

    void zero(std::size_t size) noexcept {
        std::memset(next_, 0, size);
        next_ += size;
    }

    void finish() noexcept {
        const auto length = static_cast<std::uint32_t>(text_ - record_);
        std::memcpy(record_, &length, sizeof length);
    }

private:
    std::byte* record_;
    std::byte* next_;
    std::byte* text_;
};

// What no file system here keeps has its place at most; neighbours are passed over together.
constexpr attrgroup_t kForeignIds =
    ATTR_CMN_OBJTAG | ATTR_CMN_OBJID | ATTR_CMN_OBJPERMANENTID | ATTR_CMN_PAROBJID;
constexpr attrgroup_t kForeignInfo = ATTR_CMN_BKUPTIME | ATTR_CMN_FNDRINFO;
constexpr attrgroup_t kForeignCounts = ATTR_CMN_GEN_COUNT | ATTR_CMN_DOCUMENT_ID;
constexpr attrgroup_t kForeignOwners =
    ATTR_CMN_EXTENDED_SECURITY | ATTR_CMN_UUID | ATTR_CMN_GRPUUID;
constexpr attrgroup_t kEndOfGroup =
    ATTR_CMN_PARENTID | ATTR_CMN_FULLPATH | ATTR_CMN_ADDEDTIME | ATTR_CMN_DATA_PROTECT_FLAGS;

void writeZeros(RecordWriter& out, attrgroup_t set) noexcept {
    if (set != 0) out.zero(sizeOfGroup(set, kCommonSizes));
}

// The upper half of the group, from the owner on.
void writeRights(RecordWriter& out, attrgroup_t set, const ObjectFacts& facts) noexcept {
    const struct statx& stat = facts.stat;
    if (set & ATTR_CMN_OWNERID) out.put(stat.stx_uid);
    if (set & ATTR_CMN_GRPID) out.put(stat.stx_gid);
    if (set & ATTR_CMN_ACCESSMASK) out.put(std::uint32_t{stat.stx_mode});
    if (set & ATTR_CMN_FLAGS) out.put(fileFlags(stat, facts.name));
    writeZeros(out, set & kForeignCounts);
    if (set & ATTR_CMN_USERACCESS) out.put(facts.userAccess);
    writeZeros(out, set & kForeignOwners);
    if (set & ATTR_CMN_FILEID) out.put(std::uint64_t{stat.stx_ino});
    if ((set & kEndOfGroup) == 0) return;
    writeZeros(out, set & ATTR_CMN_PARENTID);
    if (set & ATTR_CMN_FULLPATH) out.text(facts.fullPath);
    writeZeros(out, set & (ATTR_CMN_ADDEDTIME | ATTR_CMN_DATA_PROTECT_FLAGS));
}

void writeCommon(RecordWriter& out, const RecordShape& shape, const ObjectFacts& facts) noexcept {
    const attrgroup_t set = shape.packed.commonattr;
    const struct statx& stat = facts.stat;
    // These two stand before all others, whatever their bits.
    if (set & ATTR_CMN_RETURNED_ATTRS) out.put(shape.returned);
    if (set & ATTR_CMN_ERROR) out.put(facts.error);
    if (set & ATTR_CMN_NAME) out.text(facts.name);
    if (set & ATTR_CMN_DEVID) out.put(deviceNumber(stat.stx_dev_major, stat.stx_dev_minor));
    if (set & ATTR_CMN_FSID) out.put(facts.fsid);
    if (set & ATTR_CMN_OBJTYPE) out.put(std::uint32_t{objectTypeOfMode(stat.stx_mode)});
    writeZeros(out, set & kForeignIds);
    if (set & ATTR_CMN_SCRIPT) out.put(kUnicodeScript);
    if (set & ATTR_CMN_CRTIME) out.time(stat.stx_btime);
    if (set & ATTR_CMN_MODTIME) out.time(stat.stx_mtime);
    if (set & ATTR_CMN_CHGTIME) out.time(stat.stx_ctime);
    if (set & ATTR_CMN_ACCTIME) out.time(stat.stx_atime);
    writeZeros(out, set & kForeignInfo);
    writeRights(out, set, facts);
}

void writeVolume(RecordWriter& out, attrgroup_t set, const VolumeFacts& volume) noexcept {
    if (set & ATTR_VOL_FSTYPE) out.put(volume.type);
    if (set & ATTR_VOL_SIGNATURE) out.put(volume.type);
    if (set & ATTR_VOL_SIZE) out.put(volume.size);
    if (set & ATTR_VOL_SPACEFREE) out.put(volume.spaceFree);
    if (set & ATTR_VOL_SPACEAVAIL) out.put(volume.spaceAvailable);
    if (set & ATTR_VOL_MINALLOCATION) out.put(volume.minimumAllocation);
    if (set & ATTR_VOL_ALLOCATIONCLUMP) out.put(volume.minimumAllocation);
    if (set & ATTR_VOL_IOBLOCKSIZE) out.put(volume.ioBlockSize);
    if (set & ATTR_VOL_OBJCOUNT) out.put(volume.objectCount);
    if (set & ATTR_VOL_FILECOUNT) out.zero(4);
    if (set & ATTR_VOL_DIRCOUNT) out.zero(4);
    if (set & ATTR_VOL_MAXOBJCOUNT) out.put(volume.objectCountMax);
    if (set & ATTR_VOL_MOUNTPOINT) out.text(volume.mountPoint);
    if (set & ATTR_VOL_NAME) out.text(volume.name);
    if (set & ATTR_VOL_MOUNTFLAGS) out.put(volume.mountFlags);
    if (set & ATTR_VOL_MOUNTEDDEVICE) out.text(volume.device);
    if (set & ATTR_VOL_ENCODINGSUSED) out.zero(8);
    if (set & ATTR_VOL_CAPABILITIES) out.put(volume.capabilities);
    if (set & ATTR_VOL_UUID) out.put(volume.uuid);
    if (set & ATTR_VOL_QUOTA_SIZE) out.zero(8);
    if (set & ATTR_VOL_RESERVED_SIZE) out.zero(8);
    if (set & ATTR_VOL_ATTRIBUTES) out.put(volume.attributes);
}

std::int64_t sizeOf(const struct statx& stat) noexcept {
    return static_cast<std::int64_t>(stat.stx_size);
}

std::int64_t allocatedSizeOf(const struct statx& stat) noexcept {
    constexpr std::uint64_t kBytesPerBlock = 512;  // of stx_blocks, whatever the file system's are
    return static_cast<std::int64_t>(stat.stx_blocks * kBytesPerBlock);
}

std::uint32_t mountStatusOf(const struct statx& stat) noexcept {
    std::uint32_t status = 0;
    if (stat.stx_attributes & STATX_ATTR_MOUNT_ROOT) status |= DIR_MNTSTATUS_MNTPOINT;
    if (stat.stx_attributes & STATX_ATTR_AUTOMOUNT) status |= DIR_MNTSTATUS_TRIGGER;
    return status;
}

void writeDirectory(RecordWriter& out, attrgroup_t set, const ObjectFacts& facts) noexcept {
    const struct statx& stat = facts.stat;
    if (set & ATTR_DIR_LINKCOUNT) out.put(stat.stx_nlink);
    if (set & ATTR_DIR_ENTRYCOUNT) out.put(facts.entryCount);
    if (set & ATTR_DIR_MOUNTSTATUS) out.put(mountStatusOf(stat));
    if (set & ATTR_DIR_ALLOCSIZE) out.put(allocatedSizeOf(stat));
    if (set & ATTR_DIR_IOBLOCKSIZE) out.put(stat.stx_blksize);
    if (set & ATTR_DIR_DATALENGTH) out.put(sizeOf(stat));
}

void writeFile(RecordWriter& out, attrgroup_t set, const ObjectFacts& facts) noexcept {
    const struct statx& stat = facts.stat;
    if (set & ATTR_FILE_LINKCOUNT) out.put(stat.stx_nlink);
    if (set & ATTR_FILE_TOTALSIZE) out.put(sizeOf(stat));
    if (set & ATTR_FILE_ALLOCSIZE) out.put(allocatedSizeOf(stat));
    if (set & ATTR_FILE_IOBLOCKSIZE) out.put(stat.stx_blksize);
    if (set & ATTR_FILE_DEVTYPE) out.put(deviceNumber(stat.stx_rdev_major, stat.stx_rdev_minor));
    if (set & ATTR_FILE_FORKCOUNT) out.zero(4);
    if (set & ATTR_FILE_FORKLIST) out.text({});
    if (set & ATTR_FILE_DATALENGTH) out.put(sizeOf(stat));
    if (set & ATTR_FILE_DATAALLOCSIZE) out.put(allocatedSizeOf(stat));
    if (set & ATTR_FILE_RSRCLENGTH) out.zero(8);
    if (set & ATTR_FILE_RSRCALLOCSIZE) out.zero(8);
}

}  // namespace

std::size_t fixedSizeOf(const attribute_set_t& packed) noexcept {
    return sizeof(std::uint32_t) + sizeOfGroup(packed.commonattr, kCommonSizes) +
           sizeOfGroup(packed.volattr, kVolumeSizes) +
           sizeOfGroup(packed.dirattr, kDirectorySizes) + sizeOfGroup(packed.fileattr, kFileSizes);
}

RecordShape shapeOf(const attribute_set_t& wanted, bool packsAll,
                    const ObjectFacts& facts) noexcept {
    attribute_set_t asked = wanted;
    (facts.isDirectory() ? asked.fileattr : asked.dirattr) = 0;
    RecordShape shape;
    shape.returned = common(asked, facts.known);
    shape.packed = packsAll ? asked : shape.returned;
    shape.fixedSize = fixedSizeOf(shape.packed);
    return shape;
}

std::size_t recordSizeOf(const RecordShape& shape, const ObjectFacts& facts) noexcept {
    const auto room = [](attrgroup_t bit, std::string_view text) {
        return bit != 0 && text.data() != nullptr ? textSizeOf(text) : 0;
    };
    std::size_t size = shape.fixedSize + room(shape.packed.commonattr & ATTR_CMN_NAME, facts.name);
    size += room(shape.packed.commonattr & ATTR_CMN_FULLPATH, facts.fullPath);
    if (shape.packed.volattr != 0) {
        const VolumeFacts& volume = *facts.volume;
        size += room(shape.packed.volattr & ATTR_VOL_MOUNTPOINT, volume.mountPoint);
        size += room(shape.packed.volattr & ATTR_VOL_NAME, volume.name);
        size += room(shape.packed.volattr & ATTR_VOL_MOUNTEDDEVICE, volume.device);
    }
    return size;
}

void writeRecord(const RecordShape& shape, const ObjectFacts& facts, std::byte* record) noexcept {
    RecordWriter out(record, shape.fixedSize);
    writeCommon(out, shape, facts);
    if (shape.packed.volattr != 0) writeVolume(out, shape.packed.volattr, *facts.volume);
    if (shape.packed.dirattr != 0) writeDirectory(out, shape.packed.dirattr, facts);
    if (shape.packed.fileattr != 0) writeFile(out, shape.packed.fileattr, facts);
    out.finish();
}

}  // namespace sevrin::platform
