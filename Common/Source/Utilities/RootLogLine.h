// How the root of a process's log lines is numbered: application, day stamp, process.
//
// Pure calculation; the one root line of this process is Logger's.
#pragma once

#include <cstdint>

#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Platform/NSDate.h"

namespace sevrin {

// The local day of `date`, counted from 1 January 1 AD, times 100, plus the elapsed part of that
// day in hundredths (0 to 99).
[[nodiscard]] std::uint64_t logDayStamp(platform::NSDate date);

// The line application.daystamp.process, from which a process started at `date` numbers its lines.
[[nodiscard]] LogLineIdentifierPtr makeRootLogLine(std::uint32_t application, platform::NSDate date,
                                                   std::uint64_t process);

}  // namespace sevrin
