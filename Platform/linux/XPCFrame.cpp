// The frame header and the greeting, byte by byte.
#include "Platform/linux/XPCFrame.h"

#include <bit>
#include <cstring>

#include "Platform/XPCLimits.h"
#include "Platform/linux/CborReader.h"
#include "Platform/linux/WireValue.h"

namespace sevrin::platform {

namespace {

static_assert(std::endian::native == std::endian::little,
              "headers are copied as they lie in memory");

template <typename Number>
Number loadLittleEndian(const char* place) {
    Number number;
    std::memcpy(&number, place, sizeof number);
    return number;
}

template <typename Number>
void storeLittleEndian(char* place, Number number) {
    std::memcpy(place, &number, sizeof number);
}

bool isSerialRight(FrameKind kind, std::uint64_t serial) {
    const bool wantsSerial = kind == FrameKind::Request || kind == FrameKind::Reply;
    return wantsSerial == (serial != 0);
}

}  // namespace

std::optional<FrameHeader> FrameHeader::parse(std::string_view bytes, std::size_t bodyBytesMax) {
    FrameHeader header;
    header.bodyBytes = loadLittleEndian<std::uint32_t>(bytes.data());
    const auto kind = loadLittleEndian<std::uint16_t>(bytes.data() + 4);
    header.descriptors = loadLittleEndian<std::uint16_t>(bytes.data() + 6);
    header.serial = loadLittleEndian<std::uint64_t>(bytes.data() + 8);

    if (header.bodyBytes > bodyBytesMax) return std::nullopt;
    if (kind < static_cast<std::uint16_t>(FrameKind::Greeting) ||
        kind > static_cast<std::uint16_t>(FrameKind::Reply)) {
        return std::nullopt;
    }
    header.kind = static_cast<FrameKind>(kind);
    if (header.descriptors > kDescriptorsPerFrameMax) return std::nullopt;
    if (!isSerialRight(header.kind, header.serial)) return std::nullopt;
    return header;
}

void FrameHeader::write(char* place) const {
    storeLittleEndian(place, bodyBytes);
    storeLittleEndian(place + 4, static_cast<std::uint16_t>(kind));
    storeLittleEndian(place + 6, descriptors);
    storeLittleEndian(place + 8, serial);
}

void appendGreeting(std::string& out) {
    const std::size_t start = out.size();
    out.append(FrameHeader::kBytes, '\0');
    wire::appendArrayHead(out, 2);
    wire::appendText(out, kGreetingWord);
    wire::appendUnsigned(out, kProtocolVersion);
    FrameHeader header;
    header.kind = FrameKind::Greeting;
    header.bodyBytes = static_cast<std::uint32_t>(out.size() - start - FrameHeader::kBytes);
    header.write(out.data() + start);
}

std::optional<std::uint64_t> readGreeting(std::string_view body) {
    CborReader reader(body);
    CborItem item;
    if (!reader.next(item) || item.type != CborItem::Type::Array || item.number < 2)
        return std::nullopt;
    if (!reader.next(item) || item.type != CborItem::Type::Text || item.text != kGreetingWord)
        return std::nullopt;
    if (!reader.next(item) || item.type != CborItem::Type::Unsigned) return std::nullopt;
    return item.number;  // Later versions may say more after it; that is theirs.
}

}  // namespace sevrin::platform
