// The order of names: printable ASCII here, anything else by the system's collation.
#include "Platform/FinderCompare.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

#include "Platform/Collation.h"
#include "Platform/Text.h"

namespace sevrin::platform {

namespace {

// The printable ASCII characters in the order of the common locale data; all digits stand where '0'
// does, small letters where the capitals do.
constexpr std::string_view kOrder =
    " _-,;:!?.'\"()[]{}@*/\\&#%`^+<=>|~$0abcdefghijklmnopqrstuvwxyz";

// Each fits six bits, so that a key has room for 21 of them; 0 is for what is not printable ASCII.
constexpr unsigned kWeightBits = 6;
constexpr std::size_t kWeightsInWord = 64 / kWeightBits;

constexpr std::array<std::uint8_t, 256> kWeights = [] {
    std::array<std::uint8_t, 256> weights{};
    for (std::size_t i = 0; i < kOrder.size(); ++i) {
        const auto character = static_cast<unsigned char>(kOrder[i]);
        const auto weight = static_cast<std::uint8_t>(i + 1);
        weights[character] = weight;
        if (character >= 'a' && character <= 'z') weights[character - 'a' + 'A'] = weight;
    }
    for (unsigned char digit = '1'; digit <= '9'; ++digit)
        weights[digit] = weights['0'];
    return weights;
}();
static_assert(kOrder.size() == 60);

constexpr std::uint8_t kDigitWeight = kWeights['0'];

std::uint8_t weightOf(char character) {
    return kWeights[static_cast<unsigned char>(character)];
}

bool isSmall(char character) {
    return character >= 'a' && character <= 'z';
}

// The collation cuts longer numbers into pieces of this many digits; such names are left to it.
constexpr std::size_t kNumberMax = 254;

// Whether the name is for the comparison of printable ASCII.
bool isPlain(std::string_view name) {
    if (name.size() > kNumberMax) return false;
    // Eight characters at a time: a bit 7 shows in a character itself, that it is less than 0x20
    // after subtracting, that it is 0x7F after adding.
    constexpr std::uint64_t kOnes = 0x0101010101010101U;
    constexpr std::uint64_t kTops = kOnes * 0x80;
    const auto isWordPlain = [](std::uint64_t word) {
        return ((word | (word - kOnes * 0x20) | (word + kOnes)) & kTops) == 0;
    };
    std::size_t i = 0;
    for (std::uint64_t word = 0; i + sizeof word <= name.size(); i += sizeof word) {
        std::memcpy(&word, name.data() + i, sizeof word);
        if (!isWordPlain(word)) return false;
    }
    std::uint64_t rest = kOnes * ' ';
    std::memcpy(&rest, name.data() + i, name.size() - i);
    return isWordPlain(rest);
}

// The digits of the number at `position` without zeros at its start, at least one; `position` moves
// past it.
std::string_view takeNumber(std::string_view text, std::size_t& position) {
    std::size_t start = position;
    while (position < text.size() && weightOf(text[position]) == kDigitWeight)
        ++position;
    while (start + 1 < position && text[start] == '0')
        ++start;
    return text.substr(start, position - start);
}

int sign(bool isLess) {
    return isLess ? -1 : 1;
}

int compareBytes(std::string_view left, std::string_view right) {
    const int result = left.compare(right);
    return result == 0 ? 0 : sign(result < 0);
}

int compareNumbers(std::string_view left, std::string_view right) {
    if (left.size() != right.size()) return sign(left.size() < right.size());
    return compareBytes(left, right);
}

// A character of either kind at `position`, which moves past it, as a number in its order.
std::uint32_t takeRank(std::string_view text, std::size_t& position) {
    constexpr std::uint32_t kBeyondLetters = 64;
    if (const std::uint8_t weight = weightOf(text[position]); weight != 0) {
        ++position;
        return weight;
    }
    const auto byte = static_cast<unsigned char>(text[position]);
    const char32_t character = decodeUtf8(text, position);
    if (character == kInvalidUtf8) return kBeyondLetters + 0x11'0000U + byte;
    return character < 0x80 ? 0 : kBeyondLetters + static_cast<std::uint32_t>(character);
}

}  // namespace

// Serves printable ASCII and, where the system has no collation, everything.
int finderLikeCompareByCodePoint(std::string_view left, std::string_view right) noexcept {
    int byCase = 0;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < left.size() && j < right.size()) {
        const char leftCharacter = left[i];
        const char rightCharacter = right[j];
        if (weightOf(leftCharacter) == kDigitWeight && weightOf(rightCharacter) == kDigitWeight) {
            const int result = compareNumbers(takeNumber(left, i), takeNumber(right, j));
            if (result != 0) return result;
            continue;
        }
        const std::uint32_t leftRank = takeRank(left, i);
        const std::uint32_t rightRank = takeRank(right, j);
        if (leftRank != rightRank) return sign(leftRank < rightRank);
        if (byCase == 0 && isSmall(leftCharacter) != isSmall(rightCharacter))
            byCase = sign(isSmall(leftCharacter));
    }
    if (i < left.size() || j < right.size()) return sign(j < right.size());
    return byCase != 0 ? byCase : compareBytes(left, right);
}

int finderLikeCompare(std::string_view left, std::string_view right) {
    if (!isPlain(left) || !isPlain(right)) {
        const std::optional<int> result = collate(left, right);
        if (result) return *result != 0 ? *result : compareBytes(left, right);
    }
    return finderLikeCompareByCodePoint(left, right);
}

// The weights of the characters, from the top down; a number is the weight of a digit, how many
// digits it has, and the digits. What does not fit is left to the comparison of the names.
FinderSortKey finderSortKey(std::string_view name) noexcept {
    constexpr unsigned kDigitsMax = (1U << kWeightBits) - 1;
    if (!isPlain(name)) return {};
    FinderSortKey key;
    std::size_t count = 0;
    const auto put = [&](unsigned weight) {
        if (count >= 2 * kWeightsInWord) return false;
        std::uint64_t& word = count < kWeightsInWord ? key.high : key.low;
        word |= std::uint64_t{weight} << (64 - kWeightBits * (count % kWeightsInWord + 1));
        ++count;
        return true;
    };
    for (std::size_t i = 0; i < name.size();) {
        if (!put(weightOf(name[i]))) break;
        if (weightOf(name[i]) != kDigitWeight) {
            ++i;
            continue;
        }
        const std::string_view number = takeNumber(name, i);
        if (number.size() >= kDigitsMax) {
            put(kDigitsMax);
            break;
        }
        put(static_cast<unsigned>(number.size()));
        for (const char digit : number)
            put(static_cast<unsigned>(digit - '0'));
    }
    return key;
}

}  // namespace sevrin::platform
