// Sends relayed notifications to one client.
#include "switchboard/SubscriberProxy.h"

#include <array>
#include <span>

#include "Platform/Protocol.h"

namespace sevrin {

using platform::EncodedArguments;
using platform::EncodedCall;
using platform::MethodDescription;
using platform::NSNotification;
using platform::Value;

namespace {

// The one method that there is, looked up once for all messages.
const MethodDescription& forwardMethod() {
    static const MethodDescription& theMethod = *SwitchboardSubscribing::protocol().method(
        "forwardToObserver:notification:fromSource:withInfo:");
    return theMethod;
}

Value valueOf(const std::optional<std::string>& text) {
    return text ? Value(*text) : Value();
}

}  // namespace

void SubscriberProxy::forwardToObserverNotificationFromSourceWithInfo(
    const std::string& observerID, const std::string& notification,
    const std::optional<std::string>& source, const Value& userInfo) {
    const std::array<Value, 4> arguments{observerID, notification, valueOf(source), userInfo};
    connection_->send(forwardMethod(), arguments);
}

std::optional<EncodedCall> SubscriberProxy::encode(const NSNotification& notification) {
    const std::array<Value, 3> arguments{notification.name, valueOf(notification.object),
                                         notification.userInfo};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (!forwardMethod().arguments[i + 1].accepts(arguments[i])) return std::nullopt;
    }
    return EncodedCall(forwardMethod(), arguments);
}

void SubscriberProxy::forward(const EncodedArguments& observerID, const EncodedCall& encoded) {
    connection_->send(encoded, observerID);
}

}  // namespace sevrin
