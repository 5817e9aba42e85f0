// Reading: the trailer, the objects one by one, and access to what they hold. How they hang
// together is checked next door.
#include "Platform/BinaryPropertyList.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

#include "Platform/Utf16.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kMagic = "bplist0";  // The version that follows may be any character.
constexpr std::size_t kHeaderBytes = 8;
constexpr std::size_t kTrailerBytes = 32;
constexpr std::size_t kUnusedBytes = 6;  // Five of nothing and the sort version, all zero.

// The high half of a marker byte.
enum Marker : unsigned {
    kSimple = 0x0,
    kInteger = 0x1,
    kReal = 0x2,
    kDate = 0x3,
    kData = 0x4,
    kAscii = 0x5,
    kUtf16 = 0x6,
    kUID = 0x8,
    kArray = 0xA,
    kDictionary = 0xD
};

constexpr unsigned kLengthFollows = 0xF;

// Whether numbers up to `largest` fit `width` bytes.
bool fits(std::uint64_t largest, std::size_t width) {
    return width >= sizeof largest || largest >> (8 * width) == 0;
}

bool isAscii(std::string_view text) {
    constexpr std::uint64_t kHighBits = 0x8080'8080'8080'8080;
    std::size_t place = 0;
    for (; place + 8 <= text.size(); place += 8) {
        std::uint64_t word = 0;
        std::memcpy(&word, text.data() + place, sizeof word);
        if ((word & kHighBits) != 0) return false;
    }
    for (; place < text.size(); ++place) {
        if ((static_cast<unsigned char>(text[place]) & 0x80) != 0) return false;
    }
    return true;
}

}  // namespace

PropertyListError::PropertyListError(const std::string& reason, std::size_t offset)
    : std::runtime_error(reason + " at byte " + std::to_string(offset)),
      reason_(reason),
      offset_(offset) {}

PropertyListError::PropertyListError(const std::string& reason, const std::string& path)
    : std::runtime_error(path.empty() ? reason : reason + " at " + path), reason_(reason) {}

BinaryPropertyList::BinaryPropertyList(std::string_view bytes) : bytes_(bytes) {
    if (!bytes.starts_with(kMagic)) throw PropertyListError("no binary property list", 0);
    if (bytes.size() < kHeaderBytes + kTrailerBytes) {
        throw PropertyListError("the list ends too early", bytes.size());
    }
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw PropertyListError("a list of 4 GB and more is not read", 0);
    }
    readTrailer();
    readNodes();
    checkGraph();
}

void BinaryPropertyList::readTrailer() {
    const std::size_t trailer = bytes_.size() - kTrailerBytes;
    if (number(trailer, kUnusedBytes) != 0) {
        throw PropertyListError("the trailer begins with something else than zeros", trailer);
    }
    offsetBytes_ = static_cast<std::uint8_t>(bytes_[trailer + 6]);
    refBytes_ = static_cast<std::uint8_t>(bytes_[trailer + 7]);
    const std::uint64_t count = number(trailer + 8, 8);
    const std::uint64_t top = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);

    if (offsetBytes_ < 1 || offsetBytes_ > 8) {
        throw PropertyListError("an offset of no possible size", trailer + 6);
    }
    if (refBytes_ < 1 || refBytes_ > 8) {
        throw PropertyListError("a reference of no possible size", trailer + 7);
    }
    if (table < kHeaderBytes || table > trailer) {
        throw PropertyListError("the table of offsets lies outside", trailer + 24);
    }
    // The first comparison keeps the product of the second one small.
    if (count == 0 || count > trailer || table + count * offsetBytes_ != trailer) {
        throw PropertyListError("the number of objects does not fit the size", trailer + 8);
    }
    if (top >= count) throw PropertyListError("the top object does not exist", trailer + 16);
    if (!fits(table, offsetBytes_)) {
        throw PropertyListError("offsets too small for the list", trailer + 6);
    }
    if (!fits(count, refBytes_)) {
        throw PropertyListError("references too small for the list", trailer + 7);
    }
    objectsEnd_ = table;
    objectCount_ = count;
    top_ = static_cast<Index>(top);
}

// No two objects may lie in the same bytes: only then is everything that follows bounded by the
// size of the list.
void BinaryPropertyList::readNodes() {
    nodes_.reserve(objectCount_);
    std::size_t used = 0;
    for (std::size_t i = 0; i < objectCount_; ++i) {
        const std::size_t entry = objectsEnd_ + i * offsetBytes_;
        const std::uint64_t offset = number(entry, offsetBytes_);
        if (offset < kHeaderBytes || offset >= objectsEnd_) {
            throw PropertyListError("an offset leads outside the objects", entry);
        }
        std::size_t end = 0;
        const Node node = readNode(offset, end);
        used += end - offset;
        if (used > objectsEnd_ - kHeaderBytes) {
            throw PropertyListError("objects lie over each other", entry);
        }
        checkContent(node);
        nodes_.push_back(node);
    }
}

BinaryPropertyList::Node BinaryPropertyList::readNode(std::size_t offset, std::size_t& end) const {
    const auto byte = static_cast<unsigned char>(bytes_[offset]);
    const unsigned marker = byte >> 4;
    Node node{};
    if (byte == 0x08 || byte == 0x09) {
        node = {static_cast<std::uint32_t>(offset + 1), byte & 1U, Kind::Boolean, 0};
        end = offset + 1;
        return node;
    }
    node = marker == kData || marker == kAscii || marker == kUtf16 || marker >= kArray
               ? readSized(byte, offset)
               : readNumber(byte, offset);
    const std::uint64_t units = node.kind == Kind::Dictionary ? 2ULL * node.size : node.size;
    if (units * node.unit > objectsEnd_ - node.start) {
        throw PropertyListError("an object is longer than the list", offset);
    }
    end = node.start + units * node.unit;
    return node;
}

BinaryPropertyList::Node BinaryPropertyList::readNumber(unsigned marker, std::size_t offset) const {
    const auto start = static_cast<std::uint32_t>(offset + 1);
    const unsigned low = marker & 0xF;
    const auto bytes = std::uint32_t{1} << (low & 7);
    switch (marker >> 4) {
        case kInteger:
            if (low <= 4) return {start, bytes, Kind::Integer, 1};
            break;
        case kReal:
            if (low == 2 || low == 3) return {start, bytes, Kind::Real, 1};
            break;
        case kDate:
            if (low == 3) return {start, bytes, Kind::Date, 1};
            break;
        case kUID:
            return {start, low + 1, Kind::UID, 1};
        default:
            break;
    }
    throw PropertyListError("an object of no known kind", offset);
}

BinaryPropertyList::Node BinaryPropertyList::readSized(unsigned marker, std::size_t offset) const {
    std::size_t start = offset + 1;
    std::uint64_t size = marker & 0xF;
    if (size == kLengthFollows) {
        const unsigned length = start < objectsEnd_ ? static_cast<unsigned char>(bytes_[start]) : 0;
        if (length >> 4 != kInteger || (length & 0xF) > 3) {
            throw PropertyListError("a length that is no number", start);
        }
        const std::size_t width = std::size_t{1} << (length & 0xF);
        if (objectsEnd_ - start <= width) throw PropertyListError("a length is cut short", start);
        size = number(start + 1, width);
        start += 1 + width;
        // Negative ones are among these.
        if (size > objectsEnd_) {
            throw PropertyListError("an object is longer than the list", offset);
        }
    }
    Node node{static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(size), Kind::Data, 1};
    switch (marker >> 4) {
        case kData:
            return node;
        case kAscii:
            node.kind = Kind::String;
            return node;
        case kUtf16:
            node.kind = Kind::String;
            node.unit = 2;
            return node;
        case kArray:
            node.kind = Kind::Array;
            node.unit = refBytes_;
            return node;
        case kDictionary:
            node.kind = Kind::Dictionary;
            node.unit = refBytes_;
            return node;
        default:
            throw PropertyListError("an object of no known kind", offset);
    }
}

void BinaryPropertyList::checkContent(const Node& node) const {
    switch (node.kind) {
        case Kind::Integer:
            if (node.size == 16) {
                const std::uint64_t high = number(node.start, 8);
                const bool isNegative = (number(node.start + 8, 8) >> 63) != 0;
                if (high == 0 || (high == ~std::uint64_t{0} && isNegative)) return;
                throw PropertyListError("an integer of more than 64 bits", node.start);
            }
            return;
        case Kind::UID:
            if (node.size > 8 && number(node.start, node.size - 8) != 0) break;
            if (number(node.start + node.size - std::min<std::size_t>(node.size, 8),
                       std::min<std::size_t>(node.size, 8)) >
                std::numeric_limits<std::uint32_t>::max()) {
                break;
            }
            return;
        case Kind::Date:
            if (const double seconds = std::bit_cast<double>(number(node.start, 8));
                seconds != seconds) {
                throw PropertyListError("a date that is not a number", node.start);
            }
            return;
        case Kind::String:
        case Kind::Array:
        case Kind::Dictionary:
            checkUnits(node);
            return;
        default:
            return;
    }
    throw PropertyListError("a UID above 4294967295", node.start);
}

void BinaryPropertyList::checkUnits(const Node& node) const {
    if (node.kind == Kind::String) {
        const std::string_view text = bytes_.substr(node.start, std::size_t{node.size} * node.unit);
        if (node.unit == 1 && !isAscii(text)) {
            throw PropertyListError("a character outside ASCII in ASCII text", node.start);
        }
        if (node.unit == 2 && !isValidUtf16BigEndian(text)) {
            throw PropertyListError("text with half a surrogate pair", node.start);
        }
        return;
    }
    const std::size_t count = refCount(node);
    for (std::size_t place = 0; place < count; ++place) {
        const std::size_t at = node.start + place * refBytes_;
        if (number(at, refBytes_) >= objectCount_) {
            throw PropertyListError("a reference to no object", at);
        }
    }
}

// A number of up to 8 bytes, the most significant first; they lie within.
std::uint64_t BinaryPropertyList::number(std::size_t offset, std::size_t width) const {
    const char* const from = bytes_.data() + offset;
    if (width == 1) return static_cast<unsigned char>(*from);
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < width; ++i)
        result = result << 8 | static_cast<unsigned char>(from[i]);
    return result;
}

std::size_t BinaryPropertyList::refCount(const Node& node) const {
    return node.kind == Kind::Dictionary ? std::size_t{2} * node.size : node.size;
}

BinaryPropertyList::Index BinaryPropertyList::ref(Index container, std::size_t place) const {
    return static_cast<Index>(number(nodes_[container].start + place * refBytes_, refBytes_));
}

// Up to four bytes are unsigned, eight are signed, sixteen begin with eight of sign.
Value BinaryPropertyList::integer(Index object) const {
    const Node& node = nodes_[object];
    if (node.size < 8) return number(node.start, node.size);
    if (node.size == 8) return static_cast<std::int64_t>(number(node.start, 8));
    const std::uint64_t low = number(node.start + 8, 8);
    if (number(node.start, 8) == 0) return low;
    return static_cast<std::int64_t>(low);
}

double BinaryPropertyList::real(Index object) const {
    const Node& node = nodes_[object];
    const std::uint64_t bits = number(node.start, node.size);
    if (node.size == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    return std::bit_cast<double>(bits);
}

double BinaryPropertyList::date(Index object) const {
    return std::bit_cast<double>(number(nodes_[object].start, 8));
}

std::string_view BinaryPropertyList::data(Index object) const {
    return bytes_.substr(nodes_[object].start, nodes_[object].size);
}

std::string BinaryPropertyList::string(Index object) const {
    const Node& node = nodes_[object];
    if (node.unit == 1) return std::string(data(object));
    return utf8FromUtf16BigEndian(bytes_.substr(node.start, std::size_t{node.size} * 2));
}

std::optional<std::string_view> BinaryPropertyList::asciiString(Index string) const {
    if (nodes_[string].unit != 1) return std::nullopt;
    return data(string);
}

std::uint32_t BinaryPropertyList::uid(Index object) const {
    const Node& node = nodes_[object];
    const std::size_t width = std::min<std::size_t>(node.size, 8);
    return static_cast<std::uint32_t>(number(node.start + node.size - width, width));
}

bool BinaryPropertyList::stringEquals(Index string, std::string_view text) const {
    if (nodes_[string].unit == 1) return data(string) == text;
    return this->string(string) == text;
}

std::optional<BinaryPropertyList::Index> BinaryPropertyList::find(Index dictionary,
                                                                  std::string_view key) const {
    const std::size_t entries = size(dictionary);
    for (std::size_t place = 0; place < entries; ++place) {
        if (stringEquals(this->key(dictionary, place), key)) return value(dictionary, place);
    }
    return std::nullopt;
}

}  // namespace sevrin::platform
