// Finds the component that another program publishes, asks it for its version, and greets it.
//
//     example-consumer [--system] IDENTIFIER
//
// Prints the version and the build number. The status is 0 when they were answered, 1 when nobody
// publishes the identifier, 3 when something stood in the way. See publisher.cpp for the other
// side.
#include <chrono>
#include <iostream>
#include <string>

#include "client/Switchboard.h"

using sevrin::CallError;
using sevrin::ComponentClient;
using sevrin::Deadline;
using sevrin::SwitchboardClient;
using namespace std::chrono_literals;

namespace {

int fail(const CallError& error) {
    std::cerr << "example-consumer: " << error.description << "\n";
    return 3;
}

}  // namespace

int main(int argc, char** argv) {
    const bool isSystem = argc == 3 && argv[1] == std::string("--system");
    if (argc != (isSystem ? 3 : 2)) {
        std::cerr << "usage: example-consumer [--system] IDENTIFIER\n";
        return 2;
    }
    const std::string identifier = argv[argc - 1];

    // One deadline for all that follows, however the time divides among the calls.
    const Deadline deadline = 5s;

    using Service = SwitchboardClient::Service;
    auto client = SwitchboardClient::connect(
        {.service = isSystem ? Service::System : Service::User}, deadline);
    if (!client) return fail(client.error());

    const auto endpoint = client->query(identifier, deadline);
    if (!endpoint) return fail(endpoint.error());
    if (*endpoint == nullptr) {
        std::cerr << "example-consumer: nobody publishes " << identifier << "\n";
        return 1;
    }

    // From here on we talk to the publisher itself; the switchboard is out of it.
    auto component = ComponentClient::connect(*endpoint, deadline);
    if (!component) return fail(component.error());
    const auto version = component->componentVersion(deadline);
    if (!version) return fail(version.error());
    const auto buildNumber = component->buildNumber(deadline);
    if (!buildNumber) return fail(buildNumber.error());
    std::cout << *version << " (" << *buildNumber << "), process " << component->peer()->process
              << "\n";

    const auto posted = client->post({"com.example.greeting", "example-consumer"}, deadline);
    if (!posted) return fail(posted.error());
    return 0;
}
