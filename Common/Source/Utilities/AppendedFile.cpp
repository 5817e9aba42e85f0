// The descriptor and what is behind it; lines, whole or cut short.
#include "Common/Source/Utilities/AppendedFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <mutex>
#include <span>
#include <utility>

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

ssize_t write(int descriptor, std::span<const iovec> pieces) {
    ssize_t written = 0;
    do {
        written = platform::gatheringWrite(descriptor, pieces);
    } while (written < 0 && errno == EINTR);
    return written;
}

}  // namespace

AppendedFile::~AppendedFile() {
    closeFile(file_);
}

AppendedFile::Identity AppendedFile::identityOf(int descriptor) noexcept {
    struct stat found {};
    if (::fstat(descriptor, &found) != 0) return {};
    return {found.st_dev, found.st_ino};
}

AppendedFile::File AppendedFile::current() noexcept {
    const std::lock_guard guard(lineLock_);
    return file_;
}

bool AppendedFile::isOpen() noexcept {
    return current().fileRef >= 0;
}

int AppendedFile::replace(UniqueFd next) noexcept {
    const Identity identity = identityOf(next.get());
    return install({next.release(), identity, isTornFile(identity)});
}

int AppendedFile::close() noexcept {
    return install({});
}

int AppendedFile::install(const File& next) noexcept {
    File before;
    {
        const std::lock_guard guard(lineLock_);
        before = std::exchange(file_, next);
    }
    return closeFile(before);
}

// A descriptor that leads elsewhere by now was closed behind our back and is another's.
int AppendedFile::closeFile(const File& file) noexcept {
    if (file.fileRef < 0) return 0;
    if (identityOf(file.fileRef) != file.identity) return EBADF;
    return ::close(file.fileRef) == 0 ? 0 : errno;
}

bool AppendedFile::isStillAt(const std::string& path) noexcept {
    const File file = current();
    if (file.fileRef < 0) return true;
    struct stat named {};
    return ::lstat(path.c_str(), &named) == 0 &&
           Identity{named.st_dev, named.st_ino} == file.identity &&
           identityOf(file.fileRef) == file.identity;
}

int AppendedFile::appendLine(std::string_view line) noexcept {
    const std::array pieces{piece("\n"), piece(line), piece("\n")};
    const std::lock_guard guard(lineLock_);
    if (file_.fileRef < 0) return EBADF;
    const std::size_t skipped = file_.isTorn ? 0 : 1;
    const ssize_t written = write(file_.fileRef, std::span(pieces).subspan(skipped));
    if (written < 0) return errno;
    const bool isCut = static_cast<std::size_t>(written) < line.size() + 2 - skipped;
    if (isCut || file_.isTorn) setTorn(isCut);
    return 0;
}

// Kept for the process too: after a failed write comes another logger, and with it another object.
void AppendedFile::setTorn(bool isTorn) noexcept {
    const std::lock_guard guard(tornLock);
    const std::pair current(file_.identity.device, file_.identity.inode);
    if (isTorn) {
        tornFile = current;
    } else if (tornFile == current) {
        tornFile = {};
    }
    file_.isTorn = isTorn;
}

bool AppendedFile::isTornFile(const Identity& file) noexcept {
    const std::lock_guard guard(tornLock);
    return tornFile == std::pair(file.device, file.inode);
}

void AppendedFile::flush() noexcept {
    const std::lock_guard guard(lineLock_);
    if (file_.fileRef >= 0) ::fsync(file_.fileRef);
}

}  // namespace sevrin
