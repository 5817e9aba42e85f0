// The recorded facts and the live ones.
#include "Common/Source/Utilities/Process.h"

#include <unistd.h>

#include "Common/Source/Utilities/SIPStatus.h"
#include "Platform/Assertion.h"
#include "Platform/NSProcessInfo.h"

namespace sevrin {

using platform::NSProcessInfo;

namespace {

constexpr const char* kSIPTool = "/usr/bin/csrutil";

OSVersion currentOSVersion() {
    const auto version = NSProcessInfo::processInfo().operatingSystemVersion();
    return packedOSVersion(version.majorVersion, version.minorVersion, version.patchVersion);
}

struct Facts {
    const OSVersion osVersion = currentOSVersion();
    const uid_t userID = ::geteuid();
    const gid_t groupID = ::getegid();
};

const Facts& facts() {
    static const Facts theFacts;
    return theFacts;
}

// Has the facts recorded as the process starts; who asks even before that has them recorded then.
[[maybe_unused]] const Facts& factsAtStart = facts();

}  // namespace

std::uint64_t Process::cpuCount() {
    return NSProcessInfo::processInfo().activeProcessorCount();
}

std::uint64_t Process::optimalConcurrentQueueSize() {
    return optimalConcurrentQueueSizeForCPUCount(cpuCount());
}

std::uint64_t Process::optimalConcurrentQueueSizeForCPUCount(std::uint64_t count) {
    constexpr std::uint64_t kSmallBelow = 5;
    return count < kSmallBelow ? count + 1 : count;
}

double Process::upTimeInterval() {
    static const double tickFactor = [] {
        platform::mach_timebase_info_data_t info;
        const platform::kern_return_t result = platform::mach_timebase_info(info);
        return secondsPerTick(result, info);
    }();
    static const Clock clock = upTimeClockForOSVersion(osVersion());
    return static_cast<double>(clock()) * tickFactor;
}

Process::Clock Process::upTimeClockForOSVersion(OSVersion version) {
    if (isOSVersionSierraOrLater(version)) return platform::mach_continuous_approximate_time;
    if (isOSVersionYosemiteOrLater(version)) return platform::mach_approximate_time;
    return platform::mach_absolute_time;
}

double Process::secondsPerTick(platform::kern_return_t result,
                               const platform::mach_timebase_info_data_t& info) {
    // The place is part of the message, as reports of it are recognised by it.
    if (result != platform::kKernSuccess)
        platform::assertionFailed("Common/Source/Utilities/Process", 215,
                                  "+[Process upTimeInterval]", "result == noErr");
    return static_cast<double>(info.numer) / info.denom / 1e9;
}

bool Process::isPrivileged() {
    return ::getuid() == 0;
}

std::uint32_t Process::userID() {
    return facts().userID;
}

std::uint32_t Process::groupID() {
    return facts().groupID;
}

bool Process::isRunningAsUser() {
    return ::geteuid() == facts().userID;
}

bool Process::isRunningAsRoot() {
    return ::geteuid() == 0;
}

bool Process::runAsRoot() {
    if (::geteuid() == 0) return true;
    // Whether they worked, the effective user tells.
    [[maybe_unused]] const int user = ::seteuid(::getuid());
    [[maybe_unused]] const int group = ::setegid(::getgid());
    return isRunningAsRoot();
}

bool Process::runAsUser() {
    if (::geteuid() != 0) return true;
    if (facts().userID == 0) return true;
    [[maybe_unused]] const int user = ::seteuid(facts().userID);
    [[maybe_unused]] const int group = ::setegid(facts().groupID);
    return isRunningAsUser();
}

void Process::setAllowRootUser(bool) {}

OSVersion Process::osVersion() {
    return facts().osVersion;
}

std::string Process::readableOSVersion() {
    return std::string(osNamePrefix(osVersion())) +
           NSProcessInfo::processInfo().operatingSystemVersionString();
}

std::string_view Process::osNickname() {
    return sevrin::osNickname(osVersion());
}

bool Process::isOrLaterThanOSVersionButBeforeOSVersion(OSVersion first, OSVersion end) {
    return first <= osVersion() && osVersion() < end;
}

bool Process::isYosemiteOrLater() {
    return isOSVersionYosemiteOrLater(osVersion());
}

bool Process::isElCapitanOrLater() {
    return isOSVersionElCapitanOrLater(osVersion());
}

bool Process::isSierraOrLater() {
    return isOSVersionSierraOrLater(osVersion());
}

bool Process::isHighSierraOrLater() {
    return isOSVersionHighSierraOrLater(osVersion());
}

bool Process::isMojaveOrLater() {
    return isOSVersionMojaveOrLater(osVersion());
}

bool Process::isCatalinaOrLater() {
    return isOSVersionCatalinaOrLater(osVersion());
}

bool Process::isSIPEnabled() {
    static SIPStatus theStatus(osVersion(), kSIPTool);
    return theStatus.isEnabled();
}

}  // namespace sevrin
