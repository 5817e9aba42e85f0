// The keyed hash: seven bytes a step, so that a step's sum stays far from overflow.
#include "Platform/KeyedHash.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <random>

namespace sevrin::platform {

namespace {

constexpr std::uint64_t kPrime = (std::uint64_t{1} << 61) - 1;
constexpr std::size_t kStepBytes = 7;

__extension__ typedef unsigned __int128 Product;

// left * right modulo the prime, for factors below 2^62. The bits above the prime's weigh one each.
std::uint64_t multiplied(std::uint64_t left, std::uint64_t right) {
    const Product product = static_cast<Product>(left) * right;
    const std::uint64_t folded =
        (static_cast<std::uint64_t>(product) & kPrime) + static_cast<std::uint64_t>(product >> 61);
    return folded >= kPrime ? folded - kPrime : folded;
}

std::uint64_t randomKey() {
    std::random_device device;
    return (std::uint64_t{device()} << 32) | device();
}

}  // namespace

// 0 and 1 would make every text, or every order of its bytes, the same.
KeyedHash::KeyedHash(std::uint64_t key) : key_(2 + key % (kPrime - 2)) {}

std::uint32_t KeyedHash::of(std::string_view text) {
    static const KeyedHash theHash(randomKey());
    return theHash(text);
}

std::uint32_t KeyedHash::operator()(std::string_view text) const {
    std::uint64_t sum = multiplied(1 + text.size(), key_);
    for (std::size_t done = 0; done < text.size(); done += kStepBytes) {
        std::uint64_t step = 0;
        std::memcpy(&step, text.data() + done, std::min(kStepBytes, text.size() - done));
        sum = multiplied(sum + step, key_);
    }
    return static_cast<std::uint32_t>(sum ^ (sum >> 32));
}

}  // namespace sevrin::platform
