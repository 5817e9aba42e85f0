// Values in their form on the wire. Encoding by libcbor's encoders, decoding item by item with a
// bounded depth.
#include "Platform/linux/WireValue.h"

#include <cbor.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

#include "Platform/Text.h"
#include "Platform/XPCLimits.h"

namespace sevrin::platform::wire {

namespace {

// The longest head of any item: one byte and a 64-bit number.
constexpr std::size_t kHeadBytesMax = 9;

// Members of a container that room is made for before they are read. Beyond that room grows with
// what has in fact arrived: containers inside containers could each claim all the bytes there are.
constexpr std::uint64_t kReservedMax = 16;

template <typename Number>
void appendHead(std::string& out, std::size_t (*encode)(Number, unsigned char*, std::size_t),
                Number number) {
    unsigned char head[kHeadBytesMax];
    out.append(reinterpret_cast<const char*>(head), encode(number, head, sizeof head));
}

void appendDouble(std::string& out, double real) {
    appendHead(out, cbor_encode_double, real);
}

void appendNested(std::string& out, const Value& value, Endpoints* endpoints, unsigned depthLeft);

void appendArray(std::string& out, const ValueArray& array, Endpoints* endpoints,
                 unsigned depthLeft) {
    if (depthLeft == 0) throw std::length_error("a value is nested deeper than a message may be");
    appendArrayHead(out, array.size());
    for (const Value& member : array)
        appendNested(out, member, endpoints, depthLeft - 1);
}

void appendDictionary(std::string& out, const Dictionary& dictionary, Endpoints* endpoints,
                      unsigned depthLeft) {
    if (depthLeft == 0) throw std::length_error("a value is nested deeper than a message may be");
    appendMapHead(out, dictionary.size());
    for (const auto& [key, value] : dictionary) {
        if (!key.ifString()) throw std::invalid_argument("only text can be a key in a message");
        appendText(out, *key.ifString());
        appendNested(out, value, endpoints, depthLeft - 1);
    }
}

void appendEndpoint(std::string& out, const Value& value, Endpoints* endpoints) {
    auto endpoint = value.object<NSXPCListenerEndpoint>();
    if (!endpoint)
        throw std::invalid_argument("an object of this class cannot travel in a message");
    if (!endpoints) throw std::invalid_argument("an endpoint cannot travel here");
    appendHead<std::uint64_t>(out, cbor_encode_tag, kEndpointTag);
    appendUnsigned(out, endpoints->size());
    endpoints->push_back(std::move(endpoint));
}

void appendNested(std::string& out, const Value& value, Endpoints* endpoints, unsigned depthLeft) {
    switch (value.kind()) {
        case Value::Kind::Null:
            out += '\xf6';
            return;
        case Value::Kind::Boolean:
            out += *value.ifBoolean() ? '\xf5' : '\xf4';
            return;
        case Value::Kind::Signed: {
            const std::int64_t number = *value.ifSigned();
            if (number >= 0) {
                appendUnsigned(out, static_cast<std::uint64_t>(number));
            } else {
                appendHead(out, cbor_encode_negint, static_cast<std::uint64_t>(-1 - number));
            }
            return;
        }
        case Value::Kind::Unsigned:
            appendUnsigned(out, *value.ifUnsigned());
            return;
        case Value::Kind::Double:
            appendDouble(out, *value.ifDouble());
            return;
        case Value::Kind::String:
            appendText(out, *value.ifString());
            return;
        case Value::Kind::Data: {
            const std::string& bytes = value.ifData()->bytes;
            appendHead(out, cbor_encode_bytestring_start, bytes.size());
            out.append(bytes);
            return;
        }
        case Value::Kind::Date:
            appendHead<std::uint64_t>(out, cbor_encode_tag, kDateTag);
            appendDouble(out, value.ifDate()->timeIntervalSinceReferenceDate());
            return;
        case Value::Kind::Array:
            appendArray(out, *value.ifArray(), endpoints, depthLeft);
            return;
        case Value::Kind::Dictionary:
            appendDictionary(out, *value.ifDictionary(), endpoints, depthLeft);
            return;
        case Value::Kind::Set:
            throw std::invalid_argument("a set cannot travel in a message");
        case Value::Kind::Object:
            appendEndpoint(out, value, endpoints);
            return;
    }
}

bool readNested(CborReader& reader, Value& value, const TakeEndpoint* takeEndpoint,
                unsigned depthLeft);

bool readArray(CborReader& reader, std::uint64_t count, Value& value,
               const TakeEndpoint* takeEndpoint, unsigned depthLeft) {
    if (depthLeft == 0 || count > reader.remaining())
        return false;  // A member takes a byte at least.
    ValueArray members;
    members.reserve(static_cast<std::size_t>(std::min(count, kReservedMax)));
    for (; count > 0; --count) {
        if (!readNested(reader, members.emplace_back(), takeEndpoint, depthLeft - 1)) return false;
    }
    value = Value(std::move(members));
    return true;
}

bool readDictionary(CborReader& reader, std::uint64_t pairs, Value& value,
                    const TakeEndpoint* takeEndpoint, unsigned depthLeft) {
    if (depthLeft == 0 || pairs > reader.remaining() / 2) return false;
    std::vector<Dictionary::Entry> entries;
    entries.reserve(static_cast<std::size_t>(std::min(pairs, kReservedMax)));
    for (std::uint64_t pair = 0; pair < pairs; ++pair) {
        auto& [key, content] = entries.emplace_back();
        if (!readNested(reader, key, nullptr, 0) || !key.ifString()) return false;
        if (!readNested(reader, content, takeEndpoint, depthLeft - 1)) return false;
    }
    Dictionary dictionary = Dictionary::fromEntries(std::move(entries));
    if (dictionary.size() != pairs) return false;  // A key came twice.
    value = Value(std::move(dictionary));
    return true;
}

bool readTagged(CborReader& reader, std::uint64_t tag, Value& value,
                const TakeEndpoint* takeEndpoint) {
    CborItem item;
    if (!reader.next(item)) return false;
    if (tag == kDateTag && item.type == CborItem::Type::Real) {
        value = Value(NSDate::dateWithTimeIntervalSinceReferenceDate(item.real));
        return true;
    }
    if (tag == kEndpointTag && item.type == CborItem::Type::Unsigned && takeEndpoint) {
        auto endpoint = (*takeEndpoint)(item.number);
        if (!endpoint) return false;
        value = Value(std::move(endpoint));
        return true;
    }
    return false;
}

bool readNested(CborReader& reader, Value& value, const TakeEndpoint* takeEndpoint,
                unsigned depthLeft) {
    CborItem item;
    if (!reader.next(item)) return false;
    switch (item.type) {
        case CborItem::Type::Unsigned:
            value = Value(item.number);
            return true;
        case CborItem::Type::Negative:
            if (item.number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                return false;
            value = Value(-1 - static_cast<std::int64_t>(item.number));
            return true;
        case CborItem::Type::Bytes:
            value = Value(Data{std::string(item.text)});
            return true;
        case CborItem::Type::Text:
            if (!isValidUtf8(item.text)) return false;
            value = Value(item.text);
            return true;
        case CborItem::Type::Array:
            return readArray(reader, item.number, value, takeEndpoint, depthLeft);
        case CborItem::Type::Map:
            return readDictionary(reader, item.number, value, takeEndpoint, depthLeft);
        case CborItem::Type::Tag:
            return readTagged(reader, item.number, value, takeEndpoint);
        case CborItem::Type::Boolean:
            value = Value(item.boolean);
            return true;
        case CborItem::Type::Null:
            value = Value();
            return true;
        case CborItem::Type::Real:
            value = Value(item.real);
            return true;
    }
    return false;
}

}  // namespace

void appendArrayHead(std::string& out, std::size_t count) {
    appendHead(out, cbor_encode_array_start, count);
}

void appendMapHead(std::string& out, std::size_t pairs) {
    appendHead(out, cbor_encode_map_start, pairs);
}

void appendUnsigned(std::string& out, std::uint64_t number) {
    appendHead(out, cbor_encode_uint, number);
}

void appendText(std::string& out, std::string_view text) {
    if (!isValidUtf8(text)) {
        appendText(out, escapeInvalidUtf8(text));
        return;
    }
    appendHead(out, cbor_encode_string_start, text.size());
    out.append(text);
}

void appendValue(std::string& out, const Value& value, Endpoints* endpoints) {
    appendNested(out, value, endpoints, kNestingMax);
}

bool readValue(CborReader& reader, Value& value, const TakeEndpoint* takeEndpoint) {
    return readNested(reader, value, takeEndpoint, kNestingMax);
}

}  // namespace sevrin::platform::wire
