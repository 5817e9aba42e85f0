// Time spans as the command line writes them and as people read them.
#include "tools/Duration.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <utility>

#include "client/Deadline.h"

namespace sevrin {

namespace {

using std::chrono::microseconds;

// "ms" before "s", which it ends with.
constexpr std::array<std::pair<std::string_view, double>, 4> kUnitMicroseconds = {{
    {"ms", 1e3},
    {"s", 1e6},
    {"m", 60e6},
    {"", 1e6},
}};

}  // namespace

std::optional<microseconds> durationFromText(std::string_view text) {
    for (const auto& [unit, unitMicroseconds] : kUnitMicroseconds) {
        if (!text.ends_with(unit)) continue;
        const std::string_view digits = text.substr(0, text.size() - unit.size());
        if (digits.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;

        double number = 0;
        const char* const end = digits.data() + digits.size();
        const auto [rest, error] =
            std::from_chars(digits.data(), end, number, std::chars_format::fixed);
        if (error == std::errc::invalid_argument || rest != end) return std::nullopt;
        constexpr microseconds kMost = Deadline::kSpanMax;
        const double span = std::ceil(number * unitMicroseconds);
        const bool isLong = error != std::errc() || span >= static_cast<double>(kMost.count());
        return isLong ? kMost : microseconds(static_cast<microseconds::rep>(span));
    }
    return std::nullopt;
}

std::string millisecondsText(std::chrono::nanoseconds span) {
    return fmt::format("{:.3f} ms", static_cast<double>(span.count()) / 1e6);
}

}  // namespace sevrin
