// Which records of a log somebody wants to see.
#include "tools/LogFilter.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <ctime>
#include <span>

#include "tools/Duration.h"

namespace sevrin {

namespace {

// Reads a date from front to back.
class DateScanner {
public:
    explicit DateScanner(std::string_view text) : rest_(text) {}

    [[nodiscard]] bool isAtEnd() const { return rest_.empty(); }

    bool skip(std::string_view anyOf) {
        if (rest_.empty() || anyOf.find(rest_.front()) == std::string_view::npos) return false;
        rest_.remove_prefix(1);
        return true;
    }

    // Exactly `digits` digits.
    bool number(std::size_t digits, int& value) {
        if (rest_.size() < digits) return false;
        value = 0;
        for (const char digit : rest_.substr(0, digits)) {
            if (digit < '0' || digit > '9') return false;
            value = value * 10 + (digit - '0');
        }
        rest_.remove_prefix(digits);
        return true;
    }

    // Z, +HHMM or +HH:MM, after a blank or at once: minutes east of UTC.
    bool offset(int& minutes) {
        minutes = 0;
        skip(" ");
        if (skip("Zz")) return true;
        const bool isWest = !rest_.empty() && rest_.front() == '-';
        int hours = 0;
        int rest = 0;
        if (!skip("+-") || !number(2, hours)) return false;
        skip(":");
        if (!number(2, rest)) return false;
        minutes = (isWest ? -1 : 1) * (hours * 60 + rest);
        return true;
    }

private:
    std::string_view rest_;
};

// The clock's part of a date, as far as it is there.
bool scanClock(DateScanner& scanner, std::tm& local, int& milliseconds) {
    if (scanner.isAtEnd()) return true;
    if (!scanner.skip(" Tt") || !scanner.number(2, local.tm_hour) || !scanner.skip(":") ||
        !scanner.number(2, local.tm_min)) {
        return false;
    }
    if (scanner.skip(":") && !scanner.number(2, local.tm_sec)) return false;
    return !scanner.skip(".") || scanner.number(3, milliseconds);
}

bool isOnClockAndCalendar(const std::tm& local) {
    const auto day = std::chrono::year(local.tm_year + 1900) /
                     std::chrono::month(static_cast<unsigned>(local.tm_mon + 1)) /
                     std::chrono::day(static_cast<unsigned>(local.tm_mday));
    return day.ok() && local.tm_hour < 24 && local.tm_min < 60 && local.tm_sec <= 60;
}

std::optional<LogMoment> dateFromText(std::string_view text) {
    DateScanner scanner(text);
    std::tm local{};
    int milliseconds = 0;
    if (!scanner.number(4, local.tm_year) || !scanner.skip("-") ||
        !scanner.number(2, local.tm_mon) || !scanner.skip("-") || !scanner.number(2, local.tm_mday))
        return std::nullopt;
    local.tm_year -= 1900;
    local.tm_mon -= 1;
    local.tm_isdst = -1;  // As it was then.
    if (!scanClock(scanner, local, milliseconds) || !isOnClockAndCalendar(local))
        return std::nullopt;
    if (scanner.isAtEnd()) return LogMoment{std::mktime(&local)} * 1000 + milliseconds;
    int offset = 0;
    if (!scanner.offset(offset) || !scanner.isAtEnd()) return std::nullopt;
    return (LogMoment{::timegm(&local)} - offset * 60) * 1000 + milliseconds;
}

std::string lowered(std::string_view text) {
    std::string out(text);
    std::ranges::transform(out, out.begin(), [](unsigned char c) { return std::tolower(c); });
    return out;
}

// The number of a classification, or its word; nothing when it is neither.
std::optional<std::size_t> classificationFromText(std::string_view text) {
    if (text.size() == 1 && text.front() >= '0' && text.front() <= '9')
        return static_cast<std::size_t>(text.front() - '0');
    for (std::size_t i = 2; i < kLogClassificationCount; ++i) {
        const auto word = lowered(nameOfClassification(static_cast<LogClassification>(i)));
        if (word == lowered(text) || word == "#" + lowered(text) + "#") return i;
    }
    return std::nullopt;
}

bool isBelowOrSame(std::span<const std::uint64_t> identifier, std::span<const std::uint64_t> line) {
    return identifier.size() >= line.size() &&
           std::ranges::equal(identifier.first(line.size()), line);
}

bool hasPart(const LogRecord& record, std::size_t place, std::optional<std::uint64_t> wanted) {
    if (!wanted) return true;
    return record.identifier.size() > place && record.identifier[place] == *wanted;
}

}  // namespace

bool LogFilter::wants(const LogRecord& record) const {
    if (!record.time) {
        return !since && !until && !line && !program && !process && classifications.none() &&
               words.empty();
    }
    if (since && *record.time < *since) return false;
    if (until && *record.time > *until) return false;
    if (line && !isBelowOrSame(record.identifier, *line)) return false;
    if (!hasPart(record, 0, program) || !hasPart(record, 2, process)) return false;
    if (classifications.any()) {
        const auto number = static_cast<std::int32_t>(record.classification);
        if (number < 0 || !classifications[static_cast<std::size_t>(number)]) return false;
    }
    return record.message.find(words) != std::string::npos;
}

std::optional<LogMoment> logMomentFromText(std::string_view text, LogMoment now) {
    using std::chrono::milliseconds;
    if (const auto span = durationFromText(text))
        return now - std::chrono::duration_cast<milliseconds>(*span).count();
    return dateFromText(text);
}

std::optional<std::bitset<kLogClassificationCount>> logClassificationsFromText(
    std::string_view text) {
    std::bitset<kLogClassificationCount> found;
    for (;;) {
        const std::size_t end = text.find(',');
        const auto number = classificationFromText(text.substr(0, end));
        if (!number) return std::nullopt;
        found.set(*number);
        if (end == std::string_view::npos) return found;
        text.remove_prefix(end + 1);
    }
}

}  // namespace sevrin
