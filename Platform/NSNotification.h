// A notification: a name, who it is about, and what there is to know. A value; posting it is a
// centre's business.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/Value.h"

namespace sevrin::platform {

struct NSNotification {
    std::string name;

    // The object that the notification is about, by its canonical text; none when it is about
    // nothing in particular.
    std::optional<std::string> object;

    // A dictionary, or null.
    Value userInfo;

    // Which post of this process this is: set by the centre, never 0 and never the same twice.
    // Whoever passes one notification on to many recognises it by this and prepares it once.
    std::uint64_t postSerial = 0;
};

}  // namespace sevrin::platform
