// The system call itself.
#include "Platform/GatheringWrite.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace sevrin::platform {

ssize_t gatheringWrite(int descriptor, std::span<const iovec> pieces) noexcept {
    return ::syscall(SYS_writev, descriptor, pieces.data(), pieces.size());
}

}  // namespace sevrin::platform
