// The command line of switchboardctl.
#include "tools/CommandLine.h"

#include <fmt/format.h>

#include <new>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tools/Duration.h"
#include "tools/Version.h"

namespace sevrin {

namespace {

constexpr const char* kProgram = "switchboardctl";
constexpr const char* kDescription = "Asks the switchboard, publishes on it and listens to it.";
constexpr const char* kCommonGroup = "Common options";
constexpr const char* kFlagWithoutValue = "true";
constexpr const char* kExitStatuses =
    "Exit status: 0 done or found, 1 the answer is no, 2 usage, 3 no switchboard, 4 refused,\n"
    "5 protocol versions differ, 124 deadline passed, 125 own failure, 130 interrupted.\n"
    "switchboardctl VERB --help tells more about a verb.";

std::string exampleText(const std::string& examples) {
    std::string text = "Examples:";
    std::istringstream lines(examples);
    for (std::string line; std::getline(lines, line);)
        text += fmt::format("\n  {} {}", kProgram, line);
    return text;
}

std::chrono::microseconds timeout(const std::string& text) {
    const auto span = durationFromText(text);
    if (!span) throw CLI::ValidationError("--timeout", "not a time such as 500ms, 30s or 2m");
    return *span;
}

ColorWish colorWish(const std::string& text) {
    if (text == "auto") return ColorWish::Auto;
    if (text == "always") return ColorWish::Always;
    if (text == "never") return ColorWish::Never;
    throw CLI::ValidationError("--color", "neither auto nor always nor never");
}

ExitStatus show(const Failure& failure, const std::string& verb) {
    writeNote(messageOf(failure, verb) + '\n');
    return failure.status;
}

}  // namespace

CommandLine::CommandLine() : app_(kDescription, kProgram) {
    app_.require_subcommand(0, 1);
    app_.get_formatter()->column_width(32);
    app_.footer(kExitStatuses);
    addCommonOptions(app_);
}

CLI::App& CommandLine::addVerb(const std::string& name, const std::string& summary,
                               const std::string& examples, Run run) {
    CLI::App& verb = *app_.add_subcommand(name, summary);
    verb.footer(exampleText(examples));
    verb.callback([this, run = std::move(run)] { chosen_ = run; });
    addCommonOptions(verb);
    return verb;
}

void CommandLine::addColumns(CLI::App& verb) {
    verb.add_option("-o,--output", given_.options.columns, "The columns to print, by commas")
        ->type_name("COLUMNS");
}

void CommandLine::addCommonOptions(CLI::App& app) {
    CommonOptions& options = given_.options;
    const auto flag = [&app](const char* names, const char* what, std::function<void()> set) {
        app.add_flag_callback(names, std::move(set), what)->group(kCommonGroup);
    };
    app.set_help_flag("-h,--help", "Print this help and exit")->group(kCommonGroup);
    flag("--version", "Print the version of this program and exit",
         [] { throw CLI::CallForVersion(fmt::format("{} {}", kProgram, toolVersion()), 0); });
    app.add_flag("--user", given_.users,
                 "Your own switchboard (the default); for root, --user=UID: "
                 "what the machine's has for that user")
        ->group(kCommonGroup);
    flag("--system", "The switchboard of the machine", [this] { given_.isSystem = true; });
    flag("-j,--json", "Print JSON, one object per line", [&] { options.isJson = true; });
    flag("-q,--quiet", "Print no notes, only answers and errors", [&] { options.isQuiet = true; });
    flag("-v,--verbose", "Tell on standard error what is done", [&] { options.isVerbose = true; });
    flag("--no-legend", "Print no header", [&] { options.hasLegend = false; });
    flag("--no-pager", "Print straight to standard output, as these verbs do anyway", [] {});
    app.add_option_function<std::string>(
           "--color", [&](const std::string& wish) { options.color = colorWish(wish); },
           "auto, always or never")
        ->type_name("WHEN")
        ->group(kCommonGroup);
    app.add_option_function<std::string>(
           "--timeout", [&](const std::string& text) { options.timeout = timeout(text); },
           "How long to wait for an answer: 500ms, 30s, 2m; 5 s unless given")
        ->type_name("T")
        ->group(kCommonGroup);
}

// MARK: A run

ExitStatus CommandLine::run(std::span<char*> arguments) try {
    app_.parse(static_cast<int>(arguments.size()), arguments.data());
    if (!chosen_) throw Failure(ExitStatus::Usage, "", "no verb given", "switchboardctl --help");
    return runChosen();
} catch (const CLI::CallForVersion& version) {
    writeAnswer(std::string(version.what()) + '\n');
    return ExitStatus::Done;
} catch (const CLI::Success&) {
    writeAnswer(app_.help());
    return ExitStatus::Done;
} catch (const CLI::ParseError& error) {
    return show({ExitStatus::Usage, "", error.what(), helpCommand()}, verbName());
} catch (const Failure& failure) {
    return show(failure, verbName());
} catch (const std::invalid_argument& mistake) {
    // Of the arguments that were passed on: what cannot be sent.
    return show({ExitStatus::Usage, "", mistake.what()}, verbName());
} catch (const std::length_error& mistake) {
    return show({ExitStatus::Usage, "", mistake.what()}, verbName());
} catch (const std::bad_alloc&) {
    return show({ExitStatus::Broken, "", "there is not enough memory for it"}, verbName());
} catch (const std::exception& error) {
    return show({ExitStatus::Broken, "", error.what()}, verbName());
}

ExitStatus CommandLine::runChosen() {
    if (given_.isSystem && !given_.users.empty())
        throw Failure(ExitStatus::Usage, "", "--user and --system exclude each other");
    std::string user = given_.users.empty() ? "" : given_.users.back();
    if (user == kFlagWithoutValue) user.clear();
    given_.options.target = Target::fromOptions(given_.isSystem, user);
    return chosen_(Invocation(verbName(), given_.options));
}

std::string CommandLine::verbName() const {
    const std::vector<CLI::App*> verbs = app_.get_subcommands();
    return verbs.empty() ? "" : verbs.front()->get_name();
}

std::string CommandLine::helpCommand() const {
    const std::string verb = verbName();
    return fmt::format("{} {}{}--help", kProgram, verb, verb.empty() ? "" : " ");
}

}  // namespace sevrin
