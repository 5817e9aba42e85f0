// Words of others, made fit for a terminal and for one line.
//
// Identifiers and notifications come from any process of any user. Shown as they are, they could
// begin a new line, move the cursor or reorder what stands beside them.
#pragma once

#include <string>
#include <string_view>

namespace sevrin {

// `text` with control and format characters as \uNNNN (\UNNNNNNNN beyond 16 bits) and stray bytes
// as \xNN, in lowercase hexadecimal digits; everything else unchanged.
[[nodiscard]] std::string printable(std::string_view text);

// How many columns the printable `text` takes: its characters, each counted as one.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

}  // namespace sevrin
