// What values are as truth values and numbers, by the platform's rules for numbers and text.
#include "Common/Source/Utilities/ValueConversion.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <string_view>

#include "Platform/Text.h"

namespace sevrin {

using platform::Value;

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();

// Text from its first character on that is no white space.
std::string_view withoutLeadingBlanks(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t start = position;
        const char32_t character = platform::decodeUtf8(text, position);
        if (!platform::isWhitespace(character) && !platform::isNewline(character))
            return text.substr(start);
    }
    return {};
}

// The same without a plus sign, which the standard library's readers do not take.
std::string_view numberIn(std::string_view text) {
    text = withoutLeadingBlanks(text);
    if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
    return text;
}

bool booleanIn(std::string_view text) {
    text = withoutLeadingBlanks(text);
    if (text.starts_with('+') || text.starts_with('-')) text.remove_prefix(1);
    while (text.starts_with('0'))
        text.remove_prefix(1);
    return !text.empty() && std::string_view("123456789YyTt").find(text[0]) != text.npos;
}

std::int64_t integerIn(std::string_view text) {
    text = numberIn(text);
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range) return text.starts_with('-') ? kLeast : kMost;
    return error == std::errc() ? number : 0;
}

double doubleIn(std::string_view text) {
    text = numberIn(text);
    // Words such as "nan" and "infinity" are no numbers that a user can have meant.
    const bool isNegative = text.starts_with('-');
    const std::string_view digits = text.substr(isNegative ? 1 : 0);
    if (digits.empty() || std::string_view("0123456789.").find(digits[0]) == digits.npos) return 0;
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc::result_out_of_range) return error == std::errc() ? number : 0;
    // Too large or too small; only an exponent below zero, or a long row of zeros, makes it small.
    const std::string_view read = text.substr(0, static_cast<std::size_t>(end - text.data()));
    const std::size_t exponent = read.find_first_of("eE");
    const bool isSmall = exponent == read.npos ? digits[0] == '0' || digits[0] == '.'
                                               : read.substr(exponent + 1).starts_with('-');
    if (isSmall) return 0;
    return isNegative ? -HUGE_VAL : HUGE_VAL;
}

std::int64_t nearestInteger(double number) {
    constexpr double kBeyond = 9223372036854775808.0;  // 2^63
    if (std::isnan(number)) return 0;
    if (number >= kBeyond) return kMost;
    if (number < -kBeyond) return kLeast;
    return static_cast<std::int64_t>(number);
}

}  // namespace

std::optional<bool> booleanOf(const Value& value) {
    if (const bool* const boolean = value.ifBoolean()) return *boolean;
    if (const auto* const number = value.ifSigned()) return *number != 0;
    if (value.ifUnsigned()) return true;
    if (const double* const number = value.ifDouble()) return *number != 0;
    if (const std::string* const text = value.ifString()) return booleanIn(*text);
    return std::nullopt;
}

std::optional<std::int64_t> integerOf(const Value& value) {
    if (const bool* const boolean = value.ifBoolean()) return *boolean ? 1 : 0;
    if (const auto* const number = value.ifSigned()) return *number;
    if (value.ifUnsigned()) return kMost;
    if (const double* const number = value.ifDouble()) return nearestInteger(*number);
    if (const std::string* const text = value.ifString()) return integerIn(*text);
    return std::nullopt;
}

std::optional<double> doubleOf(const Value& value) {
    if (const bool* const boolean = value.ifBoolean()) return *boolean ? 1.0 : 0.0;
    if (const auto* const number = value.ifSigned()) return static_cast<double>(*number);
    if (const auto* const number = value.ifUnsigned()) return static_cast<double>(*number);
    if (const double* const number = value.ifDouble()) return *number;
    if (const std::string* const text = value.ifString()) return doubleIn(*text);
    return std::nullopt;
}

}  // namespace sevrin
