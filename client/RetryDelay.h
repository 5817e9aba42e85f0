// How long a client waits before it tries to connect again.
//
// A switchboard that is not there may be there in a moment: short waits, doubling up to a second.
// One that turned the client away will do so again until an administrator has changed something:
// long waits, doubling up to a minute. Pure logic; its owner guards it.
#pragma once

#include <chrono>

#include "Platform/XPCError.h"

namespace sevrin {

class RetryDelay {
public:
    using Milliseconds = std::chrono::milliseconds;

    static constexpr Milliseconds kAbsentMin{10};
    static constexpr Milliseconds kAbsentMax{1'000};
    static constexpr Milliseconds kTurnedAwayMin{1'000};
    static constexpr Milliseconds kTurnedAwayMax{60'000};

    // A connection that lasted at least so long was a good one, after which the waits are short
    // again. One that broke sooner counts as another failure: a switchboard that dies of what this
    // client tells it must not be told so a hundred times a second.
    static constexpr Milliseconds kGoodConnection{1'000};

    // The wait after a failure for `code`; `connected` is how long the connection had lasted, zero
    // when none came about.
    [[nodiscard]] Milliseconds after(platform::XPCError::Code code,
                                     std::chrono::nanoseconds connected);

private:
    Milliseconds absent_ = kAbsentMin;  // the next wait of each kind
    Milliseconds turnedAway_ = kTurnedAwayMin;
};

}  // namespace sevrin
