// A hash for texts that somebody else chooses.
//
// Keyed with a number drawn at first use, so that nobody outside can choose texts that meet in one
// place of a table and make the process slow for everybody. Differs from run to run: never store
// it. May be used on any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace sevrin::platform {

// A polynomial in the key, with the text's bytes as coefficients, modulo the prime 2^61 - 1. Two
// different texts of n bytes agree for about one key in 2^35 / n.
class KeyedHash {
public:
    // `key` is reduced to the range of useful ones.
    explicit KeyedHash(std::uint64_t key);

    // The hash under this process's own key. The first call throws std::runtime_error when the
    // system gives no random number.
    [[nodiscard]] static std::uint32_t of(std::string_view text);

    [[nodiscard]] std::uint32_t operator()(std::string_view text) const;

private:
    std::uint64_t key_;
};

}  // namespace sevrin::platform
