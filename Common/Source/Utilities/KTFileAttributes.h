// The attributes that items keep, and the packed records in which the platform gives them.
//
// The records of the platform begin with 32 bits of length and, where it was asked for, the set of
// the attributes returned; what is here follows them, in the order of the attributes' bits.
#pragma once

#include <time.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Platform/ACL.h"
#include "Platform/AttributeList.h"

namespace sevrin {

// What is asked for of every item: device, type, script, three times, owner, group, access mask,
// flags, the caller's access, file id.
inline constexpr platform::attrgroup_t kCommonAttributes = 0x0227'8F0A;

// Of these, what can be written.
inline constexpr platform::attrgroup_t kWritableAttributes = 0x0007'8F00;

// What is asked for besides of directories: links, entries, mount status.
inline constexpr platform::attrgroup_t kDirectoryAttributes = 0x7;

// And of regular files and links: links, total and allocated size, length of the data.
inline constexpr platform::attrgroup_t kFileAttributes = 0x207;

// What every item keeps.
struct KTCommonAttrs {
    std::uint32_t modifiedAttrs;  // ATTR_CMN_ bits changed here and not written yet
    std::uint32_t script;         // a hint at the encoding of the name
    timespec created;
    timespec modified;
    timespec attributeChanged;
    std::uint32_t ownerID;
    std::uint32_t groupID;
    std::uint32_t fileFlags;        // UF_ and SF_ bits
    std::uint16_t access;           // the permissions, with set-id and sticky bits
    std::uint16_t effectiveAccess;  // R_OK, W_OK, X_OK of the caller
    platform::acl_t acl;            // owned
    std::uint64_t localIdentifier;
    std::int32_t deviceID;
};

// What directories keep behind it.
struct KTDirectoryAttrs {
    std::uint64_t entryCount;
    std::uint32_t linkCount;
    std::uint32_t mountStatus;  // DIR_MNTSTATUS_ bits
};

// What regular files and links keep behind it.
struct KTRegularFileAttrs {
    std::uint32_t linkCount;
    std::int64_t logicalSize;   // bytes of all forks
    std::int64_t physicalSize;  // bytes allocated
    std::int64_t dataLength;    // bytes of the data fork
};

static_assert(sizeof(KTCommonAttrs) == 96);
static_assert(sizeof(KTCommonAttrs) + sizeof(KTDirectoryAttrs) == 112);
static_assert(sizeof(KTCommonAttrs) + sizeof(KTRegularFileAttrs) == 128);

#pragma pack(push, 4)

// kCommonAttributes as the platform packs them.
struct KTFileSystemObjAttrsBuffer {
    std::int32_t device;
    std::uint32_t objectType;
    std::uint32_t script;
    timespec created;
    timespec modified;
    timespec attributeChanged;
    std::uint32_t ownerID;
    std::uint32_t groupID;
    std::uint32_t accessMask;
    std::uint32_t flags;
    std::uint32_t userAccess;
    std::uint64_t fileID;
};

// kDirectoryAttributes.
struct KTDirectoryAttrsBuffer {
    std::uint32_t linkCount;
    std::uint32_t entryCount;
    std::uint32_t mountStatus;
};

// kFileAttributes.
struct KTRegularFileAttrsBuffer {
    std::uint32_t linkCount;
    std::int64_t totalSize;
    std::int64_t allocatedSize;
    std::int64_t dataLength;
};

// One entry of a directory: what follows depends on the type.
struct KTBatchAttrsContent {
    platform::attrreference_t name;
    KTFileSystemObjAttrsBuffer common;
};

#pragma pack(pop)

static_assert(sizeof(KTFileSystemObjAttrsBuffer) == 88);
static_assert(sizeof(KTDirectoryAttrsBuffer) == 12);
static_assert(sizeof(KTRegularFileAttrsBuffer) == 28);

// One field of such a record. Copying the record as a whole first would cost more than all the
// rest: the processor waits where what it reads was written in other pieces.
template <typename Field>
[[nodiscard]] Field packedField(const std::byte* record, std::size_t offset) {
    Field field;
    std::memcpy(&field, record + offset, sizeof field);
    return field;
}

// What decides about the item of an entry, taken from its KTBatchAttrsContent.
struct KTBatchEntryName {
    std::string_view name;  // where it lies in the record
    std::uint32_t objectType;
};

[[nodiscard]] inline KTBatchEntryName nameOfBatchEntry(const std::byte* content) {
    const auto name = packedField<platform::attrreference_t>(content, 0);
    constexpr std::size_t kType =
        offsetof(KTBatchAttrsContent, common) + offsetof(KTFileSystemObjAttrsBuffer, objectType);
    return {{reinterpret_cast<const char*>(content) + name.attr_dataoffset, name.attr_length - 1},
            packedField<std::uint32_t>(content, kType)};
}

}  // namespace sevrin
