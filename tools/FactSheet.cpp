// All that is told about one thing, as lines and as JSON.
#include "tools/FactSheet.h"

#include <algorithm>

#include "tools/ItemText.h"
#include "tools/Printable.h"

namespace sevrin {

using platform::Value;

namespace {

constexpr const char* kNothing = "-";
constexpr std::size_t kGap = 2;

Json arrayOf(const std::vector<std::string>& texts) {
    Json array = Json::array();
    for (const std::string& text : texts)
        array.push_back(jsonOf(Value(text)));
    return array;
}

}  // namespace

void FactSheet::add(const char* name, std::string line, Json value) {
    facts_.push_back({name, {std::move(line)}});
    record_[name] = std::move(value);
}

void FactSheet::addNothing(const char* name) {
    add(name, kNothing, nullptr);
}

void FactSheet::addText(const char* name, std::string_view text) {
    facts_.push_back({name, {std::string(text)}});
    sevrin::addText(record_, name, text);
}

void FactSheet::addBoolean(const char* name, bool is) {
    add(name, is ? "yes" : "no", is);
}

void FactSheet::addNumber(const char* name, const Value& number) {
    add(name, number.isNull() ? kNothing : number.description(), jsonOf(number));
}

void FactSheet::addTime(const char* name, const timespec& time) {
    if (!isKept(time)) return addNothing(name);
    const std::string text = exactTime(time);
    add(name, text, text);
}

void FactSheet::addList(const char* name, const std::vector<std::string>& texts) {
    add(name, texts.empty() ? kNothing : joined(texts, ", "), arrayOf(texts));
}

void FactSheet::addLines(const char* name, const std::vector<std::string>& texts) {
    if (texts.empty()) return add(name, kNothing, Json::array());
    facts_.push_back({name, texts});
    record_[name] = arrayOf(texts);
}

void FactSheet::addChoices(const char* name, const Choices& choices) {
    std::vector<std::string> names;
    Json object = Json::object();
    for (const auto& [choice, holds] : choices) {
        if (holds) names.emplace_back(choice);
        object[choice] = holds;
    }
    add(name, names.empty() ? kNothing : joined(names, ", "), std::move(object));
}

std::string FactSheet::text() const {
    std::size_t width = 0;
    for (const Fact& fact : facts_)
        width = std::max(width, std::string_view(fact.name).size() + kGap);
    std::string text;
    for (const Fact& fact : facts_) {
        std::string label = fact.name;
        std::ranges::replace(label, '_', ' ');
        for (const std::string& line : fact.lines) {
            if (!line.empty()) label.resize(width, ' ');
            text += label + printable(line);
            text += '\n';
            label.clear();
        }
    }
    return text;
}

std::vector<Column> FactSheet::columns() const {
    std::vector<Column> columns;
    for (const Fact& fact : facts_)
        columns.push_back({fact.name, false});
    return columns;
}

Columns::Cells FactSheet::cells() const {
    Columns::Cells cells;
    for (const Fact& fact : facts_)
        cells.push_back(joined(fact.lines, ", "));
    return cells;
}

}  // namespace sevrin
