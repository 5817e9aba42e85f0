// Running the tool, reading and logging what it says.
#include "Common/Source/Utilities/SIPStatus.h"

#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/TextPipeReader.h"
#include "Platform/NSTask.h"

namespace sevrin {

using platform::NSTask;
using platform::Value;
using platform::ValueArray;

namespace {

// The lines that `task` writes; none when it cannot be run.
ValueArray outputOf(NSTask& task) {
    ValueArray output;
    try {
        TextPipeReader reader;
        task.setStandardOutput(reader.pipe());
        task.launch();
        reader.startReading();
        const std::vector<std::string> lines = reader.lines().value();
        output.assign(lines.begin(), lines.end());
    } catch (const std::system_error&) {
        // Where there is no such tool there is no such protection.
    }
    return output;
}

}  // namespace

SIPStatus::SIPStatus(OSVersion version, std::string tool)
    : version_(version), tool_(std::move(tool)) {}

bool SIPStatus::isEnabled() {
    if (isChecked_ || !isOSVersionElCapitanOrLater(version_)) return isEnabled_;

    NSTask task;
    task.setLaunchPath(tool_);
    task.setArguments({"status"});
    const ValueArray output = outputOf(task);
    const bool isOn =
        !output.empty() && output.front().ifString()->find("enabled") != std::string::npos;

    const LogLineIdentifierPtr line =
        Logger::logFormat(LogClassification::Debug, "%s SIP status=%s", "+[Process isSIPEnabled]",
                          isOn ? "YES" : "NO");
    Logger::logInLineKeyValue(LogClassification::Debug, line, task.launchPath(), output);

    isEnabled_ = isOn;
    isChecked_ = true;
    return isOn;
}

}  // namespace sevrin
