// The slot of the default logger, and the use of what is in it without a lock.
//
// Every line asks for the default logger, from any thread, and it hardly ever changes. So a thread
// that uses it does not count as an owner, which all threads would have to write down in the same
// place; it notes in a place of its own which logger it uses. Who takes a logger out of the slot
// looks at these places, and a logger in use ends when the last call that uses it has returned.
#pragma once

#include <memory>

namespace sevrin {

class Logger;
using LoggerPtr = std::shared_ptr<Logger>;

// The default logger for the length of one call; chosen now if none is installed. Lives on the
// stack only, in the expression that makes the call.
class LoggerInUse {
public:
    LoggerInUse();
    LoggerInUse(const LoggerInUse&) = delete;
    LoggerInUse& operator=(const LoggerInUse&) = delete;
    ~LoggerInUse() {
        if (isNoted_) leave();
    }

    [[nodiscard]] Logger* operator->() const noexcept { return logger_; }
    [[nodiscard]] Logger& operator*() const noexcept { return *logger_; }

private:
    static void leave() noexcept;

    Logger* logger_ = nullptr;
    bool isNoted_ = false;
    LoggerPtr held_;  // Where no note could be made: in a call within a call, at a thread's end.
};

// The slot itself, which choosing and replacing work on.
namespace InstalledLogger {

// nullptr when none is installed.
[[nodiscard]] LoggerPtr get();

// Installs `logger`, or none. The one before ends on this thread unless somebody still uses it.
void put(LoggerPtr logger);

}  // namespace InstalledLogger

}  // namespace sevrin
