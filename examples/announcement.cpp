// Waits until a switchboard announces that it has started, says which one, and ends.
//
//     example-announcement [SERVICE [SECONDS]]
//
// SERVICE is the service name to wait for, such as com.sevrin.switchboard.1000, or "any", which is
// what it waits for without one. After SECONDS without an announcement it gives up with status 1;
// unless given it waits for ever.
//
// The announcement comes six seconds after the start and reaches every process that observes at
// that moment, of whatever user; no connection to the switchboard is needed. Programs wait for it
// that were started before their switchboard, or that must tell their own users about a restart.
// The callback runs on the main thread, from its run loop.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSRunLoop.h"

using sevrin::platform::NSDistributedNotificationCenter;
using sevrin::platform::NSNotification;
using sevrin::platform::NSRunLoop;

namespace {

constexpr const char* kStarted = "com.sevrin.switchboard.started";

// The number of seconds that `text` spells; nothing when it spells none.
std::optional<std::chrono::milliseconds> spanFrom(const char* text) {
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(seconds >= 0 && seconds <= 1e6)) return std::nullopt;
    return std::chrono::milliseconds(static_cast<long>(seconds * 1000));
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::optional<std::string> service;
    if (argumentCount > 1 && arguments[1] != std::string("any")) service = arguments[1];
    std::optional<std::chrono::milliseconds> span;
    if (argumentCount > 2) span = spanFrom(arguments[2]);
    if (argumentCount > 3 || (argumentCount > 2 && !span)) {
        std::fprintf(stderr, "usage: example-announcement [SERVICE|any [SECONDS]]\n");
        return 2;
    }

    // The observer stays for as long as the process lives, so its id is not kept.
    (void)NSDistributedNotificationCenter::defaultCenter().addObserver(
        kStarted, service, [](const NSNotification& notification) {
            std::printf("%s: %s\n", notification.name.c_str(),
                        notification.object.value_or("(nothing)").c_str());
            NSRunLoop::currentRunLoop().stop();
        });
    std::printf("waiting for %s from %s\n", kStarted, service.value_or("any service").c_str());
    std::fflush(stdout);

    NSRunLoop& loop = NSRunLoop::currentRunLoop();
    if (!span) {
        loop.run();
        return 0;
    }
    if (loop.runUntilDate(std::chrono::steady_clock::now() + *span)) return 0;
    std::fprintf(stderr, "example-announcement: no switchboard has announced its start in time\n");
    return 1;
}
