// UTF-16, the most significant byte first, as binary property lists hold text: checking and
// converting.
//
// Bytes come in pairs; half a surrogate pair is not well-formed. On any thread.
#pragma once

#include <string>
#include <string_view>

namespace sevrin::platform {

// Whether `bytes` are well-formed: an even number, and no surrogate without its other half.
[[nodiscard]] bool isValidUtf16BigEndian(std::string_view bytes) noexcept;

// Well-formed UTF-16 as UTF-8.
[[nodiscard]] std::string utf8FromUtf16BigEndian(std::string_view bytes);

// Appends well-formed UTF-8 to `out` as UTF-16.
void appendUtf16BigEndian(std::string& out, std::string_view text);

}  // namespace sevrin::platform
