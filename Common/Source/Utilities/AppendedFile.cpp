// The descriptor and what is behind it; lines, whole or cut short.
#include "Common/Source/Utilities/AppendedFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

#include "Platform/DescriptorNumber.h"
#include "Platform/GatheringWrite.h"

namespace sevrin {

using platform::UniqueFd;

namespace {

// The file in which this process has cut a line short, for an object that comes after that one.
std::mutex tornLock;
std::pair<dev_t, ino_t> tornFile;

iovec piece(std::string_view bytes) {
    return {const_cast<char*>(bytes.data()), bytes.size()};
}

}  // namespace

AppendedFile::~AppendedFile() {
    if (isStillOurs()) ::close(number_);
}

AppendedFile::Identity AppendedFile::identityOf(int descriptor) noexcept {
    struct stat found {};
    if (descriptor < 0 || ::fstat(descriptor, &found) != 0) return {};
    return {found.st_dev, found.st_ino};
}

bool AppendedFile::isStillOurs() const noexcept {
    return number_ >= 0 && identityOf(number_) == identity_;
}

int AppendedFile::replace(UniqueFd next) noexcept {
    const std::lock_guard guard(lineLock_);
    const int error = exchange(std::move(next), fileRef_ >= 0);
    isTorn_ = isTornFile(identity_);
    fileRef_ = number_;
    return error;
}

// Where not even a descriptor for nothing is left, the file stays behind the number until there is
// a next one; who writes now was there before.
int AppendedFile::close() noexcept {
    const std::lock_guard guard(lineLock_);
    if (fileRef_.exchange(-1) < 0) return 0;
    UniqueFd nothing = platform::openNothing();
    return nothing ? exchange(std::move(nothing), true) : 0;
}

// What was there before is closed by a second descriptor, for the exchange does not say how that
// went.
int AppendedFile::exchange(UniqueFd next, bool wasOpen) noexcept {
    const Identity identity = identityOf(next.get());
    int error = 0;
    if (isStillOurs()) {
        UniqueFd before = wasOpen ? platform::duplicateDescriptor(number_) : UniqueFd();
        if (!platform::moveDescriptorToNumber(std::move(next), number_)) return errno;
        if (before && ::close(before.release()) != 0) error = errno;
    } else {
        if (wasOpen) error = EBADF;
        number_ = next.release();
    }
    identity_ = identity;
    return error;
}

bool AppendedFile::isStillAt(const std::string& path) noexcept {
    const std::lock_guard guard(lineLock_);
    if (fileRef_ < 0) return true;
    struct stat named {};
    return ::lstat(path.c_str(), &named) == 0 &&
           Identity{named.st_dev, named.st_ino} == identity_ && isStillOurs();
}

int AppendedFile::appendLine(std::string_view line) noexcept {
    const std::array pieces{piece("\n"), piece(line), piece("\n")};
    if (isTorn_.load(std::memory_order_relaxed)) return appendAfterTornLine(pieces);
    const ssize_t written = write(std::span(pieces).subspan(1));
    if (written == static_cast<ssize_t>(line.size() + 1)) return 0;
    if (written < 0) return errno;
    const std::lock_guard guard(lineLock_);
    setTorn(true);
    return 0;
}

// In turn, so that one of them ends the torn line: the first that there is room for.
int AppendedFile::appendAfterTornLine(std::span<const iovec> pieces) noexcept {
    const std::lock_guard guard(lineLock_);
    if (!isTorn_) pieces = pieces.subspan(1);
    std::size_t size = 0;
    for (const iovec& piece : pieces)
        size += piece.iov_len;
    const ssize_t written = write(pieces);
    if (written < 0) return errno;
    setTorn(written != static_cast<ssize_t>(size));
    return 0;
}

// Gives what writev gives.
ssize_t AppendedFile::write(std::span<const iovec> pieces) const noexcept {
    const int descriptor = fileRef_.load(std::memory_order_acquire);
    ssize_t written = 0;
    do {
        written = platform::gatheringWrite(descriptor, pieces);
    } while (written < 0 && errno == EINTR);
    return written;
}

// Kept for the process too: after a failed write comes another logger, and with it another object.
void AppendedFile::setTorn(bool isTorn) noexcept {
    const std::lock_guard guard(tornLock);
    const std::pair current(identity_.device, identity_.inode);
    if (isTorn) {
        tornFile = current;
    } else if (tornFile == current) {
        tornFile = {};
    }
    isTorn_ = isTorn;
}

bool AppendedFile::isTornFile(const Identity& file) noexcept {
    const std::lock_guard guard(tornLock);
    return tornFile == std::pair(file.device, file.inode);
}

void AppendedFile::flush() noexcept {
    const std::lock_guard guard(lineLock_);
    if (fileRef_ >= 0) ::fsync(number_);
}

}  // namespace sevrin
