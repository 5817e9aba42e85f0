// Dates as text in local time, after a pattern of Unicode date letters.
//
// Immutable once made, so any number of threads may use one formatter. Made for log lines: each
// thread keeps the text of the second that it formatted last, and a further date within that second
// costs a copy and the digits of its fraction. The time zone is looked up for every new second.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/NSDate.h"

namespace sevrin::platform {

// The letters a pattern may use, each a field when repeated as often as said:
//
//     y 1 to 9    year of the era, at least so many digits; yy: its last two
//     M d H m s   1 or 2: month, day, hour (0 to 23), minute, second; two: with a leading zero
//     S 1 to 9    fraction of the second in so many digits, cut off and never rounded
//     Z 1 to 3    offset from UTC: +0100
//
// Text between apostrophes stands for itself, and two apostrophes, quoted or not, for one. What is
// no ASCII letter stands for itself too. All other letters, which would name months and days in
// somebody's language or count in other ways, are refused, so that no pattern is half understood;
// so is a second fraction.
class NSDateFormatter {
public:
    // Raises std::invalid_argument, which names the pattern, when `dateFormat` is not as above.
    explicit NSDateFormatter(std::string_view dateFormat);

    NSDateFormatter(const NSDateFormatter&) = default;
    NSDateFormatter& operator=(const NSDateFormatter&) = default;

    // The text of `date`. A date beyond the years of NSCalendar is the nearest end of them.
    std::string stringFromDate(NSDate date) const;

    // The same, appended to `out`: allocates nothing but what `out` needs to grow.
    void appendStringFromDate(std::string& out, NSDate date) const;

    // Writes the same to the beginning of `out`, beyond which the bytes are then any, and gives its
    // length; 0 when this thread has formatted another second since, or the text has no room.
    static constexpr std::size_t kKeptSizeMax = 64;
    std::size_t writeStringOfKeptSecond(std::span<char, kKeptSizeMax> out,
                                        NSDate date) const noexcept;

private:
    // One field of the pattern, or the text between two.
    struct Token {
        char letter = '\0';      // The letter of a field; NUL for a literal.
        std::uint8_t width = 0;  // How often the letter is repeated.
        std::string literal = {};
    };

    void parse(std::string_view dateFormat);
    std::size_t parseQuoted(std::string_view dateFormat, std::size_t position);
    void addField(char letter, std::size_t width);
    void addLiteral(char character);
    std::size_t appendSecond(std::string& out, std::chrono::sys_seconds second) const;

    std::vector<Token> tokens_;
    std::uint8_t fractionDigits_ = 0;  // 0: the pattern shows no fraction.
    std::uint64_t identity_;           // The same in copies, which print the same.
};

}  // namespace sevrin::platform
