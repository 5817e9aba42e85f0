// The default logger: how one is chosen when none is installed, and replacing it.
#include <unistd.h>

#include <exception>
#include <mutex>
#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/LoggerRegistry.h"
#include "Common/Source/Utilities/NSLogLogger.h"
#include "Platform/Assertion.h"

namespace sevrin {

namespace {

// Attempts at the standard logger that may be under way within each other. What is logged while one
// opens its log, such as the folders made for it, chooses a logger too, which finds the folders
// there and opens the log. More would only fail as that one does.
constexpr int kNestedAttemptsMax = 2;

struct Selection {
    // Held by the thread that chooses. What it calls may log, and so choose, in turn.
    std::recursive_mutex choosing;
    int standardAttempts = 0;  // Guarded by choosing.
};

// Never destroyed: what ends with the program may log to the last.
Selection& selection() {
    static Selection& theSelection = *new Selection;
    return theSelection;
}

// Counts one attempt at the standard logger for as long as it lives.
class Attempt {
public:
    Attempt() { ++selection().standardAttempts; }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;
    ~Attempt() { --selection().standardAttempts; }
};

LoggerPtr makeFallbackLogger() {
    const auto candidates = LoggerRegistry::fallbackLoggers(::geteuid() == 0);
    std::string tried;
    for (const std::string_view name : candidates) {
        if (LoggerPtr logger = LoggerRegistry::make(name)) return logger;
        if (!tried.empty()) tried += ", ";
        tried += name;
    }
    SEVRIN_ASSERT(false, "could not create fallback Logger; tried " + tried);
    return nullptr;
}

void reportStandardLoggerFailure(Logger& logger, const std::exception& error) {
    if (dynamic_cast<NSLogLogger*>(&logger) == nullptr) return;
    logger.writeInLineMessage(LogClassification::Failure, nullptr,
                              "could not create standard logger; logging to console");
    logger.logMapInLineException(LogClassification::Failure, nullptr, nullptr,
                                 platform::NSException::exceptionForStandardException(error));
}

// Replaces the fallback, which serves until then, by the standard logger if that can be had.
void tryStandardLogger(const LoggerPtr& fallback) {
    if (selection().standardAttempts == kNestedAttemptsMax) return;
    const Attempt attempt;
    try {
        if (LoggerPtr standard = LoggerRegistry::make(LoggerRegistry::kStandardLogger)) {
            Logger::setDefaultLogger(std::move(standard));
        }
    } catch (const std::exception& error) {
        // Installing begins with releasing the fallback.
        LoggerPtr remaining = InstalledLogger::get();
        if (!remaining) InstalledLogger::put(remaining = fallback);
        reportStandardLoggerFailure(*remaining, error);
    }
}

}  // namespace

LoggerPtr Logger::defaultLogger() {
    if (LoggerPtr installed = InstalledLogger::get()) return installed;
    const std::lock_guard guard(selection().choosing);
    if (LoggerPtr installed = InstalledLogger::get()) return installed;
    return chooseDefaultLogger();
}

LoggerPtr Logger::chooseDefaultLogger() {
    LoggerPtr fallback = makeFallbackLogger();
    setDefaultLogger(fallback);
    tryStandardLogger(fallback);
    // Another thread may have released it meanwhile, or it itself.
    if (LoggerPtr installed = InstalledLogger::get()) return installed;
    return fallback;
}

void Logger::setDefaultLogger(LoggerPtr logger) {
    releaseDefaultLogger();
    if (logger) logger->reopen();
    InstalledLogger::put(std::move(logger));
}

void Logger::releaseDefaultLogger() {
    InstalledLogger::put(nullptr);
}

}  // namespace sevrin
