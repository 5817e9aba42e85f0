// The file manager's operations, on the tree operations of this folder.
#include "Platform/NSFileManager.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "Platform/PathString.h"
#include "Platform/PosixError.h"
#include "Platform/linux/FileLocation.h"
#include "Platform/linux/ItemAttributes.h"
#include "Platform/linux/TreeCopy.h"
#include "Platform/linux/TreeMove.h"
#include "Platform/linux/TreeRemoval.h"

namespace sevrin::platform {

namespace {

// Runs `work` and gives what it throws as an error.
template <typename Work>
NSErrorPtr errorOf(const Work& work) {
    try {
        work();
        return nullptr;
    } catch (const FileFailure& failure) {
        return posixError(failure.number, failure.path);
    }
}

// The item, followed; false when there is none.
bool findFollowing(std::string_view path, struct stat& found) {
    try {
        const FileLocation item = locate(path);
        return ::fstatat(item.folder.get(), item.name.c_str(), &found, 0) == 0;
    } catch (const FileFailure&) {
        return false;
    }
}

// Makes one folder; answers false when there is one already, which is then opened instead.
void makeFolder(std::string_view path, bool mayExist, const Dictionary& attributes) {
    const AttributeChange change(attributes, path);
    const FileLocation item = locate(path);
    const int folder = item.folder.get();
    const char* name = item.name.c_str();
    struct stat found {};
    if (::mkdirat(folder, name, change.hasMode() ? 0700 : 0777) != 0) {
        const int error = errno;
        if (mayExist && error == EEXIST && ::fstatat(folder, name, &found, 0) == 0 &&
            S_ISDIR(found.st_mode)) {
            return;
        }
        throw FileFailure{error, item.path};
    }
    if (change.isEmpty()) return;
    const UniqueFd made(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (made && change.apply(made.get())) return;
    const int error = errno;
    ::unlinkat(folder, name, AT_REMOVEDIR);
    throw FileFailure{error, item.path};
}

void makeFolders(std::string_view path, const Dictionary& attributes) {
    bool isDirectory = false;
    const NSFileManager& manager = NSFileManager::defaultManager();
    // From the first that is missing on; each is there already when another process was faster.
    std::vector<std::string_view> missing{path};
    for (std::string_view above = dirname(path);
         !manager.fileExistsAtPathIsDirectory(above, isDirectory) && above != "/" && above != ".";
         above = dirname(above)) {
        missing.push_back(above);
    }
    for (; !missing.empty(); missing.pop_back())
        makeFolder(missing.back(), true, attributes);
}

void writeFile(std::string_view path, std::string_view contents, const Dictionary& attributes) {
    const AttributeChange change(attributes, path);
    const FileLocation item = locate(path);
    const UniqueFd file(::openat(item.folder.get(), item.name.c_str(),
                                 O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY,
                                 change.hasMode() ? 0600 : 0666));
    if (!file) throwFailure(item.path);
    while (!contents.empty()) {
        const ssize_t written = ::write(file.get(), contents.data(), contents.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throwFailure(item.path);
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    if (!change.apply(file.get())) throwFailure(item.path);
}

}  // namespace

const NSFileManager& NSFileManager::defaultManager() noexcept {
    static const NSFileManager manager;
    return manager;
}

bool NSFileManager::fileExistsAtPath(std::string_view path) const {
    struct stat found {};
    return findFollowing(path, found);
}

bool NSFileManager::fileExistsAtPathIsDirectory(std::string_view path, bool& isDirectory) const {
    struct stat found {};
    if (!findFollowing(path, found)) return false;
    isDirectory = S_ISDIR(found.st_mode);
    return true;
}

NSErrorPtr NSFileManager::moveItemAtPathToPath(std::string_view from, std::string_view to) const {
    return errorOf([&] { moveTree(locate(from), locate(to)); });
}

NSErrorPtr NSFileManager::copyItemAtPathToPath(std::string_view from, std::string_view to) const {
    return errorOf([&] { copyTree(locate(from), locate(to), AttributeLoss::Accept); });
}

NSErrorPtr NSFileManager::removeItemAtPath(std::string_view path) const {
    return errorOf([&] {
        std::uint64_t removed = 0;
        removeTree(locate(path), removed);
    });
}

std::variant<Dictionary, NSErrorPtr> NSFileManager::attributesOfItemAtPath(
    std::string_view path) const {
    std::variant<Dictionary, NSErrorPtr> result;
    const NSErrorPtr error = errorOf([&] { result = attributesOf(locate(path)); });
    if (error) result = error;
    return result;
}

std::variant<Dictionary, NSErrorPtr> NSFileManager::attributesOfFileSystemForPath(
    std::string_view path) const {
    std::variant<Dictionary, NSErrorPtr> result;
    const NSErrorPtr error = errorOf([&] { result = fileSystemAttributesOf(locate(path)); });
    if (error) result = error;
    return result;
}

NSErrorPtr NSFileManager::setAttributesOfItemAtPath(const Dictionary& attributes,
                                                    std::string_view path) const {
    return errorOf([&] {
        const AttributeChange change(attributes, path);
        const FileLocation item = locate(path);
        const UniqueFd opened(::openat(item.folder.get(), item.name.c_str(), O_PATH | O_CLOEXEC));
        if (!opened || !change.apply(opened.get())) throwFailure(item.path);
    });
}

NSErrorPtr NSFileManager::createDirectoryAtPath(std::string_view path, bool intermediates,
                                                const Dictionary& attributes) const {
    return errorOf([&] {
        if (intermediates) {
            makeFolders(path, attributes);
        } else {
            makeFolder(path, false, attributes);
        }
    });
}

NSErrorPtr NSFileManager::createFileAtPath(std::string_view path, std::string_view contents,
                                           const Dictionary& attributes) const {
    return errorOf([&] { writeFile(path, contents, attributes); });
}

}  // namespace sevrin::platform
