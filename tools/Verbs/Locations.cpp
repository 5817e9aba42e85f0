// `switchboardctl locations`: where the suite keeps its files. Asks no switchboard.
#include <fmt/format.h>

#include <array>

#include "Common/Source/Utilities/SVPath.h"
#include "Platform/NSFileManager.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

using platform::Dictionary;
using platform::Value;

namespace {

struct Location {
    const char* name;
    SVPathPtr (*make)();
};

// By the names that programs of the suite know them under.
constexpr std::array kLocations = {
    Location{"userLibraryPath", &SVPath::userLibraryPath},
    Location{"userApplicationSupportPath", &SVPath::userApplicationSupportPath},
    Location{"userPreferencesPath", &SVPath::userPreferencesPath},
    Location{"userLogsPath", &SVPath::userLogsPath},
    Location{"userAgentConfigPath", &SVPath::userAgentConfigPath},
    Location{"userServicesPath", &SVPath::userServicesPath},
    Location{"userSVApplicationSupportPath", &SVPath::userSVApplicationSupportPath},
    Location{"userSVPreferencesPath", &SVPath::userSVPreferencesPath},
    Location{"localApplicationPath", &SVPath::localApplicationPath},
    Location{"localLibraryPath", &SVPath::localLibraryPath},
    Location{"localApplicationSupportPath", &SVPath::localApplicationSupportPath},
    Location{"localSVApplicationSupportPath", &SVPath::localSVApplicationSupportPath},
    Location{"perUserLocalSVApplicationSupportPath", &SVPath::perUserLocalSVApplicationSupportPath},
    Location{"localDaemonConfigPath", &SVPath::localDaemonConfigPath},
    Location{"localAgentConfigPath", &SVPath::localAgentConfigPath},
    Location{"bootSVApplicationSupportPath", &SVPath::bootSVApplicationSupportPath},
};

// What the folder is created with, as text; "-" where the system decides.
std::string attribute(const SVPath& location, std::string_view key) {
    const Value* const value =
        location.createAttributes() ? location.createAttributes()->find(key) : nullptr;
    if (value == nullptr) return "-";
    if (key == platform::NSFilePosixPermissions) return fmt::format("{:04o}", *value->ifSigned());
    return value->description();
}

void addAttribute(Json& record, const char* key, const std::string& text) {
    if (text == "-") {
        record[key] = nullptr;
    } else {
        record[key] = text;
    }
}

ExitStatus listLocations(const Invocation& invocation) {
    Columns columns({{"name", true},
                     {"exists", true},
                     {"mode", true},
                     {"owner", true},
                     {"group", true},
                     {"path", true}},
                    invocation.options().columns);
    std::vector<std::pair<Columns::Cells, Json>> rows;
    for (const Location& each : kLocations) {
        const SVPathPtr location = each.make();
        const bool exists = location->exists();
        const std::string path = location->path().value_or("");
        const std::string mode = attribute(*location, platform::NSFilePosixPermissions);
        const std::string owner = attribute(*location, platform::NSFileOwnerAccountID);
        const std::string group = attribute(*location, platform::NSFileGroupOwnerAccountName);
        Json record = newRecord();
        record["name"] = each.name;
        record["exists"] = exists;
        addAttribute(record, "mode", mode);
        addAttribute(record, "owner", owner);
        addAttribute(record, "group", group);
        addText(record, "path", path);
        rows.emplace_back(
            Columns::Cells{each.name, exists ? "yes" : "no", mode, owner, group, path}, record);
        columns.fit(rows.back().first);
    }
    invocation.answerHeader(columns);
    for (const auto& [cells, record] : rows)
        invocation.answerRow(columns, cells, record);
    return ExitStatus::Done;
}

}  // namespace

void addLocations(CommandLine& commandLine) {
    CLI::App& verb = commandLine.addVerb(
        "locations",
        "Print where the suite keeps its files, whether each folder exists, and its attributes",
        "locations\nlocations --output name,path", listLocations);
    commandLine.addColumns(verb);
}

}  // namespace sevrin
