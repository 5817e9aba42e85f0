// The assertion that ends the process on a bug of our own; it stays on in release builds.
//
// Only for what this program alone can get wrong. What a peer sends, a file holds or the
// environment says is never asserted: it is refused, reported or thrown. May be used on any thread.
#pragma once

#include <string_view>

#include "Platform/Export.h"

namespace sevrin::platform {

// Writes "file:line: function: message" as one line to standard error and aborts. Allocates
// nothing, so it works however little of the process is still sound. Called by SEVRIN_ASSERT only.
[[noreturn, gnu::cold]] SEVRIN_EXPORT void assertionFailed(const char* file, int line,
                                                           const char* function,
                                                           std::string_view message) noexcept;

}  // namespace sevrin::platform

// Does nothing when `condition` holds. Otherwise reports `message` (anything that converts to
// std::string_view; built only then) with its place in the sources, and aborts.
#define SEVRIN_ASSERT(condition, message) \
    ((condition) ? static_cast<void>(0)   \
                 : ::sevrin::platform::assertionFailed(__FILE__, __LINE__, __func__, (message)))
