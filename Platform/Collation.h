// The system's collation of text, for names beyond ASCII.
//
// Loaded when it is first asked for, since most processes never ask. The order is the same whatever
// the user's language: the root of the common locale data, with numbers by their value, as an order
// of ASCII that changed with the language could not be had without the library. On any thread.
#pragma once

#include <optional>
#include <string_view>

namespace sevrin::platform {

// -1, 0 or 1, where 0 only says that the text looks alike. Bytes that are no UTF-8 count as
// replacement characters. Nothing when the system has no collation; then it never has.
[[nodiscard]] std::optional<int> collate(std::string_view left, std::string_view right);

}  // namespace sevrin::platform
