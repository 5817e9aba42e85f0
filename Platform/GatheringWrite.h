// One write of several pieces, for those who write very often.
#pragma once

#include <sys/types.h>
#include <sys/uio.h>

#include <span>

namespace sevrin::platform {

// As writev: gives how many bytes were written, or -1 and errno. Is no place where a thread can be
// cancelled, which the C library would get ready for at every call; no thread here ever is. On any
// thread.
[[nodiscard]] ssize_t gatheringWrite(int descriptor, std::span<const iovec> pieces) noexcept;

}  // namespace sevrin::platform
