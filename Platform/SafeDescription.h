// Descriptions for reports, which have to come about whatever the values hold.
//
// On any thread.
#pragma once

#include <string>

#include "Platform/Value.h"

namespace sevrin::platform {

// Appends the description of `value`, cut short where kDescriptionBytesMax is reached
// (Platform/DescriptionScope.h). An object that throws instead of describing itself is shown as
// "(no description: ...)". Throws std::bad_alloc at most.
void appendSafeDescription(std::string& out, const Value& value);

// The text that appendSafeDescription appends.
[[nodiscard]] std::string safeDescription(const Value& value);

}  // namespace sevrin::platform
