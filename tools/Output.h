// Where the answers and the notes of a tool go: standard output and standard error, unbuffered, a
// whole record with one call.
//
// Any thread may write. When the reader of standard output has gone, as in `monitor | head`, the
// program has nothing left to do and ends at once with status 0; when an answer cannot be written
// for another reason it ends with ExitStatus::Broken and says so.
#pragma once

#include <string_view>

namespace sevrin {

// When to colour, as `--color` says.
enum class ColorWish { Auto, Always, Never };

// Whether to: the wish, then a NO_COLOR that is not empty (nullptr: unset), then the terminal.
[[nodiscard]] bool wantsColor(ColorWish wish, const char* noColor, bool isTerminal);

// Writes all of `text` to standard output. Waits for a slow reader.
void writeAnswer(std::string_view text);

// The same to standard error, as far as that takes it.
void writeNote(std::string_view text);

[[nodiscard]] bool isOutputTerminal();

// Ends the program when the reader of standard output has gone. For verbs that wait long between
// two answers.
void endIfReaderHasGone();

}  // namespace sevrin
