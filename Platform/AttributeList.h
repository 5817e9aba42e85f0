// Attributes of file-system objects, many in one call, as packed records.
//
// The constants, structures and layouts are the platform's. A record begins with its length, 32
// bits that count themselves; then, when ATTR_CMN_RETURNED_ATTRS was asked for, the set of the
// attributes it holds; then ATTR_CMN_ERROR; then the other attributes in the order of their bits,
// group by group, each aligned to four bytes; then the texts that the attribute references point
// to. All calls give -1 with errno where they fail. They hold no state and may run on any thread.
//
// What a system cannot tell is left out of the returned set, never made up. A call that does not
// ask for the returned set fails with EINVAL for it, unless FSOPT_PACK_INVAL_ATTRS fills its place;
// only a name or path that an object has not has an empty reference.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

namespace sevrin::platform {

using attrgroup_t = std::uint32_t;

// What is asked for, or set. `bitmapcount` is ATTR_BIT_MAP_COUNT, `reserved` 0.
struct attrlist {
    std::uint16_t bitmapcount;
    std::uint16_t reserved;
    attrgroup_t commonattr;
    attrgroup_t volattr;
    attrgroup_t dirattr;
    attrgroup_t fileattr;
    attrgroup_t forkattr;
};

inline constexpr std::uint16_t ATTR_BIT_MAP_COUNT = 5;

struct attribute_set_t {
    attrgroup_t commonattr;
    attrgroup_t volattr;
    attrgroup_t dirattr;
    attrgroup_t fileattr;
    attrgroup_t forkattr;
};

// A text elsewhere in the record: its distance in bytes from the start of this reference, and its
// length with the NUL at its end.
struct attrreference_t {
    std::int32_t attr_dataoffset;
    std::uint32_t attr_length;
};

// The identity of a mounted file system (ATTR_CMN_FSID, and f_fsid of a statfs record).
struct fsid_t {
    std::int32_t val[2];
};

// Four words of capability bits each: VOL_CAPABILITIES_FORMAT, VOL_CAPABILITIES_INTERFACES and two
// reserved. A bit of `capabilities` says something only where `valid` has it too.
using vol_capabilities_set_t = std::uint32_t[4];
struct vol_capabilities_attr_t {
    vol_capabilities_set_t capabilities;
    vol_capabilities_set_t valid;
};

// The attributes that a volume's objects have: in any way, and kept by the volume itself.
struct vol_attributes_attr_t {
    attribute_set_t validattr;
    attribute_set_t nativeattr;
};

// Kinds of objects (ATTR_CMN_OBJTYPE).
using fsobj_type_t = std::uint32_t;
enum vtype : std::uint32_t { VNON, VREG, VDIR, VBLK, VCHR, VLNK, VSOCK, VFIFO, VBAD };

// Options. FSOPT_REPORT_FULLSIZE: the length of a record is what all of it needs, even where the
// buffer ends before. FSOPT_PACK_INVAL_ATTRS: each attribute asked for has its place; what is not
// in the returned set is zero there (ATTR_CMN_SCRIPT: kUnicodeScript).
inline constexpr std::uint32_t FSOPT_NOFOLLOW = 0x1;
inline constexpr std::uint32_t FSOPT_NOINMEMUPDATE = 0x2;
inline constexpr std::uint32_t FSOPT_REPORT_FULLSIZE = 0x4;
inline constexpr std::uint32_t FSOPT_PACK_INVAL_ATTRS = 0x8;

// The text encoding hint of names that are Unicode by nature.
inline constexpr std::uint32_t kUnicodeScript = 126;

// Common attributes. The comment gives the type packed.
inline constexpr attrgroup_t ATTR_CMN_NAME = 0x0000'0001;            // attrreference_t
inline constexpr attrgroup_t ATTR_CMN_DEVID = 0x0000'0002;           // int32_t
inline constexpr attrgroup_t ATTR_CMN_FSID = 0x0000'0004;            // fsid_t
inline constexpr attrgroup_t ATTR_CMN_OBJTYPE = 0x0000'0008;         // fsobj_type_t
inline constexpr attrgroup_t ATTR_CMN_OBJTAG = 0x0000'0010;          // uint32_t
inline constexpr attrgroup_t ATTR_CMN_OBJID = 0x0000'0020;           // 8 bytes
inline constexpr attrgroup_t ATTR_CMN_OBJPERMANENTID = 0x0000'0040;  // 8 bytes
inline constexpr attrgroup_t ATTR_CMN_PAROBJID = 0x0000'0080;        // 8 bytes
inline constexpr attrgroup_t ATTR_CMN_SCRIPT = 0x0000'0100;          // uint32_t
inline constexpr attrgroup_t ATTR_CMN_CRTIME = 0x0000'0200;          // timespec
inline constexpr attrgroup_t ATTR_CMN_MODTIME = 0x0000'0400;         // timespec
inline constexpr attrgroup_t ATTR_CMN_CHGTIME = 0x0000'0800;         // timespec
inline constexpr attrgroup_t ATTR_CMN_ACCTIME = 0x0000'1000;         // timespec
inline constexpr attrgroup_t ATTR_CMN_BKUPTIME = 0x0000'2000;        // timespec
inline constexpr attrgroup_t ATTR_CMN_FNDRINFO = 0x0000'4000;        // 32 bytes
inline constexpr attrgroup_t ATTR_CMN_OWNERID = 0x0000'8000;         // uint32_t
inline constexpr attrgroup_t ATTR_CMN_GRPID = 0x0001'0000;           // uint32_t
inline constexpr attrgroup_t ATTR_CMN_ACCESSMASK = 0x0002'0000;      // uint32_t, a whole st_mode
inline constexpr attrgroup_t ATTR_CMN_FLAGS = 0x0004'0000;           // uint32_t, UF_ and SF_ bits
inline constexpr attrgroup_t ATTR_CMN_GEN_COUNT = 0x0008'0000;       // uint32_t
inline constexpr attrgroup_t ATTR_CMN_DOCUMENT_ID = 0x0010'0000;     // uint32_t
inline constexpr attrgroup_t ATTR_CMN_USERACCESS = 0x0020'0000;      // uint32_t: R_OK, W_OK, X_OK
inline constexpr attrgroup_t ATTR_CMN_EXTENDED_SECURITY = 0x0040'0000;   // attrreference_t
inline constexpr attrgroup_t ATTR_CMN_UUID = 0x0080'0000;                // 16 bytes
inline constexpr attrgroup_t ATTR_CMN_GRPUUID = 0x0100'0000;             // 16 bytes
inline constexpr attrgroup_t ATTR_CMN_FILEID = 0x0200'0000;              // uint64_t
inline constexpr attrgroup_t ATTR_CMN_PARENTID = 0x0400'0000;            // uint64_t
inline constexpr attrgroup_t ATTR_CMN_FULLPATH = 0x0800'0000;            // attrreference_t
inline constexpr attrgroup_t ATTR_CMN_ADDEDTIME = 0x1000'0000;           // timespec
inline constexpr attrgroup_t ATTR_CMN_ERROR = 0x2000'0000;               // uint32_t, an errno
inline constexpr attrgroup_t ATTR_CMN_DATA_PROTECT_FLAGS = 0x4000'0000;  // uint32_t
inline constexpr attrgroup_t ATTR_CMN_RETURNED_ATTRS = 0x8000'0000;      // attribute_set_t

// Attributes of a volume; asked of its mount point, always with ATTR_VOL_INFO (no data of its own).
inline constexpr attrgroup_t ATTR_VOL_FSTYPE = 0x0000'0001;           // uint32_t
inline constexpr attrgroup_t ATTR_VOL_SIGNATURE = 0x0000'0002;        // uint32_t
inline constexpr attrgroup_t ATTR_VOL_SIZE = 0x0000'0004;             // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_SPACEFREE = 0x0000'0008;        // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_SPACEAVAIL = 0x0000'0010;       // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_MINALLOCATION = 0x0000'0020;    // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_ALLOCATIONCLUMP = 0x0000'0040;  // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_IOBLOCKSIZE = 0x0000'0080;      // uint32_t, bytes
inline constexpr attrgroup_t ATTR_VOL_OBJCOUNT = 0x0000'0100;         // uint32_t
inline constexpr attrgroup_t ATTR_VOL_FILECOUNT = 0x0000'0200;        // uint32_t
inline constexpr attrgroup_t ATTR_VOL_DIRCOUNT = 0x0000'0400;         // uint32_t
inline constexpr attrgroup_t ATTR_VOL_MAXOBJCOUNT = 0x0000'0800;      // uint32_t
inline constexpr attrgroup_t ATTR_VOL_MOUNTPOINT = 0x0000'1000;       // attrreference_t
inline constexpr attrgroup_t ATTR_VOL_NAME = 0x0000'2000;             // attrreference_t
inline constexpr attrgroup_t ATTR_VOL_MOUNTFLAGS = 0x0000'4000;       // uint32_t, MNT_ bits
inline constexpr attrgroup_t ATTR_VOL_MOUNTEDDEVICE = 0x0000'8000;    // attrreference_t
inline constexpr attrgroup_t ATTR_VOL_ENCODINGSUSED = 0x0001'0000;    // uint64_t
inline constexpr attrgroup_t ATTR_VOL_CAPABILITIES = 0x0002'0000;     // vol_capabilities_attr_t
inline constexpr attrgroup_t ATTR_VOL_UUID = 0x0004'0000;             // 16 bytes
inline constexpr attrgroup_t ATTR_VOL_QUOTA_SIZE = 0x1000'0000;       // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_RESERVED_SIZE = 0x2000'0000;    // int64_t, bytes
inline constexpr attrgroup_t ATTR_VOL_ATTRIBUTES = 0x4000'0000;       // vol_attributes_attr_t
inline constexpr attrgroup_t ATTR_VOL_INFO = 0x8000'0000;             // nothing

// Attributes of directories; for other objects they are skipped.
inline constexpr attrgroup_t ATTR_DIR_LINKCOUNT = 0x01;    // uint32_t
inline constexpr attrgroup_t ATTR_DIR_ENTRYCOUNT = 0x02;   // uint32_t, without "." and ".."
inline constexpr attrgroup_t ATTR_DIR_MOUNTSTATUS = 0x04;  // uint32_t, DIR_MNTSTATUS_ bits
inline constexpr attrgroup_t ATTR_DIR_ALLOCSIZE = 0x08;    // int64_t, bytes
inline constexpr attrgroup_t ATTR_DIR_IOBLOCKSIZE = 0x10;  // uint32_t, bytes
inline constexpr attrgroup_t ATTR_DIR_DATALENGTH = 0x20;   // int64_t, bytes

inline constexpr std::uint32_t DIR_MNTSTATUS_MNTPOINT = 0x1;
inline constexpr std::uint32_t DIR_MNTSTATUS_TRIGGER = 0x2;

// Attributes of everything that is not a directory; for directories they are skipped.
inline constexpr attrgroup_t ATTR_FILE_LINKCOUNT = 0x0001;      // uint32_t
inline constexpr attrgroup_t ATTR_FILE_TOTALSIZE = 0x0002;      // int64_t, bytes
inline constexpr attrgroup_t ATTR_FILE_ALLOCSIZE = 0x0004;      // int64_t, bytes
inline constexpr attrgroup_t ATTR_FILE_IOBLOCKSIZE = 0x0008;    // uint32_t, bytes
inline constexpr attrgroup_t ATTR_FILE_DEVTYPE = 0x0020;        // uint32_t
inline constexpr attrgroup_t ATTR_FILE_FORKCOUNT = 0x0080;      // uint32_t
inline constexpr attrgroup_t ATTR_FILE_FORKLIST = 0x0100;       // attrreference_t
inline constexpr attrgroup_t ATTR_FILE_DATALENGTH = 0x0200;     // int64_t, bytes
inline constexpr attrgroup_t ATTR_FILE_DATAALLOCSIZE = 0x0400;  // int64_t, bytes
inline constexpr attrgroup_t ATTR_FILE_RSRCLENGTH = 0x1000;     // int64_t, bytes
inline constexpr attrgroup_t ATTR_FILE_RSRCALLOCSIZE = 0x2000;  // int64_t, bytes

// The flags of ATTR_CMN_FLAGS: what the owner may set, and what needs privilege.
inline constexpr std::uint32_t UF_NODUMP = 0x0000'0001;
inline constexpr std::uint32_t UF_IMMUTABLE = 0x0000'0002;
inline constexpr std::uint32_t UF_APPEND = 0x0000'0004;
inline constexpr std::uint32_t UF_OPAQUE = 0x0000'0008;
inline constexpr std::uint32_t UF_COMPRESSED = 0x0000'0020;
inline constexpr std::uint32_t UF_TRACKED = 0x0000'0040;
inline constexpr std::uint32_t UF_DATAVAULT = 0x0000'0080;
inline constexpr std::uint32_t UF_HIDDEN = 0x0000'8000;
inline constexpr std::uint32_t SF_ARCHIVED = 0x0001'0000;
inline constexpr std::uint32_t SF_IMMUTABLE = 0x0002'0000;
inline constexpr std::uint32_t SF_APPEND = 0x0004'0000;
inline constexpr std::uint32_t SF_RESTRICTED = 0x0008'0000;
inline constexpr std::uint32_t SF_NOUNLINK = 0x0010'0000;
inline constexpr std::uint32_t SF_FIRMLINK = 0x0080'0000;

// The attributes of the object at `path`, or behind the descriptor, as one record in `buffer` of
// `size` bytes. What does not fit is cut off silently: the length word is then `size`, or with
// FSOPT_REPORT_FULLSIZE what was needed. A buffer without room for the length word, or for the
// returned set where that is asked for without FSOPT_REPORT_FULLSIZE, fails with ERANGE; EINVAL is
// for lists and options that make no sense, for volume attributes beside those of files or
// directories or asked of anything but a mount point, and for attributes that the system does not
// have. Asking a directory's entry count reads the directory; where it may not be read, the count
// is left out. Without FSOPT_NOFOLLOW a symbolic link at the end of the path is followed.
[[nodiscard]] int getattrlist(const char* path, const attrlist* list, void* buffer,
                              std::size_t size, unsigned long options) noexcept;
[[nodiscard]] int fgetattrlist(int fd, const attrlist* list, void* buffer, std::size_t size,
                               unsigned long options) noexcept;

// Sets attributes of the object at `path` from `buffer`, which holds the values in the order of
// their bits and no length. Can be set: the owner, the group, the access mask (file-type bits are
// ignored), the flags, and the times of modification and access. The change time is ignored: it is
// nobody's to set. What the system or the volume cannot store (the creation time, a flag that it
// has not) fails with ENOTSUP, and then nothing at all was written; when a later step is refused,
// what was written before it is put back. EINVAL: other attributes, or too short a buffer.
[[nodiscard]] int setattrlist(const char* path, const attrlist* list, const void* buffer,
                              std::size_t size, unsigned long options) noexcept;

// Records of the next entries of the directory open for reading at `dirfd`, one after the other,
// each as long as its length word says: as many as `size` bytes hold, but "." and "..". Gives their
// number, 0 at the end. The position is the descriptor's. `list` must ask for ATTR_CMN_NAME and
// ATTR_CMN_RETURNED_ATTRS, else EINVAL. ERANGE: not even one entry fits; the same entry comes
// again. Symbolic links are never followed. An entry that vanished meanwhile is skipped; one whose
// attributes may not be seen has what the directory itself knows (name, type, file id), and in
// ATTR_CMN_ERROR, where asked for, the errno. A subdirectory's entry count is never given.
[[nodiscard]] int getattrlistbulk(int dirfd, const attrlist* list, void* buffer, std::size_t size,
                                  std::uint64_t options) noexcept;

// The older reader of directories: records without a returned set, in which everything asked for
// has its place, a subdirectory's entry count too; what cannot be had is zero. `list` must not ask
// for ATTR_CMN_RETURNED_ATTRS. `count`: in, how many entries at most; out, how many came. `basep`:
// where they begin in the directory, for information. `newState`: a value that is another one once
// the directory has changed. Gives 1 when the end of the directory was met, else 0; ERANGE as
// above.
[[nodiscard]] int getdirentriesattr(int dirfd, const attrlist* list, void* buffer, std::size_t size,
                                    std::uint32_t* count, std::uint32_t* basep,
                                    std::uint32_t* newState, std::uint32_t options) noexcept;

}  // namespace sevrin::platform
