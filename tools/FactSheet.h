// All that is told about one thing: facts under names, as lines for people and as a JSON record,
// filled together so that neither has a fact that the other has not.
//
// Names are those of the JSON members, in lower case with underscores. Nothing is asked of anybody.
#pragma once

#include <time.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Value.h"
#include "tools/Columns.h"
#include "tools/Json.h"

namespace sevrin {

class FactSheet {
public:
    // A fact that is not there: "-", and null. The names are literals.
    void addNothing(const char* name);

    void addText(const char* name, std::string_view text);
    void addBoolean(const char* name, bool is);  // "yes" or "no"

    // Integers beyond 2^53 are strings in JSON; any other value has its description as text.
    void addNumber(const char* name, const platform::Value& number);

    // To the nanosecond. A time of zero is not there.
    void addTime(const char* name, const timespec& time);

    // By commas on one line, or each on a line of its own; "-" when there are none.
    void addList(const char* name, const std::vector<std::string>& texts);
    void addLines(const char* name, const std::vector<std::string>& texts);

    // The names of those that hold; in JSON all of them.
    using Choices = std::vector<std::pair<const char*, bool>>;
    void addChoices(const char* name, const Choices& choices);

    // A line for each fact, fit for terminals, its name in front.
    [[nodiscard]] std::string text() const;

    // The facts as columns of a table, none of them by default, and this sheet's row of it.
    [[nodiscard]] std::vector<Column> columns() const;
    [[nodiscard]] Columns::Cells cells() const;

    [[nodiscard]] const Json& record() const { return record_; }

private:
    struct Fact {
        const char* name;
        std::vector<std::string> lines;
    };

    void add(const char* name, std::string line, Json value);

    std::vector<Fact> facts_;
    Json record_ = newRecord();
};

}  // namespace sevrin
