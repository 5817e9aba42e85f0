// Which switchboard the options of the command line mean.
#include "tools/Target.h"

#include <fmt/printf.h>
#include <unistd.h>

#include <charconv>

#include "client/Switchboard.h"
#include "tools/Failure.h"

namespace sevrin {

namespace {

using Service = SwitchboardClient::Service;

// What setUser takes; the highest number is the id that no user ever has.
std::uint32_t userIDFromText(const std::string& text) {
    std::uint32_t user = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, user);
    if (error == std::errc() && rest == end && user != UINT32_MAX) return user;
    throw Failure(ExitStatus::Usage, "--user=" + text, "not a user id", "--user=$(id --user NAME)");
}

}  // namespace

Target Target::fromOptions(bool isSystem, const std::string& user) {
    if (isSystem) return {Service::System};
    if (user.empty()) return {Service::User};

    const std::uint32_t userID = userIDFromText(user);
    if (::geteuid() == 0 && userID == 0) return {Service::System};
    if (::geteuid() == 0) return {Service::System, userID};
    if (::geteuid() == userID) return {Service::User};
    throw Failure(ExitStatus::Refused, "--user=" + user, "only root may speak for another user",
                  "sudo, or leave it out");
}

std::string Target::serviceName() const {
    if (service == Service::System) return kSystemServiceName;
    return fmt::sprintf(kUserServiceNameFormat, ::geteuid());
}

std::string Target::launcherCommand(std::string_view verb) const {
    const char* const scope = service == Service::System ? "" : "--user ";
    return fmt::format("systemctl {}{} switchboard", scope, verb);
}

}  // namespace sevrin
