// The command line of the service: which users it serves, or why it must not start.
//
// A pure function of the arguments and the real user id; it touches no environment and no log. The
// grammar is old and odd, launchers rely on it as it is, and nothing is added to it:
//
//   (no arguments)         the switchboard of the user who started it
//   --users UID UID ...    the system switchboard, for these users and root; root only
//
// Until "--users" is seen, arguments are skipped. After it, the first argument that begins with '-'
// or reads as 0 ends the list and everything behind it is ignored.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sevrin {

struct CommandLine {
    enum class Mode { User, System };

    // Reads `arguments` (without the program's own name) for a process of `realUserID`.
    [[nodiscard]] static CommandLine parse(std::span<const char* const> arguments,
                                           uid_t realUserID);

    // The number at the beginning of `text`, as every argument of a list is read: blanks, a sign,
    // digits; what follows is ignored and no digits are 0. A number that no 32-bit integer holds
    // becomes the nearest one that does, so an absurd id ends up as the one that no process ever
    // has. A negative number is the unsigned one with the same 32 bits.
    [[nodiscard]] static std::uint32_t userIDFromText(const char* text);

    // What to report before ending with exit status 2; empty when all is well.
    std::string error;

    // Valid without an error. Users in the order given, duplicates kept; root's 0 ends the list of
    // a system switchboard.
    Mode mode = Mode::User;
    std::vector<std::uint32_t> users;
};

}  // namespace sevrin
