// The local time zone: what its clocks show at a moment, and the moment at which they show a time.
//
// Shared by the sources of calendar and formatter; no part of the platform contract. Reads the zone
// through the C library, on any thread. All times lie within the years of CivilTime.h.
#pragma once

#include <chrono>

namespace sevrin::platform {

// Makes the functions below follow the zone that TZ or the machine's setting names now: a service
// runs for longer than its machine stays in one zone.
void followTimeZone() noexcept;

// How far local clocks are ahead of UTC at `moment`: positive in the east.
std::chrono::seconds utcOffset(std::chrono::sys_seconds moment);

// What local clocks show at `moment`.
std::chrono::local_seconds localTime(std::chrono::sys_seconds moment);

// What stands for a local time that clocks skip when they are put forward.
enum class Skipped {
    MovesForward,  // By as much as is skipped: 02:30 becomes 03:30.
    IsCut,         // To the first moment that exists: 02:30 becomes 03:00.
};

// The moment at which clocks show `local`: the first, when they are put back and show it twice.
std::chrono::sys_seconds momentOfLocalTime(std::chrono::local_seconds local, Skipped skipped);

}  // namespace sevrin::platform
