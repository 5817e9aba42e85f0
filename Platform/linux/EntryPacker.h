// The attributes of the entries of one directory: asked of the kernel one by one, relative to the
// open directory, and packed where the caller says, without allocating.
//
// Borrows the descriptor and the request. What it learns of the caller, of the volume and of the
// records' shape it keeps for the next entry. One thread at a time. Stands here to be inlined:
// listings come here for millions of entries.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "Platform/UniqueFd.h"
#include "Platform/linux/AttributeRecord.h"
#include "Platform/linux/AttributeRequest.h"
#include "Platform/linux/DirectoryEntries.h"
#include "Platform/linux/EffectiveAccess.h"
#include "Platform/linux/OpenObject.h"

namespace sevrin::platform {

// Packs the entries of one directory, for one call or one reading of it.
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

}  // namespace sevrin::platform
