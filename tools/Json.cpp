// JSON as the tools write it.
#include "tools/Json.h"

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>

#include "Platform/Class.h"
#include "Platform/NSDateFormatter.h"
#include "Platform/Text.h"

namespace sevrin {

using platform::NSDate;
using platform::Value;

namespace {

constexpr std::int64_t kExactIntegerMax = std::int64_t{1} << 53;

std::string validUtf8(std::string_view text) {
    std::string valid;
    for (std::size_t position = 0; position < text.size();) {
        const std::size_t start = position;
        const bool isStray = platform::decodeUtf8(text, position) == platform::kInvalidUtf8;
        valid += isStray ? "\ufffd" : text.substr(start, position - start);
    }
    return valid;
}

Json jsonOfReal(double real) {
    if (std::isfinite(real)) return real;
    if (std::isnan(real)) return "nan";
    return real > 0 ? "inf" : "-inf";
}

Json jsonOfArray(const platform::ValueArray& members) {
    Json array = Json::array();
    for (const Value& member : members)
        array.push_back(jsonOf(member));
    return array;
}

Json jsonOfDictionary(const platform::Dictionary& dictionary) {
    Json object = Json::object();
    for (const auto& [key, content] : dictionary)
        object[key.ifString() ? validUtf8(*key.ifString()) : lineOf(jsonOf(key))] = jsonOf(content);
    return object;
}

}  // namespace

Json newRecord() {
    return Json{{"v", 1}};
}

std::string lineOf(const Json& record) {
    return record.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void addText(Json& record, const std::string& key, std::string_view text) {
    record[key] = validUtf8(text);
    if (!platform::isValidUtf8(text)) record[key + "_bytes"] = base64(text);
}

Json jsonOf(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Null:
            return nullptr;
        case Value::Kind::Boolean:
            return *value.ifBoolean();
        case Value::Kind::Signed: {
            const std::int64_t number = *value.ifSigned();
            const bool isExact = number >= -kExactIntegerMax && number <= kExactIntegerMax;
            return isExact ? Json(number) : Json(std::to_string(number));
        }
        case Value::Kind::Unsigned:
            return std::to_string(*value.ifUnsigned());
        case Value::Kind::Double:
            return jsonOfReal(*value.ifDouble());
        case Value::Kind::Data:
            return base64(value.ifData()->bytes);
        case Value::Kind::Date:
            return rfc3339(*value.ifDate());
        case Value::Kind::Array:
            return jsonOfArray(*value.ifArray());
        case Value::Kind::Dictionary:
            return jsonOfDictionary(*value.ifDictionary());
        case Value::Kind::Set:
            return jsonOfArray(value.ifSet()->members());
        case Value::Kind::String:
            return validUtf8(*value.ifString());
        case Value::Kind::Object:
            return value.object()->isa().name();
    }
    return nullptr;
}

Value valueOf(const Json& json) {
    switch (json.type()) {
        case Json::value_t::boolean:
            return json.get<bool>();
        case Json::value_t::number_integer:
            return json.get<std::int64_t>();
        case Json::value_t::number_unsigned:
            return json.get<std::uint64_t>();
        case Json::value_t::number_float:
            return json.get<double>();
        case Json::value_t::string:
            return json.get<std::string>();
        case Json::value_t::array: {
            platform::ValueArray members;
            for (const Json& member : json)
                members.push_back(valueOf(member));
            return members;
        }
        case Json::value_t::object: {
            platform::Dictionary dictionary;
            for (const auto& [key, content] : json.items())
                dictionary.set(key, valueOf(content));
            return dictionary;
        }
        case Json::value_t::null:
        case Json::value_t::binary:
        case Json::value_t::discarded:
            break;
    }
    throw std::invalid_argument("null is no value that a message can carry");
}

std::string base64(std::string_view bytes) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t start = 0; start < bytes.size(); start += 3) {
        const std::string_view group = bytes.substr(start, 3);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8 | (i < group.size() ? static_cast<unsigned char>(group[i]) : 0u);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= group.size() ? kDigits[bits >> (18 - 6 * i) & 63] : '=';
    }
    return text;
}

std::string rfc3339(NSDate date) {
    static const platform::NSDateFormatter& formatter =
        *new platform::NSDateFormatter("yyyy-MM-dd'T'HH:mm:ss.SSSZ");
    std::string text = formatter.stringFromDate(date);
    return text.insert(text.size() - 2, ":");
}

}  // namespace sevrin
