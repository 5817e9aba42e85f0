// `switchboardctl build`: the build number that the switchboard answers.
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

ExitStatus askBuildNumber(const Invocation& invocation) {
    SwitchboardClient client = invocation.connect();
    const std::uint32_t number = invocation.require(client.buildNumber(invocation.deadline()));
    Json record = newRecord();
    record["build_number"] = number;
    invocation.answer(std::to_string(number), record);
    return ExitStatus::Done;
}

}  // namespace

void addBuild(CommandLine& commandLine) {
    commandLine.addVerb("build", "Print the build number of the switchboard", "build",
                        askBuildNumber);
}

}  // namespace sevrin
