// `switchboardctl version`: the version that the switchboard answers.
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

ExitStatus askVersion(const Invocation& invocation) {
    SwitchboardClient client = invocation.connect();
    const std::string version = invocation.require(client.componentVersion(invocation.deadline()));
    Json record = newRecord();
    addText(record, "version", version);
    invocation.answer(version, record);
    return ExitStatus::Done;
}

}  // namespace

void addVersion(CommandLine& commandLine) {
    commandLine.addVerb("version", "Print the version of the switchboard",
                        "version\nversion --system --json", askVersion);
}

}  // namespace sevrin
