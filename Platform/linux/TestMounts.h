// Mounts of a test's own: in a mount namespace that only one thread sees and that goes with it, so
// that neither the machine nor another test notices, and nothing stays behind.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>

#include "Platform/TestAttributes.h"

namespace sevrin::platform {

// Runs `body` on a thread whose mounts are its own. Empty, or why this machine does not permit it.
inline std::string withOwnMounts(const std::function<void()>& body) {
    std::string obstacle;
    std::thread thread([&] {
        if (::unshare(CLONE_FS | CLONE_NEWNS) != 0 ||
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            obstacle =
                std::string("mounts of one's own are not permitted: ") + std::strerror(errno);
            return;
        }
        body();
    });
    thread.join();
    return obstacle;
}

// Runs the rest of a test with its own mounts, or skips it.
#define SEVRIN_WITH_OWN_MOUNTS(body)                                         \
    do {                                                                     \
        const std::string obstacle = ::sevrin::platform::withOwnMounts body; \
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;                     \
    } while (false)

inline bool runs(const std::string& command) {
    return std::system((command + " > /dev/null 2>&1").c_str()) == 0;
}

// Makes an image in `folder` with `make` (a mkfs command; the path is appended) and mounts it at a
// new folder "mount" there with `options` besides "loop". Whether the machine has what this takes.
inline bool mountImage(const FileFolder& folder, const std::string& make, const std::string& size,
                       const std::string& options = "") {
    const std::string image = folder.at("image");
    const std::string place = folder.at("mount");
    (void)::mkdir(place.c_str(), 0755);
    return runs("truncate -s " + size + ' ' + image) && runs(make + ' ' + image) &&
           runs("mount -o loop" + (options.empty() ? "" : ',' + options) + ' ' + image + ' ' +
                place);
}

// Mounts a tmpfs at a new folder `name`; its path.
inline std::string mountTmpfs(const FileFolder& folder, const std::string& name,
                              unsigned long flags = 0) {
    const std::string place = folder.folder(name);
    EXPECT_EQ(::mount("scratch", place.c_str(), "tmpfs", flags, "size=1m"), 0)
        << std::strerror(errno);
    return place;
}

}  // namespace sevrin::platform
