// Matchers for what a client tells its state handler.
#pragma once

#include <gmock/gmock.h>

#include "client/SwitchboardClient.h"

namespace sevrin::test {

// A change of this kind.
inline auto isEvent(SwitchboardClient::StateChange::Event event) {
    return testing::Field("event", &SwitchboardClient::StateChange::event, event);
}

// The same, for a reason of this kind.
inline auto isEvent(SwitchboardClient::StateChange::Event event, CallError::Code code) {
    return testing::AllOf(
        isEvent(event), testing::Field("reason", &SwitchboardClient::StateChange::reason,
                                       testing::Optional(testing::Field(&CallError::code, code))));
}

}  // namespace sevrin::test
