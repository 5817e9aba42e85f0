// The bits in which a volume says what its format keeps and what its interfaces can do.
//
// They come as ATTR_VOL_CAPABILITIES (see AttributeList.h); a bit counts only where the word of
// valid bits has it too. What a system does not know of a volume is not valid.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sevrin::platform {

// The words of a vol_capabilities_set_t.
inline constexpr std::size_t VOL_CAPABILITIES_FORMAT = 0;
inline constexpr std::size_t VOL_CAPABILITIES_INTERFACES = 1;
inline constexpr std::size_t VOL_CAPABILITIES_RESERVED1 = 2;
inline constexpr std::size_t VOL_CAPABILITIES_RESERVED2 = 3;

// The format.
inline constexpr std::uint32_t VOL_CAP_FMT_PERSISTENTOBJECTIDS = 0x0000'0001;
inline constexpr std::uint32_t VOL_CAP_FMT_SYMBOLICLINKS = 0x0000'0002;
inline constexpr std::uint32_t VOL_CAP_FMT_HARDLINKS = 0x0000'0004;
inline constexpr std::uint32_t VOL_CAP_FMT_JOURNAL = 0x0000'0008;
inline constexpr std::uint32_t VOL_CAP_FMT_JOURNAL_ACTIVE = 0x0000'0010;
inline constexpr std::uint32_t VOL_CAP_FMT_NO_ROOT_TIMES = 0x0000'0020;
inline constexpr std::uint32_t VOL_CAP_FMT_SPARSE_FILES = 0x0000'0040;
inline constexpr std::uint32_t VOL_CAP_FMT_ZERO_RUNS = 0x0000'0080;
inline constexpr std::uint32_t VOL_CAP_FMT_CASE_SENSITIVE = 0x0000'0100;
inline constexpr std::uint32_t VOL_CAP_FMT_CASE_PRESERVING = 0x0000'0200;
inline constexpr std::uint32_t VOL_CAP_FMT_FAST_STATFS = 0x0000'0400;
inline constexpr std::uint32_t VOL_CAP_FMT_2TB_FILESIZE = 0x0000'0800;
inline constexpr std::uint32_t VOL_CAP_FMT_OPENDENYMODES = 0x0000'1000;
inline constexpr std::uint32_t VOL_CAP_FMT_HIDDEN_FILES = 0x0000'2000;
inline constexpr std::uint32_t VOL_CAP_FMT_PATH_FROM_ID = 0x0000'4000;
inline constexpr std::uint32_t VOL_CAP_FMT_NO_VOLUME_SIZES = 0x0000'8000;
inline constexpr std::uint32_t VOL_CAP_FMT_64BIT_OBJECT_IDS = 0x0002'0000;

// The interfaces.
inline constexpr std::uint32_t VOL_CAP_INT_SEARCHFS = 0x0000'0001;
inline constexpr std::uint32_t VOL_CAP_INT_ATTRLIST = 0x0000'0002;
inline constexpr std::uint32_t VOL_CAP_INT_NFSEXPORT = 0x0000'0004;
inline constexpr std::uint32_t VOL_CAP_INT_READDIRATTR = 0x0000'0008;
inline constexpr std::uint32_t VOL_CAP_INT_EXCHANGEDATA = 0x0000'0010;
inline constexpr std::uint32_t VOL_CAP_INT_COPYFILE = 0x0000'0020;
inline constexpr std::uint32_t VOL_CAP_INT_ALLOCATE = 0x0000'0040;
inline constexpr std::uint32_t VOL_CAP_INT_VOL_RENAME = 0x0000'0080;
inline constexpr std::uint32_t VOL_CAP_INT_ADVLOCK = 0x0000'0100;
inline constexpr std::uint32_t VOL_CAP_INT_FLOCK = 0x0000'0200;
inline constexpr std::uint32_t VOL_CAP_INT_EXTENDED_SECURITY = 0x0000'0400;
inline constexpr std::uint32_t VOL_CAP_INT_USERACCESS = 0x0000'0800;
inline constexpr std::uint32_t VOL_CAP_INT_MANLOCK = 0x0000'1000;
inline constexpr std::uint32_t VOL_CAP_INT_NAMEDSTREAMS = 0x0000'2000;
inline constexpr std::uint32_t VOL_CAP_INT_EXTENDED_ATTR = 0x0000'4000;
inline constexpr std::uint32_t VOL_CAP_INT_CLONE = 0x0001'0000;
inline constexpr std::uint32_t VOL_CAP_INT_SNAPSHOT = 0x0002'0000;
inline constexpr std::uint32_t VOL_CAP_INT_RENAME_SWAP = 0x0004'0000;
inline constexpr std::uint32_t VOL_CAP_INT_RENAME_EXCL = 0x0008'0000;

}  // namespace sevrin::platform
