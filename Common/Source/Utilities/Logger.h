// The base of the suite's logging: classified messages, each written as one line with an identifier
// that later messages can be logged under.
//
// Two families of operations. The static ones write through the process's default logger, which is
// chosen when the first line is logged; everybody uses these. The others belong to one logger:
// this class makes lines, reopens itself daily and writes nowhere; subclasses decide where a line
// goes. Where both families would share a name, the static one is called log... and the logger's
// own write... (docs/decisions/logger-entry-points.md).
//
// Any thread may log. Numbering belongs to the process: the root line, the remembered lines and
// what they have counted outlive every logger.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/Backtraces.h"
#include "Common/Source/Utilities/LogClassification.h"
#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Common/Source/Utilities/LoggerInUse.h"
#include "Common/Source/Utilities/ScratchText.h"
#include "Platform/Format.h"
#include "Platform/NSDate.h"
#include "Platform/NSDateFormatter.h"
#include "Platform/NSError.h"
#include "Platform/NSException.h"
#include "Platform/Value.h"

namespace sevrin {

class Logger {
public:
    // --- For everybody: through the default logger. All but the void ones give the identifier of
    // the (first) line written, also when the logger suppressed it. `line` is the line to log in,
    // nullptr for the root line.

    static LogLineIdentifierPtr logMessage(LogClassification classification,
                                           std::string_view message);
    static LogLineIdentifierPtr logInLineMessage(LogClassification classification,
                                                 const LogLineIdentifierPtr& line,
                                                 std::string_view message);
    // The same with a format of the platform (Platform/Format.h) and its arguments; throw what
    // formatting throws. A line that the logger does not show is not formatted.
    template <typename... Arguments>
    static LogLineIdentifierPtr logFormat(LogClassification classification, std::string_view format,
                                          const Arguments&... arguments) {
        return logInLineFormat(classification, nullptr, format, arguments...);
    }
    template <typename... Arguments>
    static LogLineIdentifierPtr logInLineFormat(LogClassification classification,
                                                const LogLineIdentifierPtr& line,
                                                std::string_view format,
                                                const Arguments&... arguments) {
        return LoggerInUse()->writeInLineFormat(classification, line, format, arguments...);
    }

    static LogLineIdentifierPtr logInLineKeyValue(LogClassification classification,
                                                  const LogLineIdentifierPtr& line,
                                                  std::string_view key,
                                                  const platform::Value& value);

    // A heading under which lines are grouped: written the first time that `key` is asked for, the
    // same line ever after (until it is forgotten by setLogLineForKey).
    static LogLineIdentifierPtr logPlaceholderForKey(LogClassification classification,
                                                     std::string_view message,
                                                     std::string_view key);
    static LogLineIdentifierPtr logInLinePlaceholderForKey(LogClassification classification,
                                                           const LogLineIdentifierPtr& line,
                                                           std::string_view message,
                                                           std::string_view key);

    // The record of an exception: its reason, below it its name and its details, each at the
    // classification that SVException has for it, and where it was raised. Without a classification
    // the exception's preferred one. Logging an exception never throws, whatever it holds.
    static LogLineIdentifierPtr logException(const platform::NSException& exception);
    static LogLineIdentifierPtr logException(LogClassification classification,
                                             const platform::NSException& exception);
    static LogLineIdentifierPtr logInLineException(LogClassification classification,
                                                   const LogLineIdentifierPtr& line,
                                                   const platform::NSException& exception);

    // The same unless the exception is the one that was logged last; then they give nullptr.
    static LogLineIdentifierPtr logNewException(const platform::NSException& exception);
    static LogLineIdentifierPtr logNewException(LogClassification classification,
                                                const platform::NSException& exception);

    // A message, and below it at Details the record of the exception if there is one (nullptr:
    // none). Gives the message's line.
    static LogLineIdentifierPtr logInLineMessageExceptionDetails(
        LogClassification classification, const LogLineIdentifierPtr& line,
        std::string_view message, const platform::NSException* exception);

    // A message, else what the error says, and below it the record of the error. The second one at
    // Debug.
    static LogLineIdentifierPtr logMessageError(LogClassification classification,
                                                const std::optional<std::string>& message,
                                                const platform::NSErrorPtr& error);
    static LogLineIdentifierPtr logDebugError(const platform::NSErrorPtr& error);

    // A heading under which failures are grouped by their reason: the heading of `key`, in it one
    // for the exception's reason, in that the records of the first 60 exceptions with this reason.
    // Gives the heading of the reason; that of the key when there is no exception.
    static LogLineIdentifierPtr logInLinePlaceholderForKeyByException(
        LogClassification classification, const LogLineIdentifierPtr& line,
        std::string_view message, std::string_view key, const platform::NSException* exception);

    // First and last record of a process, at Debug. `name` is the program's name and version.
    static LogLineIdentifierPtr logStartProcess(std::string_view name);
    static LogLineIdentifierPtr logStopProcessExitStatus(std::string_view name,
                                                         std::int32_t status);

    // The seven-character word, and back; Preferred (-1) for a word that is none.
    [[nodiscard]] static std::string_view nameOfClassification(LogClassification classification);
    [[nodiscard]] static LogClassification classificationFromName(std::string_view name);

    // The first number of the identifiers of this process's lines: 8, the switchboard's, unless
    // the program has said otherwise, which it may before its first line and never after.
    static void setApplicationNumber(std::uint32_t number);

    // The line that all others lie in: application.daystamp.process. Made on first use, for good.
    [[nodiscard]] static const LogLineIdentifierPtr& rootLogLine();

    // Lines remembered under a key for the life of the process; nullptr when there is none, and to
    // forget one.
    [[nodiscard]] static LogLineIdentifierPtr logLineForKey(std::string_view key);
    static void setLogLineForKey(LogLineIdentifierPtr line, std::string_view key);

    // A formatter for "yyyy-MM-dd HH:mm:ss.SSS Z", in local time.
    [[nodiscard]] static platform::NSDateFormatter makeLogDateFormatter();

    // The installed logger; when there is none, chooses and installs one first. Never nullptr.
    [[nodiscard]] static LoggerPtr defaultLogger();

    // Releases the installed logger, reopens `logger` and installs it, in that order: what is
    // logged during the reopening chooses a logger afresh. Throws what reopening throws; then none
    // is installed.
    static void setDefaultLogger(LoggerPtr logger);

    // Leaves none installed; the next line chooses again.
    static void releaseDefaultLogger();

    // --- One logger's own.

    // Where a logger has the time from.
    using Clock = std::function<platform::NSDate()>;

    explicit Logger(Clock clock = &platform::NSDate::date);
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger();

    // Writes the message that `format` makes of the arguments.
    template <typename... Arguments>
    LogLineIdentifierPtr writeInLineFormat(LogClassification classification,
                                           const LogLineIdentifierPtr& line,
                                           std::string_view format, const Arguments&... arguments) {
        if (suppressesClassification(classification)) return beginLine(classification, line);
        return writeInLineFormatArgs(classification, line, format,
                                     std::array<platform::FormatArgument, sizeof...(Arguments)>{
                                         platform::FormatArgument(arguments)...});
    }
    virtual LogLineIdentifierPtr writeInLineFormatArgs(
        LogClassification classification, const LogLineIdentifierPtr& line, std::string_view format,
        std::span<const platform::FormatArgument> arguments);

    // Writes a value under its key as a small tree of lines: a dictionary or a collection as a
    // head line with its entries below, anything else as one line.
    virtual LogLineIdentifierPtr writeInLineKeyValue(LogClassification classification,
                                                     const LogLineIdentifierPtr& line,
                                                     std::string_view key,
                                                     const platform::Value& value);

    // Writes each entry of a dictionary under its key, in the dictionary's order. `map` (may be
    // nullptr) says at which classification, else `classification`; keys that begin with a point
    // are internal and always Subrosa.
    virtual void logMapInLineDictionary(LogClassification classification,
                                        const LogClassificationMap* map,
                                        const LogLineIdentifierPtr& line,
                                        const platform::Dictionary& dictionary);

    // Writes an exception: its reason on one line, in it the name, the details as a dictionary and,
    // when it has been raised, the backtrace: in full the first time that this log shows it, by its
    // tag afterwards. Preferred (-1) means the exception's preferred classification. Throws
    // nothing.
    virtual LogLineIdentifierPtr logMapInLineException(LogClassification classification,
                                                       const LogClassificationMap* map,
                                                       const LogLineIdentifierPtr& line,
                                                       const platform::NSException& exception);

    // Whether this is not the very exception that was logged last.
    [[nodiscard]] virtual bool isNewException(const platform::NSException& exception) const;

    // Has every backtrace shown in full once more.
    virtual void flushBacktraceCache();

    // Writes bytes in rows of 64 under a head line. With a `tail` that is not 0, of long data only
    // the first and the last so many bytes (rounded up to whole rows).
    virtual void logInLineKeyDataTail(LogClassification classification,
                                      const LogLineIdentifierPtr& line, std::string_view key,
                                      std::string_view data, std::uint64_t tail);

    // Numbers a message as the next child of `line` and writes it if this logger shows it.
    virtual LogLineIdentifierPtr writeInLineMessage(LogClassification classification,
                                                    const LogLineIdentifierPtr& line,
                                                    std::string_view message);

    [[nodiscard]] virtual const platform::NSDateFormatter& dateFormatter() const;

    // Now. At the first call at or after reopenDate() reopens this logger and says so in it first.
    virtual platform::NSDate logDateReopeningLogger();

    // The moment from which on this logger wants to be reopened: the local midnight after it was
    // first asked.
    [[nodiscard]] virtual platform::NSDate reopenDate();

    // Forces what was written to where it lasts.
    virtual void flush();

    // Closes and opens whatever lines go to. This class forgets the backtraces shown so far; those
    // below call it when they are done.
    virtual void reopen();

    // Starts a new log, keeping so many old ones.
    virtual void rotateLogKeeping(std::uint64_t oldLogs);

    // The paths of the existing logs, the current one first.
    [[nodiscard]] virtual std::vector<std::string> logFiles();

    // Whether lines of this classification are never shown, so that nobody need make their text.
    [[nodiscard]] virtual bool suppressesClassification(LogClassification classification) const;

    // Appends the text of a line (this class: date, word, message and identifier); answers false,
    // with `text` unchanged, when the line is not to be written.
    virtual bool formatMessageInLineClassClassString(std::string& text, std::string_view message,
                                                     const LogLineIdentifier& line,
                                                     LogClassification classification,
                                                     std::string_view word);

    // Writes one line, which ends at the NUL. This class writes it nowhere.
    virtual void logCString(const char* bytes);

    // Writes the text of one line, as ASCII without loss.
    virtual void logMessage(const std::string& text);

    // The same for a line whose message is ASCII that needs no conversion, as nearly all are; what
    // the line has beyond its message is for this logger to know. This class converts all the same.
    virtual void logASCIIMessage(const std::string& text);

private:
    LogLineIdentifierPtr beginLine(LogClassification classification,
                                   const LogLineIdentifierPtr& line);
    void finishLine(LogClassification classification, const LogLineIdentifier& newLine,
                    std::string_view message);
    bool formatFromKept(std::string& text, platform::NSDate date, std::string_view word,
                        std::string_view message, const LogLineIdentifier& line) const;
    static LoggerPtr chooseDefaultLogger();
    void writeBacktrace(const LogLineIdentifierPtr& line,
                        std::span<const std::uintptr_t> addresses);

    // Writes the message that `compose` puts into a std::string&; of a line that is not shown, only
    // the number is taken.
    template <typename Compose>
    LogLineIdentifierPtr writeComposed(LogClassification classification,
                                       const LogLineIdentifierPtr& line, Compose compose) {
        if (suppressesClassification(classification)) return beginLine(classification, line);
        ScratchText message;
        compose(*message);
        return writeInLineMessage(classification, line, *message);
    }

    const Clock clock_;
    const platform::NSDateFormatter dateFormatter_;

    // Seconds since the reference date; minus infinity until asked for, and while reopening.
    std::atomic<double> reopenSeconds_;

    BacktraceCache backtraces_;

    // Which exception was logged last; never kept alive. Its own lock, held for nothing else.
    mutable std::mutex lastExceptionLock_;
    std::weak_ptr<const platform::ExceptionObject> lastException_;
};

// Logs at Debug how this place was reached, under "stack trace: LABEL".
void LogStackTrace(const platform::Value& label);

}  // namespace sevrin
