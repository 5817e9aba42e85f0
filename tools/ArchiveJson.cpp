// An archive as JSON and back.
//
// Nesting is bounded in both, so these may recurse.
#include <fmt/format.h>

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/BinaryPropertyListWriter.h"
#include "tools/ArchiveGraph.h"

namespace sevrin {

using platform::BinaryPropertyList;
using platform::BinaryPropertyListWriter;
using Kind = BinaryPropertyList::Kind;

namespace {

using Index = BinaryPropertyList::Index;

constexpr std::int64_t kExactIntegerMax = std::int64_t{1} << 53;

Json jsonOfReal(double real) {
    if (std::isfinite(real)) return {{"real", real}};
    if (std::isinf(real)) return {{"real", real > 0 ? "inf" : "-inf"}};
    // There are many that are not numbers.
    return {{"real", "nan"}, {"bits", fmt::format("{:016x}", std::bit_cast<std::uint64_t>(real))}};
}

Json jsonOfInteger(const platform::Value& number) {
    const std::int64_t* const exact = number.ifSigned();
    if (exact && *exact >= -kExactIntegerMax && *exact <= kExactIntegerMax) return *exact;
    return {{"integer", number.description()}};
}

Json jsonOfNode(const BinaryPropertyList& list, Index node) {
    switch (list.kind(node)) {
        case Kind::Boolean:
            return list.boolean(node);
        case Kind::Integer:
            return jsonOfInteger(list.integer(node));
        case Kind::Real:
            return jsonOfReal(list.real(node));
        case Kind::Date:
            return {{"date", jsonOfReal(list.date(node))["real"]}};
        case Kind::Data:
            return {{"data", base64(list.data(node))}};
        case Kind::String:
            return list.string(node);
        case Kind::UID:
            return {{"uid", list.uid(node)}};
        case Kind::Array: {
            Json array = Json::array();
            for (std::size_t place = 0; place < list.size(node); ++place)
                array.push_back(jsonOfNode(list, list.element(node, place)));
            return {{"array", std::move(array)}};
        }
        case Kind::Dictionary:
            break;
    }
    std::vector<std::pair<std::string, Json>> members;
    for (std::size_t place = 0; place < list.size(node); ++place) {
        members.emplace_back(list.string(list.key(node, place)),
                             jsonOfNode(list, list.value(node, place)));
    }
    // Put in one by one they would each be compared with all before them.
    Json object = Json::object();
    Json::object_t::Container& container = object.get_ref<Json::object_t&>();
    container.reserve(members.size());
    for (auto& [key, value] : members)
        container.emplace_back(std::move(key), std::move(value));
    return {{"dictionary", std::move(object)}};
}

[[noreturn]] void fail(const std::string& what) {
    throw ArchiveError("no archive as JSON: " + what);
}

// As much of a text as a message shows.
std::string excerpt(std::string_view text) {
    constexpr std::size_t kBytesMax = 200;
    return std::string(text.substr(0, kBytesMax)) + (text.size() > kBytesMax ? "..." : "");
}

// Refuses, while JSON is parsed, what the parser would drop: all but one of the members of an
// object that have the same name.
class NamesOnce {
public:
    bool operator()(int, Json::parse_event_t event, const Json& parsed) {
        switch (event) {
            case Json::parse_event_t::object_start:
                names_.emplace_back();
                break;
            case Json::parse_event_t::object_end:
                names_.pop_back();
                break;
            case Json::parse_event_t::key:
                if (!names_.back().insert(parsed.get<std::string>()).second) {
                    fail("a member that stands twice: " + excerpt(lineOf(parsed)));
                }
                break;
            default:
                break;
        }
        return true;
    }

private:
    std::vector<std::set<std::string>> names_;  // of the objects around, the innermost last
};

// Throws ArchiveError with the line and the column of the mistake.
Json parsed(std::string_view text) {
    if (text.empty()) throw ArchiveError("no JSON: it is empty");
    try {
        return Json::parse(text, NamesOnce());
    } catch (const Json::exception& error) {
        // The parser puts its own name and number for the mistake in brackets before the words.
        constexpr std::string_view kNameEnd = "] ";
        const std::string_view reason = error.what();
        const std::size_t nameEnd = reason.find(kNameEnd);
        const std::size_t start = nameEnd == reason.npos ? 0 : nameEnd + kNameEnd.size();
        throw ArchiveError("no JSON: " + excerpt(reason.substr(start)));
    }
}

// The bytes that base64 spells, with its padding; nothing for other text.
std::optional<std::string> bytesOfBase64(std::string_view text) {
    constexpr std::string_view kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (text.size() % 4 != 0) return std::nullopt;
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    text.remove_suffix(padding);
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char character : text) {
        const std::size_t digit = kDigits.find(character);
        if (digit == std::string_view::npos) return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count & 0xFF);
    }
    const bool isWhole = (bits & ((1U << count) - 1)) == 0 && count == 2 * padding;
    return isWhole ? std::optional(bytes) : std::nullopt;
}

class ArchiveWriter {
public:
    std::string write(const Json& archive) {
        const Index top = add(archive);
        return writer_.finish(top);
    }

private:
    Index add(const Json& json) {
        switch (json.type()) {
            case Json::value_t::boolean:
                return writer_.addBoolean(json.get<bool>());
            case Json::value_t::number_integer:
                return writer_.addInteger(json.get<std::int64_t>());
            case Json::value_t::number_unsigned:
                return writer_.addUnsigned(json.get<std::uint64_t>());
            case Json::value_t::string:
                return writer_.addString(json.get_ref<const std::string&>());
            case Json::value_t::object:
                break;
            case Json::value_t::number_float:
                fail("the number " + lineOf(json) +
                     " stands alone; it must be {\"real\": ...}, or {\"integer\": \"...\"}");
            default:
                fail("null or an array stands alone");
        }
        if (json.empty()) fail("an object without a kind");
        const auto bits = json.find("bits");
        if (json.size() == 2 && bits != json.end() && json.value("real", Json()) == "nan") {
            return writer_.addReal(notANumber(*bits));
        }
        if (json.size() != 1) fail("an object with several members: " + excerpt(lineOf(json)));
        return addTyped(json.begin().key(), json.begin().value());
    }

    Index addTyped(const std::string& kind, const Json& content) {
        if (kind == "real") return writer_.addReal(real(content));
        if (kind == "date") return writer_.addDate(real(content));
        if (kind == "integer") return addInteger(content);
        if (kind == "uid") return addUID(content);
        if (kind == "data") {
            const auto bytes =
                content.is_string() ? bytesOfBase64(content.get<std::string>()) : std::nullopt;
            if (!bytes) fail("data that is not base64");
            return writer_.addData(*bytes);
        }
        if (kind != "array" && kind != "dictionary") fail("a value of no known kind: " + kind);
        if (++depth_ > platform::kPropertyListDepthMax) fail("nested too deep");
        const Index index = writer_.reserve();
        kind == "array" ? fillArray(index, content) : fillDictionary(index, content);
        --depth_;
        return index;
    }

    void fillArray(Index index, const Json& content) {
        if (!content.is_array()) fail("an array that is none");
        std::vector<Index> elements;
        for (const Json& element : content)
            elements.push_back(add(element));
        writer_.setArray(index, elements);
    }

    void fillDictionary(Index index, const Json& content) {
        if (!content.is_object()) fail("a dictionary that is no object");
        std::vector<Index> keys;
        std::vector<Index> values;
        for (const auto& [key, value] : content.items()) {
            keys.push_back(writer_.addString(key));
            values.push_back(add(value));
        }
        writer_.setDictionary(index, keys, values);
    }

    static double real(const Json& content) {
        if (content.is_number()) return content.get<double>();
        if (content == "inf") return std::numeric_limits<double>::infinity();
        if (content == "-inf") return -std::numeric_limits<double>::infinity();
        if (content == "nan") return std::numeric_limits<double>::quiet_NaN();
        fail("a real that is no number: " + excerpt(lineOf(content)));
    }

    // The one of all that are not numbers that has these bits, in hexadecimal.
    static double notANumber(const Json& bits) {
        const std::string digits = bits.is_string() ? bits.get<std::string>() : std::string();
        std::uint64_t number = 0;
        const char* const end = digits.data() + digits.size();
        const auto read = std::from_chars(digits.data(), end, number, 16);
        const auto real = std::bit_cast<double>(number);
        if (read.ec != std::errc() || read.ptr != end || !std::isnan(real)) {
            fail("bits that are not those of a nan: " + excerpt(lineOf(bits)));
        }
        return real;
    }

    Index addInteger(const Json& content) {
        if (!content.is_string()) fail("an integer that is not spelled in digits");
        const std::string digits = content.get<std::string>();
        const char* const end = digits.data() + digits.size();
        std::int64_t number = 0;
        auto read = std::from_chars(digits.data(), end, number);
        if (read.ec == std::errc() && read.ptr == end) return writer_.addInteger(number);
        std::uint64_t large = 0;
        read = std::from_chars(digits.data(), end, large);
        if (read.ec == std::errc() && read.ptr == end) return writer_.addUnsigned(large);
        fail("an integer of more than 64 bits: " + digits);
    }

    Index addUID(const Json& content) {
        if (!content.is_number_unsigned() ||
            content.get<std::uint64_t>() > std::numeric_limits<std::uint32_t>::max()) {
            fail("a reference that is no number of an object");
        }
        return writer_.addUID(content.get<std::uint32_t>());
    }

    BinaryPropertyListWriter writer_;
    std::size_t depth_ = 0;
};

}  // namespace

Json jsonOfArchive(const ArchiveGraph& graph) {
    Json record = newRecord();
    record["archive"] = jsonOfNode(graph.list(), graph.list().top());
    return record;
}

std::string archiveOfJson(std::string_view text) {
    const Json json = parsed(text);
    if (!json.is_object() || !json.contains("archive")) fail("there is no member \"archive\"");
    if (json.contains("v") && json["v"] != 1) fail("a version other than 1");
    try {
        std::string bytes = ArchiveWriter().write(json["archive"]);
        static_cast<void>(ArchiveGraph(bytes));
        return bytes;
    } catch (const platform::PropertyListError& error) {
        fail(error.what());
    }
}

}  // namespace sevrin
