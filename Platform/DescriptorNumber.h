// Exchanging the file behind a descriptor while other threads use its number.
//
// Closing a descriptor that another thread is about to write to sends what it writes into whatever
// file gets the number next. Here the number is never free: it leads to the one file and then, in
// one step of the kernel's, to the other. On any thread.
#pragma once

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

// Has `number`, an open descriptor, lead to the file of `from`, and closes `from`. What was behind
// `number` before is closed there without a word. Answers false, with nothing changed but that
// `from` is closed, when the system refuses. The number is not inherited by programs.
[[nodiscard]] bool moveDescriptorToNumber(UniqueFd from, int number) noexcept;

// Another descriptor of the same file, not inherited by programs; none when there is none left.
[[nodiscard]] UniqueFd duplicateDescriptor(int number) noexcept;

// A descriptor that nothing can be written to (EBADF) or read from; none when there is none left.
[[nodiscard]] UniqueFd openNothing() noexcept;

}  // namespace sevrin::platform
