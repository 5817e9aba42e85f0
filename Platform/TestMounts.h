// For tests only: a folder in which a test mounts volumes that nobody else sees.
//
// The first one gives the process a table of mounts of its own: neither the machine nor another
// test notices, and whatever becomes of the test, no mount stays behind. The folder itself is a
// volume in memory. What is mounted below it, by whom and how ever, goes with it, and so do the
// images.
//
// Needs root. What the machine has not got is no failure but an obstacle, with which the test is to
// be skipped; the calls after one do nothing.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/TestFolder.h"

namespace sevrin::platform {

// Whether the command succeeded, and what it said.
inline bool runTool(const std::string& command, std::string& output) {
    const std::string complete = "{ PATH=$PATH:/usr/sbin:/sbin; " + command + "; } 2>&1";
    std::FILE* const pipe = ::popen(complete.c_str(), "re");
    if (pipe == nullptr) return false;
    output.clear();
    std::array<char, 512> part{};
    while (std::fgets(part.data(), part.size(), pipe) != nullptr)
        output += part.data();
    return ::pclose(pipe) == 0;
}

// A UUID that no other volume has: a system does not mount two of one side by side.
inline std::string newUuid() {
    std::string uuid;
    std::ifstream("/proc/sys/kernel/random/uuid") >> uuid;
    return uuid;
}

// Makes the image of an empty volume with "mkfs." and `kind`, which may end in options of that
// program. Empty, or what the machine has not got for it.
inline std::string makeImage(const std::string& image, const std::string& kind,
                             const std::string& size) {
    const std::string maker = "mkfs." + kind.substr(0, kind.find(' '));
    std::string output;
    if (!runTool("command -v " + maker, output)) return maker + " is not installed";
    if (!runTool("truncate -s " + size + ' ' + image + " && mkfs." + kind + ' ' + image, output))
        throw std::runtime_error(output);
    return "";
}

class TestMounts : public TestFolder {
public:
    TestMounts() : obstacle_(enterOwnTable()) {
        if (!obstacle_.empty()) return;
        EXPECT_EQ(::mount("scratch", path().c_str(), "tmpfs", 0, "mode=0755"), 0)
            << std::strerror(errno);
    }
    ~TestMounts() {
        // Detaching takes along what is mounted below, so that removing the folder reaches nothing.
        if (isTableOwn()) ::umount2(path().c_str(), MNT_DETACH | UMOUNT_NOFOLLOW);
    }

    // Whether the machine had all that was asked for so far, and what it had not.
    [[nodiscard]] explicit operator bool() const { return obstacle_.empty(); }
    [[nodiscard]] const std::string& obstacle() const { return obstacle_; }

    // Mounts an empty volume in memory, of 1 MiB unless `options` say otherwise, at a new folder;
    // its path. `flags` are those of mount(2).
    std::string mountMemory(std::string_view name, unsigned long flags = 0,
                            const char* options = "size=1m") {
        return mountAt(name, "scratch", "tmpfs", flags, options);
    }

    // Makes an image with makeImage and mounts it at a new folder with `options`; its path.
    std::string mountImage(std::string_view name, const std::string& kind,
                           const std::string& size = "300M", const std::string& options = "") {
        const std::string place = makeFolder(name);
        if (!obstacle_.empty()) return place;
        const std::string image = place + ".image";
        if (std::string missing = makeImage(image, kind, size); !missing.empty())
            return stop(place, std::move(missing));
        std::string output;
        const std::string all = options.empty() ? "loop" : "loop," + options;
        if (!runTool("mount -o " + all + ' ' + image + ' ' + place, output))
            return stop(place, "no image can be mounted: " + output.substr(0, output.find('\n')));
        return place;
    }

    // Mounts an overlay of two new folders, NAME.lower and NAME.upper, at a new folder; its path.
    std::string mountOverlay(std::string_view name, unsigned long flags = 0) {
        std::string options;
        for (const char* part : {"lower", "upper", "work"}) {
            const std::string folder = std::string(name) + '.' + part;
            options += (options.empty() ? "" : ",") + (part + ("dir=" + makeFolder(folder)));
        }
        return mountAt(name, "overlay", "overlay", flags, options.c_str());
    }

    // Mounts a new volume of the file system `kind` at a new folder; its path.
    std::string mountKind(std::string_view name, const std::string& kind) {
        if (kind == "overlay") return mountOverlay(name);
        if (kind == "tmpfs" || kind == "ramfs") return mountAt(name, "scratch", kind, 0, nullptr);
        return mountImage(name, kind);
    }

    // Mounts what mount(2) calls so at a new folder; its path.
    std::string mountAt(std::string_view name, const char* source, const std::string& kind,
                        unsigned long flags, const char* options) {
        const std::string place = makeFolder(name);
        if (!obstacle_.empty()) return place;
        if (::mount(source, place.c_str(), kind.c_str(), flags, options) != 0)
            return stop(place, "no " + kind + " can be mounted: " + std::strerror(errno));
        return place;
    }

    // Shows what is at `from` at `to` too, where a folder is.
    void bind(const std::string& from, const std::string& to, unsigned long flags = 0) const {
        EXPECT_EQ(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr), 0)
            << std::strerror(errno);
        if (flags == 0) return;
        EXPECT_EQ(::mount(nullptr, to.c_str(), nullptr, MS_BIND | MS_REMOUNT | flags, nullptr), 0)
            << std::strerror(errno);
    }

    // From now on nothing is written on the volume at `place`.
    static void makeReadOnly(const std::string& place) {
        EXPECT_EQ(::mount(nullptr, place.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0)
            << std::strerror(errno);
    }

private:
    static const std::string& enterOwnTable() {
        static const std::string obstacle = [] {
            const bool isOwn = ::unshare(CLONE_NEWNS) == 0 &&
                               ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
            return isOwn ? "" : std::string("cannot mount here: ") + std::strerror(errno);
        }();
        return obstacle;
    }
    static bool isTableOwn() { return enterOwnTable().empty(); }

    std::string stop(std::string place, std::string obstacle) {
        obstacle_ = std::move(obstacle);
        return place;
    }

    std::string obstacle_;
};

// Ends the test as skipped when the machine has not got what `mounts` was asked for.
#define SEVRIN_SKIP_WITHOUT(mounts) \
    if (!(mounts)) GTEST_SKIP() << (mounts).obstacle()

}  // namespace sevrin::platform
