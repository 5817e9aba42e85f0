// How cross-process notifications travel: one abstract datagram socket for each observing process,
// found by posters in the kernel's list of sockets. No daemon, and nothing to clean up.
//
// A socket is named "com.sevrin.notification/<user>/<process>.<descriptor>.<random>". A name proves
// nothing, anybody may take any: receivers go by the sender's credentials, and a poster that means
// its own user only asks /proc whether that very socket is one of its user's. Sockets of other
// network namespaces are not in the list. May be used on any thread.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

inline constexpr std::string_view kNotificationSocketPrefix = "com.sevrin.notification/";

// Opens this process's socket, named for its effective user. Throws std::system_error.
[[nodiscard]] UniqueFd openNotificationSocket();

struct NotificationPacket {
    std::string bytes;

    // The effective user id of whoever sent it, on the kernel's word. Nothing when the bytes were
    // cut off or came with descriptors (which are never taken in): no poster of ours sends that.
    std::optional<uid_t> sender;
};

// The next packet that waits, or nothing.
[[nodiscard]] std::optional<NotificationPacket> receiveNotificationPacket(int socket);

enum class NotificationReach { OwnUser, AllSessions };

// The names of all sockets to send to. OwnUser finds a process only if the caller may look into it:
// the same user and group, traceable, visible in this process namespace. Throws std::system_error
// when the list cannot be read.
[[nodiscard]] std::vector<std::string> notificationReceivers(NotificationReach reach);

// Sends `bytes` to the socket called `name` unless it is gone, full or closed to us; never waits.
// Throws std::system_error when this side is what fails.
void sendNotificationPacket(const std::string& name, std::string_view bytes);

}  // namespace sevrin::platform
