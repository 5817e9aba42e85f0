// The console's form of a line.
#include "Common/Source/Utilities/NSLogLogger.h"

#include "Platform/NSLog.h"

namespace sevrin {

void NSLogLogger::flush() {}

void NSLogLogger::rotateLogKeeping(std::uint64_t) {}

bool NSLogLogger::suppressesClassification(LogClassification classification) const {
    return classification == LogClassification::Subrosa ||
           classification == LogClassification::Debug;
}

bool NSLogLogger::formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                                      const LogLineIdentifier&,
                                                      LogClassification classification,
                                                      std::string_view word) {
    if (suppressesClassification(classification)) return false;
    if (classification != LogClassification::Plain) {
        text += '(';
        text += word;
        text += ") ";
    }
    text += message;
    return true;
}

void NSLogLogger::logMessage(const std::string& text) {
    platform::NSLog(text);
}

void NSLogLogger::logMessage(LogClassification classification, const platform::Value& object) {
    std::string text(nameOfClassification(classification));
    text += " - ";
    text += object.description();
    logMessage(text);
}

}  // namespace sevrin
