// How the program ends when the user interrupts it.
#include "tools/Interruption.h"

#include <unistd.h>

#include <csignal>

#include "Platform/NSRunLoop.h"
#include "tools/ExitStatus.h"

namespace sevrin {

namespace {

using platform::NSRunLoop;
using platform::SignalWakeup;

constexpr int kStatusOfSignal = 128;  // what a shell adds the signal to
static_assert(kStatusOfSignal + SIGINT == static_cast<int>(ExitStatus::Interrupted));

// The signal that Farewell was told of, and whom to wake; read and written by the handler.
volatile sig_atomic_t received = 0;
const SignalWakeup* volatile wakeup = nullptr;

extern "C" void handleSignal(int signal) {
    if (wakeup == nullptr || received != 0) ::_exit(kStatusOfSignal + signal);
    received = signal;
    wakeup->trigger();
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction former {};
    ::sigaction(signal, nullptr, &former);
    if (former.sa_handler == SIG_IGN) return;
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

}  // namespace

void installSignalHandlers() {
    ::signal(SIGPIPE, SIG_IGN);
    handle(SIGINT, handleSignal);
}

Farewell::Farewell() : wakeup_([] { NSRunLoop::currentRunLoop().stop(); }) {
    wakeup = &wakeup_;
    handle(SIGTERM, handleSignal);
}

Farewell::~Farewell() {
    handle(SIGTERM, SIG_DFL);
    wakeup = nullptr;
}

int Farewell::waitForSignal() {
    while (received == 0)
        NSRunLoop::currentRunLoop().run();
    return kStatusOfSignal + received;
}

}  // namespace sevrin
