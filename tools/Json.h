// JSON as the tools write it: keys in the order given, and nothing lost in numbers and names.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "Platform/NSDate.h"
#include "Platform/Value.h"

namespace sevrin {

using Json = nlohmann::ordered_json;

// Every record begins like this: {"v":1}.
[[nodiscard]] Json newRecord();

// One line, without its end; always valid UTF-8.
[[nodiscard]] std::string lineOf(const Json& record);

// Puts `text` under `key`. When it is not UTF-8, each stray byte is shown as U+FFFD, and the bytes
// follow in base64 under `key`_bytes.
void addText(Json& record, const std::string& key, std::string_view text);

// A value as JSON: integers beyond 2^53 as strings, for most readers keep numbers as doubles; reals
// that JSON has no number for as "nan", "inf" and "-inf"; data in base64; dates in RFC 3339.
[[nodiscard]] Json jsonOf(const platform::Value& value);

// The value that `json` says: the inverse for what JSON has. Throws std::invalid_argument for null,
// which property lists do not have.
[[nodiscard]] platform::Value valueOf(const Json& json);

[[nodiscard]] std::string base64(std::string_view bytes);

// Local time with its offset from UTC: "2026-11-21T10:52:00.123+01:00".
[[nodiscard]] std::string rfc3339(platform::NSDate date);

}  // namespace sevrin
