// The rows of listings of file-system items: which columns there are, their cells, and the records
// that stand for rows in JSON.
//
// Only what is printed is asked of an item, so that a row costs little. What the readers of
// attributes raise (KTFileInfo.h) goes on to the caller, who then has bareCells() and bareRecord().
#pragma once

#include <cstddef>
#include <string>

#include "Common/Source/Utilities/KTFileInfo.h"
#include "tools/Columns.h"
#include "tools/Json.h"

namespace sevrin {

class ItemRows {
public:
    enum class Style {
        Names,  // the name alone
        Long,   // with attributes in front
        Tree,   // the same in columns of a fixed width, names indented below their folders
    };

    // `wanted` is what --output says; empty: what goes with the style.
    ItemRows(Style style, const std::string& wanted);

    [[nodiscard]] Columns& columns() { return columns_; }
    [[nodiscard]] const Columns& columns() const { return columns_; }

    // The cells of an item `depth` levels below the first. `name` is what to call it.
    [[nodiscard]] Columns::Cells cells(KTFileInfo& item, std::string_view name,
                                       std::size_t depth = 0) const;
    [[nodiscard]] static Json record(KTFileInfo& item);

    // Of an item whose attributes cannot be had: its name and kind, and "?" for the rest; in JSON
    // with the reason under "error".
    [[nodiscard]] Columns::Cells bareCells(KTFileInfo& item, std::string_view name,
                                           std::size_t depth = 0) const;
    [[nodiscard]] static Json bareRecord(const KTFileInfo& item, const std::string& reason);

private:
    Style style_;
    Columns columns_;
};

}  // namespace sevrin
