// Preference values to words and back.
#include "tools/PreferenceText.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "tools/Json.h"

namespace sevrin {

using platform::Data;
using platform::NSDate;
using platform::Value;

namespace {

[[noreturn]] void refuse(const std::string& text, const std::string& what) {
    throw std::invalid_argument(fmt::format("\"{}\" is no {}", text, what));
}

// The number that is all of the text; nothing else.
template <typename Number>
std::optional<Number> numberIn(const std::string& text) {
    Number number{};
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || last != end) return std::nullopt;
    return number;
}

Value booleanIn(const std::string& text) {
    for (const char* yes : {"true", "yes", "1"})
        if (text == yes) return true;
    for (const char* no : {"false", "no", "0"})
        if (text == no) return false;
    refuse(text, "boolean: say true or false");
}

Value integerIn(const std::string& text) {
    if (const auto number = numberIn<std::int64_t>(text)) return *number;
    if (const auto number = numberIn<std::uint64_t>(text)) return *number;
    refuse(text, "integer of 64 bits");
}

Value realIn(const std::string& text) {
    const auto number = numberIn<double>(text);
    if (!number || !std::isfinite(*number)) refuse(text, "real number");
    return *number;
}

// "+01:00" in seconds, "Z" as 0.
std::optional<int> offsetIn(const std::string& text) {
    if (text == "Z" || text == "z") return 0;
    char sign = 0;
    int hours = 0;
    int minutes = 0;
    int size = 0;
    const bool isRead =
        std::sscanf(text.c_str(), "%c%2d:%2d%n", &sign, &hours, &minutes, &size) == 3;
    if (!isRead || size != 6 || text.size() != 6 || hours > 23 || minutes > 59) return std::nullopt;
    if (sign != '+' && sign != '-') return std::nullopt;
    return (sign == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
}

Value dateIn(const std::string& text) {
    constexpr const char* kWhat = "date such as 2026-11-21T10:52:00+01:00";
    constexpr std::size_t kSecondsEnd = 19;
    std::tm civil{};
    int size = 0;
    const bool isRead =
        std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &civil.tm_year, &civil.tm_mon,
                    &civil.tm_mday, &civil.tm_hour, &civil.tm_min, &civil.tm_sec, &size) == 6;
    if (!isRead || size != kSecondsEnd) refuse(text, kWhat);
    std::size_t zone = kSecondsEnd;
    double fraction = 0;
    if (text[zone] == '.') {
        zone = std::min(text.find_first_not_of("0123456789", zone + 1), text.size());
        const auto number = numberIn<double>("0" + text.substr(kSecondsEnd, zone - kSecondsEnd));
        if (!number || zone == kSecondsEnd + 1) refuse(text, kWhat);
        fraction = *number;
    }
    const std::optional<int> offset = offsetIn(text.substr(zone));
    if (!offset) refuse(text, kWhat);

    civil.tm_year -= 1900;
    civil.tm_mon -= 1;
    const std::tm given = civil;
    const std::time_t seconds = ::timegm(&civil);
    // A day or an hour that there is not would have become another one.
    if (given.tm_mday != civil.tm_mday || given.tm_mon != civil.tm_mon ||
        given.tm_hour != civil.tm_hour || given.tm_min != civil.tm_min ||
        given.tm_sec != civil.tm_sec)
        refuse(text, kWhat);
    constexpr double kReferenceDate = 978'307'200;  // 2001 began, in seconds since 1970
    return NSDate::dateWithTimeIntervalSinceReferenceDate(static_cast<double>(seconds) - *offset -
                                                          kReferenceDate + fraction);
}

Value dataIn(const std::string& text) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char digit : text.substr(0, text.find('='))) {
        const std::size_t value = kDigits.find(digit);
        if (value == kDigits.npos) refuse(text, "base64");
        bits = bits << 6U | static_cast<std::uint32_t>(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> static_cast<unsigned>(count) & 0xFFU);
    }
    // Only what is exactly these bytes in base64 is taken for it.
    if (base64(bytes) != text) refuse(text, "base64");
    return Data{bytes};
}

Value jsonValueIn(const std::string& text) {
    const Json json = Json::parse(text, nullptr, false);
    if (json.is_discarded()) refuse(text, "JSON");
    return valueOf(json);
}

struct Type {
    const char* name;
    Value (*read)(const std::string& text);
};

constexpr std::array kTypes = {
    Type{"string", [](const std::string& text) { return Value(text); }},
    Type{"boolean", booleanIn},
    Type{"integer", integerIn},
    Type{"real", realIn},
    Type{"date", dateIn},
    Type{"data", dataIn},
    Type{"json", jsonValueIn},
};

}  // namespace

const std::vector<std::string>& preferenceTypes() {
    static const std::vector<std::string> theTypes = [] {
        std::vector<std::string> names;
        for (const Type& type : kTypes)
            names.emplace_back(type.name);
        return names;
    }();
    return theTypes;
}

Value preferenceValue(const std::string& type, const std::string& text) {
    for (const Type& each : kTypes)
        if (type == each.name) return each.read(text);
    refuse(type, "kind of value");
}

std::string preferenceType(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Boolean:
            return "boolean";
        case Value::Kind::Signed:
        case Value::Kind::Unsigned:
            return "integer";
        case Value::Kind::Double:
            return "real";
        case Value::Kind::Data:
            return "data";
        case Value::Kind::Date:
            return "date";
        case Value::Kind::Array:
            return "array";
        case Value::Kind::Dictionary:
            return "dictionary";
        default:
            return "string";
    }
}

std::string preferenceText(const Value& value) {
    if (const std::string* const text = value.ifString()) return *text;
    if (value.ifUnsigned()) return value.description();
    if (value.ifSigned()) return std::to_string(*value.ifSigned());
    const Json json = jsonOf(value);
    return json.is_string() ? json.get<std::string>() : lineOf(json);
}

}  // namespace sevrin
