// Attribute dictionaries.
#include "Platform/linux/ItemAttributes.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/stat.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "Platform/NSFileManager.h"

namespace sevrin::platform {

namespace {

// Calls one of the lookups of users and groups with ever larger buffers; `take` gets the entry.
template <typename Entry, typename Look, typename Take>
auto lookUp(const Look& look, const Take& take) -> std::optional<decltype(take(Entry{}))> {
    constexpr std::size_t kBufferMax = std::size_t{1} << 24U;
    Entry entry{};
    for (std::vector<char> buffer(1024); buffer.size() <= kBufferMax;
         buffer.resize(buffer.size() * 4)) {
        Entry* found = nullptr;
        const int error = look(&entry, buffer.data(), buffer.size(), &found);
        if (error == ERANGE) continue;
        if (found == nullptr) break;
        return take(*found);
    }
    return std::nullopt;
}

const auto kUserName = [](const passwd& entry) { return std::string(entry.pw_name); };
const auto kGroupName = [](const group& entry) { return std::string(entry.gr_name); };

std::optional<uid_t> userNamed(const std::string& name) {
    return lookUp<passwd>([&](auto... rest) { return ::getpwnam_r(name.c_str(), rest...); },
                          [](const passwd& entry) { return entry.pw_uid; });
}

// "admin" is the platform's group of those who may administer the machine.
std::optional<gid_t> groupNamed(const std::string& name) {
    const std::vector<std::string> names =
        name == "admin" ? std::vector<std::string>{"admin", "sudo", "wheel", "root"}
                        : std::vector<std::string>{name};
    for (const std::string& each : names) {
        const std::optional<gid_t> found =
            lookUp<group>([&](auto... rest) { return ::getgrnam_r(each.c_str(), rest...); },
                          [](const group& entry) { return entry.gr_gid; });
        if (found) return found;
    }
    return std::nullopt;
}

std::string_view typeOf(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return NSFileTypeDirectory;
        case S_IFREG:
            return NSFileTypeRegular;
        case S_IFLNK:
            return NSFileTypeSymbolicLink;
        case S_IFSOCK:
            return NSFileTypeSocket;
        case S_IFCHR:
            return NSFileTypeCharacterSpecial;
        case S_IFBLK:
            return NSFileTypeBlockSpecial;
        default:
            return NSFileTypeUnknown;
    }
}

NSDate dateOf(const statx_timestamp& time) {
    return NSDate::dateWithTimeIntervalSince1970(static_cast<double>(time.tv_sec) +
                                                 static_cast<double>(time.tv_nsec) * 1e-9);
}

// Nothing for a date that no file can have.
std::optional<timespec> timeOf(NSDate date) {
    constexpr double kSecondsMax = 1e15;
    const double seconds = date.timeIntervalSince1970();
    if (!(std::abs(seconds) < kSecondsMax)) return std::nullopt;
    const double whole = std::floor(seconds);
    return timespec{static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
}

// The number under `key`, from 0 to `largest`; nothing when the key is not there.
std::optional<std::uint32_t> numberAt(const Dictionary& attributes, std::string_view key,
                                      std::uint32_t largest, const std::string& path) {
    const Value* value = attributes.find(key);
    if (value == nullptr) return std::nullopt;
    const std::int64_t* number = value->ifSigned();
    if (number == nullptr || *number < 0 || *number > largest) throw FileFailure{EINVAL, path};
    return static_cast<std::uint32_t>(*number);
}

// The number of the account under one of two keys, by number or by name.
template <typename Find>
std::optional<std::uint32_t> accountAt(const Dictionary& attributes, std::string_view numberKey,
                                       std::string_view nameKey, const std::string& path,
                                       const Find& find) {
    // The largest number means "unchanged" to the system.
    constexpr std::uint32_t kLargest = std::numeric_limits<std::uint32_t>::max() - 1;
    const std::optional<std::uint32_t> number = numberAt(attributes, numberKey, kLargest, path);
    const Value* name = attributes.find(nameKey);
    if (number || name == nullptr) return number;
    const std::optional<std::uint32_t> found =
        name->ifString() ? find(*name->ifString()) : std::nullopt;
    if (!found) throw FileFailure{EINVAL, path};
    return found;
}

}  // namespace

Dictionary attributesOf(const FileLocation& item) {
    struct statx found {};
    if (::statx(item.folder.get(), item.name.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT,
                STATX_BASIC_STATS | STATX_BTIME, &found) != 0) {
        throwFailure(item.path);
    }
    const mode_t mode = found.stx_mode;
    std::vector<Dictionary::Entry> entries{
        {NSFileType, typeOf(mode)},
        {NSFileSize, found.stx_size},
        {NSFileModificationDate, dateOf(found.stx_mtime)},
        {NSFileReferenceCount, found.stx_nlink},
        {NSFilePosixPermissions, mode & 07777U},
        {NSFileOwnerAccountID, found.stx_uid},
        {NSFileGroupOwnerAccountID, found.stx_gid},
        {NSFileSystemNumber, makedev(found.stx_dev_major, found.stx_dev_minor)},
        {NSFileSystemFileNumber, found.stx_ino},
    };
    if ((found.stx_mask & STATX_BTIME) != 0)
        entries.emplace_back(NSFileCreationDate, dateOf(found.stx_btime));
    if (S_ISCHR(mode) || S_ISBLK(mode)) {
        entries.emplace_back(NSFileDeviceIdentifier,
                             makedev(found.stx_rdev_major, found.stx_rdev_minor));
    }
    const uid_t user = found.stx_uid;
    const gid_t group = found.stx_gid;
    if (const auto name =
            lookUp<passwd>([&](auto... rest) { return ::getpwuid_r(user, rest...); }, kUserName)) {
        entries.emplace_back(NSFileOwnerAccountName, *name);
    }
    if (const auto name = lookUp<::group>(
            [&](auto... rest) { return ::getgrgid_r(group, rest...); }, kGroupName)) {
        entries.emplace_back(NSFileGroupOwnerAccountName, *name);
    }
    if ((found.stx_attributes & STATX_ATTR_IMMUTABLE) != 0)
        entries.emplace_back(NSFileImmutable, true);
    if ((found.stx_attributes & STATX_ATTR_APPEND) != 0)
        entries.emplace_back(NSFileAppendOnly, true);
    return Dictionary::fromEntries(std::move(entries));
}

Dictionary fileSystemAttributesOf(const FileLocation& item) {
    const UniqueFd opened(::openat(item.folder.get(), item.name.c_str(), O_PATH | O_CLOEXEC));
    struct stat found {};
    struct statvfs volume {};
    if (!opened || ::fstat(opened.get(), &found) != 0 || ::fstatvfs(opened.get(), &volume) != 0)
        throwFailure(item.path);
    return {
        {NSFileSystemSize, volume.f_blocks * volume.f_frsize},
        {NSFileSystemFreeSize, volume.f_bavail * volume.f_frsize},
        {NSFileSystemNodes, volume.f_files},
        {NSFileSystemFreeNodes, volume.f_favail},
        {NSFileSystemNumber, found.st_dev},
    };
}

AttributeChange::AttributeChange(const Dictionary& attributes, std::string_view path) {
    const std::string item(path);
    user_ = accountAt(attributes, NSFileOwnerAccountID, NSFileOwnerAccountName, item, &userNamed);
    group_ = accountAt(attributes, NSFileGroupOwnerAccountID, NSFileGroupOwnerAccountName, item,
                       &groupNamed);
    mode_ = numberAt(attributes, NSFilePosixPermissions, 07777, item);
    if (attributes.find(NSFileCreationDate) != nullptr) throw FileFailure{ENOTSUP, item};
    if (const Value* date = attributes.find(NSFileModificationDate)) {
        modified_ = date->ifDate() ? timeOf(*date->ifDate()) : std::nullopt;
        if (!modified_) throw FileFailure{EINVAL, item};
    }
}

// The owner first: a change of owner takes bits away from the mode.
bool AttributeChange::apply(int fd) const {
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    if ((user_ || group_) && ::chown(path.c_str(), user_.value_or(static_cast<uid_t>(-1)),
                                     group_.value_or(static_cast<gid_t>(-1))) != 0) {
        return false;
    }
    if (mode_ && ::chmod(path.c_str(), *mode_) != 0) return false;
    if (!modified_) return true;
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, *modified_};
    return ::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) == 0;
}

}  // namespace sevrin::platform
