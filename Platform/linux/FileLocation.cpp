// Finding the folder of an item.
#include "Platform/linux/FileLocation.h"

#include <fcntl.h>
#include <limits.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/PathString.h"

namespace sevrin::platform {

namespace {

constexpr int kOpenFolder = O_PATH | O_DIRECTORY | O_CLOEXEC;

// Opens the folder in pieces that the kernel takes.
UniqueFd openFolder(std::string_view path) {
    constexpr std::size_t kPieceMax = PATH_MAX - 1;
    UniqueFd folder;
    for (bool isFirst = true; isFirst || !path.empty(); isFirst = false) {
        std::size_t size = path.size();
        if (size > kPieceMax) {
            size = path.rfind('/', kPieceMax);
            if (size == path.npos || size == 0) {
                errno = ENAMETOOLONG;
                return UniqueFd();
            }
        }
        const std::string piece(path.substr(0, size));
        folder.reset(::openat(isFirst ? AT_FDCWD : folder.get(), piece.c_str(), kOpenFolder));
        if (!folder) break;
        // The next piece is relative to this one.
        path.remove_prefix(size);
        path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    }
    return folder;
}

}  // namespace

void throwFailure(std::string path) {
    const int number = errno;
    throw FileFailure{number, std::move(path)};
}

FileLocation locate(std::string_view path) {
    if (path.empty() || path.find('\0') != path.npos) {
        errno = path.empty() ? ENOENT : EINVAL;
        throwFailure(std::string(path));
    }
    FileLocation location{openFolder(dirname(path)), std::string(basename(path)),
                          std::string(path)};
    if (!location.folder) throwFailure(std::string(path));
    return location;
}

UniqueFd openFolderBelow(int folder, std::string_view path) {
    UniqueFd below(::openat(folder, ".", kOpenFolder));
    const std::string_view folders =
        path.substr(0, path.rfind('/') == path.npos ? 0 : path.rfind('/'));
    for (std::size_t start = 0; below && start < folders.size();) {
        const std::size_t end = std::min(folders.find('/', start), folders.size());
        const std::string name(folders.substr(start, end - start));
        below.reset(::openat(below.get(), name.c_str(), kOpenFolder | O_NOFOLLOW));
        start = end + 1;
    }
    return below;
}

}  // namespace sevrin::platform
