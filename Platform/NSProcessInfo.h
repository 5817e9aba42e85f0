// What a process knows of itself and of the system it runs on.
//
// Everything is read from the system when asked for; nothing fails: what the system does not tell
// is empty, or has the value said below. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sevrin::platform {

class NSProcessInfo {
public:
    struct OperatingSystemVersion {
        std::int64_t majorVersion = 0;
        std::int64_t minorVersion = 0;
        std::int64_t patchVersion = 0;
    };

    // This process.
    [[nodiscard]] static const NSProcessInfo& processInfo() noexcept;

    // The last component of the path that the process was started with.
    [[nodiscard]] std::string processName() const;

    // What the process was started with; the path of the program first.
    [[nodiscard]] std::vector<std::string> arguments() const;

    // The release of the platform whose interfaces are offered here, for tests of the kind "this
    // release or later". On every system but the platform's own it is 10.15.7.
    [[nodiscard]] OperatingSystemVersion operatingSystemVersion() const noexcept;

    // The same and the system's true name, for people:
    // "Version 10.15.7 (Debian GNU/Linux 12 (bookworm), Linux 6.1.0)".
    [[nodiscard]] std::string operatingSystemVersionString() const;

    // Seconds since the system was started, the time it slept not counted.
    [[nodiscard]] double systemUptime() const noexcept;

    // Processors that run now; at least 1.
    [[nodiscard]] unsigned activeProcessorCount() const noexcept;
};

}  // namespace sevrin::platform
