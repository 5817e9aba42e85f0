// The sources of a volume's identity, in the order of what they cost.
#include "Platform/linux/VolumeIdentity.h"

#include <blkid/blkid.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "Platform/linux/XfsGeometry.h"

namespace sevrin::platform {

namespace {

constexpr const char* kUuidLinks = "/dev/disk/by-uuid";
constexpr const char* kLabelLinks = "/dev/disk/by-label";

// The kernel's request for any file system's UUID (6.9), and the one of ext4 alone (6.0). Headers
// of the distribution know neither.
struct AnyUuid {
    unsigned char length;
    unsigned char uuid[16];
};
constexpr unsigned long kGetAnyUuid = _IOR(0x15, 0, AnyUuid);

struct Ext4UuidHeader {
    std::uint32_t length;
    std::uint32_t flags;
};
struct Ext4Uuid {
    Ext4UuidHeader header;
    unsigned char uuid[16];
};
constexpr unsigned long kGetExt4Uuid = _IOR('f', 44, Ext4UuidHeader);

UuidBytes bytesOf(const unsigned char* from) noexcept {
    UuidBytes uuid;
    std::copy_n(from, uuid.size(), uuid.begin());
    return uuid;
}

std::optional<UuidBytes> uuidFromOwnDriver(int root, std::string_view kind) noexcept {
    if (kind == "ext4") {
        Ext4Uuid answer{{sizeof answer.uuid, 0}, {}};
        if (::ioctl(root, kGetExt4Uuid, &answer) == 0) return bytesOf(answer.uuid);
    } else if (kind == "btrfs") {
        btrfs_ioctl_fs_info_args info{};
        if (::ioctl(root, BTRFS_IOC_FS_INFO, &info) == 0) return bytesOf(info.fsid);
    } else if (kind == "xfs") {
        if (const std::optional<XfsGeometry> geometry = xfsGeometry(root)) {
            return bytesOf(geometry->uuid);
        }
    }
    return std::nullopt;
}

std::optional<UuidBytes> uuidFromDriver(int root, std::string_view kind) noexcept {
    if (root < 0) return std::nullopt;
    if (const std::optional<UuidBytes> uuid = uuidFromOwnDriver(root, kind)) return uuid;
    AnyUuid answer{};
    if (::ioctl(root, kGetAnyUuid, &answer) != 0 || answer.length != sizeof answer.uuid) {
        return std::nullopt;
    }
    return bytesOf(answer.uuid);
}

// The mount's source, when it is the device node that the mount is of.
const char* deviceNodeOf(const MountEntry& mount) noexcept {
    struct stat node {};
    const bool isNode = mount.source.starts_with('/') && ::stat(mount.source.c_str(), &node) == 0 &&
                        S_ISBLK(node.st_mode) &&
                        node.st_rdev == gnu_dev_makedev(mount.deviceMajor, mount.deviceMinor);
    return isNode ? mount.source.c_str() : nullptr;
}

std::optional<std::string> fieldOfDevice(const MountEntry& mount, const char* folder,
                                         const char* field) {
    if (std::optional<std::string> name =
            linkToDevice(folder, mount.deviceMajor, mount.deviceMinor)) {
        return name;
    }
    const char* node = deviceNodeOf(mount);
    return node == nullptr ? std::nullopt : fieldOnDevice(node, field);
}

int hexadecimal(char digit) noexcept {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

std::string withoutEscapes(std::string_view name) {
    std::string result;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isEscape = name.substr(i).starts_with("\\x") && i + 3 < name.size() &&
                              hexadecimal(name[i + 2]) >= 0 && hexadecimal(name[i + 3]) >= 0;
        if (isEscape) {
            result += static_cast<char>(hexadecimal(name[i + 2]) * 16 + hexadecimal(name[i + 3]));
            i += 3;
        } else {
            result += name[i];
        }
    }
    return result;
}

}  // namespace

std::optional<UuidBytes> uuidOfVolume(int root, const MountEntry& mount,
                                      const FileSystemKind& kind) {
    if (kind.isVolatile || kind.isRemote || kind.isPseudo) return std::nullopt;
    std::optional<UuidBytes> uuid = uuidFromDriver(root, kind.name);
    if (!uuid) {
        const std::optional<std::string> text = fieldOfDevice(mount, kUuidLinks, "UUID");
        if (text) uuid = parseUuid(*text);
    }
    return uuid && *uuid != UuidBytes{} ? uuid : std::nullopt;
}

std::optional<std::string> labelOfVolume(int root, const MountEntry& mount,
                                         const FileSystemKind& kind) {
    if (kind.isVolatile || kind.isRemote || kind.isPseudo) return std::nullopt;
    std::array<char, FSLABEL_MAX + 1> label{};
    if (root >= 0 && ::ioctl(root, FS_IOC_GETFSLABEL, label.data()) == 0) {
        return label[0] == '\0' ? std::nullopt : std::optional<std::string>(label.data());
    }
    std::optional<std::string> text = fieldOfDevice(mount, kLabelLinks, "LABEL");
    return text && !text->empty() ? text : std::nullopt;
}

std::optional<UuidBytes> parseUuid(std::string_view text) noexcept {
    constexpr std::size_t kLength = 36;
    if (text.size() != kLength) return std::nullopt;
    UuidBytes uuid{};
    std::size_t byte = 0;
    for (std::size_t i = 0; i < kLength;) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i++] != '-') return std::nullopt;
            continue;
        }
        const int high = hexadecimal(text[i]);
        const int low = hexadecimal(text[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        uuid[byte++] = static_cast<unsigned char>(high * 16 + low);
        i += 2;
    }
    return uuid;
}

std::optional<std::string> linkToDevice(const char* folder, unsigned major, unsigned minor) {
    const std::unique_ptr<DIR, int (*)(DIR*)> links(::opendir(folder), ::closedir);
    if (!links) return std::nullopt;
    while (const dirent* link = ::readdir(links.get())) {
        struct stat target {};
        if (::fstatat(::dirfd(links.get()), link->d_name, &target, 0) == 0 &&
            S_ISBLK(target.st_mode) && target.st_rdev == gnu_dev_makedev(major, minor)) {
            return withoutEscapes(link->d_name);
        }
    }
    return std::nullopt;
}

std::optional<std::string> fieldOnDevice(const char* path, const char* field) {
    const std::unique_ptr<blkid_struct_probe, void (*)(blkid_probe)> probe(
        ::blkid_new_probe_from_filename(path), ::blkid_free_probe);
    if (!probe) return std::nullopt;
    ::blkid_probe_enable_superblocks(probe.get(), 1);
    ::blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL);
    const char* value = nullptr;
    if (::blkid_do_safeprobe(probe.get()) != 0 ||
        ::blkid_probe_lookup_value(probe.get(), field, &value, nullptr) != 0) {
        return std::nullopt;
    }
    return value;
}

}  // namespace sevrin::platform
