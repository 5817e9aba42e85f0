// How a run of a tool ends, in the numbers that scripts rely on: never renumber.
#pragma once

namespace sevrin {

enum class ExitStatus : int {
    Done = 0,             // done, found, condition met
    No = 1,               // the answer is no: not published, not reachable
    Usage = 2,            // the command line makes no sense
    NoSwitchboard = 3,    // there is no switchboard to talk to
    Refused = 4,          // no switchboard for this user, or not permitted
    VersionMismatch = 5,  // the two sides speak different versions of the protocol
    DeadlinePassed = 124,
    Broken = 125,  // the tool itself failed, for instance to write its output
    Interrupted = 130,
};

}  // namespace sevrin
