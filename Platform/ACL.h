// Access control lists: what decides about an item beyond its mode bits.
//
// An extended list exists only where somebody gave one: an item whose rights the mode bits tell
// completely has none, nor has a symbolic link, nor an item on a file system without such lists. A
// folder's list includes what items made in it inherit. On any thread; a list itself is immutable.
#pragma once

#include <cstdint>
#include <string>

namespace sevrin::platform {

// A list, opaque; owned by whoever got it and freed with acl_free().
class ACL;
using acl_t = ACL*;

// Kinds of lists, with the platform's numbers; there is one.
enum acl_type_t : std::uint32_t { ACL_TYPE_EXTENDED = 0x100 };

// The extended list of the item at `path`; a link is not followed. nullptr when there is none, with
// errno ENOENT (as the platform has it, also when the item is there), and when it cannot be read,
// with the reason in errno.
[[nodiscard]] acl_t acl_get_link_np(const char* path, acl_type_t type);

// Gives the item at `path` the list, or, when that is nullptr, takes away what it has beyond its
// mode bits. -1 with errno when that fails: ENOTSUP for a link and where there are no such lists.
int acl_set_link_np(const char* path, acl_type_t type, const ACL* acl);

// Frees a list; nullptr is fine.
void acl_free(acl_t acl) noexcept;

// The list for people, one entry a line: "user::rwx", "user:1000:r-x", "group:27:r--", "mask::r-x",
// "default:other::---". Ids are numbers: names belong to whoever shows them.
[[nodiscard]] std::string acl_to_text(const ACL& acl);

}  // namespace sevrin::platform
