// Reads CBOR one item at a time from bytes that nobody vouches for.
//
// Never allocates and never recurses: a container is only its head, the reader's caller walks its
// members. Only definite lengths are accepted; anything else that is not a well-formed item ends
// the reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace sevrin::platform {

struct CborItem {
    enum class Type { Unsigned, Negative, Bytes, Text, Array, Map, Tag, Boolean, Null, Real };

    Type type = Type::Null;

    // The number itself; for Negative the value is -1 - number; for Array the count of members, for
    // Map of pairs; for Tag the tag.
    std::uint64_t number = 0;

    // Bytes and Text: a part of what is being read.
    std::string_view text;

    double real = 0;
    bool boolean = false;
};

class CborReader {
public:
    // Reads `bytes`, which the caller keeps alive.
    explicit CborReader(std::string_view bytes) : bytes_(bytes) {}

    // Reads the next item into `item`. False when there is none or it is malformed; then nothing
    // more can be read.
    [[nodiscard]] bool next(CborItem& item);

    [[nodiscard]] bool atEnd() const { return bytes_.empty(); }
    [[nodiscard]] std::size_t remaining() const { return bytes_.size(); }

private:
    std::string_view bytes_;
};

}  // namespace sevrin::platform
