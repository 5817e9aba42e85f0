// The entry point of switchboardctl: puts the verbs into the command line and lets it run.
#include <span>

#include "tools/CommandLine.h"
#include "tools/Interruption.h"
#include "tools/Verbs/Verbs.h"

int main(int argumentCount, char** arguments) {
    sevrin::installSignalHandlers();
    sevrin::CommandLine commandLine;
    sevrin::addVerbs(commandLine);
    return static_cast<int>(
        commandLine.run(std::span(arguments, static_cast<std::size_t>(argumentCount))));
}
