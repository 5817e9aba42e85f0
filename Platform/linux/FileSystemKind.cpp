// The table of file systems. A bit that is valid and not set says "surely not".
#include "Platform/linux/FileSystemKind.h"

#include <sys/statfs.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Platform/VolumeCapabilities.h"
#include "Platform/linux/ObjectFacts.h"

namespace sevrin::platform {

namespace {

// Every bit that has a name: what is known when nothing is left open.
constexpr std::uint32_t kAllFormat = 0x0002'FFFF;
constexpr std::uint32_t kAllInterfaces = 0x000F'7FFF;
// Found out for each volume, whatever its kind.
constexpr std::uint32_t kProbedFormat = VOL_CAP_FMT_NO_VOLUME_SIZES;
constexpr std::uint32_t kProbedInterfaces =
    VOL_CAP_INT_EXTENDED_SECURITY | VOL_CAP_INT_EXTENDED_ATTR | VOL_CAP_INT_READDIRATTR;
constexpr std::uint32_t kFormat = kAllFormat & ~kProbedFormat;
constexpr std::uint32_t kInterfaces = kAllInterfaces & ~kProbedInterfaces;

// What the platform itself offers on every file system, and what it offers on none: searching,
// exchanging data, copying inside the file system, renaming volumes, mandatory locks, named
// streams.
constexpr std::uint32_t kEverywhere =
    VOL_CAP_INT_ATTRLIST | VOL_CAP_INT_ADVLOCK | VOL_CAP_INT_FLOCK | VOL_CAP_INT_USERACCESS;
constexpr std::uint32_t kNowhere = VOL_CAP_INT_SEARCHFS | VOL_CAP_INT_EXCHANGEDATA |
                                   VOL_CAP_INT_COPYFILE | VOL_CAP_INT_VOL_RENAME |
                                   VOL_CAP_INT_MANLOCK | VOL_CAP_INT_NAMEDSTREAMS;

constexpr std::uint32_t kNames = VOL_CAP_FMT_CASE_SENSITIVE | VOL_CAP_FMT_CASE_PRESERVING;
constexpr std::uint32_t kLinks = VOL_CAP_FMT_SYMBOLICLINKS | VOL_CAP_FMT_HARDLINKS;
constexpr std::uint32_t kUnix = VOL_CAP_FMT_PERSISTENTOBJECTIDS | kNames | kLinks |
                                VOL_CAP_FMT_SPARSE_FILES | VOL_CAP_FMT_FAST_STATFS |
                                VOL_CAP_FMT_2TB_FILESIZE;
constexpr std::uint32_t kModern = kUnix | VOL_CAP_FMT_ZERO_RUNS;
constexpr std::uint32_t kJournal = VOL_CAP_FMT_JOURNAL | VOL_CAP_FMT_JOURNAL_ACTIVE;
constexpr std::uint32_t kWide = VOL_CAP_FMT_64BIT_OBJECT_IDS;
constexpr std::uint32_t kFixedMedium = kNames | kLinks | VOL_CAP_FMT_FAST_STATFS;

constexpr std::uint32_t kPlain = kEverywhere | VOL_CAP_INT_NFSEXPORT;
constexpr std::uint32_t kExclusive = VOL_CAP_INT_RENAME_EXCL;
constexpr std::uint32_t kRenames = VOL_CAP_INT_RENAME_EXCL | VOL_CAP_INT_RENAME_SWAP;
constexpr std::uint32_t kFull = kPlain | kRenames | VOL_CAP_INT_ALLOCATE;
constexpr std::uint32_t kSnapshots = VOL_CAP_INT_SNAPSHOT;
constexpr std::uint32_t kClone = VOL_CAP_INT_CLONE;
constexpr std::uint32_t kSwap = VOL_CAP_INT_RENAME_SWAP;

constexpr FileSystemKind stored(std::string_view name, std::uint32_t format,
                                std::uint32_t interfaces, std::uint32_t formatOpen = 0,
                                std::uint32_t interfacesOpen = 0) noexcept {
    return {name,
            format,
            kFormat & ~formatOpen,
            interfaces,
            kInterfaces & ~interfacesOpen,
            false,
            false,
            false,
            false};
}

constexpr FileSystemKind ownerless(std::string_view name, std::uint32_t format,
                                   std::uint32_t interfaces, std::uint32_t formatOpen = 0,
                                   std::uint32_t interfacesOpen = 0) noexcept {
    FileSystemKind kind = stored(name, format, interfaces, formatOpen, interfacesOpen);
    kind.ignoresOwners = true;
    return kind;
}

constexpr FileSystemKind inMemory(std::string_view name, std::uint32_t interfaces,
                                  std::uint32_t interfacesOpen = 0) noexcept {
    FileSystemKind kind =
        stored(name, kModern & ~VOL_CAP_FMT_PERSISTENTOBJECTIDS, interfaces, 0, interfacesOpen);
    kind.isVolatile = true;
    return kind;
}

// The format is the server's and not seen from here.
constexpr FileSystemKind remote(std::string_view name, std::uint32_t interfaces = kEverywhere,
                                std::uint32_t interfacesValid = kEverywhere | kNowhere |
                                                                VOL_CAP_INT_RENAME_SWAP) noexcept {
    constexpr std::uint32_t kSeen = VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_2TB_FILESIZE;
    constexpr std::uint32_t kValid = kSeen | VOL_CAP_FMT_FAST_STATFS;
    return {name, kSeen, kValid, interfaces, interfacesValid, true, false, false, false};
}

constexpr FileSystemKind pseudo(std::string_view name) noexcept {
    return {name,
            kNames,
            kNames | kJournal,
            kEverywhere,
            kEverywhere | kNowhere | kRenames,
            false,
            true,
            false,
            true};
}

constexpr FileSystemKind kUnknown = {
    {}, VOL_CAP_FMT_2TB_FILESIZE, VOL_CAP_FMT_2TB_FILESIZE, kEverywhere, kEverywhere | kNowhere};

constexpr std::array kKinds = {
    stored("ext2", kUnix, kPlain | kRenames),
    stored("ext3", kUnix | kJournal, kPlain | kRenames),
    // Made without a journal too.
    stored("ext4", kModern | VOL_CAP_FMT_JOURNAL, kFull, VOL_CAP_FMT_JOURNAL_ACTIVE),
    // Sharing blocks and folding case are chosen when the volume is made.
    stored("xfs", kModern | kJournal | kWide, kFull, VOL_CAP_FMT_CASE_SENSITIVE, kClone),
    stored("btrfs", kModern | kWide, kFull | kClone | kSnapshots),
    stored("bcachefs", kModern | kJournal | kWide, kFull | kClone | kSnapshots),
    stored("f2fs", kModern, kFull),
    stored("zfs", kUnix | kWide, kPlain | kSnapshots, 0, kClone | kRenames | VOL_CAP_INT_ALLOCATE),
    stored("jfs", kUnix | kJournal, kPlain),
    stored("reiserfs", kUnix | kJournal, kPlain | kExclusive),
    stored("nilfs2", kUnix | kWide, kPlain | kExclusive | kSnapshots),
    stored("ocfs2", kModern | kJournal | kWide, kPlain | kClone | VOL_CAP_INT_ALLOCATE),
    stored("gfs2", kModern | kJournal | kWide, kFull),
    stored("ubifs", kUnix | kJournal, kPlain | kRenames),
    stored("hfsplus", kUnix & ~(VOL_CAP_FMT_SPARSE_FILES | VOL_CAP_FMT_CASE_SENSITIVE),
           kPlain | kExclusive, VOL_CAP_FMT_CASE_SENSITIVE | kJournal),
    stored("udf", kFixedMedium | VOL_CAP_FMT_2TB_FILESIZE, kPlain | kExclusive),
    // Its files are not limited by the size of one extent.
    stored("iso9660", kFixedMedium | VOL_CAP_FMT_2TB_FILESIZE, kPlain),
    stored("squashfs", kFixedMedium | VOL_CAP_FMT_2TB_FILESIZE | VOL_CAP_FMT_PERSISTENTOBJECTIDS,
           kPlain),
    stored("erofs", kFixedMedium | VOL_CAP_FMT_2TB_FILESIZE | VOL_CAP_FMT_PERSISTENTOBJECTIDS,
           kPlain),
    // What is below it decides the rest.
    stored("overlay", kNames | kLinks | VOL_CAP_FMT_FAST_STATFS | VOL_CAP_FMT_2TB_FILESIZE,
           kEverywhere | kExclusive, kJournal | VOL_CAP_FMT_SPARSE_FILES | VOL_CAP_FMT_ZERO_RUNS,
           kClone | kSwap | VOL_CAP_INT_ALLOCATE | VOL_CAP_INT_NFSEXPORT),
    // Sizes have 32 bits; the root has no entry of its own that could keep times.
    ownerless("vfat",
              VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_NO_ROOT_TIMES | VOL_CAP_FMT_FAST_STATFS,
              kPlain | kExclusive, 0, kSwap),
    ownerless("msdos", VOL_CAP_FMT_NO_ROOT_TIMES | VOL_CAP_FMT_FAST_STATFS, kPlain),
    ownerless("exfat",
              VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_NO_ROOT_TIMES | VOL_CAP_FMT_FAST_STATFS |
                  VOL_CAP_FMT_2TB_FILESIZE,
              kPlain | kExclusive),
    ownerless("ntfs3",
              kLinks | VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_SPARSE_FILES |
                  VOL_CAP_FMT_FAST_STATFS | VOL_CAP_FMT_2TB_FILESIZE |
                  VOL_CAP_FMT_PERSISTENTOBJECTIDS,
              kPlain, VOL_CAP_FMT_CASE_SENSITIVE | kJournal, kRenames | VOL_CAP_INT_ALLOCATE),
    inMemory("tmpfs", kFull),
    inMemory("ramfs", kEverywhere | kExclusive, kSwap | VOL_CAP_INT_ALLOCATE),
    remote("nfs"),
    remote("nfs4"),
    remote("cifs", kEverywhere | kExclusive, kEverywhere | kNowhere | kRenames),
    remote("smb3", kEverywhere | kExclusive, kEverywhere | kNowhere | kRenames),
    remote("9p"),
    remote("ceph"),
    remote("afs"),
    remote("lustre"),
    remote("fuse.sshfs", kEverywhere, kEverywhere | kNowhere),
    remote("fuse.glusterfs", kEverywhere, kEverywhere | kNowhere),
    remote("fuse.s3fs", kEverywhere, kEverywhere | kNowhere),
    remote("fuse.rclone", kEverywhere, kEverywhere | kNowhere),
    remote("fuse.davfs", kEverywhere, kEverywhere | kNowhere),
    pseudo("proc"),
    pseudo("sysfs"),
    pseudo("devtmpfs"),
    pseudo("devpts"),
    pseudo("cgroup"),
    pseudo("cgroup2"),
    pseudo("cpuset"),
    pseudo("pstore"),
    pseudo("bpf"),
    pseudo("tracefs"),
    pseudo("debugfs"),
    pseudo("securityfs"),
    pseudo("selinuxfs"),
    pseudo("configfs"),
    pseudo("fusectl"),
    pseudo("hugetlbfs"),
    pseudo("mqueue"),
    pseudo("binfmt_misc"),
    pseudo("autofs"),
    pseudo("rpc_pipefs"),
    pseudo("nsfs"),
    pseudo("efivarfs"),
    pseudo("fuse.gvfsd-fuse"),
    pseudo("fuse.portal"),
    pseudo("fuse.lxcfs"),
};

// Numbers of kinds, from the kernel's own list.
constexpr std::array<std::uint32_t, 2> kStackedOnOthers = {0x794C'7630, 0x0000'F15F};
constexpr std::array<std::uint32_t, 7> kRemote = {
    0x0000'6969, 0xFF53'4D42, 0xFE53'4D42, 0x0102'1997, 0x00C3'6400, 0x5346'414F, 0x0BD0'0BD0};

}  // namespace

const FileSystemKind& kindNamed(std::string_view name) noexcept {
    const auto* kind = std::find_if(kKinds.begin(), kKinds.end(),
                                    [name](const FileSystemKind& one) { return one.name == name; });
    return kind == kKinds.end() ? kUnknown : *kind;
}

std::optional<fsid_t> ownIdentity(const struct ::statfs& raw) noexcept {
    fsid_t identity;
    static_assert(sizeof identity == sizeof raw.f_fsid);
    std::memcpy(&identity, &raw.f_fsid, sizeof identity);
    const auto type = static_cast<std::uint32_t>(raw.f_type);
    const auto isOneOf = [type](const auto& types) {
        return std::find(types.begin(), types.end(), type) != types.end();
    };
    const bool isOwn = (identity.val[0] != 0 || identity.val[1] != 0) &&
                       !isOneOf(kStackedOnOthers) && !isOneOf(kRemote);
    return isOwn ? std::optional(identity) : std::nullopt;
}

fsid_t deviceIdentity(unsigned major, unsigned minor) noexcept {
    return {{deviceNumber(major, minor), 0}};
}

}  // namespace sevrin::platform
