// The columns of a verb's text output.
#include "tools/Columns.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <utility>

#include "Platform/Assertion.h"
#include "tools/Failure.h"
#include "tools/Printable.h"

namespace sevrin {

namespace {

constexpr const char* kGap = "  ";

std::string upperCase(std::string text) {
    for (char& character : text)
        character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
    return text;
}

}  // namespace

Columns::Columns(std::vector<Column> all, const std::string& wanted) : all_(std::move(all)) {
    if (wanted.empty()) {
        for (std::size_t place = 0; place < all_.size(); ++place) {
            if (all_[place].isDefault) chosen_.push_back(place);
        }
        return;
    }
    std::istringstream names(wanted);
    for (std::string name; std::getline(names, name, ',');) {
        const auto found = std::ranges::find(all_, name, [](const Column& c) { return c.name; });
        if (found == all_.end()) {
            std::vector<std::string> known;
            for (const Column& column : all_)
                known.emplace_back(column.name);
            throw Failure(ExitStatus::Usage, "--output", "there is no column '" + name + "'",
                          fmt::format("{}", fmt::join(known, ",")));
        }
        chosen_.push_back(static_cast<std::size_t>(found - all_.begin()));
    }
}

bool Columns::isChosen(std::size_t place) const {
    return std::ranges::find(chosen_, place) != chosen_.end();
}

std::string Columns::header() const {
    Cells names;
    for (const std::size_t place : chosen_)
        names.push_back(upperCase(all_[place].name));
    return padded(names);
}

std::string Columns::line(const Cells& row) const {
    SEVRIN_ASSERT(row.size() == all_.size(), "a row has a cell for every column");
    Cells cells;
    for (const std::size_t place : chosen_)
        cells.push_back(printable(row[place]));
    return padded(cells);
}

void Columns::fit(const Cells& row) {
    for (std::size_t place = 0; place < all_.size(); ++place) {
        Column& column = all_[place];
        column.widthMin = std::max(
            {column.widthMin, std::string(column.name).size(), columnsOf(printable(row[place]))});
    }
}

std::string Columns::padded(const Cells& cells) const {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        line += cells[i];
        if (i + 1 == cells.size()) break;
        const std::size_t width = columnsOf(cells[i]);
        const std::size_t widthMin = all_[chosen_[i]].widthMin;
        if (width < widthMin) line.append(widthMin - width, ' ');
        line += kGap;
    }
    return line + '\n';
}

}  // namespace sevrin
