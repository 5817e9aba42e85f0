// Reads the generations of a log, and what is written afterwards.
#include "tools/LogReader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "tools/Failure.h"

namespace sevrin {

namespace {

Failure failureOf(const std::string& path) {
    const int error = errno;
    const bool isRefused = error == EACCES || error == EPERM;
    return {isRefused ? ExitStatus::Refused : ExitStatus::Broken, path, std::strerror(error)};
}

}  // namespace

LogReader::LogReader(std::vector<std::string> paths) : paths_(std::move(paths)) {
    // A file that moves to the next name while they are opened is met twice, never missed.
    for (const std::string& path : paths_) {
        File file;
        if (!open(path, file)) continue;
        const bool isKnown = std::ranges::any_of(files_, [&](const File& known) {
            return known.facts.st_ino == file.facts.st_ino &&
                   known.facts.st_dev == file.facts.st_dev;
        });
        if (!isKnown) files_.push_back(std::move(file));
    }
    std::ranges::reverse(files_);
}

// Whether there is a file to open.
bool LogReader::open(const std::string& path, File& file) {
    file.path = path;
    file.descriptor.reset(path == "-" ? ::dup(STDIN_FILENO)
                                      : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.descriptor) {
        if (errno == ENOENT) return false;
        throw failureOf(path);
    }
    if (::fstat(file.descriptor.get(), &file.facts) != 0) throw failureOf(path);
    return true;
}

void LogReader::read(LogMoment since, const Take& take) {
    for (std::size_t i = 0; i < files_.size(); ++i) {
        const auto written = static_cast<LogMoment>(files_[i].facts.st_mtim.tv_sec + 1) * 1000;
        const bool isLast = i + 1 == files_.size();
        if (written < since && !isLast) continue;
        readToEnd(files_[i], take);
        if (!isLast) parser_.finish(take);
    }
    if (files_.size() > 1) files_.erase(files_.begin(), files_.end() - 1);
    parser_.settle(take);
}

void LogReader::readToEnd(File& file, const Take& take) {
    std::array<char, 64 * 1024> buffer;
    for (;;) {
        const ssize_t size = ::read(file.descriptor.get(), buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) throw failureOf(file.path);
        if (size == 0) return;
        parser_.add({buffer.data(), static_cast<std::size_t>(size)}, take);
    }
}

void LogReader::readOn(const Take& take) {
    if (!files_.empty()) {
        const bool isOver = isReplaced();  // Before its rest is read: then nothing more comes.
        struct stat facts {};
        const int descriptor = files_.back().descriptor.get();
        const bool isShorter = ::fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode) &&
                               facts.st_size < ::lseek(descriptor, 0, SEEK_CUR);
        if (isShorter) {
            parser_.finish(take);
            ::lseek(descriptor, 0, SEEK_SET);
        }
        readToEnd(files_.back(), take);
        if (!isOver) return parser_.settle(take);
    }
    parser_.finish(take);
    readNewer(take);
}

bool LogReader::isSame(const struct stat& facts) const {
    return facts.st_ino == files_.back().facts.st_ino && facts.st_dev == files_.back().facts.st_dev;
}

// Whether another file has the name of the current one. One without a name may still be written to.
bool LogReader::isReplaced() const {
    struct stat facts {};
    return ::stat(paths_.front().c_str(), &facts) == 0 && !isSame(facts);
}

// The files that came after the one read last, of which there may be several. If that one has no
// name any more, what has the older names was there before it.
void LogReader::readNewer(const Take& take) {
    std::vector<File> newer;
    bool isMet = false;
    for (const std::string& path : paths_) {
        File file;
        if (!open(path, file)) continue;
        isMet = !files_.empty() && isSame(file.facts);
        if (isMet) break;
        newer.push_back(std::move(file));
    }
    if (newer.empty()) return;
    if (!isMet && !files_.empty()) newer.resize(1);
    std::ranges::reverse(newer);
    files_ = std::move(newer);
    read(0, take);
}

void LogReader::finish(const Take& take) {
    parser_.finish(take);
}

}  // namespace sevrin
