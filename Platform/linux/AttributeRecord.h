// The packed form of attributes: which bytes stand where in a record.
//
// Pure; writes only where it is told to and trusts the caller for the room.
#pragma once

#include <cstddef>

#include "Platform/linux/AttributeRequest.h"
#include "Platform/linux/ObjectFacts.h"

namespace sevrin::platform {

// What a record for an object holds: the attributes that have their place, those of them that are
// truly known, and the bytes that the record takes before its texts.
struct RecordShape {
    attribute_set_t packed{};
    attribute_set_t returned{};
    std::size_t fixedSize = 0;
};

// Of directories only the directory group counts, of everything else only the file group.
// `packsAll`: everything wanted has its place, whether it is known or not.
[[nodiscard]] RecordShape shapeOf(const attribute_set_t& wanted, bool packsAll,
                                  const ObjectFacts& facts) noexcept;

// Bytes before the texts: the length word and every attribute of the set.
[[nodiscard]] std::size_t fixedSizeOf(const attribute_set_t& packed) noexcept;

// Bytes that a text takes: its NUL, and what aligns the next one.
[[nodiscard]] constexpr std::size_t textSizeOf(std::string_view text) noexcept {
    return (text.size() + 4) & ~std::size_t{3};
}

// Bytes of the whole record.
[[nodiscard]] std::size_t recordSizeOf(const RecordShape& shape, const ObjectFacts& facts) noexcept;

// Writes the record, recordSizeOf bytes, at `record`, which is aligned to four bytes.
void writeRecord(const RecordShape& shape, const ObjectFacts& facts, std::byte* record) noexcept;

}  // namespace sevrin::platform
