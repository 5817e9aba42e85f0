// For tests only: volumes of a test's own, in a table of mounts that only one thread sees and that
// goes with it. Neither the machine nor another test notices, and nothing stays behind.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "Platform/TestFolder.h"

namespace sevrin {

// Runs `body` on a thread whose mounts are its own. Empty, or why this machine does not permit it.
inline std::string withVolumesOfItsOwn(const std::function<void()>& body) {
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

// Runs the rest of a test with volumes of its own, or skips it.
#define SEVRIN_WITH_VOLUMES_OF_ITS_OWN(body)                             \
    do {                                                                 \
        const std::string obstacle = ::sevrin::withVolumesOfItsOwn body; \
        if (!obstacle.empty()) GTEST_SKIP() << obstacle;                 \
    } while (false)

// A folder in which volumes are mounted: without them it could not go.
class VolumeFolder : public platform::TestFolder {
public:
    VolumeFolder() = default;
    ~VolumeFolder() {
        for (const auto& entry : std::filesystem::directory_iterator(path()))
            ::umount2(entry.path().c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
    }
};

// Mounts an empty volume of 1 MiB in memory at a new folder; its path.
inline std::string mountMemory(const VolumeFolder& folder, std::string_view name,
                               unsigned long flags = 0) {
    const std::string place = folder.makeFolder(name);
    EXPECT_EQ(::mount("scratch", place.c_str(), "tmpfs", flags, "size=1m"), 0)
        << std::strerror(errno);
    return place;
}

// Makes an image with `make` (a mkfs command; the path is appended) and mounts it at the new folder
// "mount". Empty when the machine has not what this takes.
inline std::string mountImage(const VolumeFolder& folder, const std::string& make,
                              const std::string& size) {
    const auto runs = [](const std::string& command) {
        return std::system((command + " > /dev/null 2>&1").c_str()) == 0;
    };
    const std::string image = folder / "image";
    const std::string place = folder.makeFolder("mount");
    const bool isMounted = runs("truncate -s " + size + ' ' + image) && runs(make + ' ' + image) &&
                           runs("mount -o loop " + image + ' ' + place);
    return isMounted ? place : "";
}

}  // namespace sevrin
