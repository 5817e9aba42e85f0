// Sets a test apart from all others that run on this machine and send to whoever listens.
#pragma once

#include <sched.h>

namespace sevrin::test {

// Moves the calling thread, and the threads and children it starts from then on, into a network
// namespace of their own, where no abstract socket of anybody else exists. Needs root: otherwise
// answers false, and the test shares the machine with the others.
[[nodiscard]] inline bool enterOwnNetwork() {
    return ::unshare(CLONE_NEWNET) == 0;
}

}  // namespace sevrin::test
