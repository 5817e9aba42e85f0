// Which switchboard a run of the tool speaks to, and for whom.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/SwitchboardClient.h"

namespace sevrin {

struct Target {
    // What `--user`, `--system` and `--user=UID` ask for; `user` is the text behind `--user=`,
    // empty when there is none. Throws Failure when the caller may not, or it is no user id.
    [[nodiscard]] static Target fromOptions(bool isSystem, const std::string& user);

    [[nodiscard]] std::string serviceName() const;

    // The command for the service manager, such as "systemctl --user start switchboard".
    [[nodiscard]] std::string launcherCommand(std::string_view verb) const;

    SwitchboardClient::Service service = SwitchboardClient::Service::User;

    // Whose registry of the system's switchboard root wants to see; nothing for its own.
    std::optional<std::uint32_t> user = std::nullopt;
};

}  // namespace sevrin
