// Going down and up a tree with few descriptors.
#include "Platform/linux/FolderChain.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace sevrin::platform {

namespace {

// Folders at the end of the way that are held open; enough that ordinary trees never reopen one.
constexpr std::size_t kOpenMax = 32;

struct StreamCloser {
    void operator()(DIR* stream) const { ::closedir(stream); }
};

}  // namespace

bool FolderChain::descend(UniqueFd folder) {
    struct stat found {};
    if (::fstat(folder.get(), &found) != 0) return false;
    if (levels_.size() >= kOpenMax) levels_[levels_.size() - kOpenMax].fd.reset();
    levels_.push_back({std::move(folder), found.st_dev, found.st_ino});
    return true;
}

bool FolderChain::ascend() {
    const UniqueFd left = std::move(levels_.back().fd);
    levels_.pop_back();
    if (levels_.empty() || levels_.back().fd) return true;

    Level& level = levels_.back();
    UniqueFd above(::openat(left.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat found {};
    if (!above || ::fstat(above.get(), &found) != 0) return false;
    if (found.st_dev != level.device || found.st_ino != level.number) {
        errno = ESTALE;
        return false;
    }
    level.fd = std::move(above);
    return true;
}

bool FolderNames::read(int folder) {
    // The stream takes a descriptor over; the chain keeps its own.
    UniqueFd own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, StreamCloser> stream(own ? ::fdopendir(own.get()) : nullptr);
    if (!stream) return false;
    static_cast<void>(own.release());
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(stream.get());
        if (entry == nullptr) return errno == 0;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names_.append(name.data(), name.size() + 1);
    }
}

const char* FolderNames::next() {
    if (position_ >= names_.size()) return nullptr;
    const char* name = names_.c_str() + position_;
    position_ += std::strlen(name) + 1;
    return name;
}

}  // namespace sevrin::platform
