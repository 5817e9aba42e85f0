// Time spans as the command line writes them and as people read them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace sevrin {

// The span that `text` says: a decimal number with at most a point in it, followed by ms, s, m or
// nothing, which is seconds. Rounded up to microseconds; beyond a hundred years it is that. Nothing
// when it is anything else.
[[nodiscard]] std::optional<std::chrono::microseconds> durationFromText(std::string_view text);

// Such as "0.085 ms": milliseconds, to the microsecond.
[[nodiscard]] std::string millisecondsText(std::chrono::nanoseconds span);

}  // namespace sevrin
