// Which records of a log somebody wants to see. Plain data and pure functions.
#pragma once

#include <bitset>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/LogRecord.h"

namespace sevrin {

struct LogFilter {
    std::optional<LogMoment> since = std::nullopt;
    std::optional<LogMoment> until = std::nullopt;
    std::optional<std::vector<std::uint64_t>> line = std::nullopt;  // this line and those below it
    std::optional<std::uint64_t> program = std::nullopt;
    std::optional<std::uint64_t> process = std::nullopt;
    std::bitset<kLogClassificationCount> classifications = 0;  // none: all
    std::string words = "";                                    // within the message

    // Text that is no record is wanted only when everything is.
    [[nodiscard]] bool wants(const LogRecord& record) const;
};

// The moment that `text` says, `now` being the present: a span of time such as 10m, which is that
// long ago, or a date such as "2026-11-16 07:12:03.481 +0100", of which everything behind the day
// may be missing; local time without an offset; with T and a zone as in RFC 3339. Nothing when it
// is anything else.
[[nodiscard]] std::optional<LogMoment> logMomentFromText(std::string_view text, LogMoment now);

// The classifications that `text` lists, by commas: numbers from 0 to 9, or the words of the log
// without regard to case, of which 0 and 1 have none that can be typed. Nothing when it is anything
// else.
[[nodiscard]] std::optional<std::bitset<kLogClassificationCount>> logClassificationsFromText(
    std::string_view text);

}  // namespace sevrin
