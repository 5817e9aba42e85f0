// The entry points for everybody, and what belongs to the process rather than to a logger: the root
// line and the lines remembered by key.
#include <unistd.h>

#include <map>
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/RootLogLine.h"
#include "Platform/Assertion.h"

namespace sevrin {

namespace {

constexpr std::uint32_t kSwitchboardApplication = 8;

std::atomic<std::uint32_t> applicationNumber = kSwitchboardApplication;
std::atomic<bool> rootLogLineIsMade = false;

struct RememberedLines {
    std::mutex lock;
    std::map<std::string, LogLineIdentifierPtr, std::less<>> lines;
};

// The line that all others lie in. It is never destroyed, so that the pointers to it need not be
// counted, which all threads would have to do in one place for every line: what everybody gets owns
// nothing.
struct RootLine {
    const LogLineIdentifierPtr owned = [] {
        rootLogLineIsMade = true;
        return makeRootLogLine(applicationNumber, platform::NSDate::date(),
                               static_cast<std::uint64_t>(::getpid()));
    }();
    const LogLineIdentifierPtr uncounted{LogLineIdentifierPtr(), owned.get()};
};

// Never destroyed: what ends with the program may log to the last.
RememberedLines& rememberedLines() {
    static RememberedLines& theLines = *new RememberedLines;
    return theLines;
}

}  // namespace

LogLineIdentifierPtr Logger::logMessage(LogClassification classification,
                                        std::string_view message) {
    return logInLineMessage(classification, nullptr, message);
}

LogLineIdentifierPtr Logger::logInLineMessage(LogClassification classification,
                                              const LogLineIdentifierPtr& line,
                                              std::string_view message) {
    return LoggerInUse()->writeInLineMessage(classification, line, message);
}

LogLineIdentifierPtr Logger::logInLineKeyValue(LogClassification classification,
                                               const LogLineIdentifierPtr& line,
                                               std::string_view key, const platform::Value& value) {
    return LoggerInUse()->writeInLineKeyValue(classification, line, key, value);
}

LogLineIdentifierPtr Logger::logPlaceholderForKey(LogClassification classification,
                                                  std::string_view message, std::string_view key) {
    return logInLinePlaceholderForKey(classification, nullptr, message, key);
}

// The line is remembered before it is written, so that of several threads one writes it, and no
// lock is held while a logger works. The logger is got before the lock for the same reason.
LogLineIdentifierPtr Logger::logInLinePlaceholderForKey(LogClassification classification,
                                                        const LogLineIdentifierPtr& line,
                                                        std::string_view message,
                                                        std::string_view key) {
    if (LogLineIdentifierPtr known = logLineForKey(key)) return known;

    const LoggerInUse logger;
    LogLineIdentifierPtr heading;
    {
        RememberedLines& remembered = rememberedLines();
        const std::lock_guard guard(remembered.lock);
        const auto found = remembered.lines.find(key);
        if (found != remembered.lines.end()) return found->second;
        heading = logger->beginLine(classification, line);
        remembered.lines.emplace(key, heading);
    }
    logger->finishLine(classification, *heading, message);
    return heading;
}

std::string_view Logger::nameOfClassification(LogClassification classification) {
    return sevrin::nameOfClassification(classification);
}

LogClassification Logger::classificationFromName(std::string_view name) {
    return sevrin::classificationFromName(name);
}

void Logger::setApplicationNumber(std::uint32_t number) {
    SEVRIN_ASSERT(!rootLogLineIsMade, "the application number is set before the first line");
    applicationNumber = number;
}

const LogLineIdentifierPtr& Logger::rootLogLine() {
    static const RootLine& theLine = *new RootLine;
    return theLine.uncounted;
}

LogLineIdentifierPtr Logger::logLineForKey(std::string_view key) {
    RememberedLines& remembered = rememberedLines();
    const std::lock_guard guard(remembered.lock);
    const auto found = remembered.lines.find(key);
    return found == remembered.lines.end() ? nullptr : found->second;
}

void Logger::setLogLineForKey(LogLineIdentifierPtr line, std::string_view key) {
    RememberedLines& remembered = rememberedLines();
    const std::lock_guard guard(remembered.lock);
    if (line) {
        remembered.lines.insert_or_assign(std::string(key), std::move(line));
    } else if (const auto found = remembered.lines.find(key); found != remembered.lines.end()) {
        remembered.lines.erase(found);
    }
}

}  // namespace sevrin
