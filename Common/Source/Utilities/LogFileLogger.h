// The standard logger: appends each line to one file that all the suite's processes of a user
// share, and keeps older generations of it.
//
//     Library/Logs/Sevrin/Sevrin.log        the current file
//     Library/Logs/Sevrin/Sevrin.log.1      the one before, and so on to .9, the oldest
//
// A line is one gathering write to a file opened for appending, so lines of several processes and
// threads never mix. Whoever rotates tells all others, which then go on in the new file. A file
// that somebody else renamed, removed or replaced is noticed within a second of writing, by one
// look at its name. What goes wrong is said on the console, never in the log; then the default
// logger is released, and the next message chooses one afresh.
//
// Any thread may use it; rotation notifications come on the main queue. A line that is written
// while the file is reopened goes to the old file or to the new one.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/AppendedFile.h"
#include "Common/Source/Utilities/Logger.h"
#include "Platform/UniqueFd.h"

namespace sevrin {

// What a process that has rotated the files announces to the others, and from whom.
inline constexpr const char* kLogRotationNotification = "com.sevrin.log.rotation";
inline constexpr const char* kLogRotationObject = "SevrinLogger";

// The current file and nine older ones.
inline constexpr std::uint64_t kLogFilesMax = 10;

class LogFileLogger;
using LogFileLoggerPtr = std::shared_ptr<LogFileLogger>;

class LogFileLogger final : public Logger, public std::enable_shared_from_this<LogFileLogger> {
    struct Passkey {};

public:
    // A logger without an open file: installing it as the default logger opens one.
    [[nodiscard]] static LogFileLoggerPtr make(Clock clock = &platform::NSDate::date);

    // The same for the choice of the default logger, which may come up while another choice makes
    // the log folder on this thread: nullptr when this one would only fail where that one does.
    [[nodiscard]] static LogFileLoggerPtr makeUnlessStuck();

    // For make() only.
    LogFileLogger(Passkey, Clock clock);
    ~LogFileLogger() override;

    // Opens the current file, unless one is open; makes it, readable and writable for the user and
    // the group, when there is none. A link, and anything else that is no regular file, is refused.
    // Raises SVException "cannot open log file" with the path, or what making the folder raises.
    void open();

    void close();

    // Forces what was written to the disk.
    void flush() override;

    // Goes on in the file that has the name now. Never throws: when there is none to be had, says
    // so on the console, stays without a file and releases the default logger.
    void reopen() override;

    // Removes the generations from `oldLogs` on, moves the others up by one, begins a new current
    // file and announces it. With 0 the current file is kept and goes on. With 10 and more nothing
    // is removed, and a generation moves up only while its new name is free. Raises what making the
    // folder raises.
    void rotateLogKeeping(std::uint64_t oldLogs) override;

    // The log files that exist, the current one first.
    [[nodiscard]] std::vector<std::string> logFiles() override;

    // The path of the current file, and the first `count` paths from the current one on, whether
    // they exist or not. Make the folder if needed, and raise what that raises.
    [[nodiscard]] std::string currentLogFilePath();
    [[nodiscard]] std::vector<std::string> logFilePaths(std::uint64_t count);

    // The same in a folder of the caller's, which is not made.
    [[nodiscard]] static std::vector<std::string> logFilePathsInFolder(std::uint64_t count,
                                                                       const std::string& folder);

    // Another process has rotated the files.
    void logRotationNotification();

    // As every logger; and once a second looks whether the file has its name still.
    platform::NSDate logDateReopeningLogger() override;

    // Writes one line and the line feed. Allocates nothing.
    void logCString(const char* bytes) override;

    // The same without looking at the text again: date, word and identifier are ASCII too.
    void logASCIIMessage(const std::string& text) override;

private:
    void observeRotation();
    [[nodiscard]] std::string openedPath();
    [[nodiscard]] platform::UniqueFd openFile();
    void install(platform::UniqueFd file);
    void reopenFile();
    [[nodiscard]] bool isCheckDue(platform::NSDate now);
    void failClosing(int error);
    void appendLine(std::string_view line);

    AppendedFile file_;

    std::mutex pathLock_;  // Guards the path.
    std::string path_;     // Of the current file, as it was opened or tried last.

    std::atomic<double> lastCheck_ = 0;      // Seconds since the reference date.
    std::optional<std::uint64_t> observer_;  // Set by make(), then constant.
};

}  // namespace sevrin
