// Writing attributes. Everything that can be known to fail is found out before the first write;
// what is refused later is undone, as far as the kernel lets it, so that an object is never left
// between.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <limits>

#include "Platform/AttributeList.h"
#include "Platform/linux/AttributeRequest.h"
#include "Platform/linux/OpenObject.h"

namespace sevrin::platform {

namespace {

constexpr attrgroup_t kSettable = ATTR_CMN_MODTIME | ATTR_CMN_CHGTIME | ATTR_CMN_ACCTIME |
                                  ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK |
                                  ATTR_CMN_FLAGS;
// What the platform lets be set, but no file system here can store.
constexpr attrgroup_t kUnsupported = ATTR_CMN_SCRIPT | ATTR_CMN_CRTIME | ATTR_CMN_BKUPTIME |
                                     ATTR_CMN_FNDRINFO | ATTR_CMN_EXTENDED_SECURITY |
                                     ATTR_CMN_UUID | ATTR_CMN_GRPUUID | ATTR_CMN_ADDEDTIME |
                                     ATTR_CMN_DATA_PROTECT_FLAGS;
constexpr std::uint32_t kModeBits = 07777;
constexpr std::uint32_t kStoredFlags = SF_IMMUTABLE | SF_APPEND | UF_NODUMP;
constexpr int kLockingFlags = FS_IMMUTABLE_FL | FS_APPEND_FL;

struct NewValues {
    attrgroup_t set = 0;
    timespec modified{};
    timespec accessed{};
    std::uint32_t owner = 0;
    std::uint32_t group = 0;
    std::uint32_t mode = 0;
    std::uint32_t flags = 0;

    [[nodiscard]] bool has(attrgroup_t bits) const noexcept { return (set & bits) != 0; }
};

// Takes the values of a buffer in the order of their bits.
class ValueReader {
public:
    ValueReader(const void* buffer, std::size_t size) noexcept
        : at_(static_cast<const std::byte*>(buffer)), left_(size) {}

    template <class T>
    void take(T& value) noexcept {
        isShort_ = isShort_ || left_ < sizeof value;
        if (isShort_) return;
        std::memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
        left_ -= sizeof value;
    }

    [[nodiscard]] bool isShort() const noexcept { return isShort_; }

private:
    const std::byte* at_;
    std::size_t left_;
    bool isShort_ = false;
};

bool isTime(const timespec& time) noexcept {
    return time.tv_nsec >= 0 && time.tv_nsec < 1'000'000'000;
}

// 0, or the errno to fail with.
int checkSet(const AttributeRequest& request) noexcept {
    const attribute_set_t& wanted = request.wanted;
    if (wanted.volattr != 0) {
        return (wanted.volattr & ~(ATTR_VOL_INFO | ATTR_VOL_NAME)) == 0 ? ENOTSUP : EINVAL;
    }
    if (wanted.dirattr != 0 || wanted.fileattr != 0) return EINVAL;
    if ((wanted.commonattr & ~(kSettable | kUnsupported)) != 0) return EINVAL;
    return (wanted.commonattr & kUnsupported) != 0 ? ENOTSUP : 0;
}

int readValues(attrgroup_t set, const void* buffer, std::size_t size, NewValues& values) noexcept {
    constexpr std::uint32_t kNobody = std::numeric_limits<std::uint32_t>::max();
    ValueReader reader(buffer, size);
    timespec ignored{};
    values.set = set;
    if (values.has(ATTR_CMN_MODTIME)) reader.take(values.modified);
    if (values.has(ATTR_CMN_CHGTIME)) reader.take(ignored);
    if (values.has(ATTR_CMN_ACCTIME)) reader.take(values.accessed);
    if (values.has(ATTR_CMN_OWNERID)) reader.take(values.owner);
    if (values.has(ATTR_CMN_GRPID)) reader.take(values.group);
    if (values.has(ATTR_CMN_ACCESSMASK)) reader.take(values.mode);
    if (values.has(ATTR_CMN_FLAGS)) reader.take(values.flags);
    if (reader.isShort() || !isTime(values.modified) || !isTime(values.accessed)) return EINVAL;
    // The number that means "leave as it is" to chown is nobody's.
    if (values.owner == kNobody || values.group == kNobody) return EINVAL;
    values.mode &= kModeBits;
    return 0;
}

int flagsOfInode(std::uint32_t flags) noexcept {
    int result = 0;
    if ((flags & SF_IMMUTABLE) != 0) result |= FS_IMMUTABLE_FL;
    if ((flags & SF_APPEND) != 0) result |= FS_APPEND_FL;
    if ((flags & UF_NODUMP) != 0) result |= FS_NODUMP_FL;
    return result;
}

// Brings one object to its new values.
class AttributeWriter {
public:
    AttributeWriter(int fd, const NewValues& values) noexcept : fd_(fd), values_(values) {
        (void)std::snprintf(link_.data(), link_.size(), "/proc/self/fd/%d", fd);
    }

    // Finds out what is there and whether the values can be stored at all. 0 or an errno.
    int prepare() noexcept {
        if (!statObject(fd_, kStatxFields, before_)) return errno;
        const bool isOtherMode = values_.mode != (before_.stx_mode & kModeBits);
        if (values_.has(ATTR_CMN_ACCESSMASK) && isOtherMode && S_ISLNK(before_.stx_mode)) {
            return ENOTSUP;  // a link has no mode of its own
        }
        return values_.has(ATTR_CMN_FLAGS) ? prepareFlags() : 0;
    }

    // Writes everything, or puts back what was written. 0 or an errno.
    int write() noexcept {
        const int error = writeAll();
        if (error != 0) putBack();
        return error;
    }

private:
    int prepareFlags() noexcept {
        PathRoom room;
        const std::optional<std::string_view> path = pathOfObject(fd_, before_, room);
        const std::string_view name = path ? path->substr(path->rfind('/') + 1) : "";
        const std::uint32_t current = fileFlags(before_, name);
        if (values_.flags == current) return 0;
        const std::uint32_t changed = values_.flags ^ current;
        // Hidden is what the name says; the rest has no place to be stored.
        if ((changed & ~kStoredFlags) != 0) return ENOTSUP;
        if (!S_ISREG(before_.stx_mode) && !S_ISDIR(before_.stx_mode)) return ENOTSUP;
        inode_.reset(::open(link_.data(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (!inode_) return errno;
        if (::ioctl(inode_.get(), FS_IOC_GETFLAGS, &flagsBefore_) != 0) return ENOTSUP;
        flagsWanted_ = (flagsBefore_ & ~flagsOfInode(kStoredFlags)) | flagsOfInode(values_.flags);
        return 0;
    }

    int writeAll() noexcept {
        // What is locked must be unlocked for the rest, and what shall be locked is so last.
        if (inode_ && (flagsBefore_ & kLockingFlags) != 0) {
            if (!setFlags(flagsBefore_ & ~kLockingFlags)) return flagsError();
            hasSetFlags_ = true;
        }
        if (values_.has(ATTR_CMN_OWNERID | ATTR_CMN_GRPID)) {
            const uid_t owner = values_.has(ATTR_CMN_OWNERID) ? values_.owner : kUnchanged;
            const gid_t group = values_.has(ATTR_CMN_GRPID) ? values_.group : kUnchanged;
            if (::fchownat(fd_, "", owner, group, AT_EMPTY_PATH) != 0) return errno;
            hasSetOwner_ = true;
        }
        if (values_.has(ATTR_CMN_ACCESSMASK) && !S_ISLNK(before_.stx_mode)) {
            if (::chmod(link_.data(), values_.mode) != 0) return errno;
            hasSetMode_ = true;
        }
        if (values_.has(ATTR_CMN_MODTIME | ATTR_CMN_ACCTIME)) {
            const timespec omitted{0, UTIME_OMIT};
            const timespec times[2] = {values_.has(ATTR_CMN_ACCTIME) ? values_.accessed : omitted,
                                       values_.has(ATTR_CMN_MODTIME) ? values_.modified : omitted};
            if (::utimensat(fd_, "", times, AT_EMPTY_PATH) != 0) return errno;
            hasSetTimes_ = true;
        }
        return !inode_ || setFlags(flagsWanted_) ? 0 : flagsError();
    }

    void putBack() noexcept {
        const int errorBefore = errno;
        if (hasSetTimes_) {
            const timespec times[2] = {timeOf(before_.stx_atime), timeOf(before_.stx_mtime)};
            (void)::utimensat(fd_, "", times, AT_EMPTY_PATH);
        }
        if (hasSetOwner_) {
            (void)::fchownat(fd_, "", before_.stx_uid, before_.stx_gid, AT_EMPTY_PATH);
        }
        // A change of owner may have taken the set-id bits too.
        if ((hasSetMode_ || hasSetOwner_) && !S_ISLNK(before_.stx_mode)) {
            (void)::chmod(link_.data(), before_.stx_mode & kModeBits);
        }
        if (hasSetFlags_) (void)setFlags(flagsBefore_);
        errno = errorBefore;
    }

    bool setFlags(int flags) noexcept {
        return ::ioctl(inode_.get(), FS_IOC_SETFLAGS, &flags) == 0;
    }

    static int flagsError() noexcept {
        return errno == ENOTTY || errno == EOPNOTSUPP ? ENOTSUP : errno;
    }

    static timespec timeOf(const struct statx_timestamp& stamp) noexcept {
        return {stamp.tv_sec, static_cast<long>(stamp.tv_nsec)};
    }

    static constexpr std::uint32_t kUnchanged = std::numeric_limits<std::uint32_t>::max();

    int fd_;
    const NewValues& values_;
    std::array<char, 32> link_{};  // the object's path for calls that take no descriptor
    struct statx before_ {};
    UniqueFd inode_;  // open where flags are to change
    int flagsBefore_ = 0;
    int flagsWanted_ = 0;
    bool hasSetFlags_ = false;
    bool hasSetOwner_ = false;
    bool hasSetMode_ = false;
    bool hasSetTimes_ = false;
};

int setAttributes(const char* path, const attrlist* list, const void* buffer, std::size_t size,
                  unsigned long options) noexcept {
    AttributeRequest request;
    if (const int error = readRequest(list, options, request); error != 0) return error;
    if (path == nullptr || buffer == nullptr) return EFAULT;
    const UniqueFd object = openObject(path, request.followsLinks);
    if (!object) return errno;
    if (const int error = checkSet(request); error != 0) return error;
    NewValues values;
    if (const int error = readValues(request.wanted.commonattr, buffer, size, values); error != 0) {
        return error;
    }
    AttributeWriter writer(object.get(), values);
    if (const int error = writer.prepare(); error != 0) return error;
    return writer.write();
}

}  // namespace

int setattrlist(const char* path, const attrlist* list, const void* buffer, std::size_t size,
                unsigned long options) noexcept {
    const int error = setAttributes(path, list, buffer, size, options);
    if (error == 0) return 0;
    errno = error;
    return -1;
}

}  // namespace sevrin::platform
