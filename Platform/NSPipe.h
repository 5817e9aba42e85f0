// A pipe: what is written to one end is read at the other.
//
// Made whole, and never inherited by a child process unless a task hands one end to it
// (Platform/NSTask.h). Whoever reads learns that the output has ended when the last writing end is
// closed, the one held here included.
#pragma once

#include <memory>

#include "Platform/NSFileHandle.h"

namespace sevrin::platform {

class NSPipe {
public:
    // Throws std::system_error when the system gives no descriptors.
    NSPipe();
    NSPipe(const NSPipe&) = delete;
    NSPipe& operator=(const NSPipe&) = delete;

    // The two ends; never nullptr. Each is open until it is closed or nobody has it any more, so
    // whoever keeps one without the pipe does not keep the other open.
    [[nodiscard]] const std::shared_ptr<NSFileHandle>& fileHandleForReading() const noexcept {
        return reading_;
    }
    [[nodiscard]] const std::shared_ptr<NSFileHandle>& fileHandleForWriting() const noexcept {
        return writing_;
    }

private:
    std::shared_ptr<NSFileHandle> reading_;
    std::shared_ptr<NSFileHandle> writing_;
};

}  // namespace sevrin::platform
