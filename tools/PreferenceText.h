// Preference values as words on a command line: their kinds, their text, and back.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/Value.h"

namespace sevrin {

// The kinds that a value can be written as.
[[nodiscard]] const std::vector<std::string>& preferenceTypes();

// The value that `text` says as a value of that kind. Throws std::invalid_argument with a sentence
// when it says none. Integers are decimal; booleans are true, yes, 1, false, no and 0; dates are in
// RFC 3339; data is in base64; "json" gives what the JSON has, arrays and dictionaries too.
[[nodiscard]] platform::Value preferenceValue(const std::string& type, const std::string& text);

// The kind of a value: one of those above but "json", or "array" or "dictionary".
[[nodiscard]] std::string preferenceType(const platform::Value& value);

// A value on one line: text as it is, dates in RFC 3339, data in base64, everything else as JSON.
[[nodiscard]] std::string preferenceText(const platform::Value& value);

}  // namespace sevrin
