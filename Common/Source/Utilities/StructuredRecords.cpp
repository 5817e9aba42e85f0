// Records of several lines: values under keys, dictionaries, dumps of data.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/RecordExtent.h"
#include "Platform/DescriptionScope.h"
#include "Platform/SafeDescription.h"

namespace sevrin {

using platform::Dictionary;
using platform::stringWithFormat;
using platform::Value;
using platform::ValueArray;

namespace {

constexpr std::uint64_t kBytesPerRow = 64;

// The elements of a collection in its order, or nullptr.
const ValueArray* elementsOf(const Value& value) {
    if (const ValueArray* array = value.ifArray()) return array;
    if (const platform::Set* set = value.ifSet()) return &set->members();
    return nullptr;
}

// "0a" for 10, for every byte: a dump has as many of these as data.
constexpr auto kHexOfByte = [] {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<char, 512> hex{};
    for (std::size_t byte = 0; byte < 256; ++byte) {
        hex[2 * byte] = kDigits[byte >> 4];
        hex[2 * byte + 1] = kDigits[byte & 15];
    }
    return hex;
}();

// At least six digits.
void appendOffset(std::string& text, std::uint64_t offset) {
    constexpr std::size_t kDigitsMin = 6;
    char digits[16];
    const auto end = std::to_chars(std::begin(digits), std::end(digits), offset, 16).ptr;
    const auto count = static_cast<std::size_t>(end - digits);
    if (count < kDigitsMin) text.append(kDigitsMin - count, '0');
    text.append(digits, count);
}

// "000040: ", the bytes in hexadecimal, " |", the bytes as ASCII with "_" for all else, "|".
void appendRow(std::string& text, std::string_view bytes, std::uint64_t offset) {
    appendOffset(text, offset);
    text += ": ";
    const std::size_t start = text.size();
    text.resize(start + 3 * bytes.size() + 3, '|');
    char* out = text.data() + start;
    for (const char byte : bytes) {
        std::memcpy(out, &kHexOfByte[2 * std::size_t{static_cast<unsigned char>(byte)}], 2);
        out += 2;
    }
    *out = ' ';
    out += 2;
    for (const char byte : bytes)
        *out++ = byte >= 0x20 && byte <= 0x7E ? byte : '_';
}

}  // namespace

LogLineIdentifierPtr Logger::writeInLineKeyValue(LogClassification classification,
                                                 const LogLineIdentifierPtr& line,
                                                 std::string_view key, const Value& value) {
    const RecordExtent extent;
    const Dictionary* const dictionary = value.ifDictionary();
    const ValueArray* const elements = elementsOf(value);
    const bool isTree = dictionary != nullptr || elements != nullptr;
    if (!isTree || RecordExtent::isTooDeep()) {
        return writeComposed(classification, line, [&](std::string& message) {
            message.append(key).append(": ");
            platform::appendSafeDescription(message, value);
            RecordExtent::noteLine(message.size());
        });
    }

    RecordExtent::noteLine(key.size());
    LogLineIdentifierPtr head = writeInLineFormat(classification, line, "%@:", key);
    if (dictionary != nullptr) {
        logMapInLineDictionary(classification, nullptr, head, *dictionary);
        return head;
    }
    for (std::size_t index = 0; index < elements->size(); ++index) {
        if (RecordExtent::isFull()) {
            writeInLineMessage(classification, head, platform::kEllipsis);
            break;
        }
        writeInLineKeyValue(classification, head, stringWithFormat("[%lu]", index),
                            (*elements)[index]);
    }
    return head;
}

void Logger::logMapInLineDictionary(LogClassification classification,
                                    const LogClassificationMap* map,
                                    const LogLineIdentifierPtr& line,
                                    const Dictionary& dictionary) {
    const RecordExtent extent;
    for (const auto& [key, value] : dictionary) {
        if (RecordExtent::isFull()) {
            writeInLineMessage(classification, line, platform::kEllipsis);
            break;
        }
        std::string keyText = platform::safeDescription(key);
        LogClassification entryClassification = classification;
        if (map != nullptr) {
            const auto found = map->find(keyText);
            if (found != map->end()) entryClassification = found->second;
        }
        if (keyText.starts_with('.')) {
            entryClassification = LogClassification::Subrosa;
            if (keyText == ".Help") keyText = "help";
        }
        writeInLineKeyValue(entryClassification, line, keyText, value);
    }
}

void Logger::logInLineKeyDataTail(LogClassification classification,
                                  const LogLineIdentifierPtr& line, std::string_view key,
                                  std::string_view data, std::uint64_t tail) {
    const std::uint64_t length = data.size();
    const LogLineIdentifierPtr head =
        writeInLineFormat(classification, line, "%@: %lu bytes", key, length);
    const auto writeRows = [&](std::uint64_t begin, std::uint64_t end) {
        for (std::uint64_t offset = begin; offset < end; offset += kBytesPerRow) {
            const std::uint64_t size = std::min(kBytesPerRow, end - offset);
            writeComposed(LogClassification::Details, head, [&](std::string& message) {
                appendRow(message, data.substr(offset, size), offset);
            });
        }
    };

    // A tail as long as the data, rounded up or not, leaves nothing out; so the sums cannot wrap.
    if (tail != 0 && tail < length) {
        const std::uint64_t kept = (tail + kBytesPerRow - 1) / kBytesPerRow * kBytesPerRow;
        if (length > 2 * kept + kBytesPerRow) {
            writeRows(0, kept);
            writeInLineFormat(LogClassification::Details, head, "... %lu more bytes ...",
                              length - 2 * kept);
            writeRows(length - kept, length);
            return;
        }
    }
    writeRows(0, length);
}

}  // namespace sevrin
