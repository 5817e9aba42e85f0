// Mounted file systems: what is mounted where, from what, with which flags, and how full it is.
//
// The records and constants are the platform's, but for the room for paths and names, which is what
// every supported system needs. All calls give -1 with errno where they fail; any thread. What a
// volume can do, its name and its UUID are attributes: AttributeList.h, VolumeCapabilities.h.
#pragma once

#include <cstddef>
#include <cstdint>

#include "Platform/AttributeList.h"

namespace sevrin::platform {

// Room for a path and for the name of a kind of file system in a record, with the NUL.
inline constexpr std::size_t kMountPathMax = 4096;
inline constexpr std::size_t kFileSystemTypeNameMax = 64;

// A mounted file system.
struct statfs {
    std::uint32_t f_bsize;   // bytes a block; the counts below are in blocks
    std::int32_t f_iosize;   // the best size of transfers, bytes
    std::uint64_t f_blocks;  // 0 where the file system has no size
    std::uint64_t f_bfree;
    std::uint64_t f_bavail;  // free for users without privilege
    std::uint64_t f_files;
    std::uint64_t f_ffree;
    fsid_t f_fsid;          // unique among the mounted; the same for every mount of one
    std::uint32_t f_owner;  // the user that mounted it
    std::uint32_t f_type;   // a number for the kind of file system, the system's own
    std::uint32_t f_flags;  // MNT_ bits
    std::uint32_t f_fssubtype;
    char f_fstypename[kFileSystemTypeNameMax];  // "ext4"
    char f_mntonname[kMountPathMax];            // the mount point
    char f_mntfromname[kMountPathMax];          // what is mounted: "/dev/sda1", "server:/export"
};

// Flags of a mount.
inline constexpr std::uint32_t MNT_RDONLY = 0x0000'0001;
inline constexpr std::uint32_t MNT_SYNCHRONOUS = 0x0000'0002;
inline constexpr std::uint32_t MNT_NOEXEC = 0x0000'0004;
inline constexpr std::uint32_t MNT_NOSUID = 0x0000'0008;
inline constexpr std::uint32_t MNT_NODEV = 0x0000'0010;
inline constexpr std::uint32_t MNT_LOCAL = 0x0000'1000;  // no server stands behind it
inline constexpr std::uint32_t MNT_QUOTA = 0x0000'2000;
inline constexpr std::uint32_t MNT_ROOTFS = 0x0000'4000;
inline constexpr std::uint32_t MNT_DONTBROWSE =
    0x0010'0000;  // nothing that a person keeps files on
inline constexpr std::uint32_t MNT_IGNORE_OWNERSHIP = 0x0020'0000;  // keeps no owners
inline constexpr std::uint32_t MNT_AUTOMOUNTED = 0x0040'0000;
inline constexpr std::uint32_t MNT_JOURNALED = 0x0080'0000;
inline constexpr std::uint32_t MNT_NOATIME = 0x1000'0000;

// How getfsstat comes to its figures, and what unmount does.
inline constexpr int MNT_WAIT = 1;
inline constexpr int MNT_NOWAIT = 2;
inline constexpr int MNT_FORCE = 0x0008'0000;

// The record and the call share the platform's one name, which compilers take for a slip.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
// The file system that holds `path`; a link at its end is followed. ENOENT also when the file
// system is not in this process's mount table, so that no mount point can be named.
[[nodiscard]] int statfs(const char* path, struct statfs* buffer) noexcept;
#pragma GCC diagnostic pop

// Every mounted file system that a path reaches (not those with another mounted over them), in the
// order of the mount table: into `buffer` of `size` bytes as many records as fit, and their number
// returned. Without a buffer, only the number. `mode` is MNT_WAIT or MNT_NOWAIT; with the latter no
// server is waited for, and the figures of network file systems are zero. A file system whose
// figures cannot be had is listed without them.
[[nodiscard]] int getfsstat(struct statfs* buffer, std::size_t size, int mode) noexcept;

// Unmounts what is mounted at `path`; a link there is not followed. `flags`: 0 or MNT_FORCE, which
// does so even while it is in use. EBUSY, EPERM; EINVAL when nothing is mounted there.
[[nodiscard]] int unmount(const char* path, int flags) noexcept;

}  // namespace sevrin::platform
