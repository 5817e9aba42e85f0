// The platform's error for a call on a file that failed.
#pragma once

#include <string_view>

#include "Platform/NSError.h"

namespace sevrin::platform {

// The POSIX error `number` (of errno) with `path` in its user info, under NSFilePathErrorKey. On
// any thread.
[[nodiscard]] NSErrorPtr posixError(int number, std::string_view path);

}  // namespace sevrin::platform
