// Reading: the trailer, the objects one by one, and access to what they hold. How they hang
// together is checked next door.
#include "Platform/BinaryPropertyList.h"

#include <algorithm>
#include <array>
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

// What a marker byte means. The size is that of the low half, or the width of a number; the unit
// may be that of a reference, which the trailer tells.
struct Form {
    BinaryPropertyList::Kind kind = BinaryPropertyList::Kind::Boolean;
    std::uint8_t unit = 1;
    std::uint8_t size = 0;
    bool isKnown = false;
    bool isLong = false;    // the size follows
    bool isSimple = false;  // any bytes are right
    bool isSmall = false;   // any bytes, or any ASCII characters, of the size above are right
};

constexpr unsigned kInteger = 0x1;
constexpr unsigned kLengthFollows = 0xF;
constexpr std::uint8_t kReferenceUnit = 0xFF;

// Of a kind whose low half says how large it is: sixteen markers.
constexpr void setSized(std::array<Form, 256>& forms, unsigned marker, Form form) {
    for (unsigned low = 0; low < 16; ++low) {
        form.size = static_cast<std::uint8_t>(low);
        form.isKnown = true;
        form.isLong = low == kLengthFollows;
        forms[marker | low] = form;
    }
}

// Of a number with a width of two to the power of `low`.
constexpr void setNumber(std::array<Form, 256>& forms, BinaryPropertyList::Kind kind,
                         unsigned marker, unsigned low, bool isSimple) {
    forms[marker | low] = {kind, 1, static_cast<std::uint8_t>(1U << low), true, false, isSimple};
}

constexpr std::array<Form, 256> formsOfMarkers() {
    using Kind = BinaryPropertyList::Kind;
    std::array<Form, 256> forms;
    forms[0x08] = {Kind::Boolean, 0, 0, true, false, true};
    forms[0x09] = {Kind::Boolean, 0, 1, true, false, true};
    for (unsigned low = 0; low <= 4; ++low)
        setNumber(forms, Kind::Integer, 0x10, low, low < 4);
    setNumber(forms, Kind::Real, 0x20, 2, true);
    setNumber(forms, Kind::Real, 0x20, 3, true);
    setNumber(forms, Kind::Date, 0x30, 3, false);
    setSized(forms, 0x40, {Kind::Data, 1, 0, true, false, true});
    setSized(forms, 0x50, {Kind::String, 1});
    setSized(forms, 0x60, {Kind::String, 2});
    for (unsigned low = 0; low < 16; ++low)
        forms[0x80 | low] = {Kind::UID, 1,     static_cast<std::uint8_t>(low + 1),
                             true,      false, low < 4};
    setSized(forms, 0xA0, {Kind::Array, kReferenceUnit});
    setSized(forms, 0xD0, {Kind::Dictionary, kReferenceUnit});
    for (Form& form : forms) {
        const bool isAscii = form.kind == Kind::String && form.unit == 1;
        form.isSmall = !form.isLong && (form.isSimple || isAscii);
    }
    return forms;
}

constexpr std::array<Form, 256> kForms = formsOfMarkers();

// Whether numbers up to `largest` fit `width` bytes.
bool fits(std::uint64_t largest, std::size_t width) {
    return width >= sizeof largest || largest >> (8 * width) == 0;
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
    if (objectCount_ > nearNodes_.size()) {
        farNodes_.resize(objectCount_);
        nodes_ = farNodes_;
    } else {
        nodes_ = std::span(nearNodes_).first(objectCount_);
    }
    std::size_t used = 0;
    std::size_t entry = objectsEnd_;
    for (Node& node : nodes_) {
        const std::uint64_t offset = number(entry, offsetBytes_);
        if (offset < kHeaderBytes || offset >= objectsEnd_) {
            throw PropertyListError("an offset leads outside the objects", entry);
        }
        readNode(node, offset);
        used += node.start + contentBytes(node) - offset;
        if (used > objectsEnd_ - kHeaderBytes) {
            throw PropertyListError("objects lie over each other", entry);
        }
        entry += offsetBytes_;
    }
}

// Most objects are small and need little more than a look at the table.
inline void BinaryPropertyList::readNode(Node& node, std::size_t offset) {
    const Form& form = kForms[static_cast<unsigned char>(bytes_[offset])];
    const std::size_t start = offset + 1;
    const bool isRight = form.isSmall && form.size <= objectsEnd_ - start &&
                         (form.isSimple || isAscii(start, form.size));
    if (!isRight) return readLargeNode(node, offset);
    node.start = static_cast<std::uint32_t>(start);
    node.size = form.size;
    node.kind = form.kind;
    node.unit = form.unit;
}

// Any object, and what is wrong with one.
void BinaryPropertyList::readLargeNode(Node& node, std::size_t offset) {
    const Form& form = kForms[static_cast<unsigned char>(bytes_[offset])];
    if (!form.isKnown) throw PropertyListError("an object of no known kind", offset);

    node.start = static_cast<std::uint32_t>(offset + 1);
    node.size = form.size;
    node.kind = form.kind;
    node.unit = form.unit == kReferenceUnit ? refBytes_ : form.unit;
    if (form.kind == Kind::Array || form.kind == Kind::Dictionary) ++containerCount_;
    if (form.isLong) readLongSize(node, offset);
    if (contentBytes(node) > objectsEnd_ - node.start) {
        throw PropertyListError("an object is longer than the list", offset);
    }
    if (!form.isSimple) checkContent(node);
}

// The size stands behind the marker, as an integer object.
void BinaryPropertyList::readLongSize(Node& node, std::size_t offset) const {
    const std::size_t start = offset + 1;
    const unsigned length = start < objectsEnd_ ? static_cast<unsigned char>(bytes_[start]) : 0;
    if (length >> 4 != kInteger || (length & 0xF) > 3) {
        throw PropertyListError("a length that is no number", start);
    }
    const std::size_t width = std::size_t{1} << (length & 0xF);
    if (objectsEnd_ - start <= width) throw PropertyListError("a length is cut short", start);
    const std::uint64_t size = number(start + 1, width);
    // Negative ones are among these.
    if (size > objectsEnd_) throw PropertyListError("an object is longer than the list", offset);
    node.start = static_cast<std::uint32_t>(start + 1 + width);
    node.size = static_cast<std::uint32_t>(size);
}

void BinaryPropertyList::checkContent(const Node& node) const {
    switch (node.kind) {
        case Kind::Integer: {  // Of 16 bytes: the others are right whatever they hold.
            const std::uint64_t high = number(node.start, 8);
            const bool isNegative = (number(node.start + 8, 8) >> 63) != 0;
            if (high == 0 || (high == ~std::uint64_t{0} && isNegative)) return;
            throw PropertyListError("an integer of more than 64 bits", node.start);
        }
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
            checkText(node);
            return;
        default:
            return;
    }
    throw PropertyListError("a UID above 4294967295", node.start);
}

void BinaryPropertyList::checkText(const Node& node) const {
    if (node.unit == 1) {
        if (isAscii(node.start, node.size)) return;
        throw PropertyListError("a character outside ASCII in ASCII text", node.start);
    }
    if (!isValidUtf16BigEndian(bytes_.substr(node.start, std::size_t{node.size} * 2))) {
        throw PropertyListError("text with half a surrogate pair", node.start);
    }
}

// Takes eight bytes at a time, beyond the end of the text too: the trailer lies behind all objects.
bool BinaryPropertyList::isAscii(std::size_t start, std::size_t size) const {
    constexpr std::uint64_t kHighBits = 0x8080'8080'8080'8080;
    const char* from = bytes_.data() + start;
    std::uint64_t seen = 0;
    std::uint64_t word = 0;
    for (; size >= sizeof word; size -= sizeof word, from += sizeof word) {
        std::memcpy(&word, from, sizeof word);
        seen |= word;
    }
    if (size > 0) {
        std::memcpy(&word, from, sizeof word);
        const std::size_t others = 8 * (sizeof word - size);
        seen |= std::endian::native == std::endian::little ? word << others : word >> others;
    }
    return (seen & kHighBits) == 0;
}

void BinaryPropertyList::checkReferences(const Node& container) const {
    const std::size_t count = refCount(container);
    std::size_t at = container.start;
    for (std::size_t place = 0; place < count; ++place, at += refBytes_) {
        if (number(at, refBytes_) >= objectCount_) {
            throw PropertyListError("a reference to no object", at);
        }
    }
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

std::string BinaryPropertyList::string(Index object) const {
    const Node& node = nodes_[object];
    if (node.unit == 1) return std::string(data(object));
    return utf8FromUtf16BigEndian(bytes_.substr(node.start, std::size_t{node.size} * 2));
}

// The number of keys when it is none of them.
std::size_t BinaryPropertyList::placeOfKey(Index dictionary, std::string_view key) const {
    const std::size_t entries = size(dictionary);
    std::size_t place = 0;
    while (place < entries && !stringEquals(ref(dictionary, place), key))
        ++place;
    return place;
}

}  // namespace sevrin::platform
