// For tests of a client beside a switchboard that is not there yet: the switchboard, to be started
// by the test, and what the client tells of its state.
#pragma once

#include <gtest/gtest.h>

#include "Tests/Support/TestSwitchboard.h"
#include "client/SwitchboardClient.h"

namespace sevrin::test {

class ObservedClientTest : public testing::Test {
protected:
    using StateChange = SwitchboardClient::StateChange;

    // Options whose state changes are collected.
    SwitchboardClient::Options observed() {
        return options([this](const StateChange& change) { changes_.add(change); });
    }

    TestSwitchboard board_{false};
    Inbox<StateChange> changes_;
};

}  // namespace sevrin::test
