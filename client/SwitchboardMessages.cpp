// The messages to the switchboard: selectors and the order of their arguments, in one place.
#include "client/SwitchboardMessages.h"

#include <optional>
#include <utility>

#include "Platform/Assertion.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin::message {

using platform::MethodDescription;
using platform::Value;
using platform::ValueArray;

namespace {

const MethodDescription& method(const char* selector) {
    const MethodDescription* found = VeloraSwitchboarding_private::protocol().method(selector);
    SEVRIN_ASSERT(found, "the switchboard's protocol has the selector");
    return *found;
}

Value orNull(const std::optional<std::string>& text) {
    return text ? Value(*text) : Value();
}

// The observer id on the wire is the subscription's number; nobody but this client reads it.
std::string observerId(SubscriptionId subscription) {
    return std::to_string(static_cast<std::uint64_t>(subscription));
}

}  // namespace

Message barrier() {
    static const MethodDescription& theMethod = method("barrierWithCompletion:");
    return {&theMethod, {}};
}

Message queryComponentVersion() {
    static const MethodDescription& theMethod = method("queryComponentVersionWithReply:");
    return {&theMethod, {}};
}

Message queryBuildNumber() {
    static const MethodDescription& theMethod = method("queryBuildNumberWithReply:");
    return {&theMethod, {}};
}

Message publish(EndpointPtr endpoint, std::string identifier) {
    static const MethodDescription& theMethod = method("publishEndpoint:forIdentifier:");
    return {&theMethod, {Value(std::move(endpoint)), Value(std::move(identifier))}};
}

Message redact(std::string identifier) {
    static const MethodDescription& theMethod = method("redactEndpointForIdentifier:");
    return {&theMethod, {Value(std::move(identifier))}};
}

Message query(std::string identifier) {
    static const MethodDescription& theMethod = method("queryEndpointForIdentifier:withReply:");
    return {&theMethod, {Value(std::move(identifier))}};
}

Message post(const Notification& notification) {
    static const MethodDescription& theMethod = method("postNotificationName:source:userInfo:");
    return {&theMethod,
            {Value(notification.name), orNull(notification.source),
             notification.userInfo ? Value(*notification.userInfo) : Value()}};
}

Message setUser(std::uint32_t user) {
    static const MethodDescription& theMethod = method("setUser:");
    return {&theMethod, {Value(user)}};
}

Message addObserver(SubscriptionId subscription, const NotificationFilter& filter) {
    static const MethodDescription& theMethod = method("addProxyObserver:forName:source:");
    return {&theMethod,
            {Value(observerId(subscription)), orNull(filter.name), orNull(filter.source)}};
}

Message removeObserver(SubscriptionId subscription) {
    static const MethodDescription& theMethod = method("removeObserver:");
    return {&theMethod, {Value(observerId(subscription))}};
}

Message removeAllObservers() {
    static const MethodDescription& theMethod = method("removeAllObservers");
    return {&theMethod, {}};
}

Result<void> readNothing(const ValueArray&) {
    return {};
}

Result<std::string> readText(const ValueArray& values) {
    return std::string(*values.at(0).ifString());
}

Result<std::uint32_t> readNumber(const ValueArray& values) {
    return static_cast<std::uint32_t>(*values.at(0).ifSigned());
}

Result<EndpointPtr> readEndpoint(const ValueArray& values) {
    return values.at(0).object<platform::NSXPCListenerEndpoint>();
}

}  // namespace sevrin::message
