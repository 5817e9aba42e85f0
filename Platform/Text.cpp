// UTF-8 and escapes in portable C++. The scans read many bytes at a time, because nearly all text
// is plain ASCII and every line of a log passes through here.
#include "Platform/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace sevrin::platform {
namespace {

using Word = std::uint64_t;

constexpr Word kOnes = 0x0101'0101'0101'0101;
constexpr Word kHighBits = 0x8080'8080'8080'8080;

Word loadWord(const char* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

// Not zero exactly when one of the word's bytes is zero; which one cannot be told from it.
constexpr Word zeroBytes(Word word) {
    return (word - kOnes) & ~word & kHighBits;
}

constexpr bool isContinuation(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// The first position from `position` on whose byte is not ASCII, or the size.
std::size_t skipAscii(std::string_view text, std::size_t position) {
    while (text.size() - position >= sizeof(Word) &&
           (loadWord(text.data() + position) & kHighBits) == 0) {
        position += sizeof(Word);
    }
    while (position < text.size() && static_cast<unsigned char>(text[position]) < 0x80)
        ++position;
    return position;
}

constexpr bool needsEscape(unsigned char byte) {
    return byte >= 0x80 || byte == '\\' || byte == '\0';
}

// Sixteen bytes, each a number of its own, for which compilers have a register everywhere.
using Bytes [[gnu::vector_size(16)]] = signed char;

Bytes loadBytes(const char* bytes) {
    Bytes loaded;
    std::memcpy(&loaded, bytes, sizeof loaded);
    return loaded;
}

bool isAnySet(Bytes bytes) {
    Word halves[2];
    std::memcpy(halves, &bytes, sizeof halves);
    return (halves[0] | halves[1]) != 0;
}

// Whether `size` bytes, of which there are at least as many as fit into Bytes, are copied as they
// are. Bytes beyond ASCII are negative, so they and NUL are what is not positive. The last look
// overlaps the one before.
bool isUnescapedBlock(const char* bytes, std::size_t size) {
    Bytes positive = loadBytes(bytes + size - sizeof(Bytes)) > 0;
    Bytes backslash = loadBytes(bytes + size - sizeof(Bytes)) == '\\';
    for (std::size_t position = 0; position + sizeof(Bytes) < size; position += sizeof(Bytes)) {
        const Bytes loaded = loadBytes(bytes + position);
        positive &= loaded > 0;
        backslash |= loaded == '\\';
    }
    return !isAnySet(~positive | backslash);
}

// The first position from `position` on whose byte nonLossyAscii does not copy, or the size.
std::size_t skipUnescaped(std::string_view text, std::size_t position) {
    for (; text.size() - position >= sizeof(Word); position += sizeof(Word)) {
        const Word word = loadWord(text.data() + position);
        const Word backslashes = zeroBytes(word ^ (kOnes * '\\'));
        if (((word & kHighBits) | zeroBytes(word) | backslashes) != 0) break;
    }
    while (position < text.size() && !needsEscape(static_cast<unsigned char>(text[position]))) {
        ++position;
    }
    return position;
}

constexpr char kHexDigits[] = "0123456789abcdef";

void appendUtf16Escape(std::string& out, char32_t unit) {
    const char escape[] = {'\\',
                           'u',
                           kHexDigits[unit >> 12 & 15],
                           kHexDigits[unit >> 8 & 15],
                           kHexDigits[unit >> 4 & 15],
                           kHexDigits[unit & 15]};
    out.append(escape, sizeof escape);
}

void appendCharacterEscape(std::string& out, char32_t character) {
    if (character < 0x10000) {
        appendUtf16Escape(out, character);
        return;
    }
    const char32_t offset = character - 0x10000;
    appendUtf16Escape(out, 0xD800 + (offset >> 10));
    appendUtf16Escape(out, 0xDC00 + (offset & 0x3FF));
}

void appendOctalEscape(std::string& out, unsigned char byte) {
    const char escape[] = {'\\', kHexDigits[byte >> 6], kHexDigits[byte >> 3 & 7],
                           kHexDigits[byte & 7]};
    out.append(escape, sizeof escape);
}

struct Range {
    char32_t first;
    char32_t last;
};

// Unicode's category Cf (format characters), in order.
constexpr std::array kFormatCharacters = {
    Range{0x00AD, 0x00AD},   Range{0x0600, 0x0605},   Range{0x061C, 0x061C},
    Range{0x06DD, 0x06DD},   Range{0x070F, 0x070F},   Range{0x0890, 0x0891},
    Range{0x08E2, 0x08E2},   Range{0x180E, 0x180E},   Range{0x200B, 0x200F},
    Range{0x202A, 0x202E},   Range{0x2060, 0x2064},   Range{0x2066, 0x206F},
    Range{0xFEFF, 0xFEFF},   Range{0xFFF9, 0xFFFB},   Range{0x110BD, 0x110BD},
    Range{0x110CD, 0x110CD}, Range{0x13430, 0x1343F}, Range{0x1BCA0, 0x1BCA3},
    Range{0x1D173, 0x1D17A}, Range{0xE0001, 0xE0001}, Range{0xE0020, 0xE007F}};

bool isFormatCharacter(char32_t character) {
    const auto* range = std::lower_bound(
        kFormatCharacters.begin(), kFormatCharacters.end(), character,
        [](const Range& candidate, char32_t wanted) { return candidate.last < wanted; });
    return range != kFormatCharacters.end() && range->first <= character;
}

}  // namespace

char32_t decodeUtf8(std::string_view text, std::size_t& position) noexcept {
    const auto byteAt = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const std::size_t start = position++;
    const std::size_t left = text.size() - start;
    const char32_t lead = byteAt(start);

    if (lead < 0x80) return lead;
    if (lead < 0xC2 || lead > 0xF4 || left < 2) return kInvalidUtf8;

    // The second byte's range is what keeps overlong forms, surrogates and the values beyond
    // U+10FFFF out; all that follow it are plain continuations.
    const char32_t second = byteAt(start + 1);
    const char32_t lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const char32_t highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    if (second < lowest || second > highest) return kInvalidUtf8;
    if (lead < 0xE0) {
        position = start + 2;
        return (lead & 0x1F) << 6 | (second & 0x3F);
    }

    if (left < 3 || !isContinuation(byteAt(start + 2))) return kInvalidUtf8;
    const char32_t third = byteAt(start + 2) & 0x3FU;
    if (lead < 0xF0) {
        position = start + 3;
        return (lead & 0x0F) << 12 | (second & 0x3F) << 6 | third;
    }

    if (left < 4 || !isContinuation(byteAt(start + 3))) return kInvalidUtf8;
    position = start + 4;
    return (lead & 0x07) << 18 | (second & 0x3F) << 12 | third << 6 | (byteAt(start + 3) & 0x3FU);
}

void appendUtf8(std::string& out, char32_t character) {
    const auto append = [&out](char32_t byte) { out += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | character >> 6);
        append(0x80 | (character & 0x3F));
    } else if (character < 0x1'0000) {
        append(0xE0 | character >> 12);
        append(0x80 | (character >> 6 & 0x3F));
        append(0x80 | (character & 0x3F));
    } else {
        append(0xF0 | character >> 18);
        append(0x80 | (character >> 12 & 0x3F));
        append(0x80 | (character >> 6 & 0x3F));
        append(0x80 | (character & 0x3F));
    }
}

bool isValidUtf8(std::string_view text) noexcept {
    std::size_t position = skipAscii(text, 0);
    while (position < text.size()) {
        if (decodeUtf8(text, position) == kInvalidUtf8) return false;
        position = skipAscii(text, position);
    }
    return true;
}

std::string escapeInvalidUtf8(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t position = skipAscii(text, 0); position < text.size();
         position = skipAscii(text, position)) {
        const std::size_t start = position;
        if (decodeUtf8(text, position) != kInvalidUtf8) continue;
        const auto byte = static_cast<unsigned char>(text[start]);
        out.append(text, copied, start - copied);
        out.append({'\\', 'x', kHexDigits[byte >> 4], kHexDigits[byte & 15]});
        copied = position;
    }
    out.append(text, copied);
    return out;
}

std::string nonLossyAscii(std::string_view text) {
    std::string out;
    appendNonLossyAscii(out, text);
    return out;
}

void appendNonLossyAscii(std::string& out, std::string_view text) {
    std::size_t position = 0;
    while (true) {
        const std::size_t plain = position;
        position = skipUnescaped(text, plain);
        out.append(text, plain, position - plain);
        if (position == text.size()) return;

        const auto byte = static_cast<unsigned char>(text[position]);
        const char32_t character = decodeUtf8(text, position);
        if (character == '\\') {
            out.append("\\\\");
        } else if (character == kInvalidUtf8) {
            appendOctalEscape(out, byte);
        } else {
            appendCharacterEscape(out, character);
        }
    }
}

bool isNonLossyAscii(std::string_view text) noexcept {
    constexpr std::size_t kBlock = 4096;  // Long text that needs an escape early is not read on.
    for (; text.size() > kBlock + sizeof(Bytes); text.remove_prefix(kBlock)) {
        if (!isUnescapedBlock(text.data(), kBlock)) return false;
    }
    if (text.size() >= sizeof(Bytes)) return isUnescapedBlock(text.data(), text.size());
    return skipUnescaped(text, 0) == text.size();
}

bool isWhitespace(char32_t character) noexcept {
    if (character < 0x80) return character == ' ' || character == '\t';
    return character == 0xA0 || character == 0x1680 ||
           (character >= 0x2000 && character <= 0x200A) || character == 0x202F ||
           character == 0x205F || character == 0x3000;
}

bool isNewline(char32_t character) noexcept {
    return (character >= 0x0A && character <= 0x0D) || character == 0x85 || character == 0x2028 ||
           character == 0x2029;
}

bool isControlOrIllegal(char32_t character) noexcept {
    if (character < 0xA0) return character < 0x20 || character >= 0x7F;
    const bool isSurrogate = character >= 0xD800 && character <= 0xDFFF;
    const bool isNoncharacter =
        (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
    return isSurrogate || isNoncharacter || character > 0x10FFFF || isFormatCharacter(character);
}

}  // namespace sevrin::platform
