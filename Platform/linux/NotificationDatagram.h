// A cross-process notification as the bytes of one datagram.
//
// The layout is a CBOR array of five: the version (1), the name as text, the object as text or
// null, the user info as a map or null, the options of the post as an unsigned number. Pure
// functions, for any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/NSNotification.h"

namespace sevrin::platform {

struct PostedNotification {
    NSNotification notification;
    unsigned options = 0;
};

// Throws std::invalid_argument when the user info holds what cannot travel or nests too deeply, or
// when the bytes are more than NSDistributedNotificationCenter::kNotificationBytesMax.
[[nodiscard]] std::string encodeNotification(const PostedNotification& posted);

// Nothing when `bytes` are anything but exactly one notification of this version.
[[nodiscard]] std::optional<PostedNotification> decodeNotification(std::string_view bytes);

}  // namespace sevrin::platform
