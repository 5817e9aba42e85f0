// Reading and replacing by the book: a file of our own beside the old one, forced to the disk,
// moved over it.
#include "Platform/linux/PreferenceFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "Platform/BinaryPropertyList.h"
#include "Platform/CFPreferences.h"
#include "Platform/FileCalls.h"
#include "Platform/NSError.h"
#include "Platform/PathString.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform::preferences {

namespace {

// File times advance with the kernel's tick, which is 10 ms at the slowest.
constexpr std::int64_t kTimeStepNanoseconds = 50'000'000;

constexpr int kAsideMax = 1000;

std::string failure(const char* call) {
    return std::string(call) + ": " + errorNumberText(errno);
}

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool isSameTime(const timespec& left, const timespec& right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

FileIdentity identityOf(const struct stat& found) {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t age = nanoseconds(now) - nanoseconds(found.st_ctim);
    return {.exists = true,
            .device = found.st_dev,
            .inode = found.st_ino,
            .size = found.st_size,
            .modified = found.st_mtim,
            .changed = found.st_ctim,
            .isFresh = age < kTimeStepNanoseconds};
}

bool readAll(int file, std::string& bytes) {
    std::size_t done = 0;
    for (;;) {
        if (done == bytes.size()) bytes.resize(done + std::max<std::size_t>(done / 2, 4096));
        const ssize_t count = ::read(file, bytes.data() + done, bytes.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        if (count == 0 || done > kPreferenceFileBytesMax) break;
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return true;
}

bool writeAll(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

FileContent unreadable(FileContent content, const char* call) {
    content.state = FileContent::State::Unreadable;
    content.why = failure(call);
    return content;
}

FileContent damaged(FileContent content, std::string why) {
    content.state = FileContent::State::Damaged;
    content.why = std::move(why);
    return content;
}

FileContent parsed(FileContent content, const std::string& bytes) {
    if (bytes.size() > kPreferenceFileBytesMax)
        return damaged(std::move(content), "is larger than any preferences");
    try {
        const Value top = propertyListFromData(bytes);
        const Dictionary* const values = top.ifDictionary();
        if (values == nullptr) return damaged(std::move(content), "has no dictionary at the top");
        content.values = *values;
        content.state = FileContent::State::Whole;
    } catch (const PropertyListError& error) {
        return damaged(std::move(content),
                       std::string("is no binary property list: ") + error.what());
    }
    return content;
}

// Forces to the disk that the folder has a new entry. Where the file system cannot, nobody can.
void synchronizeFolder(const std::string& path) {
    const std::string folder(dirname(path));
    const UniqueFd open(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (open) ::fsync(open.get());
}

// The new file, complete and on the disk, under a name of its own.
std::string writeBeside(const std::string& path, std::string_view bytes) {
    // A process that was killed may have left one; nobody else is writing, for there is the lock.
    ::unlink(path.c_str());
    const UniqueFd file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file) return failure("open");
    if (::fchmod(file.get(), 0600) != 0) return failure("fchmod");
    if (!writeAll(file.get(), bytes)) return failure("write");
    if (::fsync(file.get()) != 0) return failure("fsync");
    return "";
}

// Moves without ever replacing anything.
bool moveToFreeName(const std::string& from, const std::string& to) {
    if (renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0) return true;
    if (errno != ENOTSUP) return false;
    if (::access(to.c_str(), F_OK) == 0) {
        errno = EEXIST;
        return false;
    }
    return ::rename(from.c_str(), to.c_str()) == 0;
}

}  // namespace

bool FileIdentity::isSameAs(const FileIdentity& other) const {
    if (exists != other.exists) return false;
    return !exists || (device == other.device && inode == other.inode && size == other.size &&
                       isSameTime(modified, other.modified) && isSameTime(changed, other.changed));
}

FileIdentity identityOf(const std::string& path) {
    struct stat found {};
    if (::stat(path.c_str(), &found) != 0) return {};
    return identityOf(found);
}

FileContent readFile(const std::string& path) {
    FileContent content;
    // Without waiting: a named pipe would have us wait for a writer.
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        if (errno == ENOENT || errno == ENOTDIR) return content;
        const int error = errno;
        content.identity = identityOf(path);
        errno = error;
        return unreadable(std::move(content), "open");
    }
    struct stat found {};
    if (::fstat(file.get(), &found) != 0) return unreadable(std::move(content), "fstat");
    content.identity = identityOf(found);
    if (!S_ISREG(found.st_mode)) return damaged(std::move(content), "is no regular file");

    std::string bytes;
    if (found.st_size <= static_cast<off_t>(kPreferenceFileBytesMax))
        bytes.resize(static_cast<std::size_t>(found.st_size) + 1);
    if (!readAll(file.get(), bytes)) return unreadable(std::move(content), "read");
    return parsed(std::move(content), bytes);
}

std::string makeFolders(const std::string& folder) {
    struct stat found {};
    if (::stat(folder.c_str(), &found) == 0)
        return S_ISDIR(found.st_mode) ? "" : folder + " is no folder";
    for (std::size_t end = 1; end != std::string::npos;) {
        end = folder.find('/', end + 1);
        const std::string part = folder.substr(0, end);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST)
            return failure("mkdir") + " (" + part + ")";
    }
    return "";
}

std::string replaceFile(const std::string& path, const Dictionary& values) {
    const std::string bytes = dataFromPropertyList(values);
    if (bytes.size() > kPreferenceFileBytesMax) return "the preferences have become too large";

    const std::string folder(dirname(path));
    const std::string beside = folder + "/." + std::string(basename(path)) + ".new";
    std::string why = writeBeside(beside, bytes);
    if (why.empty() && ::rename(beside.c_str(), path.c_str()) != 0) why = failure("rename");
    if (why.empty()) {
        synchronizeFolder(path);
    } else {
        ::unlink(beside.c_str());
    }
    return why;
}

std::string keepAside(const std::string& path, std::string& keptAs) {
    for (int number = 1; number <= kAsideMax; ++number) {
        keptAs = path + ".damaged-" + std::to_string(number);
        if (moveToFreeName(path, keptAs)) return "";
        if (errno != EEXIST) return failure("rename");
    }
    return "there are too many damaged ones already";
}

}  // namespace sevrin::platform::preferences
