// Between UTF-16 of the most significant byte first and UTF-8.
#include "Platform/Utf16.h"

#include <cstddef>
#include <cstdint>

#include "Platform/Text.h"

namespace sevrin::platform {

namespace {

char32_t unitAt(std::string_view bytes, std::size_t place) {
    return static_cast<char32_t>(static_cast<unsigned char>(bytes[place]) << 8 |
                                 static_cast<unsigned char>(bytes[place + 1]));
}

bool isHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool isLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

void appendUnit(std::string& out, char32_t unit) {
    out += static_cast<char>(static_cast<unsigned char>(unit >> 8));
    out += static_cast<char>(static_cast<unsigned char>(unit & 0xFF));
}

}  // namespace

bool isValidUtf16BigEndian(std::string_view bytes) noexcept {
    if (bytes.size() % 2 != 0) return false;
    for (std::size_t place = 0; place < bytes.size(); place += 2) {
        const char32_t unit = unitAt(bytes, place);
        if (isLowSurrogate(unit)) return false;
        if (!isHighSurrogate(unit)) continue;
        place += 2;
        if (place == bytes.size() || !isLowSurrogate(unitAt(bytes, place))) return false;
    }
    return true;
}

std::string utf8FromUtf16BigEndian(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    for (std::size_t place = 0; place < bytes.size(); place += 2) {
        char32_t character = unitAt(bytes, place);
        if (isHighSurrogate(character)) {
            place += 2;
            character = 0x1'0000 + ((character - 0xD800) << 10 | (unitAt(bytes, place) - 0xDC00));
        }
        appendUtf8(result, character);
    }
    return result;
}

void appendUtf16BigEndian(std::string& out, std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        const char32_t character = decodeUtf8(text, position);
        if (character < 0x1'0000) {
            appendUnit(out, character);
        } else {
            appendUnit(out, 0xD7C0 + (character >> 10));
            appendUnit(out, 0xDC00 + (character & 0x3FF));
        }
    }
}

}  // namespace sevrin::platform
