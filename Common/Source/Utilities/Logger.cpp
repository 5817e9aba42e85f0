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
    // Threads that log in the same line pass its memory between them: it is got to write first, so
    // that it need not be got twice.
    LogLineIdentifierPtr newLine = LogLineIdentifier::next(enclosing);
    enclosing->addClassification(classification);
    return newLine;
}

void Logger::finishLine(LogClassification classification, const LogLineIdentifier& newLine,
                        std::string_view message) {
    ScratchText text;
    const std::string_view word = nameOfClassification(classification);
    if (!formatMessageInLineClassClassString(*text, message, newLine, classification, word)) return;
    // Asked of the message, which has been in memory for long, rather than of the text, which the
    // processor is still storing.
    if (platform::isNonLossyAscii(message)) return logASCIIMessage(*text);
    logMessage(*text);
}

bool Logger::suppressesClassification(LogClassification) const {
    return false;
}

bool Logger::formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                                 const LogLineIdentifier& line, LogClassification,
                                                 std::string_view word) {
    const NSDate date = logDateReopeningLogger();
    if (formatFromKept(text, date, word, message, line)) return true;
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

// The same when date and identifier are known but for their last digits, as they nearly always are:
// makes room once, and writes every part where it belongs.
bool Logger::formatFromKept(std::string& text, NSDate date, std::string_view word,
                            std::string_view message, const LogLineIdentifier& line) const {
    constexpr std::size_t kDateMax = NSDateFormatter::kKeptSizeMax;
    constexpr std::string_view kBetween = "   []";
    const std::size_t identifierMax = line.keptSizeMax();
    if (identifierMax == 0) return false;
    const std::size_t start = text.size();
    text.resize(start + kDateMax + word.size() + message.size() + identifierMax + kBetween.size());
    char* out = text.data() + start;
    const std::size_t dateSize =
        dateFormatter().writeStringOfKeptSecond(std::span<char, kDateMax>(out, kDateMax), date);
    if (dateSize == 0) {
        text.resize(start);
        return false;
    }
    out += dateSize;
    *out++ = ' ';
    out += word.copy(out, word.size());
    *out++ = ' ';
    out += message.copy(out, message.size());
    *out++ = ' ';
    *out++ = '[';
    out = line.writeKept(out);
    *out++ = ']';
    text.resize(static_cast<std::size_t>(out - text.data()));
    return true;
}

void Logger::logASCIIMessage(const std::string& text) {
    logMessage(text);
}

void Logger::logMessage(const std::string& text) {
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
