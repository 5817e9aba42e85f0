// flock() on a file that is removed by its last holder.
//
// Whoever has locked the file makes sure that it still has its name: the holder before may have
// removed it in between, and then the lock is one that nobody else meets.
#include "Platform/linux/PatientFileLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

namespace sevrin::platform {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::microseconds kFirstPause{200};
constexpr std::chrono::microseconds kLongestPause{20'000};

// Locks the open file, or gives up at the deadline with EWOULDBLOCK.
bool lockUntil(int file, Clock::time_point deadline) {
    for (auto pause = kFirstPause;; pause = std::min(pause * 2, kLongestPause)) {
        if (::flock(file, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK || Clock::now() >= deadline) return false;
        std::this_thread::sleep_for(pause);
    }
}

bool hasName(int file, const std::string& path) {
    struct stat open {};
    struct stat named {};
    return ::fstat(file, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

}  // namespace

std::optional<PatientFileLock> PatientFileLock::acquire(const std::string& path,
                                                        std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    for (;;) {
        UniqueFd file(
            ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600));
        if (!file || !lockUntil(file.get(), deadline)) return std::nullopt;
        if (hasName(file.get(), path)) return PatientFileLock(path, std::move(file));
        if (Clock::now() >= deadline) {
            errno = EWOULDBLOCK;
            return std::nullopt;
        }
    }
}

PatientFileLock::~PatientFileLock() {
    if (file_) ::unlink(path_.c_str());
}

}  // namespace sevrin::platform
