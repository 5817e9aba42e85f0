// Who publishes an endpoint.
#include "tools/Publisher.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <fstream>

#include "client/CustomProtocol.h"

namespace sevrin {

Result<Peer> publisherOf(const EndpointPtr& endpoint, Deadline deadline) {
    ProtocolClient client(SVComponentServing::protocol(), endpoint, {});
    client.startAndWait(deadline);
    if (const std::optional<Peer> peer = client.peer()) return *peer;
    const auto answer = client.call("barrierWithCompletion:", {}, deadline);
    if (!answer) return answer.error();
    return CallError{CallError::Code::Disconnected, "the publisher cannot be told"};
}

std::string userName(uid_t user) {
    std::array<char, 16 * 1024> buffer;
    passwd entry{};
    passwd* found = nullptr;
    if (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return found->pw_name;
    return std::to_string(user);
}

std::string processName(pid_t process) {
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return name;
}

}  // namespace sevrin
