// Why a message got no answer, or a connection was not made.
#pragma once

#include <string>

namespace sevrin::platform {

struct XPCError {
    enum class Code {
        NoService,        // nobody serves that name, or the endpoint's listener is gone
        Untrusted,        // somebody serves it who may not: another user, an unsafe folder
        Refused,          // the server closed the connection before it greeted us
        VersionMismatch,  // both speak, but different versions of the protocol
        Disconnected,     // the connection ended, here or there, before the answer
        DeadlinePassed,   // the answer did not come in time
        BadAnswer,        // the peer broke the protocol
    };

    Code code = Code::Disconnected;

    // A sentence for people: what was tried and what stood in the way.
    std::string description;
};

}  // namespace sevrin::platform
