// `switchboardctl path`: shows what the file-system model sees. Asks no switchboard.
#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "Common/Source/Utilities/KTPath.h"
#include "Common/Source/Utilities/Logger.h"
#include "tools/Verbs/PathActions.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

// The model logs what it passes over; here that is a remark for who wants to know, and no reason to
// begin a log.
class RemarkLogger final : public Logger {
public:
    explicit RemarkLogger(const Invocation& invocation) : invocation_(invocation) {}

    bool formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                             const LogLineIdentifier&, LogClassification,
                                             std::string_view) override {
        text += message;
        return true;
    }
    void logMessage(const std::string& text) override { invocation_.detail(text); }

private:
    const Invocation& invocation_;
};

class Logging {
public:
    explicit Logging(const Invocation& invocation) {
        Logger::setDefaultLogger(std::make_shared<RemarkLogger>(invocation));
    }
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;
    ~Logging() { Logger::releaseDefaultLogger(); }
};

ExitStatus printRealPaths(const Invocation& invocation, const PathOptions& options) {
    ExitStatus status = ExitStatus::Done;
    for (const std::string& path : options.paths) {
        const KTPathPtr given = KTPath::initWithPath(path);
        const bool exists = given->exists();
        Json record = newRecord();
        addText(record, "path", path);
        record["exists"] = exists;
        if (exists) {
            const std::string real = given->real()->path();
            addText(record, "real", real);
            invocation.answer(real, record);
            continue;
        }
        // A path that leads nowhere has no real one: the model would give it back as it is.
        record["real"] = nullptr;
        if (invocation.options().isJson) invocation.answer("", record);
        complain(path, "it leads to nothing");
        status = ExitStatus::No;
    }
    return status;
}

struct Action {
    std::string_view name;
    ExitStatus (*run)(const Invocation& invocation, const PathOptions& options);
    std::string_view ownOptions;  // the long ones, those of other actions make no sense here
    bool wantsPath;
};

constexpr Action kActions[] = {
    {"stat", &statItems, "--output", true},
    {"ls", &listItems, "--output --long --all --sort --reader", false},
    {"tree", &printTrees, "--output --all --sort --reader --depth --one-volume", false},
    {"volumes", &printVolumes, "--output --browsable", false},
    {"real", &printRealPaths, "", true},
};

[[noreturn]] void refuse(const std::string& reason) {
    throw Failure(ExitStatus::Usage, "", reason, "switchboardctl path --help");
}

void checkOptions(const CLI::App& verb, const Action& action) {
    for (const CLI::Option* option :
         verb.get_options([](const CLI::Option* each) { return each->get_group() == "Options"; })) {
        const std::string name = option->get_name();
        if (option->count() == 0 || !name.starts_with("-")) continue;
        if (action.ownOptions.find(name) == std::string_view::npos)
            refuse(fmt::format("{} takes no {}", action.name, name));
    }
}

ExitStatus runPath(const Invocation& invocation, const CLI::App& verb, PathOptions options) {
    const Action& action = *std::ranges::find(kActions, options.action, &Action::name);
    checkOptions(verb, action);
    if (action.wantsPath && options.paths.empty())
        refuse(fmt::format("{} takes at least one path", action.name));
    if (std::ranges::find(options.paths, "") != options.paths.end())
        refuse("an empty path names nothing");
    if (options.paths.empty() && action.name != "volumes") options.paths = {"."};
    const Logging logging(invocation);
    const ReaderChoice reader(options.reader);
    return action.run(invocation, options);
}

void addPathOptions(CLI::App& verb, const std::shared_ptr<PathOptions>& options) {
    verb.add_flag("-l,--long", options->isLong, "For ls: attributes in front of the names");
    verb.add_flag("-a,--all", options->isAll,
                  "For ls and tree: also what a point in front of its name hides");
    verb.add_option("--sort", options->order,
                    "For ls and tree: by name (the default), size, modified, or none")
        ->type_name("ORDER")
        ->check(CLI::IsMember({"name", "size", "modified", "none"}));
    verb.add_option("--reader", options->reader,
                    "For ls and tree: how folders are read: best (the default), bulk, attribute, "
                    "plain")
        ->type_name("READER")
        ->check(CLI::IsMember({"best", "bulk", "attribute", "plain"}));
    verb.add_option("--depth", options->depth, "For tree: so many levels below the first")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    verb.add_flag("-x,--one-volume", options->isOneVolume,
                  "For tree: enter no folder of another volume");
    verb.add_flag("--browsable", options->isBrowsable,
                  "For volumes: only those that people keep files on");
}

}  // namespace

void addPath(CommandLine& commandLine) {
    const auto options = std::make_shared<PathOptions>();
    const auto self = std::make_shared<CLI::App*>(nullptr);
    CLI::App& verb = commandLine.addVerb(
        "path", "Show files, folders and volumes as the suite sees them",
        "path stat /etc/hostname --json\npath ls -l --sort size /var/log\n"
        "path tree --depth 2 -x /home\npath volumes --output path,type,available\n"
        "path real /proc/self/exe",
        [options, self](const Invocation& invocation) {
            return runPath(invocation, **self, *options);
        });
    *self = &verb;
    verb.add_option("action", options->action, "stat, ls, tree, volumes or real")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"stat", "ls", "tree", "volumes", "real"}));
    verb.add_option("path", options->paths,
                    "What to look at; ls and tree begin in the current folder without one, and "
                    "volumes shows all")
        ->type_name("PATH");
    addPathOptions(verb, options);
    commandLine.addColumns(verb);
}

}  // namespace sevrin
