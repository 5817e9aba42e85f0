// Writing: scalars are formatted at once and found again by their bytes, containers are laid out
// at the end, when the width of a reference is known.
#include "Platform/BinaryPropertyListWriter.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "Platform/Assertion.h"
#include "Platform/BinaryPropertyList.h"
#include "Platform/Text.h"
#include "Platform/Utf16.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kHeader = "bplist00";
constexpr std::size_t kTrailerBytes = 32;
constexpr std::size_t kTableMin = 128;  // A power of two, as every size of the table.

// Places of the table to look at for an equal scalar. A half-empty table needs few; where somebody
// chose texts that all meet, sharing ends instead of the speed.
constexpr std::size_t kProbesMax = 32;

// The smallest of 1, 2, 4, 8 bytes that holds every number up to `largest`.
std::size_t widthOf(std::uint64_t largest) {
    if (largest <= 0xFF) return 1;
    if (largest <= 0xFFFF) return 2;
    return largest <= 0xFFFF'FFFF ? 4 : 8;
}

// The marker of an integer or UID of `width` bytes holds the binary logarithm or the width less 1.
unsigned logarithmOf(std::size_t width) {
    return static_cast<unsigned>(std::countr_zero(width));
}

std::size_t hashOf(std::string_view bytes) {
    constexpr std::uint64_t kMultiplier = 0x9E37'79B9'7F4A'7C15;
    std::uint64_t hash = bytes.size() * kMultiplier;
    while (!bytes.empty()) {
        std::uint64_t word = 0;
        const std::size_t taken = std::min<std::size_t>(bytes.size(), sizeof word);
        std::memcpy(&word, bytes.data(), taken);
        hash = (std::rotl(hash, 23) ^ word) * kMultiplier;
        bytes.remove_prefix(taken);
    }
    return static_cast<std::size_t>(hash ^ hash >> 29);
}

bool isAscii(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

// Puts `number` into the `width` bytes at `to`, the most significant first.
void putNumber(char* to, std::uint64_t number, std::size_t width) {
    for (std::size_t i = width; i > 0; --i, number >>= 8)
        to[i - 1] = static_cast<char>(number & 0xFF);
}

// Sizes from here on do not fit the marker and follow it as a number.
constexpr std::size_t kSizeFollows = 15;

constexpr std::size_t kHeadBytesMax = 10;

// Writes the marker of an object with its size and gives the end of that.
inline char* putHead(char* to, unsigned marker, std::size_t size) {
    if (size < kSizeFollows) {
        putNumber(to, marker | size, 1);
        return to + 1;
    }
    const std::size_t width = widthOf(size);
    putNumber(to, marker | kSizeFollows, 1);
    putNumber(to + 1, 0x10 | logarithmOf(width), 1);
    putNumber(to + 2, size, width);
    return to + 2 + width;
}

}  // namespace

BinaryPropertyListWriter::BinaryPropertyListWriter() : table_(kTableMin) {}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::nextIndex() const {
    if (nodes_.size() == std::numeric_limits<Index>::max()) {
        throw std::length_error("too many objects for one property list");
    }
    return static_cast<Index>(nodes_.size());
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::reserve() {
    const Index index = nextIndex();
    nodes_.push_back({0, 0, Kind::Array});
    return index;
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addBoolean(bool value) {
    const std::size_t start = scalars_.size();
    scalars_ += value ? '\x09' : '\x08';
    return keepScalar(start);
}

// Every negative number takes eight bytes, for the shorter ones are unsigned.
BinaryPropertyListWriter::Index BinaryPropertyListWriter::addInteger(std::int64_t number) {
    const std::size_t start = scalars_.size();
    const std::size_t width = number < 0 ? 8 : widthOf(static_cast<std::uint64_t>(number));
    appendNumber(0x10 | logarithmOf(width), 1);
    appendNumber(static_cast<std::uint64_t>(number), width);
    return keepScalar(start);
}

// Above the signed range sixteen bytes, of which the first eight are zero.
BinaryPropertyListWriter::Index BinaryPropertyListWriter::addUnsigned(std::uint64_t number) {
    if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        return addInteger(static_cast<std::int64_t>(number));
    }
    const std::size_t start = scalars_.size();
    appendNumber(0x14, 1);
    appendNumber(0, 8);
    appendNumber(number, 8);
    return keepScalar(start);
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addReal(double number) {
    const std::size_t start = scalars_.size();
    appendNumber(0x23, 1);
    appendNumber(std::bit_cast<std::uint64_t>(number), 8);
    return keepScalar(start);
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addDate(double secondsSince2001) {
    const std::size_t start = scalars_.size();
    appendNumber(0x33, 1);
    appendNumber(std::bit_cast<std::uint64_t>(secondsSince2001), 8);
    return keepScalar(start);
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addData(std::string_view bytes) {
    const std::size_t start = scalars_.size();
    appendHead(0x40, bytes.size());
    scalars_ += bytes;
    return keepScalar(start);
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addUID(std::uint32_t number) {
    const std::size_t start = scalars_.size();
    const std::size_t width = widthOf(number);
    appendNumber(0x80 | (width - 1), 1);
    appendNumber(number, width);
    return keepScalar(start);
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addString(std::string_view text) {
    const std::size_t start = scalars_.size();
    if (isAscii(text)) {
        appendHead(0x50, text.size());
        scalars_ += text;
        return keepScalar(start);
    }
    if (!isValidUtf8(text)) throw PropertyListError("text that is not UTF-8", std::string());
    std::string wide;
    appendUtf16BigEndian(wide, text);
    appendHead(0x60, wide.size() / 2);
    scalars_ += wide;
    return keepScalar(start);
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addArray(
    std::span<const Index> elements) {
    const Index index = reserve();
    setArray(index, elements);
    return index;
}

BinaryPropertyListWriter::Index BinaryPropertyListWriter::addDictionary(
    std::span<const Index> keys, std::span<const Index> values) {
    const Index index = reserve();
    setDictionary(index, keys, values);
    return index;
}

void BinaryPropertyListWriter::setArray(Index reserved, std::span<const Index> elements) {
    nodes_[reserved] = {refs_.size(), elements.size(), Kind::Array};
    refs_.insert(refs_.end(), elements.begin(), elements.end());
}

void BinaryPropertyListWriter::setDictionary(Index reserved, std::span<const Index> keys,
                                             std::span<const Index> values) {
    SEVRIN_ASSERT(keys.size() == values.size(), "each key of a dictionary has one value");
    nodes_[reserved] = {refs_.size(), keys.size(), Kind::Dictionary};
    refs_.insert(refs_.end(), keys.begin(), keys.end());
    refs_.insert(refs_.end(), values.begin(), values.end());
}

// Makes an object of the bytes from `start` on, or finds the one that has the same.
BinaryPropertyListWriter::Index BinaryPropertyListWriter::keepScalar(std::size_t start) {
    if (2 * tableUsed_ >= table_.size()) growTable();
    const std::string_view bytes = std::string_view(scalars_).substr(start);
    const std::size_t mask = table_.size() - 1;
    std::size_t place = hashOf(bytes) & mask;
    for (std::size_t probe = 0; probe < kProbesMax; ++probe, place = (place + 1) & mask) {
        Index& entry = table_[place];
        if (entry == 0) {
            entry = nextIndex() + 1;
            ++tableUsed_;
            break;
        }
        const Node& known = nodes_[entry - 1];
        if (std::string_view(scalars_).substr(known.start, known.size) == bytes) {
            scalars_.resize(start);
            return entry - 1;
        }
    }
    const Index index = nextIndex();
    nodes_.push_back({start, bytes.size(), Kind::Scalar});
    return index;
}

void BinaryPropertyListWriter::growTable() {
    std::vector<Index> larger(table_.size() * 4);
    const std::size_t mask = larger.size() - 1;
    for (const Index entry : table_) {
        if (entry == 0) continue;
        const Node& node = nodes_[entry - 1];
        std::size_t place = hashOf(std::string_view(scalars_).substr(node.start, node.size)) & mask;
        std::size_t probe = 0;
        while (larger[place] != 0 && ++probe < kProbesMax)
            place = (place + 1) & mask;
        if (larger[place] == 0) larger[place] = entry;
    }
    table_ = std::move(larger);
}

void BinaryPropertyListWriter::appendNumber(std::uint64_t number, std::size_t width) {
    char bytes[8];
    putNumber(bytes, number, width);
    scalars_.append(bytes, width);
}

void BinaryPropertyListWriter::appendHead(unsigned marker, std::size_t size) {
    char head[kHeadBytesMax];
    scalars_.append(head, putHead(head, marker, size));
}

std::size_t BinaryPropertyListWriter::contentSize(const Node& node, std::size_t refBytes) const {
    if (node.kind == Kind::Scalar) return node.size;
    const std::size_t head = node.size < kSizeFollows ? 1 : 2 + widthOf(node.size);
    return head + node.size * refBytes * (node.kind == Kind::Dictionary ? 2 : 1);
}

std::string BinaryPropertyListWriter::finish(Index top) const {
    // More than the count, not the largest number: that is what readers ask for.
    const std::size_t refBytes = widthOf(nodes_.size());
    std::size_t table = kHeader.size();
    for (const Node& node : nodes_)
        table += contentSize(node, refBytes);
    const std::size_t offsetBytes = widthOf(table);

    std::string result(table + nodes_.size() * offsetBytes + kTrailerBytes, '\0');
    char* to = result.data();
    char* entry = to + table;
    to = std::copy(kHeader.begin(), kHeader.end(), to);
    for (const Node& node : nodes_) {
        putNumber(entry, static_cast<std::uint64_t>(to - result.data()), offsetBytes);
        entry += offsetBytes;
        if (node.kind == Kind::Scalar) {
            to = std::copy_n(scalars_.data() + node.start, node.size, to);
            continue;
        }
        const bool isArray = node.kind == Kind::Array;
        to = putHead(to, isArray ? 0xA0 : 0xD0, node.size);
        const std::size_t count = isArray ? node.size : 2 * node.size;
        for (std::size_t i = 0; i < count; ++i, to += refBytes)
            putNumber(to, refs_[node.start + i], refBytes);
    }
    entry[6] = static_cast<char>(offsetBytes);
    entry[7] = static_cast<char>(refBytes);
    putNumber(entry + 8, nodes_.size(), 8);
    putNumber(entry + 16, top, 8);
    putNumber(entry + 24, table, 8);
    return result;
}

}  // namespace sevrin::platform
