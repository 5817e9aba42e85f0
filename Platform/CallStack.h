// The call stack of the calling thread as return addresses.
//
// Capturing reads the thread's own stack and nothing else, so that it may be done wherever an
// exception is raised; what the addresses mean is found out later, by whoever prints them. Safe on
// any thread, also on one with a stack of its own making.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace sevrin::platform {

// Addresses of one call stack that are kept; what called the outermost of them is left out.
inline constexpr std::size_t kCallStackMax = 128;

// Fills `addresses` from its start with return addresses, innermost first: the first one lies in
// whoever called the function that calls this, which has to do something afterwards or the compiler
// leaves its frame out. Gives how many there are, which may be fewer than were called where code
// without frame pointers is in between. Leaves errno as it is.
[[nodiscard]] std::size_t captureCallStack(std::span<std::uintptr_t> addresses) noexcept;

}  // namespace sevrin::platform
