// The process and its system as Linux tells of them: /proc, os-release, uname.
#include "Platform/NSProcessInfo.h"

#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <iterator>

#include "Platform/linux/SystemName.h"

namespace sevrin::platform {

namespace {

// The newest release all of whose interfaces are offered here.
constexpr NSProcessInfo::OperatingSystemVersion kVersion = {10, 15, 7};

// All of a file; empty when it cannot be read.
std::string contentsOf(const char* path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace

const NSProcessInfo& NSProcessInfo::processInfo() noexcept {
    static constexpr NSProcessInfo kThisProcess;
    return kThisProcess;
}

std::string NSProcessInfo::processName() const {
    return program_invocation_short_name;
}

std::vector<std::string> NSProcessInfo::arguments() const {
    const std::string all = contentsOf("/proc/self/cmdline");
    std::vector<std::string> result;
    for (std::size_t start = 0; start < all.size();) {
        const std::size_t end = all.find('\0', start);  // Each ends in one.
        result.push_back(all.substr(start, end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return result;
}

NSProcessInfo::OperatingSystemVersion NSProcessInfo::operatingSystemVersion() const noexcept {
    return kVersion;
}

std::string NSProcessInfo::operatingSystemVersionString() const {
    std::string osRelease = contentsOf("/etc/os-release");
    if (osRelease.empty()) osRelease = contentsOf("/usr/lib/os-release");
    utsname kernel{};
    ::uname(&kernel);

    std::string text = "Version " + std::to_string(kVersion.majorVersion) + '.' +
                       std::to_string(kVersion.minorVersion) + '.' +
                       std::to_string(kVersion.patchVersion) + " (";
    text += prettyNameFromOsRelease(osRelease);
    text += ", ";
    text += kernel.sysname;
    text += ' ';
    text += versionFromKernelRelease(kernel.release);
    text += ')';
    return text;
}

double NSProcessInfo::systemUptime() const noexcept {
    timespec sinceStart{};
    ::clock_gettime(CLOCK_MONOTONIC, &sinceStart);  // Stands still in sleep, as wanted.
    return static_cast<double>(sinceStart.tv_sec) + static_cast<double>(sinceStart.tv_nsec) / 1e9;
}

unsigned NSProcessInfo::activeProcessorCount() const noexcept {
    const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    return online < 1 ? 1 : static_cast<unsigned>(online);
}

}  // namespace sevrin::platform
