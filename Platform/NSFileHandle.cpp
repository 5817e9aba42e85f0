// Reading what is there, however often a signal gets in between.
#include "Platform/NSFileHandle.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace sevrin::platform {

NSFileHandle::NSFileHandle(UniqueFd descriptor) noexcept : descriptor_(std::move(descriptor)) {}

std::string NSFileHandle::availableData() {
    std::string data(kChunkBytesMax, '\0');
    for (;;) {
        const ssize_t size = ::read(descriptor_.get(), data.data(), data.size());
        if (size >= 0) {
            data.resize(static_cast<std::size_t>(size));
            return data;
        }
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "reading a file handle");
    }
}

}  // namespace sevrin::platform
