// For tests only: a file system of a test's own, mounted where nobody else sees it.
//
// The first volume gives the process a mount namespace of its own, so that whatever happens to the
// test, no mount stays behind. Needs root, and what makes the file system; else there is none.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Platform/TestFolder.h"

namespace sevrin::platform {

class TestVolume {
public:
    // "tmpfs" or "ramfs" with mount options (such as "size=1m"), or the name of a file system that
    // mkfs makes in a file of `megabytes`, to be mounted with the options.
    explicit TestVolume(const std::string& kind, const std::string& options = "",
                        int megabytes = 300) {
        if (!hasOwnMounts()) return;
        folder_.makeFolder("volume");
        if (kind == "tmpfs" || kind == "ramfs") {
            isMounted_ = ::mount("test", path().c_str(), kind.c_str(), 0, options.c_str()) == 0;
            return;
        }
        const std::string image = folder_ / "image";
        const std::string quiet = " >/dev/null 2>&1";
        isMounted_ = run("truncate -s " + std::to_string(megabytes) + "M " + image) &&
                     run("mkfs." + kind + " " + image + quiet) &&
                     run("mount -o loop" + (options.empty() ? "" : "," + options) + " " + image +
                         " " + path() + quiet);
    }
    TestVolume(const TestVolume&) = delete;
    TestVolume& operator=(const TestVolume&) = delete;
    ~TestVolume() {
        if (isMounted_) ::umount2(path().c_str(), MNT_DETACH);
    }

    // Whether there is one; a test without it has to be skipped.
    [[nodiscard]] explicit operator bool() const { return isMounted_; }

    // Where it is mounted.
    [[nodiscard]] std::string path() const { return folder_ / "volume"; }

private:
    static bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

    static bool hasOwnMounts() {
        static const bool isOwn = ::geteuid() == 0 && ::unshare(CLONE_NEWNS) == 0 &&
                                  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        return isOwn;
    }

    const TestFolder folder_;
    bool isMounted_ = false;
};

}  // namespace sevrin::platform
