// Every message that a client sends to the switchboard or to a component, built from its arguments.
#pragma once

#include <cstdint>
#include <string>

#include "client/Endpoint.h"
#include "client/Message.h"
#include "client/Notification.h"

namespace sevrin::message {

// Of every component.
[[nodiscard]] Message barrier();
[[nodiscard]] Message queryComponentVersion();
[[nodiscard]] Message queryBuildNumber();

// Of the switchboard.
[[nodiscard]] Message publish(EndpointPtr endpoint, std::string identifier);
[[nodiscard]] Message redact(std::string identifier);
[[nodiscard]] Message query(std::string identifier);
[[nodiscard]] Message post(const Notification& notification);
[[nodiscard]] Message setUser(std::uint32_t user);
[[nodiscard]] Message addObserver(SubscriptionId subscription, const NotificationFilter& filter);
[[nodiscard]] Message removeObserver(SubscriptionId subscription);
[[nodiscard]] Message removeAllObservers();

// The values of replies, which the connection has checked to be of these types.
[[nodiscard]] Result<void> readNothing(const platform::ValueArray& values);
[[nodiscard]] Result<std::string> readText(const platform::ValueArray& values);
[[nodiscard]] Result<std::uint32_t> readNumber(const platform::ValueArray& values);
[[nodiscard]] Result<EndpointPtr> readEndpoint(const platform::ValueArray& values);

}  // namespace sevrin::message
