// Words of others, made fit for a terminal and for one line.
#include "tools/Printable.h"

#include <fmt/format.h>

#include <cstdint>

#include "Platform/Text.h"

namespace sevrin {

using platform::decodeUtf8;
using platform::isControlOrIllegal;
using platform::kInvalidUtf8;

std::string printable(std::string_view text) {
    std::string shown;
    shown.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t start = position;
        const char32_t character = decodeUtf8(text, position);
        const auto number = static_cast<std::uint32_t>(character);
        if (character == kInvalidUtf8) {
            shown += fmt::format("\\x{:02x}", static_cast<unsigned char>(text[start]));
        } else if (!isControlOrIllegal(character)) {
            shown += text.substr(start, position - start);
        } else if (number <= 0xffff) {
            shown += fmt::format("\\u{:04x}", number);
        } else {
            shown += fmt::format("\\U{:08x}", number);
        }
    }
    return shown;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    for (std::size_t position = 0; position < text.size(); ++columns)
        decodeUtf8(text, position);
    return columns;
}

}  // namespace sevrin
