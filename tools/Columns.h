// The columns of a verb's text output: which there are, which were asked for, how they line up.
//
// Pure text; knows nothing of terminals. Cells are made printable here.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace sevrin {

struct Column {
    const char* name;  // in lower case, as after --output
    bool isDefault;
    std::size_t widthMin = 0;  // for rows that are printed before the next one is known
};

class Columns {
public:
    // The text of each column of a row, in the order in which the verb lists its columns.
    using Cells = std::vector<std::string>;

    // `wanted` names columns, separated by commas; empty: the default ones. Throws Failure for a
    // name that there is not.
    Columns(std::vector<Column> all, const std::string& wanted);

    // Whether the column at `place` of the verb's list is printed; the cells of others may be
    // empty.
    [[nodiscard]] bool isChosen(std::size_t place) const;

    // How many are printed.
    [[nodiscard]] std::size_t chosenCount() const { return chosen_.size(); }

    // One line, with its end: the names in upper case, or the chosen cells of a row, padded to at
    // least the columns' widths.
    [[nodiscard]] std::string header() const;
    [[nodiscard]] std::string line(const Cells& row) const;

    // Widens the columns to fit `row` and their names, for a table that is known at once.
    void fit(const Cells& row);

private:
    [[nodiscard]] std::string padded(const Cells& cells) const;

    std::vector<Column> all_;
    std::vector<std::size_t> chosen_;  // places in all_
};

}  // namespace sevrin
