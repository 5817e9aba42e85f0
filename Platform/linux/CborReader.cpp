// Reads CBOR one item at a time, by libcbor's streaming decoder: its callbacks fill in one
// CborItem.
#include "Platform/linux/CborReader.h"

#include <cbor.h>

namespace sevrin::platform {

namespace {

// What the callbacks write to; `accepted` stays false for items that we do not take.
struct Target {
    CborItem& item;
    bool accepted = false;

    void take(CborItem::Type type) {
        item.type = type;
        accepted = true;
    }
};

template <CborItem::Type type, typename Number>
void takeNumber(void* context, Number number) {
    auto& target = *static_cast<Target*>(context);
    target.item.number = number;
    target.take(type);
}

template <CborItem::Type type>
void takeBytes(void* context, cbor_data bytes, std::size_t size) {
    auto& target = *static_cast<Target*>(context);
    target.item.text = {reinterpret_cast<const char*>(bytes), size};
    target.take(type);
}

template <typename Real>
void takeReal(void* context, Real real) {
    auto& target = *static_cast<Target*>(context);
    target.item.real = static_cast<double>(real);
    target.take(CborItem::Type::Real);
}

void takeBoolean(void* context, bool boolean) {
    auto& target = *static_cast<Target*>(context);
    target.item.boolean = boolean;
    target.take(CborItem::Type::Boolean);
}

void takeNull(void* context) {
    static_cast<Target*>(context)->take(CborItem::Type::Null);
}

void refuse(void*) {}

constexpr cbor_callbacks kCallbacks = {
    .uint8 = takeNumber<CborItem::Type::Unsigned, std::uint8_t>,
    .uint16 = takeNumber<CborItem::Type::Unsigned, std::uint16_t>,
    .uint32 = takeNumber<CborItem::Type::Unsigned, std::uint32_t>,
    .uint64 = takeNumber<CborItem::Type::Unsigned, std::uint64_t>,
    .negint64 = takeNumber<CborItem::Type::Negative, std::uint64_t>,
    .negint32 = takeNumber<CborItem::Type::Negative, std::uint32_t>,
    .negint16 = takeNumber<CborItem::Type::Negative, std::uint16_t>,
    .negint8 = takeNumber<CborItem::Type::Negative, std::uint8_t>,
    .byte_string_start = refuse,
    .byte_string = takeBytes<CborItem::Type::Bytes>,
    .string = takeBytes<CborItem::Type::Text>,
    .string_start = refuse,
    .indef_array_start = refuse,
    .array_start = takeNumber<CborItem::Type::Array, std::size_t>,
    .indef_map_start = refuse,
    .map_start = takeNumber<CborItem::Type::Map, std::size_t>,
    .tag = takeNumber<CborItem::Type::Tag, std::uint64_t>,
    .float2 = takeReal<float>,
    .float4 = takeReal<float>,
    .float8 = takeReal<double>,
    .undefined = refuse,
    .null = takeNull,
    .boolean = takeBoolean,
    .indef_break = refuse,
};

}  // namespace

bool CborReader::next(CborItem& item) {
    Target target{item};
    const cbor_decoder_result result = cbor_stream_decode(
        reinterpret_cast<cbor_data>(bytes_.data()), bytes_.size(), &kCallbacks, &target);
    if (result.status != CBOR_DECODER_FINISHED || !target.accepted) {
        bytes_ = {};
        return false;
    }
    bytes_.remove_prefix(result.read);
    return true;
}

}  // namespace sevrin::platform
