// Decoding: two tables for the encodings of one byte a character, and the two orders of UTF-16.
#include "Platform/StringEncoding.h"

#include <array>
#include <cstddef>

#include "Platform/Text.h"

namespace sevrin::platform {
namespace {

// A byte that stands for no character.
constexpr char16_t kNone = 0xFFFF;

// 0x80 to 0x9F; all others are as in ISO Latin 1.
constexpr std::array<char16_t, 32> kWindowsCP1252 = {
    0x20AC, kNone,  0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  //
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, kNone,  0x017D, kNone,   //
    kNone,  0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  //
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, kNone,  0x017E, 0x0178,
};

// 0x80 to 0xFF, since the currency sign gave way to the euro.
constexpr std::array<char16_t, 128> kMacOSRoman = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1,  //
    0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5, 0x00E7, 0x00E9, 0x00E8,  //
    0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3,  //
    0x00F2, 0x00F4, 0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC,  //
    0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6, 0x00DF,  //
    0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8,  //
    0x221E, 0x00B1, 0x2264, 0x2265, 0x00A5, 0x00B5, 0x2202, 0x2211,  //
    0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8,  //
    0x00BF, 0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB,  //
    0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5, 0x0152, 0x0153,  //
    0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA,  //
    0x00FF, 0x0178, 0x2044, 0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02,  //
    0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,  //
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4,  //
    0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9, 0x0131, 0x02C6, 0x02DC,  //
    0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

constexpr char16_t kByteOrderMark = 0xFEFF;

char16_t asciiCharacter(unsigned char byte) {
    return byte < 0x80 ? byte : kNone;
}

char16_t isoLatin1Character(unsigned char byte) {
    return byte;
}

char16_t windowsCP1252Character(unsigned char byte) {
    return byte >= 0x80 && byte < 0xA0 ? kWindowsCP1252[byte - 0x80U] : byte;
}

char16_t macOSRomanCharacter(unsigned char byte) {
    return byte >= 0x80 ? kMacOSRoman[byte - 0x80U] : byte;
}

std::optional<std::string> fromSingleBytes(std::string_view bytes,
                                           char16_t (*character)(unsigned char byte)) {
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        const char16_t found = character(static_cast<unsigned char>(byte));
        if (found == kNone) return std::nullopt;
        appendUtf8(text, found);
    }
    return text;
}

enum class ByteOrder { Big, Little };

char16_t unitAt(std::string_view bytes, std::size_t position, ByteOrder order) {
    const auto first = static_cast<unsigned char>(bytes[position]);
    const auto second = static_cast<unsigned char>(bytes[position + 1]);
    return static_cast<char16_t>(order == ByteOrder::Big ? first << 8 | second
                                                         : second << 8 | first);
}

bool isHighSurrogate(char16_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool isLowSurrogate(char16_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

std::optional<std::string> fromUtf16(std::string_view bytes, ByteOrder order) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t position = 0; position < bytes.size(); position += 2) {
        const char16_t unit = unitAt(bytes, position, order);
        if (isLowSurrogate(unit)) return std::nullopt;
        if (!isHighSurrogate(unit)) {
            appendUtf8(text, unit);
            continue;
        }
        position += 2;
        if (position == bytes.size()) return std::nullopt;
        const char16_t low = unitAt(bytes, position, order);
        if (!isLowSurrogate(low)) return std::nullopt;
        appendUtf8(text, 0x1'0000 + (static_cast<char32_t>(unit - 0xD800) << 10 | (low - 0xDC00U)));
    }
    return text;
}

std::optional<std::string> fromMarkedUtf16(std::string_view bytes) {
    for (const ByteOrder order : {ByteOrder::Big, ByteOrder::Little}) {
        if (bytes.size() >= 2 && unitAt(bytes, 0, order) == kByteOrderMark)
            return fromUtf16(bytes.substr(2), order);
    }
    return fromUtf16(bytes, ByteOrder::Big);
}

}  // namespace

std::optional<std::string> textFromBytes(std::string_view bytes, std::uint64_t encoding) {
    switch (static_cast<StringEncoding>(encoding)) {
        case StringEncoding::Ascii:
            return fromSingleBytes(bytes, asciiCharacter);
        case StringEncoding::Utf8:
            if (!isValidUtf8(bytes)) return std::nullopt;
            return std::string(bytes);
        case StringEncoding::IsoLatin1:
            return fromSingleBytes(bytes, isoLatin1Character);
        case StringEncoding::Utf16:
            return fromMarkedUtf16(bytes);
        case StringEncoding::WindowsCP1252:
            return fromSingleBytes(bytes, windowsCP1252Character);
        case StringEncoding::MacOSRoman:
            return fromSingleBytes(bytes, macOSRomanCharacter);
        case StringEncoding::Utf16BigEndian:
            return fromUtf16(bytes, ByteOrder::Big);
        case StringEncoding::Utf16LittleEndian:
            return fromUtf16(bytes, ByteOrder::Little);
    }
    return std::nullopt;
}

}  // namespace sevrin::platform
