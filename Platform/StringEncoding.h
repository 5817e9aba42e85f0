// Text from bytes, by the platform's numbers of string encodings.
//
// The tables are our own, so that the same bytes give the same text on every system, whatever it
// has installed and whichever locale is set. Any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sevrin::platform {

// The encodings known here; the values are the platform's, stored and passed on as numbers.
enum class StringEncoding : std::uint64_t {
    Ascii = 1,  // 7 bits
    Utf8 = 4,
    IsoLatin1 = 5,
    Utf16 = 10,  // in the order of its byte order mark, big-endian without one
    WindowsCP1252 = 12,
    MacOSRoman = 30,
    Utf16BigEndian = 0x9000'0100,
    Utf16LittleEndian = 0x9400'0100,
};

// The text that `bytes` are in the encoding with that number, in UTF-8. Nothing when any of them
// are no text in it (a byte without a character, half a character, a lone surrogate) or when the
// number is none of those above. A byte order mark is taken off where it has just said the order;
// anywhere else it is a character like others.
[[nodiscard]] std::optional<std::string> textFromBytes(std::string_view bytes,
                                                       std::uint64_t encoding);

}  // namespace sevrin::platform
