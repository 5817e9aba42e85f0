// A pipe whose ends close on exec from the first moment on, whatever other threads start.
#include "Platform/NSPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace sevrin::platform {

NSPipe::NSPipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "making a pipe");
    UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    reading_ = std::make_shared<NSFileHandle>(std::move(reading));
    writing_ = std::make_shared<NSFileHandle>(std::move(writing));
}

}  // namespace sevrin::platform
