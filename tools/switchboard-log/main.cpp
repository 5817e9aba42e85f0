// The entry point of switchboard-log, which is `switchboardctl log` under a name of its own: for
// machines and people that only read logs.
#include <vector>

#include "tools/CommandLine.h"
#include "tools/Interruption.h"
#include "tools/Verbs/Verbs.h"

int main(int argumentCount, char** arguments) {
    sevrin::installSignalHandlers();
    sevrin::CommandLine commandLine;
    sevrin::addLog(commandLine);
    char verb[] = "log";
    std::vector<char*> all(arguments, arguments + argumentCount);
    all.insert(all.begin() + (argumentCount > 0 ? 1 : 0), verb);
    return static_cast<int>(commandLine.run(all));
}
