// The file of the program that this process runs.
#pragma once

#include <string>

namespace sevrin::platform {

// Whether the item at `path`, a link not followed, is the file that this process was started from.
// Not for a program that was replaced or removed since. On any thread.
[[nodiscard]] bool isRunningProgram(const std::string& path) noexcept;

}  // namespace sevrin::platform
