// UTF-8 text: decoding, checking, escaping, and the character sets that lines are cleaned with.
//
// Text is std::string in UTF-8, but names of files and words of peers are any bytes. Nothing here
// assumes validity, depends on a locale or throws anything but std::bad_alloc. On any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sevrin::platform {

// What decodeUtf8 gives for a byte that is part of no character; no code point has this value.
inline constexpr char32_t kInvalidUtf8 = 0xFFFF'FFFF;

// The character at `position`, a byte offset less than the size of `text`, and `position` moved
// past it. A byte that begins no well-formed character (overlong forms, surrogates and values
// beyond U+10FFFF are not well-formed) gives kInvalidUtf8 and moves `position` by that one byte.
char32_t decodeUtf8(std::string_view text, std::size_t& position) noexcept;

// Appends a code point up to U+10FFFF that is no surrogate to `out`.
void appendUtf8(std::string& out, char32_t character);

// Whether `text` is well-formed UTF-8. Empty text is.
bool isValidUtf8(std::string_view text) noexcept;

// `text` with each byte that is part of no character written as \xNN, two lowercase hexadecimal
// digits; everything else unchanged, so the result is valid. For showing bytes, not for reading
// them back: text that already spells \xNN is left alone too.
std::string escapeInvalidUtf8(std::string_view text);

// `text` in 7-bit ASCII without loss, as log files want it. A backslash is doubled. A character
// outside ASCII becomes \u and four lowercase hexadecimal digits for each of its UTF-16 units. A
// byte that is part of no character becomes a backslash and three octal digits, which no other
// escape begins with. NUL becomes \u0000, for it would cut a C string short. The other control
// characters stay as they are: what may stand in a line is for its writer to say.
std::string nonLossyAscii(std::string_view text);

// The same, appended to `out`: text that needs no escape costs a scan and one copy. `text` may not
// lie within `out`.
void appendNonLossyAscii(std::string& out, std::string_view text);

// Whether nonLossyAscii leaves `text` as it is: ASCII without backslash and NUL.
bool isNonLossyAscii(std::string_view text) noexcept;

// Whether `character` is a tab or a space of any width (Unicode's category Zs): what separates
// words within a line.
bool isWhitespace(char32_t character) noexcept;

// Whether `character` ends a line: line feed, vertical tab, form feed, carriage return, next line,
// line separator, paragraph separator.
bool isNewline(char32_t character) noexcept;

// Whether `character` is a control or format character (Unicode's categories Cc and Cf), or
// illegal: a surrogate, a noncharacter or no code point at all, such as kInvalidUtf8. Code points
// that are not assigned yet count as legal, so that a newer Unicode's characters pass.
bool isControlOrIllegal(char32_t character) noexcept;

}  // namespace sevrin::platform
