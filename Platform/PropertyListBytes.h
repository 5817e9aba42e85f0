// For tests: spells binary property lists byte by byte, right or wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sevrin::platform {

// The bytes that hexadecimal digits spell; blanks may stand anywhere.
inline std::string hex(std::string_view digits) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10; };
    std::string bytes;
    int high = -1;
    for (const char c : digits) {
        if (c == ' ') continue;
        if (high < 0) {
            high = digit(c);
        } else {
            bytes += static_cast<char>(high << 4 | digit(c));
            high = -1;
        }
    }
    return bytes;
}

// `number` in eight bytes, the most significant first.
inline std::string bigEndian(std::uint64_t number) {
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift & 0xFF);
    return bytes;
}

// What a trailer says; the values left alone are right.
struct PropertyListFrame {
    std::string header = "bplist00";
    std::string unused = std::string(6, '\0');
    std::uint8_t refBytes = 1;
    std::uint64_t top = 0;
    std::int64_t countError = 0;
    std::int64_t tableError = 0;
};

// A list of these objects, each spelt in hexadecimal digits, with offsets of four bytes.
inline std::string listOf(const std::vector<std::string>& objects,
                          const PropertyListFrame& frame = {}) {
    std::string bytes = frame.header;
    std::string table;
    for (const std::string& object : objects) {
        table += bigEndian(bytes.size()).substr(4);
        bytes += hex(object);
    }
    const auto tableAt = static_cast<std::int64_t>(bytes.size()) + frame.tableError;
    const auto count = static_cast<std::int64_t>(objects.size()) + frame.countError;
    bytes += table + frame.unused + '\4' + static_cast<char>(frame.refBytes);
    return bytes + bigEndian(static_cast<std::uint64_t>(count)) + bigEndian(frame.top) +
           bigEndian(static_cast<std::uint64_t>(tableAt));
}

}  // namespace sevrin::platform
