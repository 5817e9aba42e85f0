// What the switchboard relays from one program to all that are interested.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Platform/Value.h"

namespace sevrin {

struct Notification {
    std::string name;

    // Who says so; free text that the poster chooses, and no proof of anything.
    std::optional<std::string> source = std::nullopt;

    // Anything else to say: text keys, property-list values (booleans, numbers, strings, data,
    // dates, arrays, dictionaries; containers nested at most 32 deep), at most about a megabyte.
    std::optional<platform::Dictionary> userInfo = std::nullopt;

    friend bool operator==(const Notification&, const Notification&) = default;
};

// Which notifications a subscriber wants: those of this name and this source; without one, any.
//
// The switchboard selects by name. The source is compared in the subscribing process, so a
// subscription by source alone has every notification of every user sent here.
struct NotificationFilter {
    std::optional<std::string> name = std::nullopt;
    std::optional<std::string> source = std::nullopt;
};

// One subscription; unique among those of its client, and never used again.
enum class SubscriptionId : std::uint64_t {};

// Receives notifications, one after the other in the order posted, on the XPC thread and with no
// lock held. What a Completion may and must not do goes for it too.
using NotificationHandler = std::function<void(const Notification&)>;

}  // namespace sevrin
