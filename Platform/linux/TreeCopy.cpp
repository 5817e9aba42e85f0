// Copying a tree from the top down, without recursion: a tree may be deeper than the stack.
#include "Platform/linux/TreeCopy.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/linux/FileContent.h"
#include "Platform/linux/FolderChain.h"
#include "Platform/linux/TreeRemoval.h"

namespace sevrin::platform {

namespace {

using Identity = std::pair<dev_t, ino_t>;

// What a folder is made with, until it gets its own bits when all is in it; others look in vain.
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;

class Copy {
public:
    Copy(const FileLocation& source, const FileLocation& target, AttributeLoss loss,
         CopiedItems* copied)
        : source_(source), target_(target), loss_(loss), copied_(copied) {}

    void run() {
        if (targetLiesInSource()) {
            errno = EINVAL;
            throwFailure(target_.path);
        }
        try {
            copyItem(source_.folder.get(), source_.name.c_str(), target_.folder.get(),
                     target_.name.c_str());
            while (!levels_.empty())
                step();
        } catch (...) {
            removeWhatWasMade();
            throw;
        }
    }

private:
    struct Level {
        std::string name;  // of the folder, in the one above
        FolderNames names;
        struct stat attributes;
    };

    // A folder that was moved below itself meanwhile is noticed when the copy comes to it.
    bool targetLiesInSource() const {
        struct stat source {};
        if (::fstatat(source_.folder.get(), source_.name.c_str(), &source, AT_SYMLINK_NOFOLLOW) !=
                0 ||
            !S_ISDIR(source.st_mode)) {
            return false;
        }
        constexpr int kOpen = O_PATH | O_DIRECTORY | O_CLOEXEC;
        UniqueFd above(::openat(target_.folder.get(), ".", kOpen));
        Identity before{};
        struct stat here {};
        while (above && ::fstat(above.get(), &here) == 0 && identityOf(here) != before) {
            if (identityOf(here) == identityOf(source)) return true;
            before = identityOf(here);  // The root is its own parent.
            above.reset(::openat(above.get(), "..", kOpen));
        }
        return false;
    }

    void step() {
        if (const char* name = levels_.back().names.next()) {
            copyItem(from_.current(), name, to_.current(), name);
        } else {
            leave();
        }
    }

    void copyItem(int sourceFolder, const char* name, int targetFolder, const char* targetName) {
        struct stat found {};
        if (::fstatat(sourceFolder, name, &found, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT && !levels_.empty()) return;
            failAtSource(name);
        }
        if (S_ISDIR(found.st_mode)) return enter(sourceFolder, name, targetFolder, targetName);
        const bool hasOtherNames = found.st_nlink > 1;
        if (hasOtherNames && linkToCopy(found, targetFolder, targetName)) return;
        if (S_ISREG(found.st_mode)) {
            if (!copyFile(sourceFolder, name, targetFolder, targetName)) return;
        } else {
            makeOther(sourceFolder, name, found, targetFolder, targetName);
        }
        if (hasOtherNames) rememberCopy(found, targetFolder, targetName);
    }

    // Answers false when the file vanished before it could be opened.
    bool copyFile(int sourceFolder, const char* name, int targetFolder, const char* targetName) {
        constexpr int kOpen = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
        const UniqueFd source(::openat(sourceFolder, name, kOpen));
        struct stat attributes {};
        if (!source && errno == ENOENT && !levels_.empty()) return false;
        if (!source || ::fstat(source.get(), &attributes) != 0) failAtSource(name);
        if (!S_ISREG(attributes.st_mode)) {
            errno = EAGAIN;  // It became something else in between.
            failAtSource(name);
        }
        const UniqueFd target(::openat(targetFolder, targetName,
                                       O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                       kFileMode));
        if (!target) failAtTarget(targetName);
        noteMade(targetFolder, targetName);
        if (levels_.empty()) removeInheritedACL(target.get());
        if (!content_.copy(source.get(), target.get(), attributes)) failAtTarget(targetName);
        if (!copyMetadata({source.get()}, {target.get()}, attributes, loss_))
            failAtTarget(targetName);
        if (copied_) copied_->add(attributes);
        return true;
    }

    // Links, pipes, sockets and devices.
    void makeOther(int sourceFolder, const char* name, const struct stat& attributes,
                   int targetFolder, const char* targetName) {
        int result = 0;
        if (S_ISLNK(attributes.st_mode)) {
            char text[PATH_MAX + 1];
            const ssize_t size = ::readlinkat(sourceFolder, name, text, sizeof text - 1);
            if (size < 0) failAtSource(name);
            text[size] = '\0';
            result = ::symlinkat(text, targetFolder, targetName);
        } else {
            const mode_t kind = attributes.st_mode & S_IFMT;
            result = ::mknodat(targetFolder, targetName, kind | kFileMode, attributes.st_rdev);
        }
        if (result != 0) failAtTarget(targetName);
        noteMade(targetFolder, targetName);
        if (!copyMetadata({-1, sourceFolder, name}, {-1, targetFolder, targetName}, attributes,
                          loss_)) {
            failAtTarget(targetName);
        }
        if (copied_) copied_->add(attributes);
    }

    void enter(int sourceFolder, const char* name, int targetFolder, const char* targetName) {
        constexpr int kOpen = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        UniqueFd source(::openat(sourceFolder, name, kOpen));
        Level level{targetName, {}, {}};
        if (!source && errno == ENOENT && !levels_.empty()) return;
        if (!source || ::fstat(source.get(), &level.attributes) != 0) failAtSource(name);
        if (identityOf(level.attributes) == made_) {
            errno = EINVAL;
            failAtSource(name);
        }
        if (!level.names.read(source.get())) {
            if (errno == ENOENT && !levels_.empty()) return;
            failAtSource(name);
        }
        if (::mkdirat(targetFolder, targetName, kFolderMode) != 0) failAtTarget(targetName);
        noteMade(targetFolder, targetName);
        if (levels_.empty() && !removeInheritedRights(targetFolder, targetName, kFolderMode))
            failAtTarget(targetName);
        UniqueFd target(::openat(targetFolder, targetName, kOpen));
        if (!target) failAtTarget(targetName);
        if (!from_.descend(std::move(source)) || !to_.descend(std::move(target)))
            failAtTarget(targetName);
        levels_.push_back(std::move(level));
    }

    // The folder gets its own rights and times now that nothing is put into it any more.
    void leave() {
        if (!copyMetadata({from_.current()}, {to_.current()}, levels_.back().attributes, loss_) ||
            !from_.ascend() || !to_.ascend()) {
            failAtTarget(nullptr);
        }
        levels_.pop_back();
    }

    // The top of the copy is what is removed when the rest fails, and what must not be copied. (It
    // also inherits rights from the folder it is made in; what is below it from the top.)
    void noteMade(int folder, const char* name) {
        struct stat found {};
        if (levels_.empty() && ::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) == 0)
            made_ = identityOf(found);
    }

    // Gives the copy of a file whose content is copied already one more name. Answers false when
    // it was not copied yet, or the copy cannot have another name; then it is copied again.
    bool linkToCopy(const struct stat& source, int targetFolder, const char* targetName) {
        const auto found = copies_.find(identityOf(source));
        if (found == copies_.end()) return false;
        const std::string& first = found->second.path;
        const UniqueFd folder = openFolderBelow(target_.folder.get(), first);
        const std::string name = first.substr(first.rfind('/') + 1);
        if (!folder || ::linkat(folder.get(), name.c_str(), targetFolder, targetName, 0) != 0) {
            if (errno == EEXIST) failAtTarget(targetName);
            return false;
        }
        struct stat linked {};
        if (::fstatat(targetFolder, targetName, &linked, AT_SYMLINK_NOFOLLOW) == 0 &&
            identityOf(linked) == found->second.identity) {
            return true;
        }
        ::unlinkat(targetFolder, targetName, 0);  // Somebody put another file there.
        return false;
    }

    void rememberCopy(const struct stat& source, int targetFolder, const char* targetName) {
        struct stat copy {};
        if (::fstatat(targetFolder, targetName, &copy, AT_SYMLINK_NOFOLLOW) != 0) return;
        copies_.try_emplace(identityOf(source),
                            CopiedFile{pathBelow(target_.name, targetName), identityOf(copy)});
    }

    static Identity identityOf(const struct stat& item) { return {item.st_dev, item.st_ino}; }

    // The path of what is called `name` in the current folder (that folder itself for nullptr),
    // with `top` for the top of the tree.
    std::string pathBelow(const std::string& top, const char* name) const {
        std::string path = top;
        for (std::size_t i = 1; i < levels_.size(); ++i)
            path += "/" + levels_[i].name;
        if (name != nullptr && !levels_.empty()) path += std::string("/") + name;
        return path;
    }

    [[noreturn]] void failAtSource(const char* name) {
        throwFailure(pathBelow(source_.path, name));
    }
    [[noreturn]] void failAtTarget(const char* name) {
        throwFailure(pathBelow(target_.path, name));
    }

    void removeWhatWasMade() {
        struct stat found {};
        const int result =
            ::fstatat(target_.folder.get(), target_.name.c_str(), &found, AT_SYMLINK_NOFOLLOW);
        if (!made_ || result != 0 || identityOf(found) != *made_) return;
        try {
            std::uint64_t removed = 0;
            removeTree(target_, removed);
        } catch (const FileFailure&) {
            // The failure that counts is the one on its way.
        }
    }

    struct CopiedFile {
        std::string path;  // below the folder of the target
        Identity identity;
    };

    const FileLocation& source_;
    const FileLocation& target_;
    const AttributeLoss loss_;
    CopiedItems* const copied_;
    FolderChain from_;
    FolderChain to_;
    std::vector<Level> levels_;
    ContentCopier content_;
    std::map<Identity, CopiedFile> copies_;
    std::optional<Identity> made_;
};

}  // namespace

void CopiedItems::add(const struct stat& item) {
    items_.try_emplace({item.st_dev, item.st_ino}, State{item.st_mtim, item.st_size});
}

bool CopiedItems::contains(const struct stat& item) const {
    const auto found = items_.find({item.st_dev, item.st_ino});
    if (found == items_.end()) return false;
    const State& state = found->second;
    return state.size == item.st_size && state.modified.tv_sec == item.st_mtim.tv_sec &&
           state.modified.tv_nsec == item.st_mtim.tv_nsec;
}

void copyTree(const FileLocation& source, const FileLocation& target, AttributeLoss loss,
              CopiedItems* copied) {
    Copy(source, target, loss, copied).run();
}

}  // namespace sevrin::platform
