// A pipe: what is written to one end is read at the other.
//
// Made whole, and never inherited by a child process unless a task hands one end to it
// (Platform/NSTask.h). Whoever reads learns that the output has ended when the last writing end is
// closed, the one held here included.
#pragma once

#include "Platform/NSFileHandle.h"

namespace sevrin::platform {

class NSPipe {
public:
    // Throws std::system_error when the system gives no descriptors.
    NSPipe();
    NSPipe(const NSPipe&) = delete;
    NSPipe& operator=(const NSPipe&) = delete;

    // The two ends, as long as the pipe. Either may be closed before the other.
    [[nodiscard]] NSFileHandle& fileHandleForReading() noexcept { return reading_; }
    [[nodiscard]] NSFileHandle& fileHandleForWriting() noexcept { return writing_; }

private:
    NSFileHandle reading_;
    NSFileHandle writing_;
};

}  // namespace sevrin::platform
