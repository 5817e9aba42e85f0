// The attributes of file-system items in words: kinds, modes, flags, owners, times.
//
// Pure text but for the names of users and groups, which are asked for once each. On the main
// thread.
#pragma once

#include <time.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Common/Source/Utilities/KTFileInfo.h"

namespace sevrin {

// "file", "folder", "link", "block-device", "character-device", "socket", "pipe"; "nothing" for
// what does not exist, "item" for what has no class of its own.
[[nodiscard]] const char* kindOf(const KTFileInfo& item);

// Kind and permissions as people know them from listings: "drwxr-sr-t".
[[nodiscard]] std::string modeText(std::uint32_t type, std::uint32_t access);

// What the caller may do: "rwx", "r--".
[[nodiscard]] std::string accessText(std::uint32_t effectiveAccess);

// "uchg", "schg", "nodump", ...; bits without a name as one number in hexadecimal digits.
[[nodiscard]] std::vector<std::string> flagNames(std::uint32_t flags);

// A number where there is no such user or group.
[[nodiscard]] const std::string& ownerName(std::uint32_t user);
[[nodiscard]] const std::string& groupName(std::uint32_t group);

// Whether the file system keeps such a time: what it does not keep is zero.
[[nodiscard]] bool isKept(const timespec& time);

// Local time to the second, "2026-11-21 10:52:00"; to the nanosecond with its offset from UTC,
// "2026-11-21T10:52:00.123456789+01:00". A time that no calendar here reaches is "@" and seconds.
[[nodiscard]] std::string shortTime(const timespec& time);
[[nodiscard]] std::string exactTime(const timespec& time);

// `texts` with `separator` in between.
[[nodiscard]] std::string joined(const std::vector<std::string>& texts, const char* separator);

}  // namespace sevrin
