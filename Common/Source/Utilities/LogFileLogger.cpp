// The open log file: opening, exchanging, writing.
#include "Common/Source/Utilities/LogFileLogger.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <exception>
#include <utility>

#include "Common/Source/Utilities/SVException.h"
#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSLog.h"

namespace sevrin {

using platform::NSDate;
using platform::NSDistributedNotificationCenter;
using platform::NSLog;
using platform::UniqueFd;

namespace {

constexpr mode_t kFileMode = 0664;

// How long lines may go to a file that has lost its name.
constexpr double kCheckSeconds = 1;

}  // namespace

LogFileLoggerPtr LogFileLogger::make(Clock clock) {
    auto logger = std::make_shared<LogFileLogger>(Passkey{}, std::move(clock));
    logger->observeRotation();
    return logger;
}

LogFileLogger::LogFileLogger(Passkey, Clock clock) : Logger(std::move(clock)) {}

LogFileLogger::~LogFileLogger() {
    if (observer_) NSDistributedNotificationCenter::defaultCenter().removeObserver(*observer_);
    close();
}

// Without notifications the log works all the same: a file that was renamed is noticed anyway.
void LogFileLogger::observeRotation() try {
    observer_ = NSDistributedNotificationCenter::defaultCenter().addObserver(
        kLogRotationNotification, kLogRotationObject,
        [weak = weak_from_this()](const platform::NSNotification&) {
            if (const auto self = weak.lock()) self->logRotationNotification();
        });
} catch (const std::exception& error) {
    NSLog("cannot observe the rotation of log files: %@", error.what());
}

std::string LogFileLogger::openedPath() {
    const std::lock_guard guard(pathLock_);
    return path_;
}

UniqueFd LogFileLogger::openFile() {
    const std::string path = currentLogFilePath();
    {
        const std::lock_guard guard(pathLock_);
        path_ = path;
    }
    // Neither following a link that somebody set there, nor waiting for the reader of a pipe.
    UniqueFd file(::open(
        path.c_str(),
        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kFileMode));
    struct stat found {};
    if (file && ::fstat(file.get(), &found) == 0) {
        if (S_ISREG(found.st_mode)) return file;
        errno = EINVAL;
    }
    const int error = errno;
    file.reset();
    NSLog("open('%@') errno=%d", path, error);
    errno = error;
    SVException::ioErrnoWithReason("cannot open log file").setStrPath(path).raise();
}

void LogFileLogger::open() {
    if (!file_.isOpen()) install(openFile());
}

void LogFileLogger::close() {
    if (const int error = file_.close()) failClosing(error);
}

// Lines that come meanwhile have the one file or the other, and never none.
void LogFileLogger::install(UniqueFd file) {
    if (const int error = file_.replace(std::move(file))) failClosing(error);
}

void LogFileLogger::failClosing(int error) {
    NSLog("close('%@') errno=%d", openedPath(), error);
}

void LogFileLogger::flush() {
    file_.flush();
}

void LogFileLogger::reopenFile() {
    UniqueFd file;
    try {
        file = openFile();
    } catch (...) {
        close();
        throw;
    }
    install(std::move(file));
}

void LogFileLogger::reopen() {
    try {
        reopenFile();
        Logger::reopen();
    } catch (const std::exception& error) {
        NSLog("problem reopening log file: %@", error.what());
        releaseDefaultLogger();
    }
}

void LogFileLogger::logRotationNotification() {
    reopen();
}

// With the time that the line needs anyway, so that the check costs no reading of a clock.
NSDate LogFileLogger::logDateReopeningLogger() {
    const NSDate now = Logger::logDateReopeningLogger();
    if (isCheckDue(now) && !file_.isStillAt(openedPath())) reopen();
    return now;
}

// Of the threads that find the time come, one takes it. A clock that was set back counts too.
bool LogFileLogger::isCheckDue(NSDate now) {
    const double seconds = now.timeIntervalSinceReferenceDate();
    double last = lastCheck_.load(std::memory_order_relaxed);
    return (seconds >= last + kCheckSeconds || seconds < last) &&
           lastCheck_.compare_exchange_strong(last, seconds, std::memory_order_relaxed);
}

void LogFileLogger::logCString(const char* bytes) {
    appendLine(bytes);
}

void LogFileLogger::logASCIIMessage(const std::string& text) {
    appendLine(text);
}

void LogFileLogger::appendLine(std::string_view line) {
    const int error = file_.appendLine(line);
    if (error == 0) return;
    NSLog("write('%@') errno=%d", openedPath(), error);
    releaseDefaultLogger();
}

}  // namespace sevrin
