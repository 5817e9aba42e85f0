// `switchboardctl prefs`: reads and changes the user's preferences. Asks no switchboard.
#include <fmt/format.h>

#include <memory>
#include <optional>

#include "Platform/CFPreferences.h"
#include "tools/PreferenceText.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

using platform::Value;

namespace {

struct PrefsOptions {
    std::string action;
    std::string domain;
    std::optional<std::string> key;
    std::optional<std::string> value;
    std::string type = "string";
};

// What the files are, or do, wrong: shown as it happens, and the last of it is why a write failed.
class Faults {
public:
    explicit Faults(const Invocation& invocation) {
        platform::CFPreferencesSetFaultReporter([this, &invocation](const std::string& what) {
            last_ = what;
            invocation.detail(what);
        });
    }
    Faults(const Faults&) = delete;
    Faults& operator=(const Faults&) = delete;
    ~Faults() { platform::CFPreferencesSetFaultReporter(nullptr); }

    // A note about what was read in spite of a fault.
    void note(const Invocation& invocation) const {
        if (!last_.empty() && !invocation.options().isVerbose) invocation.note(last_);
    }
    [[nodiscard]] const std::string& last() const { return last_; }

private:
    std::string last_;
};

Json recordOf(const PrefsOptions& options, const std::string& key) {
    Json record = newRecord();
    addText(record, "domain", options.domain);
    addText(record, "key", key);
    return record;
}

void addValue(Json& record, const Value& value) {
    record["type"] = preferenceType(value);
    record["value"] = jsonOf(value);
}

ExitStatus answerNo(const Invocation& invocation, const PrefsOptions& options,
                    const std::string& key) {
    if (invocation.options().isJson) {
        Json record = recordOf(options, key);
        record["found"] = false;
        invocation.answer("", record);
    }
    invocation.note(fmt::format("{}: {}: there is no such value", options.domain, key));
    return ExitStatus::No;
}

ExitStatus read(const Invocation& invocation, const PrefsOptions& options) {
    const std::string& key = *options.key;
    const Faults faults(invocation);
    const Value value = platform::CFPreferencesCopyAppValue(key, options.domain);
    faults.note(invocation);
    if (value.isNull()) return answerNo(invocation, options, key);
    Json record = recordOf(options, key);
    record["found"] = true;
    addValue(record, value);
    invocation.answer(preferenceText(value), record);
    return ExitStatus::Done;
}

ExitStatus list(const Invocation& invocation, const PrefsOptions& options) {
    Columns columns({{"key", true}, {"type", true}, {"value", true}}, invocation.options().columns);
    const Faults faults(invocation);
    const platform::Dictionary values = platform::CFPreferencesCopyMultiple(options.domain);
    faults.note(invocation);
    std::vector<std::pair<Columns::Cells, Json>> rows;
    for (const auto& [key, value] : values) {
        const std::string name = key.description();
        rows.emplace_back(Columns::Cells{name, preferenceType(value), preferenceText(value)},
                          recordOf(options, name));
        addValue(rows.back().second, value);
        columns.fit(rows.back().first);
    }
    if (!rows.empty()) invocation.answerHeader(columns);
    for (const auto& [cells, record] : rows)
        invocation.answerRow(columns, cells, record);
    return ExitStatus::Done;
}

// Sets the value, or removes it, and has it on the disk before the verb ends.
void store(const Invocation& invocation, const PrefsOptions& options, const Value& value) {
    const std::string& key = *options.key;
    const Faults faults(invocation);
    platform::CFPreferencesSetAppValue(key, value, options.domain);
    if (!platform::CFPreferencesAppSynchronize(options.domain))
        throw Failure(ExitStatus::Broken, options.domain, faults.last());
    faults.note(invocation);
    if (!invocation.options().isJson) return;
    Json record = recordOf(options, key);
    if (!value.isNull()) addValue(record, value);
    invocation.answer("", record);
}

ExitStatus remove(const Invocation& invocation, const PrefsOptions& options) {
    const platform::Dictionary values = platform::CFPreferencesCopyMultiple(options.domain);
    if (values.find(std::string_view(*options.key)) == nullptr)
        return answerNo(invocation, options, *options.key);
    store(invocation, options, nullptr);
    return ExitStatus::Done;
}

ExitStatus runPrefs(const Invocation& invocation, const PrefsOptions& options) {
    const std::size_t wanted = options.action == "list" ? 0 : options.action == "write" ? 2 : 1;
    if (std::size_t{options.key.has_value()} + options.value.has_value() != wanted) {
        constexpr const char* kWants[] = {"a domain only", "a domain and a key",
                                          "a domain, a key and a value"};
        throw Failure(ExitStatus::Usage, "",
                      fmt::format("{} takes {}", options.action, kWants[wanted]),
                      "switchboardctl prefs --help");
    }
    if (options.action == "read") return read(invocation, options);
    if (options.action == "list") return list(invocation, options);
    if (options.action == "delete") return remove(invocation, options);
    store(invocation, options, preferenceValue(options.type, *options.value));
    return ExitStatus::Done;
}

}  // namespace

void addPrefs(CommandLine& commandLine) {
    const auto options = std::make_shared<PrefsOptions>();
    CLI::App& verb = commandLine.addVerb(
        "prefs", "Read and change preferences",
        "prefs list com.sevrin.client\nprefs read com.sevrin.client SVUseAdminPrivileges\n"
        "prefs write com.sevrin.client SVUseAdminPrivileges false --type boolean\n"
        "prefs delete com.sevrin.client SVUseAdminPrivileges",
        [options](const Invocation& invocation) { return runPrefs(invocation, *options); });
    verb.add_option("action", options->action, "read, write, delete or list")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"read", "write", "delete", "list"}));
    verb.add_option("domain", options->domain, "Whose preferences, such as com.sevrin.client")
        ->type_name("DOMAIN")
        ->required();
    verb.add_option("key", options->key, "The name of the value; not for list")->type_name("KEY");
    verb.add_option("value", options->value, "For write, the value")->type_name("VALUE");
    verb.add_option("--type", options->type,
                    "What to write: string (the default), boolean, integer, real, date, data, json")
        ->type_name("TYPE")
        ->check(CLI::IsMember(preferenceTypes()));
    commandLine.addColumns(verb);
}

}  // namespace sevrin
