// How long a client waits before it tries to connect again.
#include "client/RetryDelay.h"

#include <algorithm>
#include <utility>

namespace sevrin {

namespace {

using Code = platform::XPCError::Code;

bool isTurnedAway(Code code) {
    switch (code) {
        case Code::Untrusted:
        case Code::Refused:
        case Code::VersionMismatch:
        case Code::BadAnswer:
            return true;
        case Code::NoService:
        case Code::Disconnected:
        case Code::DeadlinePassed:
            return false;
    }
    return false;
}

}  // namespace

RetryDelay::Milliseconds RetryDelay::after(Code code, std::chrono::nanoseconds connected) {
    if (connected >= kGoodConnection) *this = RetryDelay();
    if (isTurnedAway(code))
        return std::exchange(turnedAway_, std::min(turnedAway_ * 2, kTurnedAwayMax));
    turnedAway_ = kTurnedAwayMin;
    return std::exchange(absent_, std::min(absent_ * 2, kAbsentMax));
}

}  // namespace sevrin
