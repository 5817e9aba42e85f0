// The entry point of the service: decides whom to serve, opens the service and runs until a signal
// ends it.
//
// Runs on the main thread. Exit status 0 after SIGINT, 2 after SIGTERM and for a wrong command
// line. The order of the steps is part of the contract with launchers and log readers.
#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "Common/Source/Utilities/Logger.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Platform/ServiceManager.h"
#include "Platform/SignalWakeup.h"
#include "switchboard/BadPeer.h"
#include "switchboard/CommandLine.h"
#include "switchboard/SVConnectionServiceFactory.h"
#include "switchboard/ServiceLog.h"
#include "switchboard/SwitchboardProtocols.h"
#include "switchboard/UserSwitchboard.h"
#include "switchboard/VeloraOperator.h"
#include "switchboard/VeloraSwitchboard.h"

namespace sevrin {
namespace {

using platform::NSXPCConnection;
using platform::NSXPCListener;
using platform::ServiceManager;
using platform::SignalWakeup;

constexpr int kExitWrongCommandLine = 2;

// This program's number among those of the suite: the first of its log line identifiers.
constexpr std::uint32_t kLogApplicationNumber = 8;

// Set by the signal handler; the exit status is twice its value.
volatile sig_atomic_t terminatedBySIGTERM = 0;

// Has the main queue run the shutdown block. Set before the handlers are installed.
const SignalWakeup* shutdownWakeup = nullptr;

extern "C" void handleTermination(int signal) {
    switch (signal) {
        case SIGTERM:
            terminatedBySIGTERM = 1;
            [[fallthrough]];
        case SIGINT:
            shutdownWakeup->trigger();
            break;
        default:
            break;
    }
}

void setSignalDisposition(int signal, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

// A client may hold many descriptors here; the soft limit is meant for programs that use select.
void raiseDescriptorLimit() {
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

// Serving goes on without a manager that knows of it, so what went wrong is only noted.
void noteUntold(const std::optional<std::string>& why) {
    if (why) Logger::logMessage(LogClassification::Failure, *why);
}

// Runs on the main queue after the first signal, and ends the process.
[[noreturn]] void shutdownAndExit() {
    noteUntold(ServiceManager::tellStopping());
    VeloraSwitchboard::sharedSwitchboard()->shutdown();
    const int status = 2 * terminatedBySIGTERM;
    Logger::logStopProcessExitStatus(kSwitchboardVersion, status);
    std::exit(status);
}

// Gives the listener, which is resumed.
std::shared_ptr<NSXPCListener> openService(const std::string& serviceName,
                                           const std::vector<std::uint32_t>& users) {
    registerSwitchboardClasses();
    NSXPCConnection::setFaultReporter(logBadPeer);

    const auto switchboard = VeloraSwitchboard::makeSharedSwitchboard();
    switchboard->setServiceName(serviceName);
    for (const std::uint32_t user : users)
        UserSwitchboard::createSwitchboardForUser(user);
    auto listener = NSXPCListener::initWithMachServiceName(serviceName);
    switchboard->setConnectionVendor(
        SVConnectionServiceFactory::initWithListenerServerClassConformingTo(
            listener, "VeloraOperator", VeloraSwitchboarding_private::protocol()));
    return listener;
}

// A service that cannot be reached is never ready: its manager gives it up and starts it again,
// and whoever asks the manager is told why.
void tellWhetherReady(const NSXPCListener& listener) {
    const auto failure = listener.registrationFailure();
    noteUntold(failure ? ServiceManager::tellStatus("Not reachable: " + *failure)
                       : ServiceManager::tellReady());
}

int run(std::span<const char* const> arguments) {
    const uid_t realUserID = ::getuid();
    Logger::setApplicationNumber(kLogApplicationNumber);
    const LogLineIdentifierPtr startLine = startLogging(realUserID);
    const CommandLine commandLine = CommandLine::parse(arguments, realUserID);
    if (!commandLine.error.empty()) {
        Logger::logMessage(LogClassification::Failure, commandLine.error);
        return kExitWrongCommandLine;
    }

    const bool isSystem = commandLine.mode == CommandLine::Mode::System;
    const std::string serviceName = isSystem ? kSystemServiceName : userSwitchboardServiceName();
    logService(startLine, serviceName, commandLine.users);
    const auto listener = openService(serviceName, commandLine.users);

    shutdownWakeup = new SignalWakeup(shutdownAndExit);  // For good, as the handlers are.
    setSignalDisposition(SIGHUP, SIG_IGN);
    setSignalDisposition(SIGINT, handleTermination);
    setSignalDisposition(SIGTERM, handleTermination);
    tellWhetherReady(*listener);

    VeloraSwitchboard::sharedSwitchboard()->run();
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace sevrin

int main(int argumentCount, char** arguments) {
    sevrin::raiseDescriptorLimit();
    const std::span all(arguments, static_cast<std::size_t>(argumentCount));
    return sevrin::run(all.subspan(all.empty() ? 0 : 1));
}
