// Attributes of the entries of a directory: one getdents64 for many names and one statx for each,
// relative to the open directory, packed straight into the caller's buffer without allocating.
//
// No state is kept between calls but the descriptor's position. Names are therefore read in
// portions that cannot overfill the buffer; where a small buffer makes that impossible, the
// position is set back to the first entry that did not fit.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include "Platform/AttributeList.h"
#include "Platform/linux/AttributeRecord.h"
#include "Platform/linux/DirectoryEntries.h"
#include "Platform/linux/EffectiveAccess.h"
#include "Platform/linux/OpenObject.h"

namespace sevrin::platform {

namespace {

constexpr std::size_t kNamesSizeMax = 32768;

int failWith(int error) noexcept {
    errno = error;
    return -1;
}

// Packs the entries of one directory for one call.
class EntryPacker {
public:
    EntryPacker(int dirfd, const AttributeRequest& request, bool packsAll) noexcept
        : dirfd_(dirfd), request_(request), packsAll_(packsAll) {}

    // The most bytes before the texts that a record can have.
    [[nodiscard]] std::size_t fixedSizeMax() const noexcept {
        attribute_set_t wanted = request_.wanted;
        wanted.dirattr = 0;
        const std::size_t file = fixedSizeOf(wanted);
        wanted.fileattr = 0;
        wanted.dirattr = request_.wanted.dirattr;
        return std::max(file, fixedSizeOf(wanted));
    }

    enum class Outcome { Packed, Gone, NoRoom };

    // Packs one entry at `record`, where `room` bytes are; on success `size` is what it took.
    Outcome pack(const DirectoryEntry& entry, std::byte* record, std::size_t room,
                 std::size_t& size) noexcept {
        if (!learn(entry)) return Outcome::Gone;
        const RecordShape& shape = shapeOfEntry();
        size = shape.fixedSize + (wants(ATTR_CMN_NAME) ? textSizeOf(facts_.name) : 0);
        if (size > room) return Outcome::NoRoom;
        writeRecord(shape, facts_, record);
        return Outcome::Packed;
    }

private:
    [[nodiscard]] bool wants(attrgroup_t bit) const noexcept {
        return (request_.wanted.commonattr & bit) != 0;
    }

    // False when there is no such entry any longer.
    bool learn(const DirectoryEntry& entry) noexcept {
        facts_.name = entry.name();
        facts_.error = 0;
        constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
        if (::statx(dirfd_, entry.name(), kFlags, kStatxFields, &facts_.stat) != 0) {
            if (errno == ENOENT) return false;
            learnFromNameOnly(entry, errno);
            return true;
        }
        facts_.known = knownFromStatx(facts_.stat);
        if (wants(ATTR_CMN_USERACCESS)) learnAccess(entry);
        if (wants(ATTR_CMN_FSID)) learnIdentity(entry.name());
        if (packsAll_ && !request_.returnsSet()) learnEntryCount(entry.name());
        return true;
    }

    // The attributes may not be seen, but the directory itself knows a little.
    void learnFromNameOnly(const DirectoryEntry& entry, int error) noexcept {
        const unsigned mode = modeOfEntryType(entry.type);
        facts_.stat = {};
        facts_.stat.stx_mode = static_cast<std::uint16_t>(mode);
        facts_.stat.stx_ino = entry.inode;
        facts_.userAccess = 0;
        facts_.entryCount = 0;
        facts_.fsid = {};
        facts_.error = static_cast<std::uint32_t>(error);
        facts_.known = {};
        facts_.known.commonattr =
            ATTR_CMN_NAME | ATTR_CMN_FILEID | ATTR_CMN_ERROR | ATTR_CMN_RETURNED_ATTRS;
        if (mode != 0) facts_.known.commonattr |= ATTR_CMN_OBJTYPE;
    }

    // What concerns the caller and the volume is found out for the first entry: the call that meets
    // the end of the directory has none.
    void learnAccess(const DirectoryEntry& entry) noexcept {
        if (!access_) access_.emplace(dirfd_);
        facts_.userAccess = access_->of(dirfd_, entry.name(), facts_.stat);
    }

    void learnIdentity(const char* name) noexcept {
        if (!identity_) identity_ = identityOfFileSystem(dirfd_);
        std::optional<fsid_t> identity = identity_;
        if ((facts_.stat.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
            const UniqueFd root(::openat(dirfd_, name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
            identity = root ? identityOfFileSystem(root.get()) : std::nullopt;
        }
        facts_.fsid = identity.value_or(fsid_t{});
        if (!identity) facts_.known.commonattr &= ~ATTR_CMN_FSID;
    }

    // Without a returned set nobody could tell a count that is not known from an empty directory.
    void learnEntryCount(const char* name) noexcept {
        facts_.entryCount = 0;
        if (!facts_.isDirectory() || (request_.wanted.dirattr & ATTR_DIR_ENTRYCOUNT) == 0) return;
        if (const std::optional<std::uint32_t> count = countEntries(dirfd_, name)) {
            facts_.entryCount = *count;
        }
    }

    // Neighbours mostly have one shape, so that of the last file and of the last directory is kept.
    const RecordShape& shapeOfEntry() noexcept {
        KnownShape& last = facts_.isDirectory() ? directoryShape_ : fileShape_;
        if (!isSame(last.known, facts_.known)) {
            last.known = facts_.known;
            last.shape = shapeOf(request_.wanted, packsAll_, facts_);
        }
        return last.shape;
    }

    struct KnownShape {
        attribute_set_t known{};
        RecordShape shape;
    };

    int dirfd_;
    const AttributeRequest& request_;
    bool packsAll_;
    std::optional<EffectiveAccess> access_;
    std::optional<fsid_t> identity_;
    ObjectFacts facts_;
    KnownShape fileShape_;
    KnownShape directoryShape_;
};

// How far one call came.
struct Progress {
    std::uint32_t count = 0;
    std::size_t used = 0;
    off_t position = 0;  // of the first entry not packed
    bool hasEnded = false;
    bool isFull = false;
};

// Packs the entries that lie in `names` until the buffer or the count is full.
void packPortion(EntryPacker& packer, const std::byte* names, std::size_t namesSize,
                 std::byte* buffer, std::size_t size, std::uint32_t countMax,
                 Progress& progress) noexcept {
    for (std::size_t at = 0; at < namesSize;) {
        const DirectoryEntry& entry = entryAt(names + at);
        at += entry.length;
        if (!isDotEntry(entry)) {
            progress.isFull = progress.count == countMax;
            if (progress.isFull) return;
            std::size_t taken = 0;
            switch (packer.pack(entry, buffer + progress.used, size - progress.used, taken)) {
                case EntryPacker::Outcome::NoRoom:
                    progress.isFull = true;
                    return;
                case EntryPacker::Outcome::Packed:
                    progress.used += taken;
                    ++progress.count;
                    break;
                case EntryPacker::Outcome::Gone:
                    break;
            }
        }
        progress.position = static_cast<off_t>(entry.nextPosition);
    }
}

// 0, or the errno to fail with when not even one entry came.
int packEntries(int dirfd, EntryPacker& packer, std::byte* buffer, std::size_t size,
                std::uint32_t countMax, Progress& progress) noexcept {
    alignas(8) std::array<std::byte, kNamesSizeMax> names;
    // The shortest name makes the most of its record: so much room each entry's record needs at
    // most for the bytes that the entry takes itself.
    const std::size_t recordSizeMax = packer.fixedSizeMax() + 8;
    // Only where the very first entry may not fit can it be this position that is gone back to. It
    // is not asked for otherwise: some file systems begin a directory anew after any seek.
    if (size < packer.fixedSizeMax() + kEntrySizeMax) {
        progress.position = ::lseek(dirfd, 0, SEEK_CUR);
        if (progress.position < 0) return errno == ESPIPE ? ENOTDIR : errno;
    }
    while (!progress.isFull && progress.count < countMax) {
        const std::size_t fitting = std::min<std::size_t>((size - progress.used) / recordSizeMax,
                                                          countMax - progress.count);
        std::size_t portion = std::min(fitting * kEntrySizeMin, kNamesSizeMax);
        if (progress.count == 0) {
            portion = std::max(portion, kEntrySizeMax);
        } else if (portion < kEntrySizeCommon) {
            break;
        }
        const long read = readEntries(dirfd, names.data(), portion);
        // A name too long for the portion is left to the next call.
        if (read < 0 && progress.count == 0) return errno;
        progress.hasEnded = read == 0;
        if (read <= 0) break;
        packPortion(packer, names.data(), static_cast<std::size_t>(read), buffer, size, countMax,
                    progress);
    }
    if (progress.isFull) {
        if (::lseek(dirfd, progress.position, SEEK_SET) < 0) return errno;
        if (progress.count == 0) return ERANGE;
    }
    return 0;
}

bool isForEntries(const AttributeRequest& request) noexcept {
    return request.wanted.volattr == 0;
}

// A value that changes with the directory: with the times that the kernel stamps on every change,
// the size and the number of subdirectories.
std::optional<std::uint32_t> stateOf(int dirfd) noexcept {
    struct statx stat {};
    if (!statObject(dirfd, STATX_BASIC_STATS, stat)) return std::nullopt;
    constexpr std::uint64_t kMultiplier =
        0x9E37'79B9'7F4A'7C15;  // 2 to the 64th by the golden ratio
    std::uint64_t hash = 0;
    const auto mix = [&hash](std::uint64_t value) {
        hash = (hash ^ value) * kMultiplier;
        hash ^= hash >> 29;
    };
    mix(static_cast<std::uint64_t>(stat.stx_mtime.tv_sec));
    mix(stat.stx_mtime.tv_nsec);
    mix(static_cast<std::uint64_t>(stat.stx_ctime.tv_sec));
    mix(stat.stx_ctime.tv_nsec);
    mix(stat.stx_size);
    mix(stat.stx_nlink);
    return static_cast<std::uint32_t>(hash >> 32);
}

}  // namespace

int getattrlistbulk(int dirfd, const attrlist* list, void* buffer, std::size_t size,
                    std::uint64_t options) noexcept {
    AttributeRequest request;
    if (const int error = readRequest(list, options, request); error != 0) return failWith(error);
    constexpr attrgroup_t kRequired = ATTR_CMN_NAME | ATTR_CMN_RETURNED_ATTRS;
    if ((request.wanted.commonattr & kRequired) != kRequired || !isForEntries(request)) {
        return failWith(EINVAL);
    }
    if (buffer == nullptr) return failWith(EFAULT);
    EntryPacker packer(dirfd, request, request.packsInvalid);
    Progress progress;
    const int error = packEntries(dirfd, packer, static_cast<std::byte*>(buffer), size,
                                  std::uint32_t{INT32_MAX}, progress);
    return error != 0 ? failWith(error) : static_cast<int>(progress.count);
}

int getdirentriesattr(int dirfd, const attrlist* list, void* buffer, std::size_t size,
                      std::uint32_t* count, std::uint32_t* basep, std::uint32_t* newState,
                      std::uint32_t options) noexcept {
    AttributeRequest request;
    if (const int error = readRequest(list, options, request); error != 0) return failWith(error);
    if (request.returnsSet() || !isForEntries(request)) return failWith(EINVAL);
    if (buffer == nullptr || count == nullptr || basep == nullptr || newState == nullptr) {
        return failWith(EFAULT);
    }
    if (*count == 0) return failWith(EINVAL);
    const std::optional<std::uint32_t> state = stateOf(dirfd);
    if (!state) return -1;
    const off_t begin = ::lseek(dirfd, 0, SEEK_CUR);
    EntryPacker packer(dirfd, request, true);
    Progress progress;
    const int error =
        packEntries(dirfd, packer, static_cast<std::byte*>(buffer), size, *count, progress);
    if (error != 0) return failWith(error);
    *count = progress.count;
    *basep = static_cast<std::uint32_t>(begin);
    *newState = *state;
    return progress.hasEnded ? 1 : 0;
}

}  // namespace sevrin::platform
