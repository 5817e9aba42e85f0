// The log files by name: where they are, and moving them up by a generation.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>

#include "Common/Source/Utilities/LogFileLogger.h"
#include "Common/Source/Utilities/SVSubPath.h"
#include "Platform/FileCalls.h"
#include "Platform/Format.h"
#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSLog.h"
#include "Platform/PathString.h"

namespace sevrin {

using platform::NSDistributedNotificationCenter;

namespace {

constexpr std::string_view kFolderName = "Sevrin";
constexpr std::string_view kFileName = "Sevrin.log";

SVPathPtr logFolder() {
    return SVSubPath::initWithNameInPath(kFolderName, SVPath::userLogsPath());
}

// Moves a file unless there is one of the new name.
void moveToFreeName(const std::string& from, const std::string& to) {
    if (platform::renamex_np(from.c_str(), to.c_str(), platform::RENAME_EXCL) == 0) return;
    struct stat found {};
    if (errno == ENOTSUP && ::lstat(to.c_str(), &found) != 0) std::rename(from.c_str(), to.c_str());
}

bool isFolder(const std::string& path) {
    struct stat found {};
    return ::stat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

// The outermost of the path's folders that is not there; empty when all are.
std::string firstMissingFolder(const std::string& path) {
    for (std::size_t end = 0; end != std::string::npos;) {
        end = path.find('/', end + 1);
        std::string part = path.substr(0, end);
        if (!isFolder(part)) return part;
    }
    return "";
}

// The first folder that the innermost attempt on this thread has to make; nullptr when none is
// under way.
thread_local const std::string* beingMade = nullptr;

class Attempt {
public:
    explicit Attempt(const std::string& path)
        : missing_(firstMissingFolder(path)), before_(std::exchange(beingMade, &missing_)) {}
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() { beingMade = before_; }

private:
    const std::string missing_;
    const std::string* const before_;
};

}  // namespace

// Making the folder logs what it made, or why it cannot, with a logger that is chosen for it, which
// needs the folder in turn. One that would begin where the attempt around it is has to fail like
// that.
LogFileLoggerPtr LogFileLogger::makeUnlessStuck() {
    if (beingMade != nullptr) {
        const auto folder = logFolder()->path();
        if (!folder || firstMissingFolder(*folder) == *beingMade) return nullptr;
    }
    return make();
}

std::vector<std::string> LogFileLogger::logFilePathsInFolder(std::uint64_t count,
                                                             const std::string& folder) {
    std::vector<std::string> paths;
    if (count == 0) return paths;
    const std::string current = platform::stringByAppendingPathComponent(folder, kFileName);
    paths.push_back(current);
    for (std::uint64_t number = 1; number < count; ++number)
        paths.push_back(platform::stringWithFormat("%@.%lu", current, number));
    return paths;
}

std::vector<std::string> LogFileLogger::logFilePaths(std::uint64_t count) {
    const SVPathPtr folder = logFolder();
    const Attempt attempt(folder->path().value_or(""));
    folder->create();
    return logFilePathsInFolder(count, folder->path().value_or(""));
}

std::string LogFileLogger::currentLogFilePath() {
    return logFilePaths(1).front();
}

std::vector<std::string> LogFileLogger::logFiles() {
    std::vector<std::string> existing;
    for (std::string& path : logFilePaths(kLogFilesMax)) {
        struct stat found {};
        if (::stat(path.c_str(), &found) == 0 && !S_ISDIR(found.st_mode))
            existing.push_back(std::move(path));
    }
    return existing;
}

// A generation that is missing leaves nothing to remove or to move, which is usual.
void LogFileLogger::rotateLogKeeping(std::uint64_t oldLogs) {
    const std::vector<std::string> paths = logFilePaths(kLogFilesMax);
    for (std::uint64_t number = kLogFilesMax - 1; number >= 1; --number) {
        if (number >= oldLogs) ::unlink(paths[number].c_str());
        if (number <= oldLogs) moveToFreeName(paths[number - 1], paths[number]);
    }
    reopen();
    try {
        NSDistributedNotificationCenter::defaultCenter().postNotificationNameObjectUserInfoOptions(
            kLogRotationNotification, std::string(kLogRotationObject), nullptr,
            platform::NSDistributedNotificationDeliverImmediately |
                platform::NSDistributedNotificationPostToAllSessions);
    } catch (const std::exception& error) {
        // The others will notice by themselves.
        platform::NSLog("cannot announce the rotation of log files: %@", error.what());
    }
}

}  // namespace sevrin
