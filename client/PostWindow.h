// How much may be posted without an answer before the switchboard has caught up.
//
// Posts have no reply, so nothing but the full outbox would stop a program that posts faster than
// they are relayed, and that ends the connection. Instead every quarter of the window is followed
// by a barrier, whose answer says how far the switchboard has come. Pure logic; its owner guards
// it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace sevrin {

class PostWindow {
public:
    // Bytes of posts that may be under way; a post that is larger goes out alone.
    static constexpr std::uint64_t kBytesMax = std::uint64_t{1} << 20;

    // Whether a post of `bytes` may be sent now.
    [[nodiscard]] bool hasRoomFor(std::size_t bytes) const {
        return sent_ == handled_ || sent_ - handled_ + bytes <= kBytesMax;
    }

    // A post of `bytes` has been sent.
    void add(std::size_t bytes) { sent_ += bytes; }

    // The mark for a barrier that is due now, to be given to handled() with its answer.
    [[nodiscard]] std::optional<std::uint64_t> takeMark() {
        if (sent_ - marked_ < kBytesMax / 4) return std::nullopt;
        marked_ = sent_;
        return marked_;
    }

    // Everything sent before this mark was taken has been handled.
    void handled(std::uint64_t mark) { handled_ = mark; }

private:
    std::uint64_t sent_ = 0;
    std::uint64_t marked_ = 0;
    std::uint64_t handled_ = 0;
};

}  // namespace sevrin
