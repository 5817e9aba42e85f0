// `switchboardctl log`: reads the log that the suite's programs of a user share. Asks no
// switchboard.
#include <fmt/format.h>
#include <pwd.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <limits>
#include <map>
#include <memory>

#include "Common/Source/Utilities/LogFileLogger.h"
#include "Common/Source/Utilities/SVPath.h"
#include "Platform/PathString.h"
#include "tools/LogFilter.h"
#include "tools/LogReader.h"
#include "tools/Sleep.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

using Clock = std::chrono::steady_clock;

// How soon a line that was just written is shown: at once, for people.
constexpr std::chrono::milliseconds kFollowInterval{100};

// What comes before the lines to come, unless told otherwise.
constexpr std::size_t kFollowLines = 10;

// An identifier begins with the program, the time of its start and its process.
constexpr std::size_t kProcessParts = 3;

struct LogOptions {
    std::optional<std::string> file;
    std::optional<std::size_t> lines;
    bool isFollowing = false;
    bool isTree = false;
    LogFilter filter;
};

std::string homeLogsFolder(std::uint32_t user) {
    const passwd* const account = ::getpwuid(user);
    if (account == nullptr) {
        throw Failure(ExitStatus::Usage, fmt::format("--user={}", user), "there is no such user",
                      "switchboardctl log --file PATH");
    }
    return platform::stringByAppendingPathComponent(account->pw_dir, "Library/Logs");
}

// The files to read, the current one first.
std::vector<std::string> paths(const Invocation& invocation, const LogOptions& options) {
    if (options.file) return {*options.file};
    const Target& target = invocation.options().target;
    if (target.service == SwitchboardClient::Service::System && !target.user) {
        throw Failure(ExitStatus::Usage, "--system",
                      "the switchboard of the machine logs to its console, which is the journal's",
                      "journalctl --unit switchboard");
    }
    const std::string logs =
        target.user ? homeLogsFolder(*target.user) : SVPath::userLogsPath()->path().value_or("");
    return LogFileLogger::logFilePathsInFolder(
        kLogFilesMax, platform::stringByAppendingPathComponent(logs, "Sevrin"));
}

// MARK: Printing

std::string_view styleOf(LogClassification classification) {
    switch (classification) {
        case LogClassification::Failure:
            return "\033[1;31m";
        case LogClassification::Warning:
        case LogClassification::Caution:
            return "\033[33m";
        case LogClassification::Subrosa:
        case LogClassification::Debug:
            return "\033[2m";
        default:
            return "";
    }
}

Json jsonOf(const LogRecord& record) {
    Json json = newRecord();
    if (!record.time) {
        addText(json, "text", record.text);
        return json;
    }
    json["time"] = record.date;
    const auto number = static_cast<std::int32_t>(record.classification);
    json["classification"] = number < 0 ? Json() : Json(number);
    addText(json, "message", record.message);
    if (record.identifier.empty()) return json;
    json["id"] = record.identifierText();
    json["program"] = record.identifier[0];
    if (record.identifier.size() >= kProcessParts) json["process"] = record.identifier[2];
    return json;
}

class Printer {
public:
    explicit Printer(const Invocation& invocation) : invocation_(invocation) {}

    // `indent`: by how many columns the message is moved to the right.
    void print(const LogRecord& record, std::size_t indent = 0) {
        hasPrinted_ = true;
        if (invocation_.options().isJson) return invocation_.answer("", jsonOf(record));
        std::string text = record.text;
        if (record.time) text.insert(kLogMessageColumn, indent, ' ');
        invocation_.answerLines(text, styleOf(record.classification));
    }

    [[nodiscard]] bool hasPrinted() const { return hasPrinted_; }

private:
    const Invocation& invocation_;
    bool hasPrinted_ = false;
};

// The records of each process together, in the order in which the processes began to write, each
// line below the one that it belongs to.
void printTree(std::deque<LogRecord> records, Printer& printer) {
    using Parts = std::vector<std::uint64_t>;
    std::map<Parts, std::size_t> processes;
    const auto rank = [&processes](const LogRecord& record) {
        const auto parts = std::min(record.identifier.size(), kProcessParts);
        const Parts process(record.identifier.begin(),
                            record.identifier.begin() + static_cast<std::ptrdiff_t>(parts));
        return processes.emplace(process, processes.size()).first->second;
    };
    std::vector<std::pair<std::size_t, LogRecord>> ranked;
    for (LogRecord& record : records) {
        const std::size_t place = rank(record);
        ranked.emplace_back(place, std::move(record));
    }
    std::ranges::stable_sort(ranked, [](const auto& a, const auto& b) {
        return a.first != b.first ? a.first < b.first : a.second.identifier < b.second.identifier;
    });
    for (const auto& [place, record] : ranked) {
        const std::size_t depth = record.identifier.size();
        printer.print(record, depth > kProcessParts ? 2 * (depth - kProcessParts - 1) : 0);
    }
}

// MARK: The verb

ExitStatus readLog(const Invocation& invocation, const LogOptions& options) {
    const std::vector<std::string> files = paths(invocation, options);
    LogReader reader(files);
    if (!reader.hasFiles() && !options.isFollowing)
        throw Failure(ExitStatus::No, files.front(), "there is no log");

    Printer printer(invocation);
    std::deque<LogRecord> kept;
    const std::size_t limit = options.lines.value_or(std::numeric_limits<std::size_t>::max());
    const bool isKeeping = options.isTree || options.lines.has_value();
    const auto take = [&](LogRecord record) {
        if (!options.filter.wants(record)) return;
        if (!isKeeping) return printer.print(record);
        kept.push_back(std::move(record));
        if (kept.size() > limit) kept.pop_front();
    };
    reader.read(options.filter.since.value_or(0), take);
    if (!options.isFollowing) reader.finish(take);
    if (options.isTree) {
        printTree(std::move(kept), printer);
    } else {
        for (const LogRecord& record : kept)
            printer.print(record);
    }
    while (options.isFollowing) {
        sleepUntil(Clock::now() + kFollowInterval);
        endIfReaderHasGone();
        reader.readOn([&](const LogRecord& record) {
            if (options.filter.wants(record)) printer.print(record);
        });
    }
    if (printer.hasPrinted()) return ExitStatus::Done;
    invocation.note("nothing in the log is like that");
    return ExitStatus::No;
}

// Puts what `read` makes of an option's text into `place`.
template <typename Type, typename Read>
void addParsed(CLI::App& verb, const char* name, const char* type, const char* what, Type& place,
               const char* wanted, Read read) {
    verb.add_option_function<std::string>(
            name,
            [&place, name, wanted, read](const std::string& text) {
                const auto found = read(text);
                if (!found) throw CLI::ValidationError(name, wanted);
                place = *found;
            },
            what)
        ->type_name(type);
}

void addFilters(CLI::App& verb, LogFilter& filter) {
    const auto moment = [](const std::string& text) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        return logMomentFromText(
            text, std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    };
    constexpr const char* kMoment = "neither a time such as 10m nor a date";
    addParsed(verb, "--since", "TIME", "From then on: 10m for ten minutes ago, or a date",
              filter.since, kMoment, moment);
    addParsed(verb, "--until", "TIME", "Up to then", filter.until, kMoment, moment);
    addParsed(verb, "--id", "ID", "That line and all below it", filter.line,
              "not an identifier such as 8.73957130.412.1",
              [](const std::string& text) { return logIdentifierFromText(text); });
    addParsed(verb, "--class", "CLASSES", "Only these, by commas: 0 to 9 or words as in the log",
              filter.classifications, "neither numbers from 0 to 9 nor words of the log",
              [](const std::string& text) { return logClassificationsFromText(text); });
    verb.add_option("--program", filter.program, "What that program wrote; 8: the switchboard")
        ->type_name("NUMBER")
        ->check(CLI::NonNegativeNumber);
    verb.add_option("--pid", filter.process, "What that process wrote")
        ->type_name("PID")
        ->check(CLI::NonNegativeNumber);
    verb.add_option("--grep", filter.words, "Messages with these words")->type_name("TEXT");
}

}  // namespace

void addLog(CommandLine& commandLine) {
    const auto options = std::make_shared<LogOptions>();
    CLI::App& verb = commandLine.addVerb(
        "log", "Read the log of the suite's programs, all generations of it",
        "log --follow\nlog --since 10m --class warning,failure\n"
        "log --id 8.73957130.412.1 --tree",
        [options](const Invocation& invocation) {
            if (options->isFollowing && !options->lines && !options->filter.since)
                options->lines = kFollowLines;
            return readLog(invocation, *options);
        });
    verb.add_flag("-f,--follow", options->isFollowing, "Go on with what is written from now on");
    verb.add_option("-n,--lines", options->lines, "Only the last so many; with --follow, 10")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    addFilters(verb, options->filter);
    verb.add_flag("--tree", options->isTree,
                  "Process by process, each line below the one that it belongs to")
        ->excludes("--follow");
    verb.add_option("--file", options->file, "Read this file, or - for standard input")
        ->type_name("PATH");
}

}  // namespace sevrin
