// How a failed assertion is reported: one gathering write to standard error, then abort.
#include "Platform/Assertion.h"

#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdlib>

namespace sevrin::platform {
namespace {

// The path as the repository knows it. Compilers may be given absolute paths; the folder that
// precedes this file's own name is the root, and what lies in it is named without it.
std::string_view pathInRepository(std::string_view path) {
    constexpr std::string_view kThisFile = __FILE__;
    constexpr std::string_view kThisName = "Platform/Assertion.cpp";
    constexpr std::string_view kRoot =
        kThisFile.ends_with(kThisName) ? kThisFile.substr(0, kThisFile.size() - kThisName.size())
                                       : std::string_view();
    return path.starts_with(kRoot) ? path.substr(kRoot.size()) : path;
}

iovec piece(std::string_view text) {
    return {const_cast<char*>(text.data()), text.size()};  // writev only reads what it is given.
}

}  // namespace

void assertionFailed(const char* file, int line, const char* function,
                     std::string_view message) noexcept {
    std::array<char, 16> digits{};
    const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), line).ptr;
    const std::string_view lineText(digits.data(), static_cast<std::size_t>(end - digits.data()));

    const std::array pieces{piece(pathInRepository(file)),
                            piece(":"),
                            piece(lineText),
                            piece(": "),
                            piece(function),
                            piece(": "),
                            piece(message),
                            piece("\n")};
    // Nothing is left to do about a standard error that takes no text: the core dump still tells.
    [[maybe_unused]] const ssize_t written =
        ::writev(STDERR_FILENO, pieces.data(), static_cast<int>(pieces.size()));
    std::abort();
}

}  // namespace sevrin::platform
