// The grammar of the command line, and the rules of who may start which switchboard.
#include "switchboard/CommandLine.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>

namespace sevrin {

namespace {

constexpr std::string_view kUsersOption = "--users";

// The ids behind "--users"; nothing when the option is not there.
std::optional<std::vector<std::uint32_t>> listedUsers(std::span<const char* const> arguments) {
    const auto option = std::find(arguments.begin(), arguments.end(), kUsersOption);
    if (option == arguments.end()) return std::nullopt;

    std::vector<std::uint32_t> users;
    for (auto argument = option + 1; argument != arguments.end(); ++argument) {
        const std::uint32_t user = CommandLine::userIDFromText(*argument);
        if (user == 0 || **argument == '-') break;
        users.push_back(user);
    }
    return users;
}

}  // namespace

std::uint32_t CommandLine::userIDFromText(const char* text) {
    static_assert(sizeof(long long) > sizeof(std::uint32_t));
    const long long number =
        std::strtoll(text, nullptr, 10);  // Stays at its own ends if too large.
    const long long nearest =
        std::clamp<long long>(number, std::numeric_limits<std::int32_t>::min(),
                              std::numeric_limits<std::uint32_t>::max());
    return static_cast<std::uint32_t>(nearest);
}

CommandLine CommandLine::parse(std::span<const char* const> arguments, uid_t realUserID) {
    CommandLine result;
    std::optional<std::vector<std::uint32_t>> users = listedUsers(arguments);

    if (!users) {
        if (realUserID == 0) result.error = "missing --users";
        result.users = {realUserID};
        return result;
    }

    // An empty list is reported to everyone, also to those who may not give one.
    if (users->empty()) {
        result.error = "empty --users list";
    } else if (realUserID != 0) {
        result.error = "system switchboard must run as root";
    }
    result.mode = Mode::System;
    result.users = std::move(*users);
    result.users.push_back(0);
    return result;
}

}  // namespace sevrin
