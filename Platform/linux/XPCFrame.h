// The frame header: sixteen bytes, little-endian, before every body. Layout and rules:
// docs/wire-protocol.md, "Frames".
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sevrin::platform {

// On the wire; never renumber.
enum class FrameKind : std::uint16_t {
    Greeting = 1,  // first in each direction: who we are, which version
    Message = 2,   // one-way
    Request = 3,   // wants a Reply with its serial
    Reply = 4,
};

inline constexpr std::uint64_t kProtocolVersion = 1;
inline constexpr std::string_view kGreetingWord = "sevrin-xpc";

struct FrameHeader {
    static constexpr std::size_t kBytes = 16;

    std::uint32_t bodyBytes = 0;
    FrameKind kind = FrameKind::Message;
    std::uint16_t descriptors = 0;
    std::uint64_t serial = 0;  // of a Request, and of the Reply to it; otherwise 0

    // Reads the header at the start of `bytes` (at least kBytes long). Nothing when it breaks a
    // rule: `bodyBytesMax` is what the receiver takes.
    [[nodiscard]] static std::optional<FrameHeader> parse(std::string_view bytes,
                                                          std::size_t bodyBytesMax);

    // Writes the header over the kBytes at `place`.
    void write(char* place) const;
};

// Appends a whole greeting frame of ours.
void appendGreeting(std::string& out);

// The version in a greeting's body; nothing when it is no greeting.
[[nodiscard]] std::optional<std::uint64_t> readGreeting(std::string_view body);

}  // namespace sevrin::platform
