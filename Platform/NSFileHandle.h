// One end of a pipe, or any other open file, read as data comes in.
//
// Owns its descriptor and closes it. One thread reads or closes at a time; the handle brings no
// lock of its own.
#pragma once

#include <cstddef>
#include <string>

#include "Platform/UniqueFd.h"

namespace sevrin::platform {

class NSFileHandle {
public:
    // The bytes that availableData() gives at most: what a pipe holds.
    static constexpr std::size_t kChunkBytesMax = 65'536;

    explicit NSFileHandle(UniqueFd descriptor) noexcept;

    // What there is to read, at most kChunkBytesMax bytes; waits while there is nothing. Empty
    // means that there will never be anything more. Throws std::system_error when reading fails,
    // also because the handle is closed.
    [[nodiscard]] std::string availableData();

    // The descriptor, borrowed until the handle is closed; -1 then.
    [[nodiscard]] int fileDescriptor() const noexcept { return descriptor_.get(); }

    // Closes the descriptor; a second time does nothing.
    void closeFile() noexcept { descriptor_.reset(); }

private:
    UniqueFd descriptor_;
};

}  // namespace sevrin::platform
