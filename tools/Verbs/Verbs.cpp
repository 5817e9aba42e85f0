// The list of the verbs.
#include "tools/Verbs/Verbs.h"

namespace sevrin {

void addVerbs(CommandLine& commandLine) {
    addVersion(commandLine);
    addBuild(commandLine);
    addPing(commandLine);
    addPublish(commandLine);
    addQuery(commandLine);
    addCall(commandLine);
    addWait(commandLine);
    addPost(commandLine);
    addMonitor(commandLine);
    addArchive(commandLine);
    addPrefs(commandLine);
    addLocations(commandLine);
    addPath(commandLine);
    addLog(commandLine);
}

}  // namespace sevrin
