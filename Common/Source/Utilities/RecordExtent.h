// Keeps records of several lines finite: a value from an archive made to do harm may unfold into
// more lines than any disk holds.
//
// Per thread. A record begins with the outermost RecordExtent and ends with it.
#pragma once

#include <cstddef>

namespace sevrin {

// A record is cut short behind so many lines or bytes, and below so many levels.
inline constexpr std::size_t kRecordLinesMax = 10'000;
inline constexpr std::size_t kRecordBytesMax = 16 * 1024 * 1024;
inline constexpr int kRecordLevelsMax = 64;

class RecordExtent {
public:
    // One level, for as long as it lives.
    RecordExtent() noexcept;
    RecordExtent(const RecordExtent&) = delete;
    RecordExtent& operator=(const RecordExtent&) = delete;
    ~RecordExtent();

    // Takes note of a line of so many bytes.
    static void noteLine(std::size_t bytes) noexcept;

    // Whether nothing more is to be written into this record, or into this level of it.
    [[nodiscard]] static bool isFull() noexcept;
    [[nodiscard]] static bool isTooDeep() noexcept;
};

}  // namespace sevrin
