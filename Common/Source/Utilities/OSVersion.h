// What follows from the number of an operating-system release: which release it is or comes after,
// and what it is called.
//
// Pure functions of the packed version: major in the bits from 16 up, minor and patch in eight bits
// each, so that 10.15.7 is 0x000A0F07 and numbers compare as releases do. Nothing fails.
#pragma once

#include <cstdint>
#include <string_view>

namespace sevrin {

using OSVersion = std::uint32_t;

// The three numbers packed; minor and patch are below 256 in every release there is.
constexpr OSVersion packedOSVersion(std::int64_t major, std::int64_t minor, std::int64_t patch) {
    return static_cast<OSVersion>(major << 16 | minor << 8 | patch);
}

// Whether it is 10.10, 10.11, 10.12, 10.13, 10.14, 10.15 or any release after it.
constexpr bool isOSVersionYosemiteOrLater(OSVersion version) {
    return version > 0x0A09FF;
}
constexpr bool isOSVersionElCapitanOrLater(OSVersion version) {
    return version > 0x0A0AFF;
}
constexpr bool isOSVersionSierraOrLater(OSVersion version) {
    return version > 0x0A0BFF;
}
constexpr bool isOSVersionHighSierraOrLater(OSVersion version) {
    return version > 0x0A0CFF;
}
constexpr bool isOSVersionMojaveOrLater(OSVersion version) {
    return version > 0x0A0DFF;
}
constexpr bool isOSVersionCatalinaOrLater(OSVersion version) {
    return version > 0x0A0EFF;
}

// What the system of that release calls itself, with the space after it: "Mac OS X ", "OS X " from
// 10.8, "macOS " from 10.12.
[[nodiscard]] std::string_view osNamePrefix(OSVersion version);

// The name of the release: "Tiger" for 10.4 to "Catalina" for 10.15, "Panther (or earlier)" below,
// "Unknown" above.
[[nodiscard]] std::string_view osNickname(OSVersion version);

}  // namespace sevrin
