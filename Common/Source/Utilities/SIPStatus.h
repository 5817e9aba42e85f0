// Whether System Integrity Protection is on, as the tool of the system that knows says it.
//
// The tool is run the first time that somebody asks, its answer logged and remembered. Any thread
// may ask; threads that ask at once for the first time may each run the tool.
#pragma once

#include <atomic>
#include <string>

#include "Common/Source/Utilities/OSVersion.h"

namespace sevrin {

class SIPStatus {
public:
    // For a system of that version; `tool` is the path of its program.
    SIPStatus(OSVersion version, std::string tool);

    // Whether the first line that the tool writes, called with "status", contains "enabled". A tool
    // that is absent or writes nothing says no. Before 10.11 the answer is no and no tool is run.
    [[nodiscard]] bool isEnabled();

private:
    const OSVersion version_;
    const std::string tool_;
    std::atomic<bool> isChecked_ = false;
    std::atomic<bool> isEnabled_ = false;
};

}  // namespace sevrin
