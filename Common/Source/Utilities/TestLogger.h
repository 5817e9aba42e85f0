// For tests only: a logger that keeps its lines, and a default logger for the length of a test.
//
// Lines are kept in a form that is easy to expect: classification, message, identifier, without the
// date. The default logger is the whole process's, so a test that sets one must be alone in its
// process while it does; the test runner starts every test in a process of its own.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/Logger.h"

namespace sevrin {

class TestLogger : public Logger {
public:
    using Logger::Logger;

    // What was logged so far, each as "7 message [identifier]".
    [[nodiscard]] std::vector<std::string> lines() const {
        const std::lock_guard guard(lock_);
        return lines_;
    }

    bool formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                             const LogLineIdentifier& line,
                                             LogClassification classification,
                                             std::string_view) override {
        text += std::to_string(static_cast<int>(classification)) + " ";
        text += message;
        text += " [" + line.description() + "]";
        return true;
    }

    void logMessage(const std::string& text) override {
        const std::lock_guard guard(lock_);
        lines_.emplace_back(text);
    }

private:
    mutable std::mutex lock_;
    std::vector<std::string> lines_;
};

// Installs a logger; at its end none is installed, as at the start of the process.
class ScopedDefaultLogger {
public:
    explicit ScopedDefaultLogger(LoggerPtr logger) { Logger::setDefaultLogger(std::move(logger)); }
    ScopedDefaultLogger(const ScopedDefaultLogger&) = delete;
    ScopedDefaultLogger& operator=(const ScopedDefaultLogger&) = delete;
    ~ScopedDefaultLogger() { Logger::releaseDefaultLogger(); }
};

}  // namespace sevrin
