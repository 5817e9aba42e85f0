// A logger on the platform's console, for when the log file cannot, or must not, be used.
//
// Lines have neither date nor identifier, for the console stamps them itself; and what is meant for
// developers (Subrosa, Debug) is not shown. Never reopens: there is nothing to reopen.
#pragma once

#include <string>
#include <string_view>

#include "Common/Source/Utilities/Logger.h"
#include "Platform/Value.h"

namespace sevrin {

class NSLogLogger : public Logger {
public:
    using Logger::Logger;

    void flush() override;
    void rotateLogKeeping(std::uint64_t oldLogs) override;

    [[nodiscard]] bool suppressesClassification(LogClassification classification) const override;

    // "(Failure) message", or the message alone when its classification is Plain.
    bool formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                             const LogLineIdentifier& line,
                                             LogClassification classification,
                                             std::string_view word) override;

    void logMessage(const std::string& text) override;

    // Writes "Failure - description" whatever the classification, and takes no line's number.
    void logMessage(LogClassification classification, const platform::Value& object);
};

}  // namespace sevrin
