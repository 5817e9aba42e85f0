// The names of the releases.
#include "Common/Source/Utilities/OSVersion.h"

#include <array>
#include <cstddef>

namespace sevrin {

namespace {

constexpr OSVersion kTiger = 0x0A0400;
constexpr OSVersion kMountainLion = 0x0A0800;
constexpr OSVersion kSierra = 0x0A0C00;

// From 10.4 on, one for each minor number.
constexpr std::array<std::string_view, 12> kNicknames = {
    "Tiger",    "Leopard",    "Snow Leopard", "Lion",        "Mountain Lion", "Mavericks",
    "Yosemite", "El Capitan", "Sierra",       "High Sierra", "Mojave",        "Catalina"};

}  // namespace

std::string_view osNamePrefix(OSVersion version) {
    if (version < kMountainLion) return "Mac OS X ";
    return version < kSierra ? "OS X " : "macOS ";
}

std::string_view osNickname(OSVersion version) {
    if (version < kTiger) return "Panther (or earlier)";
    const std::size_t index = (version - kTiger) >> 8;
    return index < kNicknames.size() ? kNicknames[index] : "Unknown";
}

}  // namespace sevrin
