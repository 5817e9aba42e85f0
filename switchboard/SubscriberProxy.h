// The client at the other end of a connection, as the receiver of relayed notifications.
//
// A short-lived view: it borrows the connection and says nothing back. What is sent to a client
// that has gone away is dropped by the platform.
#pragma once

#include <optional>
#include <string>

#include "Platform/NSNotification.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/Value.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {

class SubscriberProxy final : public SwitchboardSubscribing {
public:
    explicit SubscriberProxy(platform::NSXPCConnection& connection) : connection_(&connection) {}

    void forwardToObserverNotificationFromSourceWithInfo(const std::string& observerID,
                                                         const std::string& notification,
                                                         const std::optional<std::string>& source,
                                                         const platform::Value& userInfo) override;

    // What every subscriber of one notification is told alike: its name, its source and its user
    // info, encoded. Nothing when it holds something that cannot be sent.
    [[nodiscard]] static std::optional<platform::EncodedCall> encode(
        const platform::NSNotification& notification);

    // The same message with that part encoded beforehand. `observerID` holds the one string.
    void forward(const platform::EncodedArguments& observerID,
                 const platform::EncodedCall& encoded);

private:
    platform::NSXPCConnection* connection_;
};

}  // namespace sevrin
