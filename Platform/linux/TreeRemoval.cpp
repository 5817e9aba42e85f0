// Removing a tree from its leaves up, without recursion: a tree may be deeper than the stack.
#include "Platform/linux/TreeRemoval.h"

#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include "Platform/linux/FolderChain.h"

namespace sevrin::platform {

namespace {

class Removal {
public:
    Removal(const FileLocation& item, std::uint64_t& removed,
            const std::function<bool(const struct stat&)>& mayRemove)
        : item_(item), removed_(removed), mayRemove_(mayRemove) {}

    void run() {
        if (!tryRemove(item_.folder.get(), item_.name.c_str(), false)) {
            while (!levels_.empty())
                step();
        }
    }

private:
    struct Level {
        std::string name;  // of the folder, in the one above
        FolderNames names;
    };

    // Goes on with the next name of the current folder, or leaves the folder and removes it.
    void step() {
        Level& level = levels_.back();
        if (const char* name = level.names.next()) {
            tryRemove(chain_.current(), name, true);
            return;
        }
        if (!chain_.ascend()) fail(nullptr);
        const std::string name = std::move(level.name);
        levels_.pop_back();
        const int above = levels_.empty() ? item_.folder.get() : chain_.current();
        if (::unlinkat(above, name.c_str(), AT_REMOVEDIR) == 0) {
            ++removed_;
        } else if (errno != ENOENT || levels_.empty()) {
            fail(name.c_str());
        }
    }

    // Removes what is no folder, and empty folders that cannot be read; goes down into the others
    // and answers false. A name may change between a folder and another thing as often as somebody
    // likes, so after some times that is a failure.
    bool tryRemove(int folder, const char* name, bool mayBeGone) {
        constexpr int kChangesMax = 100;
        for (int i = 0; i < kChangesMax; ++i) {
            if (mayRemove_) askAbout(folder, name);
            if (::unlinkat(folder, name, 0) == 0) {
                ++removed_;
                return true;
            }
            if (errno == ENOENT && mayBeGone) return true;
            // Some file systems refuse to unlink a folder as not permitted.
            const int refusal = errno;
            if (refusal != EISDIR && refusal != EPERM) fail(name);
            UniqueFd below(::openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (below) return !enter(std::move(below), name, mayBeGone);
            if (errno == EACCES && ::unlinkat(folder, name, AT_REMOVEDIR) == 0) {
                ++removed_;
                return true;
            }
            if (errno == ENOENT && mayBeGone) return true;
            const bool isOtherThing = errno == ENOTDIR || errno == ELOOP;
            if (isOtherThing && refusal == EPERM) errno = EPERM;
            if (!isOtherThing || refusal == EPERM) fail(name);
        }
        errno = EAGAIN;
        fail(name);
    }

    void askAbout(int folder, const char* name) {
        struct stat found {};
        if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) != 0)
            return;  // The next call says.
        if (S_ISDIR(found.st_mode) || mayRemove_(found)) return;
        errno = EBUSY;
        fail(name);
    }

    // Answers false when the folder vanished in between, and that is fine.
    bool enter(UniqueFd folder, const char* name, bool mayBeGone) {
        struct statx found {};
        if (::statx(folder.get(), "", AT_EMPTY_PATH, STATX_TYPE, &found) != 0) fail(name);
        if ((found.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0) {
            errno = EBUSY;
            fail(name);
        }
        Level level{name, {}};
        if (!level.names.read(folder.get())) {
            if (errno == ENOENT && mayBeGone) return false;
            fail(name);
        }
        if (!chain_.descend(std::move(folder))) fail(name);
        levels_.push_back(std::move(level));
        return true;
    }

    // Throws for the item `name` of the current folder, or for that folder itself.
    [[noreturn]] void fail(const char* name) {
        std::string path = item_.path;
        for (std::size_t i = 1; i < levels_.size(); ++i)
            path += "/" + levels_[i].name;
        if (name != nullptr && !levels_.empty()) path += std::string("/") + name;
        throwFailure(std::move(path));
    }

    const FileLocation& item_;
    std::uint64_t& removed_;
    const std::function<bool(const struct stat&)>& mayRemove_;
    FolderChain chain_;
    std::vector<Level> levels_;
};

}  // namespace

void removeTree(const FileLocation& item, std::uint64_t& removed,
                const std::function<bool(const struct stat&)>& mayRemove) {
    Removal(item, removed, mayRemove).run();
}

}  // namespace sevrin::platform
