// The records of a log file: taking the bytes apart.
#include "tools/LogRecord.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

#include "Platform/Text.h"

namespace sevrin {

namespace {

// "2026-11-16 07:12:03.481 +0100 ": a digit where there is a 0.
constexpr std::string_view kDateForm = "0000-00-00 00:00:00.000 +0000 ";
constexpr std::size_t kDateBytes = kDateForm.size() - 1;
constexpr std::size_t kWordColumn = kDateForm.size();
constexpr std::size_t kWordBytes = kLogMessageColumn - kWordColumn - 1;

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool beginsRecord(std::string_view line) {
    if (line.size() < kLogMessageColumn || line[kLogMessageColumn - 1] != ' ') return false;
    for (std::size_t i = 0; i < kDateForm.size(); ++i) {
        const char form = kDateForm[i];
        const bool fits = form == '0'   ? isDigit(line[i])
                          : form == '+' ? line[i] == '+' || line[i] == '-'
                                        : line[i] == form;
        if (!fits) return false;
    }
    return true;
}

// Where " [8.1.2.3]" begins at the end of a record; npos when it does not end so.
std::size_t identifierPlace(std::string_view text) {
    if (text.empty() || text.back() != ']') return std::string_view::npos;
    const std::size_t place = text.rfind(" [");
    if (place == std::string_view::npos || place < kLogMessageColumn) return std::string_view::npos;
    const auto inner = text.substr(place + 2, text.size() - place - 3);
    return logIdentifierFromText(inner) ? place : std::string_view::npos;
}

int number(std::string_view text, std::size_t place, std::size_t digits) {
    int value = 0;
    for (const char digit : text.substr(place, digits))
        value = value * 10 + (digit - '0');
    return value;
}

LogMoment momentOf(std::string_view date) {
    using namespace std::chrono;
    const auto day = sys_days(year(number(date, 0, 4)) / month(unsigned(number(date, 5, 2))) /
                              std::chrono::day(unsigned(number(date, 8, 2))));
    const auto offset = hours(number(date, 25, 2)) + minutes(number(date, 27, 2));
    const auto local = day.time_since_epoch() + hours(number(date, 11, 2)) +
                       minutes(number(date, 14, 2)) + seconds(number(date, 17, 2)) +
                       milliseconds(number(date, 20, 3));
    return milliseconds(local - (date[24] == '-' ? -offset : offset)).count();
}

std::string rfc3339Of(std::string_view date) {
    std::string text;
    text.append(date.substr(0, 10)).append("T").append(date.substr(11, 12));
    return text.append(date.substr(24, 3)).append(":").append(date.substr(27, 2));
}

// The UTF-16 unit behind a backslash at `place`; nothing when there is none.
std::optional<std::uint16_t> unitAt(std::string_view text, std::size_t place) {
    if (text.substr(place, 2) != "\\u" || text.size() - place < 6) return std::nullopt;
    const char* const digits = text.data() + place + 2;
    std::uint16_t unit = 0;
    const auto [end, error] = std::from_chars(digits, digits + 4, unit, 16);
    if (error != std::errc() || end != digits + 4) return std::nullopt;
    return unit;
}

// Appends the character that the escape at `place` stands for, and gives the place behind it.
std::size_t appendUnits(std::string& out, std::string_view text, std::size_t place,
                        std::uint16_t unit) {
    constexpr char32_t kReplacement = 0xFFFD;
    const bool isHigh = (unit & 0xFC00) == 0xD800;
    const auto low = isHigh ? unitAt(text, place + 6) : std::nullopt;
    if (low && (*low & 0xFC00) == 0xDC00) {
        platform::appendUtf8(out, 0x10000 + ((char32_t{unit} & 0x3FF) << 10) + (*low & 0x3FF));
        return place + 12;
    }
    platform::appendUtf8(out, (unit & 0xF800) == 0xD800 ? kReplacement : unit);
    return place + 6;
}

bool isOctalAt(std::string_view text, std::size_t place) {
    const std::string_view digits = text.substr(place, 3);
    return digits.size() == 3 && digits[0] <= '3' &&
           std::ranges::all_of(digits, [](char byte) { return byte >= '0' && byte <= '7'; });
}

// The message that the file's ASCII stands for. What is no escape is left as it is.
std::string unescaped(std::string_view text) {
    std::string out;
    for (std::size_t place = 0; place < text.size();) {
        const auto unit = unitAt(text, place);
        if (unit) {
            place = appendUnits(out, text, place, *unit);
        } else if (text[place] == '\\' && isOctalAt(text, place + 1)) {
            out += static_cast<char>(number(text, place + 1, 1) * 64 +
                                     number(text, place + 2, 1) * 8 + number(text, place + 3, 1));
            place += 4;
        } else {
            out += text[place];
            place += text.substr(place, 2) == "\\\\" ? 2 : 1;
        }
    }
    return out;
}

}  // namespace

std::string LogRecord::identifierText() const {
    std::string out;
    for (const std::uint64_t part : identifier)
        out.append(out.empty() ? "" : ".").append(std::to_string(part));
    return out;
}

std::optional<std::vector<std::uint64_t>> logIdentifierFromText(std::string_view text) {
    std::vector<std::uint64_t> numbers;
    const char* place = text.data();
    const char* const end = place + text.size();
    for (;;) {
        std::uint64_t value = 0;
        const auto [next, error] = std::from_chars(place, end, value);
        if (error != std::errc()) return std::nullopt;
        numbers.push_back(value);
        if (next == end) return numbers;
        if (*next != '.') return std::nullopt;
        place = next + 1;
    }
}

LogRecord logRecordFromText(std::string text) {
    LogRecord record;
    record.text = std::move(text);
    const std::string_view all = record.text;
    if (!beginsRecord(all)) return record;
    record.time = momentOf(all);
    record.date = rfc3339Of(all.substr(0, kDateBytes));
    record.classification = classificationFromName(all.substr(kWordColumn, kWordBytes));
    const std::size_t place = identifierPlace(all);
    if (place != std::string_view::npos) {
        record.identifier = *logIdentifierFromText(all.substr(place + 2, all.size() - place - 3));
    }
    record.message =
        unescaped(all.substr(0, place).substr(std::min(kLogMessageColumn, all.size())));
    return record;
}

void LogRecordParser::add(std::string_view bytes, const Take& take) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        line_.append(bytes.substr(0, end));
        if (end == std::string_view::npos) {
            if (line_.size() > kRecordBytesMax) addLine(std::exchange(line_, {}), take);
            return;
        }
        addLine(std::exchange(line_, {}), take);
        bytes.remove_prefix(end + 1);
    }
}

void LogRecordParser::addLine(std::string_view line, const Take& take) {
    const bool goesOn = record_ && !beginsRecord(line) && record_->size() < kRecordBytesMax;
    if (goesOn) {
        record_->append("\n").append(line);
        return;
    }
    if (record_) take(logRecordFromText(*std::exchange(record_, std::nullopt)));
    record_ = line;
}

void LogRecordParser::settle(const Take& take) {
    if (!record_ || identifierPlace(*record_) == std::string::npos) return;
    take(logRecordFromText(*std::exchange(record_, std::nullopt)));
}

void LogRecordParser::finish(const Take& take) {
    if (!line_.empty()) addLine(std::exchange(line_, {}), take);
    if (record_) take(logRecordFromText(*std::exchange(record_, std::nullopt)));
}

}  // namespace sevrin
