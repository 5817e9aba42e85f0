// Access control lists by way of the two extended attributes in which Linux keeps them.
//
// The system's library for them follows links and is one more thing to install; the attributes have
// a layout that the kernel guarantees: a version, then entries of tag, rights and id.
#include "Platform/ACL.h"

#include <endian.h>
#include <linux/limits.h>
#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>

namespace sevrin::platform {

// The attributes as they are; empty where the item has none.
class ACL {
public:
    std::string access;
    std::string inherited;
};

namespace {

constexpr const char* kAccessAttribute = "system.posix_acl_access";
constexpr const char* kDefaultAttribute = "system.posix_acl_default";

using Header = posix_acl_xattr_header;
using Entry = posix_acl_xattr_entry;

std::size_t entriesIn(std::string_view attribute) {
    return attribute.size() < sizeof(Header) ? 0
                                             : (attribute.size() - sizeof(Header)) / sizeof(Entry);
}

// The attribute's bytes, empty when the item has none; nothing when it cannot be read.
std::optional<std::string> readAttribute(const char* path, const char* name) {
    for (std::string bytes(1024, '\0');; bytes.resize(bytes.size() * 4)) {
        const ssize_t size = ::lgetxattr(path, name, bytes.data(), bytes.size());
        if (size >= 0) {
            bytes.resize(static_cast<std::size_t>(size));
            return bytes;
        }
        if (errno == ENODATA || errno == ENOTSUP) return std::string();
        if (errno != ERANGE || bytes.size() > XATTR_SIZE_MAX) return std::nullopt;
    }
}

// Stores the bytes, or removes the attribute when there are none.
int writeAttribute(const char* path, const char* name, const std::string& bytes) {
    if (!bytes.empty()) return ::lsetxattr(path, name, bytes.data(), bytes.size(), 0);
    if (::lremovexattr(path, name) == 0 || errno == ENODATA || errno == ENOTSUP) return 0;
    return -1;
}

std::string_view nameOfTag(unsigned tag) {
    switch (tag) {
        case ACL_USER_OBJ:
        case ACL_USER:
            return "user";
        case ACL_GROUP_OBJ:
        case ACL_GROUP:
            return "group";
        case ACL_MASK:
            return "mask";
        case ACL_OTHER:
            return "other";
        default:
            return "unknown";
    }
}

void appendText(std::string& text, std::string_view attribute, std::string_view prefix) {
    for (std::size_t i = 0; i < entriesIn(attribute); ++i) {
        Entry entry;
        std::memcpy(&entry, attribute.data() + sizeof(Header) + i * sizeof(Entry), sizeof entry);
        const unsigned tag = le16toh(entry.e_tag);
        const unsigned rights = le16toh(entry.e_perm);
        text += prefix;
        text += nameOfTag(tag);
        text += ':';
        if (tag == ACL_USER || tag == ACL_GROUP) text += std::to_string(le32toh(entry.e_id));
        text += ':';
        text += (rights & ACL_READ) != 0 ? 'r' : '-';
        text += (rights & ACL_WRITE) != 0 ? 'w' : '-';
        text += (rights & ACL_EXECUTE) != 0 ? 'x' : '-';
        text += '\n';
    }
}

}  // namespace

acl_t acl_get_link_np(const char* path, acl_type_t type) {
    // Owner, group and others are three entries, and the mode bits say the same.
    constexpr std::size_t kEntriesOfModeBits = 3;

    if (type != ACL_TYPE_EXTENDED) {
        errno = EINVAL;
        return nullptr;
    }
    struct stat item {};
    if (::lstat(path, &item) != 0) return nullptr;
    std::optional<std::string> access;
    std::optional<std::string> inherited("");
    if (!S_ISLNK(item.st_mode)) {
        if (!(access = readAttribute(path, kAccessAttribute))) return nullptr;
        if (S_ISDIR(item.st_mode) && !(inherited = readAttribute(path, kDefaultAttribute)))
            return nullptr;
        if (entriesIn(*access) <= kEntriesOfModeBits) access->clear();
    }
    if (!access || (access->empty() && inherited->empty())) {
        errno = ENOENT;
        return nullptr;
    }
    auto acl = std::make_unique<ACL>();
    acl->access = std::move(*access);
    acl->inherited = std::move(*inherited);
    return acl.release();
}

int acl_set_link_np(const char* path, acl_type_t type, const ACL* acl) {
    struct stat item {};
    if (type != ACL_TYPE_EXTENDED) {
        errno = EINVAL;
        return -1;
    }
    if (::lstat(path, &item) != 0) return -1;
    if (S_ISLNK(item.st_mode)) {
        errno = ENOTSUP;
        return -1;
    }
    const ACL none;
    const ACL& wanted = acl ? *acl : none;
    if (!S_ISDIR(item.st_mode)) {
        // Only a folder has anything to hand on; refused before anything is written.
        if (!wanted.inherited.empty()) {
            errno = EINVAL;
            return -1;
        }
        return writeAttribute(path, kAccessAttribute, wanted.access);
    }
    const std::optional<std::string> before = readAttribute(path, kDefaultAttribute);
    if (!before || writeAttribute(path, kDefaultAttribute, wanted.inherited) != 0) return -1;
    if (writeAttribute(path, kAccessAttribute, wanted.access) == 0) return 0;
    const int error = errno;
    writeAttribute(path, kDefaultAttribute, *before);
    errno = error;
    return -1;
}

void acl_free(acl_t acl) noexcept {
    delete acl;
}

std::string acl_to_text(const ACL& acl) {
    std::string text;
    appendText(text, acl.access, "");
    appendText(text, acl.inherited, "default:");
    return text;
}

}  // namespace sevrin::platform
