// The records of a log file, as programs of the suite write them: taking the bytes apart.
//
//     2026-11-16 07:12:03.481 +0100 #debug# started Switchboard-2.2.5.12 [8.73957130.412.1]
//
// A record begins at the start of a line and goes on to the next line that begins one, for messages
// may have line breaks. Whatever stands in a file, nothing of it is dropped: text that is no record
// is handed out as such.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/LogClassification.h"

namespace sevrin {

// A moment in milliseconds since 1970, UTC.
using LogMoment = std::int64_t;

struct LogRecord {
    std::string text;  // all of it as it stands in the file, without the last line end

    // Nothing for text that does not begin as a record does; then nothing below counts.
    std::optional<LogMoment> time;

    std::string date;  // RFC 3339, with the offset from UTC of whoever wrote it
    LogClassification classification = LogClassification::Preferred;  // that when it has no word
    std::string message;                    // with the escapes of the file undone
    std::vector<std::uint64_t> identifier;  // program, start, process, lines; empty when cut off

    // The identifier with its points.
    [[nodiscard]] std::string identifierText() const;
};

// Where the message begins in the text of a record.
inline constexpr std::size_t kLogMessageColumn = 38;

[[nodiscard]] LogRecord logRecordFromText(std::string text);

// The numbers of an identifier such as 8.73957130.412.1; nothing when it is none.
[[nodiscard]] std::optional<std::vector<std::uint64_t>> logIdentifierFromText(
    std::string_view text);

class LogRecordParser {
public:
    using Take = std::function<void(LogRecord)>;

    // A record longer than this is handed out in pieces: a file without line ends is no log.
    static constexpr std::size_t kRecordBytesMax = std::size_t{16} << 20;

    // Takes the next bytes of the file and hands out every record that another one follows.
    void add(std::string_view bytes, const Take& take);

    // No more bytes are there at the moment: hands out what is whole.
    void settle(const Take& take);

    // The file ends here: hands out what is left.
    void finish(const Take& take);

private:
    void addLine(std::string_view line, const Take& take);

    std::string line_;                   // without its end so far
    std::optional<std::string> record_;  // the lines of a record that may go on
};

}  // namespace sevrin
