// Bytes of the wire protocol put together by hand, for tests that must be able to get them wrong.
//
// Uses none of the encoders under test: what is written here is what docs/wire-protocol.md says.
#pragma once

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sevrin::platform::rawwire {

// The bytes that `text` spells in hexadecimal; blanks do not count.
[[nodiscard]] inline std::string hex(std::string_view text) {
    const auto digit = [](char c) {
        return static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
    };
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (std::isspace(static_cast<unsigned char>(text[i]))) continue;
        bytes += static_cast<char>(digit(text[i]) << 4 | digit(text[i + 1]));
        ++i;
    }
    return bytes;
}

[[nodiscard]] inline std::string repeated(const std::string& bytes, std::size_t times) {
    std::string all;
    for (; times > 0; --times)
        all += bytes;
    return all;
}

// `number` in `count` bytes, the least significant first.
[[nodiscard]] inline std::string littleEndian(std::uint64_t number, std::size_t count) {
    std::string bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes += static_cast<char>(number >> (8 * i) & 0xff);
    return bytes;
}

// Kinds of frames, as numbers because tests also send kinds that do not exist.
inline constexpr unsigned kGreeting = 1;
inline constexpr unsigned kMessage = 2;
inline constexpr unsigned kRequest = 3;
inline constexpr unsigned kReply = 4;

[[nodiscard]] inline std::string header(std::uint64_t bodyBytes, unsigned kind,
                                        unsigned descriptors, std::uint64_t serial) {
    return littleEndian(bodyBytes, 4) + littleEndian(kind, 2) + littleEndian(descriptors, 2) +
           littleEndian(serial, 8);
}

[[nodiscard]] inline std::string frame(unsigned kind, std::uint64_t serial, const std::string& body,
                                       unsigned descriptors = 0) {
    return header(body.size(), kind, descriptors, serial) + body;
}

// The head of a CBOR item with a 32-bit count, which is never the shortest form but always allowed.
[[nodiscard]] inline std::string head(unsigned majorType, std::uint64_t count) {
    std::string bytes(1, static_cast<char>(majorType << 5 | 26));
    for (unsigned shift = 32; shift > 0; shift -= 8)
        bytes += static_cast<char>(count >> (shift - 8) & 0xff);
    return bytes;
}

[[nodiscard]] inline std::string text(std::string_view value) {
    return head(3, value.size()) + std::string(value);
}

[[nodiscard]] inline std::string array(std::uint64_t count, const std::string& members) {
    return head(4, count) + members;
}

[[nodiscard]] inline std::string map(std::uint64_t pairs, const std::string& members) {
    return head(5, pairs) + members;
}

// The endpoint with index `index` (below 24) among the frame's descriptors.
[[nodiscard]] inline std::string endpoint(unsigned index) {
    return hex("d9c49b") + static_cast<char>(index);
}

[[nodiscard]] inline std::string greeting(unsigned version = 1) {
    return frame(kGreeting, 0,
                 array(2, text("sevrin-xpc") + std::string(1, static_cast<char>(version))));
}

// A one-way message with one argument.
[[nodiscard]] inline std::string message(std::string_view selector, const std::string& argument,
                                         unsigned descriptors = 0) {
    return frame(kMessage, 0, array(2, text(selector) + argument), descriptors);
}

// A request with one argument.
[[nodiscard]] inline std::string request(std::uint64_t serial, std::string_view selector,
                                         const std::string& argument) {
    return frame(kRequest, serial, array(2, text(selector) + argument));
}

}  // namespace sevrin::platform::rawwire
