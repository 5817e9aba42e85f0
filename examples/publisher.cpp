// Offers a component to the user's other programs, and prints what they greet it with.
//
//     example-publisher [--system] IDENTIFIER
//
// Runs until SIGINT or SIGTERM. With --system it speaks to the machine's switchboard instead of the
// user's own. It may be started before the switchboard, and outlives it: the library connects again
// and publishes again. See consumer.cpp for the other side.
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <string>

#include "client/Switchboard.h"

using sevrin::Component;
using sevrin::ComponentServer;
using sevrin::Notification;
using sevrin::Result;
using sevrin::SwitchboardClient;
using namespace std::chrono_literals;

namespace {

// Blocks the signals that end the program, so that sigwait() can take them; before any thread
// exists, because threads inherit it.
sigset_t blockEndingSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// Tells people how the connection fares. Called on the library's own thread.
void reportState(const SwitchboardClient::StateChange& change) {
    using Event = SwitchboardClient::StateChange::Event;
    const bool isUp = change.event == Event::Connected || change.event == Event::Reconnected;
    std::cout << (isUp ? "connected" : "not connected: " + change.reason->description) << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
    const bool isSystem = argc == 3 && argv[1] == std::string("--system");
    if (argc != (isSystem ? 3 : 2)) {
        std::cerr << "usage: example-publisher [--system] IDENTIFIER\n";
        return 2;
    }
    const std::string identifier = argv[argc - 1];
    const sigset_t signals = blockEndingSignals();

    // What we offer: here nothing but a version. Derive from Component to do more.
    ComponentServer server(std::make_shared<Component>("Example-1.0", 0x10000));

    // The line to the switchboard. None of these calls waits.
    using Service = SwitchboardClient::Service;
    SwitchboardClient client({.service = isSystem ? Service::System : Service::User,
                              .reconnects = true,
                              .stateHandler = reportState});
    client.subscribe({.name = "com.example.greeting"}, [](const Notification& greeting) {
        std::cout << "greeted by " << greeting.source.value_or("nobody") << std::endl;
    });
    client.publish(server.endpoint(), identifier);
    client.barrier(5s, [](const Result<void>& done) {
        std::cout << (done ? "published" : "to be published once connected") << std::endl;
    });

    int signal = 0;
    sigwait(&signals, &signal);
    return 0;  // Leaving withdraws what we published.
}
