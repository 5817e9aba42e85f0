// A file descriptor with one owner.
//
// Owns the descriptor and closes it; never duplicates it behind the caller's back. A bare `int`
// elsewhere is always borrowed. Passing a UniqueFd by value passes the ownership.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace sevrin::platform {

class UniqueFd {
public:
    UniqueFd() = default;

    // Takes over `fd`; -1 stands for "none".
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}

    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() { reset(); }

    // The descriptor, borrowed; -1 when there is none.
    [[nodiscard]] int get() const noexcept { return fd_; }

    [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }

    // Hands the descriptor to the caller, who must close it.
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }

    // Closes what is held, unless it is `fd`, and takes over `fd`. Leaves errno as it was: that of
    // a failed call is mostly wanted after the descriptors around it are closed.
    void reset(int fd = -1) noexcept {
        const int errorBefore = errno;
        if (fd_ >= 0 && fd_ != fd) ::close(fd_);
        fd_ = fd;
        errno = errorBefore;
    }

private:
    int fd_ = -1;
};

}  // namespace sevrin::platform
