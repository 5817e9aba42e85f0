// Counts the system calls of a piece of work: a child does it, traced by this process.
//
// Needs the right to trace one's own children, which every Linux gives unless something forbids it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>

namespace sevrin::bench {

// Calls by number, those of threads that the work starts included. Empty when the child could not
// be traced.
[[nodiscard]] std::map<std::uint64_t, std::int64_t> systemCallsOf(
    const std::function<void()>& work);

}  // namespace sevrin::bench
