// `switchboardctl path stat`: every attribute that the model has of an item.
#include <fmt/format.h>

#include <filesystem>
#include <sstream>
#include <system_error>

#include "Common/Source/Utilities/KTNonexistentFile.h"
#include "Common/Source/Utilities/KTRegularFile.h"
#include "Common/Source/Utilities/KTSymbolicLink.h"
#include "Common/Source/Utilities/KTVolumeInfo.h"
#include "Platform/ACL.h"
#include "tools/FactSheet.h"
#include "tools/ItemText.h"
#include "tools/Verbs/PathActions.h"

namespace sevrin {

using platform::NSException;
using platform::Value;

namespace {

// Adds what `read` gives to the sheet by `add`; nothing where there is no such thing to ask, or no
// answer. The names of facts do not depend on the item.
template <typename Add>
void addIf(FactSheet& sheet, const char* name, bool is, Add add) {
    if (!is) return sheet.addNothing(name);
    add();
}

void addNames(FactSheet& sheet, KTFileInfo& item) {
    const bool exists = item.exists();
    sheet.addText("path", item.path());
    sheet.addText("name", item.name());
    sheet.addText("extension", item.extension());
    addIf(sheet, "display_name", exists,
          [&] { sheet.addText("display_name", item.displayName()); });
    addIf(sheet, "display_path", exists,
          [&] { sheet.addText("display_path", item.displayPath()); });
    sheet.addText("url", item.url()->absoluteString());
    sheet.addText("kind", kindOf(item));
    sheet.addNumber("type", item.type());
    sheet.addBoolean("exists", exists);
    sheet.addBoolean("kept_by_backups", item.isPersistentObject());
}

void addSizes(FactSheet& sheet, KTFileInfo& item) {
    const auto* const file = dynamic_cast<const KTRegularFile*>(&item);
    const auto link = item.asSymbolicLink();
    const auto directory = item.asDirectory();
    const auto addSize = [&](const char* name, auto read) {
        addIf(sheet, name, file != nullptr, [&] { sheet.addNumber(name, read(*file)); });
    };
    addSize("size", [](const KTRegularFile& each) { return each.logicalSize(); });
    addSize("allocated", [](const KTRegularFile& each) { return each.physicalSize(); });
    addSize("data_length", [](const KTRegularFile& each) { return each.dataLength(); });
    addIf(sheet, "resource_length", link != nullptr,
          [&] { sheet.addNumber("resource_length", link->rsrcLength()); });
    addIf(sheet, "target", link != nullptr, [&] { sheet.addText("target", link->contents()); });
    addIf(sheet, "entries", directory != nullptr,
          [&] { sheet.addNumber("entries", directory->count()); });
    addIf(sheet, "mount_point", directory != nullptr,
          [&] { sheet.addBoolean("mount_point", directory->isMountPoint()); });
    sheet.addNumber("links", item.linkCount());
    sheet.addBoolean("hard_link", item.isHardLink());
}

std::vector<std::string> linesOfACL(const platform::ACL* acl) {
    std::vector<std::string> lines;
    if (acl == nullptr) return lines;
    std::istringstream text(acl_to_text(*acl));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

void addRights(FactSheet& sheet, KTFileInfo& item) {
    sheet.addText("permissions", modeText(item.type(), item.access()));
    sheet.addText("mode", fmt::format("{:04o}", item.access()));
    sheet.addNumber("owner_id", item.ownerID());
    sheet.addText("owner", ownerName(item.ownerID()));
    sheet.addNumber("group_id", item.groupID());
    sheet.addText("group", groupName(item.groupID()));
    sheet.addText("access", accessText(item.effectiveAccess()));
    sheet.addList("flags", flagNames(item.fileFlags()));
    sheet.addLines("acl", linesOfACL(item.acl()));
}

void addIdentity(FactSheet& sheet, KTFileInfo& item) {
    sheet.addTime("created", item.createdTimeSpec());
    sheet.addTime("modified", item.modifiedTimeSpec());
    sheet.addTime("changed", item.attributeChangedTimeSpec());
    sheet.addNumber("id", item.localIdentifier());
    sheet.addNumber("device", item.deviceID());
    sheet.addNumber("script", item.script());
}

// What only an item has that is there.
constexpr const char* kRightsAndIdentity[] = {
    "permissions", "mode",    "owner_id", "owner",   "group_id", "group",  "access", "flags",
    "acl",         "created", "modified", "changed", "id",       "device", "script"};

void addURLAttributes(FactSheet& sheet, KTFileInfo& item) {
    const bool exists = item.exists();
    const auto directory = item.asDirectory();
    const auto addBoolean = [&](const char* name, bool is, auto read) {
        addIf(sheet, name, is, [&] { sheet.addBoolean(name, read()); });
    };
    addBoolean("hidden", exists, [&] { return item.isHidden(); });
    addBoolean("hidden_extension", exists, [&] { return item.isHiddenExtension(); });
    addBoolean("excluded_from_backup", exists, [&] { return item.isExcludedFromBackup(); });
    addBoolean("package", directory != nullptr, [&] { return directory->isPackage(); });
    const Value volume = exists ? item.volumeIdentifier() : Value();
    const platform::Data* const data = volume.ifData();
    addIf(sheet, "volume_identifier", !volume.isNull(), [&] {
        sheet.addText("volume_identifier", data != nullptr ? data->bytes : volume.description());
    });
}

// Facts about the volume fail where it is in no mount table that this process sees; the item's own
// stand nevertheless.
void addVolume(FactSheet& sheet, KTFileInfo& item) {
    KTVolumeInfoPtr volume;
    std::optional<std::string> relative;
    try {
        volume = item.volumeInfo();
        if (volume) relative = item.volumeRelativePath();
    } catch (const NSException&) {
    }
    addIf(sheet, "volume", volume != nullptr, [&] { sheet.addText("volume", volume->path()); });
    addIf(sheet, "volume_relative_path", relative.has_value(),
          [&] { sheet.addText("volume_relative_path", *relative); });
    const KTPathPtr path = item.pathObject();
    const bool exists = item.exists();
    addIf(sheet, "real_path", exists, [&] { sheet.addText("real_path", path->real()->path()); });
    const auto addLimit = [&](const char* name, std::uint64_t limit) {
        addIf(sheet, name, limit != 0, [&] { sheet.addNumber(name, limit); });
    };
    addLimit("transfer_size_min", path->minTransferSize());
    addLimit("transfer_size_max", path->maxTransferSize());
    addLimit("file_size_bits", path->fileSizeBits());
}

// Raises what the readers of attributes raise.
FactSheet factsOf(KTFileInfo& item) {
    FactSheet sheet;
    addNames(sheet, item);
    addSizes(sheet, item);
    if (item.exists()) {
        addRights(sheet, item);
        addIdentity(sheet, item);
    } else {
        for (const char* name : kRightsAndIdentity)
            sheet.addNothing(name);
    }
    addURLAttributes(sheet, item);
    addVolume(sheet, item);
    return sheet;
}

// The path from the root on: what is told of families and volumes is told of those. Nothing is
// resolved, for a link is to be seen as one.
std::string fullPath(const std::string& path) {
    std::error_code error;
    const std::string folder = std::filesystem::current_path(error).string();
    return path.starts_with('/') || error ? path : folder + (folder == "/" ? "" : "/") + path;
}

// The facts of every path; what cannot be told is said, and has a record with the reason.
class Report {
public:
    explicit Report(const Invocation& invocation)
        : invocation_(invocation), columns_(columnsWanted(invocation)) {}

    [[nodiscard]] ExitStatus run(const std::vector<std::string>& paths) {
        for (const std::string& path : paths)
            look(path);
        if (columns_) {
            for (const FactSheet& sheet : sheets_)
                columns_->fit(sheet.cells());
            if (!sheets_.empty()) invocation_.answerHeader(*columns_);
            for (const FactSheet& sheet : sheets_)
                invocation_.answerRow(*columns_, sheet.cells(), sheet.record());
        }
        return status_;
    }

private:
    // The names of facts are those that anything has.
    static std::optional<Columns> columnsWanted(const Invocation& invocation) {
        const CommonOptions& options = invocation.options();
        if (options.columns.empty()) return std::nullopt;
        const auto nothing = KTNonexistentFile::initWithPathObject(KTPath::pathWithPath("/"));
        Columns columns(factsOf(*nothing).columns(), options.columns);
        if (options.isJson) return std::nullopt;
        return columns;
    }

    void look(const std::string& path) try {
        const KTFileInfoPtr item = KTFileInfo::infoForPath(fullPath(path));
        if (!item) return fail(path, "it is of no kind that the model knows");
        FactSheet sheet = factsOf(*item);
        if (!item->exists()) {
            complain(path, "nothing is there");
            status_ = ExitStatus::No;
            if (!invocation_.options().isJson) return;
        }
        show(std::move(sheet));
    } catch (const NSException& exception) {
        fail(path, reasonOf(exception));
    }

    void show(FactSheet sheet) {
        if (invocation_.options().isJson) {
            writeAnswer(lineOf(sheet.record()) + '\n');
        } else if (columns_) {
            sheets_.push_back(std::move(sheet));
        } else {
            writeAnswer((isFirst_ ? "" : "\n") + sheet.text());
            isFirst_ = false;
        }
    }

    void fail(const std::string& path, const std::string& reason) {
        if (invocation_.options().isJson) {
            Json record = newRecord();
            addText(record, "path", path);
            addText(record, "error", reason);
            invocation_.answer("", record);
        }
        complain(path, reason);
        status_ = ExitStatus::No;
    }

    const Invocation& invocation_;
    std::optional<Columns> columns_;  // with --output
    std::vector<FactSheet> sheets_;   // for a table, which is known at once
    bool isFirst_ = true;
    ExitStatus status_ = ExitStatus::Done;
};

}  // namespace

ExitStatus statItems(const Invocation& invocation, const PathOptions& options) {
    return Report(invocation).run(options.paths);
}

}  // namespace sevrin
