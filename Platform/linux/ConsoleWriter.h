// Writes to standard error without the risks of doing so: signals, waiting for ever, lines in
// pieces.
//
// Knows nothing of formats and keeps no text. Any thread may write; they take turns.
#pragma once

#include <sys/stat.h>

#include <string_view>

namespace sevrin::platform {

// Writes `text`, whole lines, to standard error, whose kind is that of `mode` (fstat's st_mode).
// What fits a pipe's atomic write (4,096 bytes) goes out in one system call; a regular file gets
// any length in one. Gives up without a word when nobody reads or nothing is taken for a second.
void writeToStandardError(std::string_view text, mode_t mode) noexcept;

}  // namespace sevrin::platform
