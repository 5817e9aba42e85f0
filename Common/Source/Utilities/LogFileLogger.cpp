// The open log file: opening, exchanging, writing.
#include "Common/Source/Utilities/LogFileLogger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "Common/Source/Utilities/SVException.h"
#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSLog.h"

namespace sevrin {

using platform::NSDate;
using platform::NSDistributedNotificationCenter;
using platform::NSLog;

namespace {

constexpr mode_t kFileMode = 0664;

// How long lines may go to a file that has lost its name.
constexpr double kCheckSeconds = 1;

// What a write gets that has no file.
constexpr int kNoFileError = EBADF;

ssize_t writeAll(int descriptor, const iovec* pieces, int count) {
    ssize_t written = 0;
    do {
        written = ::writev(descriptor, pieces, count);
    } while (written < 0 && errno == EINTR);
    return written;
}

// The file in which this process has cut a line short, for a logger that comes after that one.
std::mutex tornLock;
std::pair<dev_t, ino_t> tornFile;

bool isTornFile(dev_t device, ino_t inode) {
    const std::lock_guard guard(tornLock);
    return tornFile == std::pair(device, inode);
}

void setTornFile(dev_t device, ino_t inode) {
    const std::lock_guard guard(tornLock);
    tornFile = {device, inode};
}

iovec piece(const char* bytes, std::size_t size) {
    return {const_cast<char*>(bytes), size};
}

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

LogFileLogger::File LogFileLogger::openFile() {
    const std::string path = currentLogFilePath();
    {
        const std::lock_guard guard(pathLock_);
        path_ = path;
    }
    // Neither following a link that somebody set there, nor waiting for the reader of a pipe.
    File file;
    file.descriptor = ::open(
        path.c_str(),
        O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kFileMode);
    struct stat found {};
    if (file.descriptor >= 0 && ::fstat(file.descriptor, &found) == 0) {
        if (S_ISREG(found.st_mode)) {
            file.identity = {found.st_dev, found.st_ino};
            file.isTorn = isTornFile(found.st_dev, found.st_ino);
            return file;
        }
        errno = EINVAL;
    }
    const int error = errno;
    if (file.descriptor >= 0) ::close(file.descriptor);
    NSLog("open('%@') errno=%d", path, error);
    errno = error;
    SVException::ioErrnoWithReason("cannot open log file").setStrPath(path).raise();
}

void LogFileLogger::open() {
    {
        const std::lock_guard guard(lineLock_);
        if (file_.descriptor >= 0) return;
    }
    install(openFile());
}

void LogFileLogger::close() {
    install({});
}

// Lines that come meanwhile have the one file or the other, and never none.
void LogFileLogger::install(const File& file) {
    File before;
    {
        const std::lock_guard guard(lineLock_);
        before = std::exchange(file_, file);
    }
    if (before.descriptor >= 0) closeFile(before);
}

// A descriptor that leads elsewhere by now was closed behind our back and is another's.
void LogFileLogger::closeFile(const File& file) {
    struct stat found {};
    int error = 0;
    if (::fstat(file.descriptor, &found) != 0) {
        error = errno;
    } else if (Identity{found.st_dev, found.st_ino} != file.identity) {
        error = EBADF;
    } else if (::close(file.descriptor) != 0) {
        error = errno;
    }
    if (error != 0) NSLog("close('%@') errno=%d", openedPath(), error);
}

void LogFileLogger::flush() {
    const std::lock_guard guard(lineLock_);
    if (file_.descriptor >= 0) ::fsync(file_.descriptor);
}

void LogFileLogger::reopenFile() {
    File file;
    try {
        file = openFile();
    } catch (...) {
        close();
        throw;
    }
    install(file);
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
    if (isCheckDue(now) && !isStillTheFile()) reopen();
    return now;
}

// Of the threads that find the time come, one takes it. A clock that was set back counts too.
bool LogFileLogger::isCheckDue(NSDate now) {
    const double seconds = now.timeIntervalSinceReferenceDate();
    double last = lastCheck_.load(std::memory_order_relaxed);
    return (seconds >= last + kCheckSeconds || seconds < last) &&
           lastCheck_.compare_exchange_strong(last, seconds, std::memory_order_relaxed);
}

// Whether the name still leads to the file, and the descriptor too. A logger without a file has
// nothing to look after: its next line fails.
bool LogFileLogger::isStillTheFile() {
    File file;
    {
        const std::lock_guard guard(lineLock_);
        file = file_;
    }
    if (file.descriptor < 0) return true;
    const std::string path = openedPath();
    struct stat named {};
    struct stat open {};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(file.descriptor, &open) == 0 &&
           Identity{named.st_dev, named.st_ino} == file.identity &&
           Identity{open.st_dev, open.st_ino} == file.identity;
}

void LogFileLogger::logCString(const char* bytes) {
    int error = 0;
    {
        const std::lock_guard guard(lineLock_);
        error = writeLine(bytes);
    }
    if (error != 0) failWriting(error);
}

// Gives the error number, 0 when there is none. The rest of a line that is cut short, for want of
// room, is not written later; the line after it begins where a line begins.
int LogFileLogger::writeLine(const char* bytes) {
    if (file_.descriptor < 0) return kNoFileError;
    const std::size_t size = std::strlen(bytes);
    const std::array pieces{piece("\n", 1), piece(bytes, size), piece("\n", 1)};
    const std::size_t skipped = file_.isTorn ? 0 : 1;
    const ssize_t written = writeAll(file_.descriptor, pieces.data() + skipped,
                                     static_cast<int>(pieces.size() - skipped));
    if (written < 0) return errno;
    const bool isCut = static_cast<std::size_t>(written) < size + 2 - skipped;
    if (isCut) setTornFile(file_.identity.device, file_.identity.inode);
    if (!isCut && file_.isTorn) setTornFile(0, 0);
    file_.isTorn = isCut;
    return 0;
}

void LogFileLogger::failWriting(int error) {
    NSLog("write('%@') errno=%d", openedPath(), error);
    releaseDefaultLogger();
}

}  // namespace sevrin
