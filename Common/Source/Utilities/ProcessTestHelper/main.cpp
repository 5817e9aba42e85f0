// For tests only: a program that says what it is and who it runs as, and changes that; to be run
// set-user-id.
//
//   process-test-helper                             writes its start record
//   process-test-helper as USER PROGRAM [WORD...]   becomes that user and group, then runs PROGRAM
//   process-test-helper WORD...                     does each in turn, and writes a line for each:
//
//   state    "real 0:0 effective 1:1 recorded 1:1", then what holds of: privileged asUser asRoot
//   root     the answer of runAsRoot(), then the state
//   user     the answer of runAsUser(), then the state
//   allow    setAllowRootUser, then the state
#include <grp.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/Process.h"
#include "Common/Source/Utilities/TestLogger.h"

namespace sevrin {
namespace {

std::string pair(std::uint32_t user, std::uint32_t group) {
    return std::to_string(user) + ":" + std::to_string(group);
}

std::string state() {
    std::string text = "real " + pair(::getuid(), ::getgid()) + " effective " +
                       pair(::geteuid(), ::getegid()) + " recorded " +
                       pair(Process::userID(), Process::groupID());
    if (Process::isPrivileged()) text += " privileged";
    if (Process::isRunningAsUser()) text += " asUser";
    if (Process::isRunningAsRoot()) text += " asRoot";
    return text;
}

std::string answer(bool isDone) {
    return (isDone ? "YES " : "NO ") + state();
}

std::string perform(std::string_view word) {
    if (word == "state") return state();
    if (word == "root") return answer(Process::runAsRoot());
    if (word == "user") return answer(Process::runAsUser());
    if (word == "allow") {
        Process::setAllowRootUser(true);
        return state();
    }
    return "no such word";
}

void writeStartRecord() {
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);
    Logger::logStartProcess("helper-1");
    for (const std::string& line : logger->lines())
        std::printf("%s\n", line.c_str());
}

int runAs(uid_t user, char** words) {
    const bool isDone = ::setgroups(0, nullptr) == 0 && ::setresgid(user, user, user) == 0 &&
                        ::setresuid(user, user, user) == 0;
    if (isDone) ::execv(words[0], words);
    std::perror("process-test-helper");
    return 1;
}

}  // namespace
}  // namespace sevrin

int main(int count, char** words) {
    if (count > 3 && std::string_view(words[1]) == "as") {
        const auto user = static_cast<uid_t>(std::strtoul(words[2], nullptr, 10));
        return sevrin::runAs(user, words + 3);
    }
    if (count == 1) sevrin::writeStartRecord();
    for (int i = 1; i < count; ++i)
        std::printf("%s\n", sevrin::perform(words[i]).c_str());
    std::fflush(stdout);
    // Nothing more is to happen in a process with somebody else's rights.
    ::_exit(0);
}
