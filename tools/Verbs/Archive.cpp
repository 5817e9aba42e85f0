// `switchboardctl archive`: shows, spells, makes and compares keyed archives. Asks no switchboard.
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>

#include "tools/ArchiveGraph.h"
#include "tools/ArchiveText.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

struct ArchiveOptions {
    std::string action;
    std::vector<std::string> files;
};

constexpr std::string_view kInput = "-";

// A file as messages name it.
std::string nameOf(const std::string& file) {
    if (file == kInput) return "standard input";
    return file.empty() ? "\"\"" : file;
}

// All of a file; of standard input for "-". A device without an end is not read for ever.
std::string contentOf(const std::string& file) {
    constexpr std::size_t kBytesMax = std::numeric_limits<std::uint32_t>::max();
    const bool isInput = file == kInput;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
        isInput ? nullptr : std::fopen(file.c_str(), "rbe"), &std::fclose);
    std::FILE* const stream = isInput ? stdin : opened.get();
    if (stream == nullptr) throw Failure(ExitStatus::No, nameOf(file), std::strerror(errno));
    std::string content;
    char chunk[1 << 16];
    while (const std::size_t size = std::fread(chunk, 1, sizeof chunk, stream)) {
        if (size > kBytesMax - content.size()) throw ArchiveError("4 GB and more are not read");
        content.append(chunk, size);
    }
    // A folder can be opened, but not read.
    if (std::ferror(stream) != 0) throw Failure(ExitStatus::No, nameOf(file), std::strerror(errno));
    return content;
}

ExitStatus makeArchive(const std::string& file) {
    if (isOutputTerminal()) {
        throw Failure(ExitStatus::Usage, "", "an archive is not for a terminal",
                      "switchboardctl archive from-json FILE > ARCHIVE");
    }
    writeAnswer(archiveOfJson(contentOf(file)));
    return ExitStatus::Done;
}

ExitStatus compareArchives(const Invocation& invocation, const ArchiveGraph& left,
                           const ArchiveGraph& right) {
    const std::vector<ArchiveDifference> differences = archiveDifferences(left, right);
    for (const ArchiveDifference& difference : differences) {
        Json record = newRecord();
        record["path"] = difference.path;
        if (!difference.left.empty()) record["left"] = difference.left;
        if (!difference.right.empty()) record["right"] = difference.right;
        const auto shown = [](const std::string& text) { return text.empty() ? "nothing" : text; };
        invocation.answer(fmt::format("{}: {} -> {}", difference.path, shown(difference.left),
                                      shown(difference.right)),
                          record);
    }
    return differences.empty() ? ExitStatus::Done : ExitStatus::No;
}

ExitStatus runArchive(const Invocation& invocation, const ArchiveOptions& options) {
    const std::size_t wanted = options.action == "diff" ? 2 : 1;
    if (options.files.size() != wanted) {
        throw Failure(
            ExitStatus::Usage, "",
            fmt::format("{} takes {}", options.action, wanted == 1 ? "one file" : "two files"),
            "switchboardctl archive --help");
    }
    if (std::count(options.files.begin(), options.files.end(), kInput) > 1) {
        throw Failure(ExitStatus::Usage, "", "standard input can be read once only");
    }
    std::string file = options.files.front();
    try {
        if (options.action == "from-json") return makeArchive(file);
        const ArchiveGraph graph(contentOf(file));
        if (options.action == "to-json" ||
            (options.action == "show" && invocation.options().isJson)) {
            writeAnswer(lineOf(jsonOfArchive(graph)) + '\n');
        } else if (options.action == "show") {
            writeAnswer(archiveTree(graph));
        } else {
            file = options.files.back();
            const ArchiveGraph other(contentOf(file));
            return compareArchives(invocation, graph, other);
        }
        return ExitStatus::Done;
    } catch (const ArchiveError& error) {
        throw Failure(ExitStatus::No, nameOf(file), error.what());
    }
}

}  // namespace

void addArchive(CommandLine& commandLine) {
    const auto options = std::make_shared<ArchiveOptions>();
    CLI::App& verb = commandLine.addVerb(
        "archive", "Show, convert and compare keyed archives, whatever is in them",
        "archive show failure.archive\narchive to-json failure.archive > failure.json\n"
        "archive from-json failure.json > failure.archive\n"
        "archive diff before.archive after.archive",
        [options](const Invocation& invocation) { return runArchive(invocation, *options); });
    verb.add_option("action", options->action, "show, to-json, from-json or diff")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"show", "to-json", "from-json", "diff"}));
    verb.add_option("file", options->files, "The file, or - for standard input; two for diff")
        ->type_name("FILE")
        ->required()
        ->expected(-1);
}

}  // namespace sevrin
