// Moving by renaming where that is possible, else by a copy that is safe before the source goes.
#include "Platform/linux/TreeMove.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "Platform/linux/TreeCopy.h"
#include "Platform/linux/TreeRemoval.h"

namespace sevrin::platform {

namespace {

// For file systems that cannot refuse to replace: something of ours at the new name, made only when
// nothing is there, which the rename then replaces. 0 or -1 with errno, as renameat.
int renameOntoPlaceholder(const FileLocation& source, const FileLocation& target) {
    struct stat found {};
    const int sourceFolder = source.folder.get();
    const int targetFolder = target.folder.get();
    if (::fstatat(sourceFolder, source.name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) return -1;
    const bool isFolder = S_ISDIR(found.st_mode);
    if (isFolder) {
        if (::mkdirat(targetFolder, target.name.c_str(), 0700) != 0) return -1;
    } else if (!UniqueFd(::openat(targetFolder, target.name.c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600))) {
        return -1;
    }
    if (::renameat(sourceFolder, source.name.c_str(), targetFolder, target.name.c_str()) == 0)
        return 0;
    const int error = errno;
    ::unlinkat(targetFolder, target.name.c_str(), isFolder ? AT_REMOVEDIR : 0);
    errno = error;
    return -1;
}

int renameExclusively(const FileLocation& source, const FileLocation& target) {
    if (::renameat2(source.folder.get(), source.name.c_str(), target.folder.get(),
                    target.name.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    return errno == EINVAL || errno == ENOSYS ? renameOntoPlaceholder(source, target) : -1;
}

// Whether both names are one name of one item, spelled in other letters, as file systems have it
// that do not tell small letters from capitals.
bool isSameName(const FileLocation& source, const FileLocation& target) {
    struct stat folder {};
    struct stat otherFolder {};
    struct stat item {};
    struct stat other {};
    return ::strcasecmp(source.name.c_str(), target.name.c_str()) == 0 &&
           ::fstat(source.folder.get(), &folder) == 0 &&
           ::fstat(target.folder.get(), &otherFolder) == 0 &&
           ::fstatat(source.folder.get(), source.name.c_str(), &item, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstatat(target.folder.get(), target.name.c_str(), &other, AT_SYMLINK_NOFOLLOW) == 0 &&
           folder.st_dev == otherFolder.st_dev && folder.st_ino == otherFolder.st_ino &&
           item.st_dev == other.st_dev && item.st_ino == other.st_ino &&
           (item.st_nlink == 1 || S_ISDIR(item.st_mode)) && source.name != target.name;
}

// Has all that was written to the volume of the folder reach the disk.
bool writeToDisk(int folder) {
    const UniqueFd readable(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return readable && ::syncfs(readable.get()) == 0;
}

void removeIgnoringFailures(const FileLocation& item) {
    try {
        std::uint64_t removed = 0;
        removeTree(item, removed);
    } catch (const FileFailure&) {
        // The failure that led here is the one to report.
    }
}

void moveAcross(const FileLocation& source, const FileLocation& target) {
    CopiedItems copied;
    copyTree(source, target, AttributeLoss::Refuse, &copied);
    if (!writeToDisk(target.folder.get())) {
        const int error = errno;
        removeIgnoringFailures(target);
        throw FileFailure{error, target.path};
    }
    std::uint64_t removed = 0;
    try {
        // What came or changed after it was copied is in no copy and must stay.
        removeTree(source, removed, [&](const struct stat& item) { return copied.contains(item); });
    } catch (const FileFailure&) {
        if (removed == 0) removeIgnoringFailures(target);
        throw;
    }
}

}  // namespace

void moveTree(const FileLocation& source, const FileLocation& target) {
    if (renameExclusively(source, target) == 0) return;
    if (errno == EXDEV) return moveAcross(source, target);
    if (errno != EEXIST) throwFailure(source.path);
    if (isSameName(source, target) && ::renameat(source.folder.get(), source.name.c_str(),
                                                 target.folder.get(), target.name.c_str()) == 0) {
        return;
    }
    throw FileFailure{EEXIST, target.path};
}

}  // namespace sevrin::platform
