// What every logger does with a message: number it, format it, write it; and the daily reopening.
#include "Common/Source/Utilities/Logger.h"

#include <limits>
#include <utility>

#include "Common/Source/Utilities/RelativeDate.h"
#include "Platform/Text.h"

namespace sevrin {

using platform::NSDate;
using platform::NSDateFormatter;

namespace {

constexpr double kNotSet = -std::numeric_limits<double>::infinity();

}  // namespace

Logger::Logger(Clock clock)
    : clock_(std::move(clock)), dateFormatter_(makeLogDateFormatter()), reopenSeconds_(kNotSet) {}

Logger::~Logger() = default;

LogLineIdentifierPtr Logger::writeInLineMessage(LogClassification classification,
                                                const LogLineIdentifierPtr& line,
                                                std::string_view message) {
    LogLineIdentifierPtr newLine = beginLine(classification, line);
    finishLine(classification, *newLine, message);
    return newLine;
}

LogLineIdentifierPtr Logger::writeInLineFormatArgs(
    LogClassification classification, const LogLineIdentifierPtr& line, std::string_view format,
    std::span<const platform::FormatArgument> arguments) {
    return writeComposed(classification, line, [&](std::string& message) {
        platform::appendFormat(message, format, arguments);
    });
}

LogLineIdentifierPtr Logger::beginLine(LogClassification classification,
                                       const LogLineIdentifierPtr& line) {
    const LogLineIdentifierPtr& enclosing = line ? line : rootLogLine();
    enclosing->addClassification(classification);
    return enclosing->next();
}

void Logger::finishLine(LogClassification classification, const LogLineIdentifier& newLine,
                        std::string_view message) {
    ScratchText text;
    const std::string_view word = nameOfClassification(classification);
    if (formatMessageInLineClassClassString(*text, message, newLine, classification, word)) {
        logMessage(*text);
    }
}

bool Logger::suppressesClassification(LogClassification) const {
    return false;
}

bool Logger::formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                                 const LogLineIdentifier& line, LogClassification,
                                                 std::string_view word) {
    const NSDate date = logDateReopeningLogger();
    dateFormatter().appendStringFromDate(text, date);
    text += ' ';
    text += word;
    text += ' ';
    text += message;
    text += " [";
    line.appendIdentifierToString(text);
    text += ']';
    return true;
}

void Logger::logMessage(std::string_view text) {
    ScratchText ascii;
    platform::appendNonLossyAscii(*ascii, text);
    logCString(ascii->c_str());
}

void Logger::logCString(const char*) {}

NSDateFormatter Logger::makeLogDateFormatter() {
    return NSDateFormatter("yyyy-MM-dd HH:mm:ss.SSS Z");
}

const NSDateFormatter& Logger::dateFormatter() const {
    return dateFormatter_;
}

// Of the threads that find the date reached, the one that takes it away reopens. It does so before
// anything is logged on the way, so that neither the reopening nor the line about it comes back
// here: what they log finds a new date, in the future.
NSDate Logger::logDateReopeningLogger() {
    const NSDate now = clock_();
    double seen = reopenSeconds_.load();
    if (now >= reopenDate() && reopenSeconds_.compare_exchange_strong(seen, kNotSet)) {
        reopen();
        writeInLineMessage(LogClassification::Debug, nullptr, "Reopened log file");
    }
    return now;
}

NSDate Logger::reopenDate() {
    double seconds = reopenSeconds_.load();
    if (seconds == kNotSet) {
        const NSDate midnight = dateOffsetByScale(startOfDay(clock_()), 1, kScaleDay);
        const double fresh = midnight.timeIntervalSinceReferenceDate();
        if (reopenSeconds_.compare_exchange_strong(seconds, fresh)) seconds = fresh;
    }
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

void Logger::flush() {}

void Logger::reopen() {
    flushBacktraceCache();
}

void Logger::rotateLogKeeping(std::uint64_t) {}

std::vector<std::string> Logger::logFiles() {
    return {};
}

}  // namespace sevrin
