// The command line of switchboardctl: common options, verbs, help, and how a run ends.
//
// Verbs put themselves in (tools/Verbs/Verbs.h). The common options are taken before and after the
// verb alike. On the main thread, once.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/Invocation.h"

namespace sevrin {

class CommandLine {
public:
    using Run = std::function<ExitStatus(const Invocation&)>;

    CommandLine();

    // A verb that does `run`. `summary` is one line, `examples` are command lines without the
    // program's name, separated by line ends. Its own options and arguments are added to what this
    // gives; a verb that prints tables is given --output there by addColumns().
    CLI::App& addVerb(const std::string& name, const std::string& summary,
                      const std::string& examples, Run run);
    void addColumns(CLI::App& verb);

    // Does what `arguments` (the program's name first) say, and shows why it could not.
    [[nodiscard]] ExitStatus run(std::span<char*> arguments);

private:
    // As they stand on the command line.
    struct Given {
        std::vector<std::string> users;  // of each --user
        bool isSystem = false;
        CommonOptions options;
    };

    void addCommonOptions(CLI::App& app);
    [[nodiscard]] ExitStatus runChosen();
    [[nodiscard]] std::string verbName() const;
    [[nodiscard]] std::string helpCommand() const;

    CLI::App app_;
    Given given_;
    Run chosen_;  // what the verb given does; empty without one
};

}  // namespace sevrin
