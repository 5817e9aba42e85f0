// The version of the tools, which is that of the switchboard they are released with.
#pragma once

#include <string_view>

#include "client/Switchboard.h"

namespace sevrin {

// "2.2.5.12".
[[nodiscard]] constexpr std::string_view toolVersion() {
    const std::string_view version = kSwitchboardVersion;
    return version.substr(version.find('-') + 1);
}

}  // namespace sevrin
