// What a call for attributes asks for, checked: the one place that knows which lists make sense.
//
// Pure; any thread.
#pragma once

#include "Platform/AttributeList.h"

namespace sevrin::platform {

// The bits that mean an attribute, group by group.
inline constexpr attrgroup_t kVolumeAttributes = 0xF007'FFFF;
inline constexpr attrgroup_t kDirectoryAttributes = 0x3F;
inline constexpr attrgroup_t kFileAttributes = 0x37AF;

struct AttributeRequest {
    attribute_set_t wanted{};
    bool followsLinks = true;
    bool reportsFullSize = false;
    bool packsInvalid = false;

    [[nodiscard]] bool returnsSet() const noexcept {
        return (wanted.commonattr & ATTR_CMN_RETURNED_ATTRS) != 0;
    }
};

// Reads a list and its options into `request`: 0, or the errno to fail with (EFAULT for no list,
// EINVAL for bits that mean nothing and groups that exclude each other).
[[nodiscard]] int readRequest(const attrlist* list, std::uint64_t options,
                              AttributeRequest& request) noexcept;

// The same for what getattrlistbulk() takes: names and the returned set must be asked for, and
// nothing of volumes.
[[nodiscard]] int readBulkRequest(const attrlist* list, std::uint64_t options,
                                  AttributeRequest& request) noexcept;

// The set with the bits of both.
[[nodiscard]] inline attribute_set_t common(const attribute_set_t& a,
                                            const attribute_set_t& b) noexcept {
    return {a.commonattr & b.commonattr, a.volattr & b.volattr, a.dirattr & b.dirattr,
            a.fileattr & b.fileattr, a.forkattr & b.forkattr};
}

[[nodiscard]] inline bool isSame(const attribute_set_t& a, const attribute_set_t& b) noexcept {
    return a.commonattr == b.commonattr && a.volattr == b.volattr && a.dirattr == b.dirattr &&
           a.fileattr == b.fileattr && a.forkattr == b.forkattr;
}

}  // namespace sevrin::platform
