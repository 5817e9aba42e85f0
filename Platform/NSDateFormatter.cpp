// A pattern becomes a list of fields once; a second becomes text once per thread. Only the digits
// of the fraction are written for every date.
#include "Platform/NSDateFormatter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <stdexcept>

#include "Platform/CivilTime.h"
#include "Platform/LocalTime.h"

namespace sevrin::platform {
namespace {

// The text of one second, as the formatter with that identity prints it, its fraction zeros.
struct SecondText {
    std::uint64_t identity = 0;  // 0: none yet.
    double second = 0;           // Since the reference date, a whole number.
    std::size_t size = 0;
    std::size_t fractionOffset = 0;
    std::array<char, NSDateFormatter::kKeptSizeMax> text{};  // Longer ones are not kept.
};

constinit thread_local SecondText lastSecond;

struct LetterRule {
    char letter;
    std::size_t widthMax;
};

constexpr std::array kLetterRules = {LetterRule{'y', 9}, LetterRule{'M', 2}, LetterRule{'d', 2},
                                     LetterRule{'H', 2}, LetterRule{'m', 2}, LetterRule{'s', 2},
                                     LetterRule{'S', 9}, LetterRule{'Z', 3}};

constexpr std::array kPowersOfTen = {1.0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9};

void writeDigits(char* digits, std::size_t count, std::uint64_t value) {
    for (std::size_t index = count; index > 0; --index) {
        digits[index - 1] = static_cast<char>('0' + value % 10);
        value /= 10;
    }
}

void appendPadded(std::string& out, std::uint64_t value, std::size_t width) {
    std::array<char, 20> digits;
    writeDigits(digits.data(), digits.size(), value);
    const auto* first =
        std::find_if(digits.begin(), digits.end() - 1, [](char digit) { return digit != '0'; });
    const auto significant = static_cast<std::size_t>(digits.end() - first);
    const std::size_t shown = std::max(width, significant);
    out.append(digits.end() - shown, shown);
}

void appendYear(std::string& out, int year, std::size_t width) {
    const auto yearOfEra = static_cast<std::uint64_t>(year > 0 ? year : 1 - year);
    appendPadded(out, width == 2 ? yearOfEra % 100 : yearOfEra, width);
}

void appendZone(std::string& out, std::chrono::seconds offset) {
    const auto minutes = std::chrono::duration_cast<std::chrono::minutes>(offset).count();
    const auto distance = static_cast<std::uint64_t>(minutes < 0 ? -minutes : minutes);
    out += minutes < 0 ? '-' : '+';
    appendPadded(out, distance / 60 * 100 + distance % 60, 4);
}

// The fraction of a second as a whole number of so many digits, cut off. A fraction so close to the
// next second that arithmetic rounds it up to it stays below it all the same.
std::uint64_t digitsOfFraction(double fraction, std::size_t digits) {
    if (!(fraction > 0)) return 0;  // "Not a number" has none either.
    const double scale = kPowersOfTen[digits];
    return static_cast<std::uint64_t>(std::min(fraction * scale, scale - 1));
}

}  // namespace

NSDateFormatter::NSDateFormatter(std::string_view dateFormat) {
    static std::atomic<std::uint64_t> identities = 0;
    identity_ = identities.fetch_add(1, std::memory_order_relaxed) + 1;
    try {
        parse(dateFormat);
    } catch (const std::invalid_argument& reason) {
        throw std::invalid_argument("date format '" + std::string(dateFormat) +
                                    "': " + reason.what());
    }
}

void NSDateFormatter::parse(std::string_view dateFormat) {
    std::size_t position = 0;
    while (position < dateFormat.size()) {
        const char character = dateFormat[position];
        const bool isLetter =
            (character >= 'A' && character <= 'Z') || (character >= 'a' && character <= 'z');
        if (character == '\'') {
            position = parseQuoted(dateFormat, position);
        } else if (isLetter) {
            const std::size_t end = dateFormat.find_first_not_of(character, position);
            const std::size_t width = std::min(end, dateFormat.size()) - position;
            addField(character, width);
            position += width;
        } else {
            addLiteral(character);
            ++position;
        }
    }
}

// Takes in the quoted text that the apostrophe at `position` opens; gives the position behind it.
std::size_t NSDateFormatter::parseQuoted(std::string_view dateFormat, std::size_t position) {
    const auto isApostrophe = [&](std::size_t index) {
        return index < dateFormat.size() && dateFormat[index] == '\'';
    };
    if (isApostrophe(position + 1)) {
        addLiteral('\'');
        return position + 2;
    }
    for (++position; position < dateFormat.size(); ++position) {
        if (isApostrophe(position)) {
            if (!isApostrophe(position + 1)) return position + 1;
            ++position;
        }
        addLiteral(dateFormat[position]);
    }
    throw std::invalid_argument("an apostrophe is not closed");
}

void NSDateFormatter::addField(char letter, std::size_t width) {
    const auto* rule = std::find_if(kLetterRules.begin(), kLetterRules.end(),
                                    [&](const LetterRule& it) { return it.letter == letter; });
    if (rule == kLetterRules.end() || width > rule->widthMax) {
        throw std::invalid_argument("no field '" + std::string(width, letter) + "'");
    }
    const auto fieldWidth = static_cast<std::uint8_t>(width);
    if (letter == 'S') {
        if (fractionDigits_ > 0) throw std::invalid_argument("more than one fraction");
        fractionDigits_ = fieldWidth;
    }
    tokens_.push_back({.letter = letter, .width = fieldWidth});
}

void NSDateFormatter::addLiteral(char character) {
    if (tokens_.empty() || tokens_.back().letter != '\0') tokens_.emplace_back();
    tokens_.back().literal += character;
}

std::string NSDateFormatter::stringFromDate(NSDate date) const {
    std::string out;
    appendStringFromDate(out, date);
    return out;
}

// "Not a number" lies in no second that is kept. All of the room is copied, which is quicker than
// to copy some of it.
std::size_t NSDateFormatter::writeStringOfKeptSecond(std::span<char, kKeptSizeMax> out,
                                                     NSDate date) const noexcept {
    const SecondText& last = lastSecond;
    const double fraction = date.timeIntervalSinceReferenceDate() - last.second;
    if (last.identity != identity_ || !(fraction >= 0 && fraction < 1)) return 0;
    std::memcpy(out.data(), last.text.data(), kKeptSizeMax);
    writeDigits(out.data() + last.fractionOffset, fractionDigits_,
                digitsOfFraction(fraction, fractionDigits_));
    return last.size;
}

void NSDateFormatter::appendStringFromDate(std::string& out, NSDate date) const {
    std::array<char, kKeptSizeMax> kept;
    if (const std::size_t size = writeStringOfKeptSecond(kept, date)) {
        out.append(kept.data(), size);
        return;
    }
    const std::size_t start = out.size();
    const std::size_t fractionOffset = appendSecond(out, wholeSecond(date));
    const double second = std::floor(date.timeIntervalSinceReferenceDate());

    SecondText& last = lastSecond;
    last.identity = 0;
    last.size = out.size() - start;
    if (last.size <= last.text.size()) {
        out.copy(last.text.data(), last.size, start);
        last.fractionOffset = fractionOffset;
        last.second = second;
        last.identity = identity_;
    }
    writeDigits(out.data() + start + fractionOffset, fractionDigits_,
                digitsOfFraction(date.timeIntervalSinceReferenceDate() - second, fractionDigits_));
}

// Appends the text of `second` with zeros for its fraction; gives how far into the text these are.
std::size_t NSDateFormatter::appendSecond(std::string& out, std::chrono::sys_seconds second) const {
    followTimeZone();
    const std::chrono::seconds offset = utcOffset(second);
    const CivilTime time =
        civilTime(std::chrono::local_seconds(second.time_since_epoch() + offset));
    const std::size_t start = out.size();
    std::size_t fractionOffset = 0;

    for (const Token& token : tokens_) {
        switch (token.letter) {
            case 'y':
                appendYear(out, time.year, token.width);
                break;
            case 'M':
                appendPadded(out, time.month, token.width);
                break;
            case 'd':
                appendPadded(out, time.day, token.width);
                break;
            case 'H':
                appendPadded(out, time.hour, token.width);
                break;
            case 'm':
                appendPadded(out, time.minute, token.width);
                break;
            case 's':
                appendPadded(out, time.second, token.width);
                break;
            case 'Z':
                appendZone(out, offset);
                break;
            case 'S':
                fractionOffset = out.size() - start;
                out.append(token.width, '0');
                break;
            default:
                out += token.literal;
        }
    }
    return fractionOffset;
}

}  // namespace sevrin::platform
