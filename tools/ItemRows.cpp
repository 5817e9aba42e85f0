// The rows of listings of file-system items.
#include "tools/ItemRows.h"

#include <fmt/format.h>

#include <array>

#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "tools/ItemText.h"

namespace sevrin {

using platform::Value;

namespace {

constexpr const char* kNothing = "-";
constexpr const char* kUnknown = "?";

// Links count as files here: they have sizes too.
const KTRegularFile* sizedItem(const KTFileInfo& item) {
    return dynamic_cast<const KTRegularFile*>(&item);
}

std::string sizeText(const KTFileInfo& item, std::int64_t (KTRegularFile::*size)() const) {
    const KTRegularFile* const file = sizedItem(item);
    return file == nullptr ? kNothing : std::to_string((file->*size)());
}

std::string timeCell(const timespec& time) {
    return isKept(time) ? shortTime(time) : kNothing;
}

struct ItemColumn {
    const char* name;
    bool isLong;             // shown with attributes
    std::size_t widthMin;    // in a tree
    bool needsNoAttributes;  // known of every item of a listing
    std::string (*text)(KTFileInfo& item);
};

// The order in which they are printed unless --output says another; the name is put behind them.
constexpr std::array kColumns = {
    ItemColumn{"mode", true, 10, false,
               [](KTFileInfo& item) { return modeText(item.type(), item.access()); }},
    ItemColumn{"links", true, 5, false,
               [](KTFileInfo& item) { return std::to_string(item.linkCount()); }},
    ItemColumn{"owner", true, 8, false, [](KTFileInfo& item) { return ownerName(item.ownerID()); }},
    ItemColumn{"group", true, 8, false, [](KTFileInfo& item) { return groupName(item.groupID()); }},
    ItemColumn{"size", true, 12, false,
               [](KTFileInfo& item) { return sizeText(item, &KTRegularFile::logicalSize); }},
    ItemColumn{"modified", true, 19, false,
               [](KTFileInfo& item) { return timeCell(item.modifiedTimeSpec()); }},
    ItemColumn{"kind", false, 16, true,
               [](KTFileInfo& item) -> std::string { return kindOf(item); }},
    ItemColumn{"allocated", false, 12, false,
               [](KTFileInfo& item) { return sizeText(item, &KTRegularFile::physicalSize); }},
    ItemColumn{"data_length", false, 12, false,
               [](KTFileInfo& item) { return sizeText(item, &KTRegularFile::dataLength); }},
    ItemColumn{"owner_id", false, 8, false,
               [](KTFileInfo& item) { return std::to_string(item.ownerID()); }},
    ItemColumn{"group_id", false, 8, false,
               [](KTFileInfo& item) { return std::to_string(item.groupID()); }},
    ItemColumn{"access", false, 6, false,
               [](KTFileInfo& item) { return accessText(item.effectiveAccess()); }},
    ItemColumn{"flags", false, 8, false,
               [](KTFileInfo& item) {
                   const std::vector<std::string> names = flagNames(item.fileFlags());
                   return names.empty() ? kNothing : joined(names, ",");
               }},
    ItemColumn{"created", false, 19, false,
               [](KTFileInfo& item) { return timeCell(item.createdTimeSpec()); }},
    ItemColumn{"changed", false, 19, false,
               [](KTFileInfo& item) { return timeCell(item.attributeChangedTimeSpec()); }},
    ItemColumn{"id", false, 10, false,
               [](KTFileInfo& item) { return std::to_string(item.localIdentifier()); }},
    ItemColumn{"device", false, 10, false,
               [](KTFileInfo& item) { return std::to_string(item.deviceID()); }},
    ItemColumn{"target", false, 0, false,
               [](KTFileInfo& item) -> std::string {
                   const auto link = item.asSymbolicLink();
                   return link ? link->contents() : kNothing;
               }},
    ItemColumn{"path", false, 0, true, [](KTFileInfo& item) { return item.path(); }},
};

std::vector<Column> columnsOf(ItemRows::Style style) {
    std::vector<Column> columns;
    for (const ItemColumn& each : kColumns) {
        columns.push_back({each.name, each.isLong && style != ItemRows::Style::Names,
                           style == ItemRows::Style::Tree ? each.widthMin : 0});
    }
    columns.push_back({"name", true});
    return columns;
}

// What a listing shows in the place of the name. A tree tells folders by a slash and indents what
// is in them; where attributes are shown, links show where they lead.
std::string nameCell(ItemRows::Style style, KTFileInfo& item, std::string_view name,
                     std::size_t depth, bool showsTarget) {
    std::string text;
    if (style == ItemRows::Style::Tree) text.append(2 * depth, ' ');
    text += name;
    if (style == ItemRows::Style::Tree && item.isDirectory() && !name.ends_with('/')) text += '/';
    if (showsTarget && style != ItemRows::Style::Names) {
        if (const auto link = item.asSymbolicLink()) text.append(" -> ").append(link->contents());
    }
    return text;
}

void addTime(Json& record, const char* key, const timespec& time) {
    record[key] = isKept(time) ? Json(exactTime(time)) : Json(nullptr);
}

// What has no sizes has them as null.
void addSizes(Json& record, const KTRegularFile* file) {
    const auto number = [file](std::int64_t (KTRegularFile::*size)() const) {
        return file == nullptr ? Json(nullptr) : jsonOf(Value((file->*size)()));
    };
    record["size"] = number(&KTRegularFile::logicalSize);
    record["allocated"] = number(&KTRegularFile::physicalSize);
    record["data_length"] = number(&KTRegularFile::dataLength);
}

void addTarget(Json& record, KTFileInfo& item) {
    if (const auto link = item.asSymbolicLink()) {
        addText(record, "target", link->contents());
    } else {
        record["target"] = nullptr;
    }
}

}  // namespace

ItemRows::ItemRows(Style style, const std::string& wanted)
    : style_(style), columns_(columnsOf(style), wanted) {}

Columns::Cells ItemRows::cells(KTFileInfo& item, std::string_view name, std::size_t depth) const {
    Columns::Cells cells(kColumns.size() + 1);
    for (std::size_t place = 0; place < kColumns.size(); ++place) {
        if (columns_.isChosen(place)) cells[place] = kColumns[place].text(item);
    }
    cells.back() = nameCell(style_, item, name, depth, true);
    return cells;
}

Columns::Cells ItemRows::bareCells(KTFileInfo& item, std::string_view name,
                                   std::size_t depth) const {
    Columns::Cells cells(kColumns.size() + 1, kUnknown);
    for (std::size_t place = 0; place < kColumns.size(); ++place) {
        if (kColumns[place].needsNoAttributes) cells[place] = kColumns[place].text(item);
    }
    cells.back() = nameCell(style_, item, name, depth, false);
    return cells;
}

Json ItemRows::bareRecord(const KTFileInfo& item, const std::string& reason) {
    Json record = newRecord();
    addText(record, "path", item.path());
    addText(record, "name", item.name());
    record["kind"] = kindOf(item);
    record["type"] = item.type();
    addText(record, "error", reason);
    return record;
}

Json ItemRows::record(KTFileInfo& item) {
    Json record = newRecord();
    addText(record, "path", item.path());
    addText(record, "name", item.name());
    record["kind"] = kindOf(item);
    record["type"] = item.type();
    record["mode"] = fmt::format("{:04o}", item.access());
    record["links"] = item.linkCount();
    record["owner_id"] = item.ownerID();
    addText(record, "owner", ownerName(item.ownerID()));
    record["group_id"] = item.groupID();
    addText(record, "group", groupName(item.groupID()));
    record["access"] = accessText(item.effectiveAccess());
    record["flags"] = flagNames(item.fileFlags());
    addSizes(record, sizedItem(item));
    addTime(record, "created", item.createdTimeSpec());
    addTime(record, "modified", item.modifiedTimeSpec());
    addTime(record, "changed", item.attributeChangedTimeSpec());
    record["id"] = jsonOf(Value(item.localIdentifier()));
    record["device"] = item.deviceID();
    addTarget(record, item);
    return record;
}

}  // namespace sevrin
