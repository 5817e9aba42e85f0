// Texts on the heap that end with NUL and have exactly the size they need: paths and names as the
// system calls want them.
//
// They are plain blocks of malloc(), so they can come from and go to the system.
#pragma once

#include <cstdlib>
#include <memory>
#include <string_view>

namespace sevrin {

struct CStringDeleter {
    void operator()(char* text) const noexcept { std::free(text); }
};

// Owns such a text.
using CStringPtr = std::unique_ptr<char, CStringDeleter>;

// A copy of `text`, or of what of it is before the first NUL. Throws std::bad_alloc.
[[nodiscard]] CStringPtr makeCString(std::string_view text);

// The path of `name` in the directory at `parent`: both with one "/" between them, unless the
// parent is empty or ends with one. Throws std::bad_alloc.
[[nodiscard]] CStringPtr makeJoinedCString(std::string_view parent, std::string_view name);

}  // namespace sevrin
