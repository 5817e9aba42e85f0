// Notifications as text and from text.
#include "tools/NotificationText.h"

#include "tools/Failure.h"

namespace sevrin {

using platform::Dictionary;
using platform::Value;

namespace {

// Whether `text` may stand bare between blanks, after a key and an equals sign.
bool isPlain(const std::string& text) {
    return !text.empty() && text.find_first_of(" \t\n\r\"'\\=,{}[]") == std::string::npos;
}

std::string textOf(const Value& value) {
    const std::string* const text = value.ifString();
    return text && isPlain(*text) ? *text : lineOf(jsonOf(value));
}

}  // namespace

Dictionary userInfoFromText(const std::vector<std::string>& words, const std::string& json) {
    Dictionary userInfo;
    if (!json.empty()) {
        const Json parsed = Json::parse(json, nullptr, false);
        if (!parsed.is_object())
            throw Failure(ExitStatus::Usage, "--info-json", "not a JSON object",
                          R"(--info-json '{"id": "com.example.clock", "count": 3}')");
        userInfo = *valueOf(parsed).ifDictionary();
    }
    for (const std::string& word : words) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos || equals == 0)
            throw Failure(ExitStatus::Usage, "--info", "'" + word + "' is not KEY=VALUE");
        userInfo.set(word.substr(0, equals), word.substr(equals + 1));
    }
    return userInfo;
}

std::string textOf(const std::optional<Dictionary>& userInfo) {
    if (!userInfo) return "-";
    std::string text;
    for (const auto& [key, content] : *userInfo) {
        if (!text.empty()) text += ' ';
        text += textOf(key) + '=' + textOf(content);
    }
    return text;
}

void addNotification(Json& record, const Notification& notification) {
    addText(record, "name", notification.name);
    record["source"] = nullptr;
    if (notification.source) addText(record, "source", *notification.source);
    record["info"] = nullptr;
    if (notification.userInfo) record["info"] = jsonOf(*notification.userInfo);
}

}  // namespace sevrin
