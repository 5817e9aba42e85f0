// A pipe whose ends close on exec from the first moment on, whatever other threads start.
#include "Platform/NSPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace sevrin::platform {

NSPipe::NSPipe() : reading_(UniqueFd()), writing_(UniqueFd()) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "making a pipe");
    reading_ = NSFileHandle(UniqueFd(ends[0]));
    writing_ = NSFileHandle(UniqueFd(ends[1]));
}

}  // namespace sevrin::platform
