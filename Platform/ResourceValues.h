// Where the resource values of a file URL come from: asked of the file system each time.
//
// A URL (NSURL.h) remembers them; this is the part that differs by operating system. Fails as
// system calls do. On any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/Value.h"

namespace sevrin::platform {

// The value of the item at `path` under one of the keys of NSURL.h, null for any other key. Nothing
// when it cannot be read; errno says why.
[[nodiscard]] std::optional<Value> readResourceValue(const std::string& path, std::string_view key);

// Writes the value to the item; -1 when that fails, and errno says why (see NSURL.h).
int writeResourceValue(const std::string& path, std::string_view key, const Value& value);

}  // namespace sevrin::platform
