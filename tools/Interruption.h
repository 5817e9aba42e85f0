// How the program ends when the user interrupts it.
//
// Most verbs have nothing to clean up: what they hold ends with the process, so a SIGINT ends it at
// once. A verb that has made a promise to others gives notice first (Farewell). An interrupt that
// was ignored when the program started, as in a background job of a shell, stays ignored.
#pragma once

#include "Platform/SignalWakeup.h"

namespace sevrin {

// From now on SIGINT ends the process with ExitStatus::Interrupted. Writing to a pipe that nobody
// reads is an error of the write from now on, not a signal. On the main thread, first of all.
void installSignalHandlers();

// While it lives, the first SIGINT or SIGTERM stops the main run loop instead, and a second one
// ends the process at once. One at a time, on the main thread.
class Farewell {
public:
    Farewell();
    ~Farewell();
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;

    // Runs the main run loop until the signal comes; gives the exit status that goes with it.
    [[nodiscard]] int waitForSignal();

private:
    platform::SignalWakeup wakeup_;
};

}  // namespace sevrin
