// Facts of the running process and its system: whom it acts for and with which privileges, how many
// processors there are, how long the system has been up, which release it is.
//
// Class-level throughout; there are no instances. What stays the same while the process runs is
// recorded as it starts, before anybody can ask, so a program that then changes its effective ids
// still knows whose it was. Any thread may ask; the effective ids belong to the whole process, so
// runAsRoot() and runAsUser() are for a program that knows what its other threads do meanwhile.
//
// What follows from a version alone is in OSVersion.h, work for the main thread in MainThread.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "Common/Source/Utilities/OSVersion.h"
#include "Platform/MachTime.h"

namespace sevrin {

class Process {
public:
    Process() = delete;

    // Processors that run now; at least 1.
    [[nodiscard]] static std::uint64_t cpuCount();

    // How many pieces of work to have in hand at once: one for each processor, and on small
    // machines one more, for whenever another waits for the disk.
    [[nodiscard]] static std::uint64_t optimalConcurrentQueueSize();
    [[nodiscard]] static std::uint64_t optimalConcurrentQueueSizeForCPUCount(std::uint64_t count);

    // Seconds since the system was started. When the system does not tell how long the ticks of its
    // clocks are, the process ends with an assertion.
    [[nodiscard]] static double upTimeInterval();

    // Whether the real user is root.
    [[nodiscard]] static bool isPrivileged();

    // The effective user and group that the process was started with.
    [[nodiscard]] static std::uint32_t userID();
    [[nodiscard]] static std::uint32_t groupID();

    // Whether the effective user is that one; whether it is root. Both when it was started as root.
    [[nodiscard]] static bool isRunningAsUser();
    [[nodiscard]] static bool isRunningAsRoot();

    // Makes the real user and group the effective ones, unless root is effective already; answers
    // whether root is afterwards. It works for a program that root runs and that belongs to a user
    // whose id it takes on (set-user-id). For anybody else it goes back to the real user and says
    // no.
    [[nodiscard]] static bool runAsRoot();

    // Makes userID() and groupID() effective while root is; answers whether userID() is afterwards.
    // There is nothing to do, and the answer is yes, when root is not effective or is userID().
    [[nodiscard]] static bool runAsUser();

    // Does nothing: whether root may be the user is decided nowhere any more, and whoever still
    // says so is heard without effect.
    static void setAllowRootUser(bool isAllowed);

    // The release of the system (OSVersion.h): the platform's interfaces that are offered here.
    [[nodiscard]] static OSVersion osVersion();

    // The system's name for itself and its version, for people:
    // "macOS Version 10.15.7 (Debian GNU/Linux 12 (bookworm), Linux 6.1.0)".
    [[nodiscard]] static std::string readableOSVersion();

    // The name of the release: "Catalina".
    [[nodiscard]] static std::string_view osNickname();

    // Whether the release is `first` or later but before `end`.
    [[nodiscard]] static bool isOrLaterThanOSVersionButBeforeOSVersion(OSVersion first,
                                                                       OSVersion end);

    // Nothing runs on a system before 10.9, so these are always true.
    [[nodiscard]] static constexpr bool isTigerOrLater() { return true; }
    [[nodiscard]] static constexpr bool isLeopardOrLater() { return true; }
    [[nodiscard]] static constexpr bool isSnowLeopardOrLater() { return true; }
    [[nodiscard]] static constexpr bool isLionOrLater() { return true; }
    [[nodiscard]] static constexpr bool isMountainLionOrLater() { return true; }
    [[nodiscard]] static constexpr bool isMavericksOrLater() { return true; }

    [[nodiscard]] static bool isYosemiteOrLater();
    [[nodiscard]] static bool isElCapitanOrLater();
    [[nodiscard]] static bool isSierraOrLater();
    [[nodiscard]] static bool isHighSierraOrLater();
    [[nodiscard]] static bool isMojaveOrLater();
    [[nodiscard]] static bool isCatalinaOrLater();

    // Whether System Integrity Protection is on. Asks a tool of the system the first time, which
    // takes as long as the tool does, logs its answer and remembers it. No where there is no tool.
    [[nodiscard]] static bool isSIPEnabled();

    // --- What upTimeInterval() is made of, by itself so that every release's way is tested here.

    using Clock = std::uint64_t (*)() noexcept;

    // The clock of a release: the best that it offers, which from 10.12 on counts sleep too.
    [[nodiscard]] static Clock upTimeClockForOSVersion(OSVersion version);

    // Seconds in a tick, from the answer of mach_timebase_info(); ends the process unless that is
    // platform::kKernSuccess.
    [[nodiscard]] static double secondsPerTick(platform::kern_return_t result,
                                               const platform::mach_timebase_info_data_t& info);
};

}  // namespace sevrin
