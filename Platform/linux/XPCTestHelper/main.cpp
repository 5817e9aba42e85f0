// A process of its own for the tests that need one: to be killed, to run as somebody else, to run
// out of descriptors.
//
//     xpc-test-helper folder user|system      prints the bootstrap folder
//     xpc-test-helper ready                   tells the service manager that it is ready
//     xpc-test-helper serve NAME              serves a TestService under NAME until input ends
//     xpc-test-helper consume                 connects to the endpoint that comes through standard
//                                             input, a socket
//     xpc-test-helper publish                 sends its endpoint through standard input, a socket
//     xpc-test-helper hoard NAME COUNT        holds COUNT connections to NAME, each with as many
//                                             descriptors in it as a frame may bring, until input
//                                             ends
//
// Speaks in lines on standard output. The service obeys some words: the note "fill" opens
// descriptors until there are none left, "free" closes them again; the echo of "open descriptors"
// is their number.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Platform/ServiceManager.h"
#include "Platform/UniqueFd.h"
#include "Platform/XPCTestSupport.h"
#include "Platform/linux/Bootstrap.h"
#include "Platform/linux/HostilePeer.h"

namespace sevrin::platform {
namespace {

using namespace xpctest;

void say(const std::string& line) {
    std::cout << line << std::endl;
}

void waitForEndOfInput() {
    char byte;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
}

int printFolder(const std::string& domain) {
    say(bootstrap::folderPath(domain == "system" ? NSXPCConnection::Domain::System
                                                 : NSXPCConnection::Domain::User));
    return 0;
}

int tellReady() {
    say(ServiceManager::tellReady().value_or("told whoever asked"));
    return 0;
}

// Every descriptor that the process may still open.
std::vector<UniqueFd> allDescriptors() {
    std::vector<UniqueFd> all;
    for (;;) {
        UniqueFd one(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (!one) return all;
        all.push_back(std::move(one));
    }
}

int serve(const std::string& name) {
    const auto listener = NSXPCListener::initWithMachServiceName(name);
    if (const auto failure = listener->registrationFailure()) {
        say("failed: " + *failure);
        return 1;
    }
    std::vector<UniqueFd> filling;
    TestServer server(listener, [&](TestService& service) {
        service.onNote = [&](const std::string& text) {
            if (text == "fill") filling = allDescriptors();
            if (text == "free") filling.clear();
        };
        service.onEcho = [&](const std::string& text, const TestService::StringReply& reply) {
            reply(text == "open descriptors" ? std::to_string(openDescriptors()) : text);
        };
    });
    say("serving");
    waitForEndOfInput();
    return 0;
}

int consume() {
    const auto connection =
        NSXPCConnection::initWithListenerEndpoint(receiveEndpoint(STDIN_FILENO));
    connection->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
    connection->resume();
    say(textOf(ask(*connection, "hello from " + std::to_string(::getuid()))));
    waitForEndOfInput();
    return 0;
}

int publish() {
    TestServer server;
    HostilePeer link{UniqueFd(STDIN_FILENO)};
    link.send("!", {static_cast<const XPCEndpoint&>(*server.listener().endpoint()).fd()});
    say("published");
    waitForEndOfInput();
    return 0;
}

int hoard(const std::string& name, int count) {
    const auto endpoint = bootstrap::listenAnonymously().endpoint;
    const std::vector<int> descriptors(8, endpoint->fd());
    std::vector<UniqueFd> connections;
    for (int i = 0; i < count; ++i) {
        auto connected =
            bootstrap::connectToService(name, NSXPCConnection::Domain::System, patience());
        auto* socket = std::get_if<UniqueFd>(&connected);
        if (!socket) break;
        HostilePeer peer(std::move(*socket));
        peer.greet();
        peer.send("x", descriptors);
        connections.push_back(peer.release());
    }
    say("hoarding");
    waitForEndOfInput();
    return 0;
}

int run(const std::vector<std::string>& words) {
    if (words.size() == 2 && words[0] == "folder") return printFolder(words[1]);
    if (words.size() == 1 && words[0] == "ready") return tellReady();
    if (words.size() == 2 && words[0] == "serve") return serve(words[1]);
    if (words.size() == 1 && words[0] == "consume") return consume();
    if (words.size() == 1 && words[0] == "publish") return publish();
    if (words.size() == 3 && words[0] == "hoard") return hoard(words[1], std::stoi(words[2]));
    std::cerr << "usage: see the head of its source\n";
    return 2;
}

}  // namespace
}  // namespace sevrin::platform

int main(int argc, char** argv) {
    return sevrin::platform::run(std::vector<std::string>(argv + 1, argv + argc));
}
