// What a value of any kind is as a truth value, an integer, a real: by the platform's rules for
// numbers and text, for whoever takes values that users or archives may have spelled otherwise.
//
// Nothing fails. Any thread.
#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Value.h"

namespace sevrin {

// Nothing when the value is of a kind that is none. Integers beyond 64 bits, and reals beyond them,
// give the nearest integer; NaN gives 0. Of text, leading white space and a sign are skipped, and
// what follows a number is ignored: "12 items" is 12, "items" is 0. Text is true when it begins,
// behind zeros, with a digit from 1 to 9 or with one of Y, y, T, t.
[[nodiscard]] std::optional<bool> booleanOf(const platform::Value& value);
[[nodiscard]] std::optional<std::int64_t> integerOf(const platform::Value& value);
[[nodiscard]] std::optional<double> doubleOf(const platform::Value& value);

}  // namespace sevrin
