// The ten classifications of log messages, each with a word of seven characters.
//
// Words are as wide as each other so that messages line up in a log. Plain data, any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace sevrin {

// Numbers are stored in archives and in log files' words: do not renumber.
enum class LogClassification : std::int32_t {
    Preferred = -1,  // Only where an exception is logged: as the exception itself prefers.
    Plain = 0,       // A continuation or sub-heading that needs no word.
    Separator = 1,
    Curious = 2,
    Caution = 3,
    Warning = 4,
    Failure = 5,  // Errors.
    Minutia = 6,  // Small facts of normal work.
    Details = 7,  // Lines under another line.
    Subrosa = 8,  // Internal details, not meant for users.
    Debug = 9,    // Diagnostics.
};

inline constexpr int kLogClassificationCount = 10;

// What each key of a dictionary is logged at; keys that are not here have the caller's default.
using LogClassificationMap = std::map<std::string, LogClassification, std::less<>>;

// The word of a classification from Plain to Debug. Cheap rather than checked: a number outside
// the table is the caller's error and gives the blank word or that of another number, though never
// memory beyond the table.
[[nodiscard]] std::string_view nameOfClassification(LogClassification classification) noexcept;

// The classification whose word is exactly `name`, case and blanks included; Preferred (-1) when
// there is none.
[[nodiscard]] LogClassification classificationFromName(std::string_view name) noexcept;

}  // namespace sevrin
