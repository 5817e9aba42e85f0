// Records of exceptions and errors: what they say, what they carry, and where they were raised.
#include <array>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/RecordExtent.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/CallStack.h"
#include "Platform/DescriptionScope.h"
#include "Platform/SafeDescription.h"
#include "Platform/Text.h"

namespace sevrin {

using platform::NSErrorPtr;
using platform::NSException;
using platform::stringWithFormat;
using platform::Value;

namespace {

// Records of failures with the same reason; a flood of them must not fill the log.
constexpr std::uint64_t kRecordsPerReasonMax = 60;

constexpr std::string_view kNoReason = "(null)";

std::string_view reasonOf(const NSException& exception) {
    return exception.reason() ? std::string_view(*exception.reason()) : kNoReason;
}

// A reason as part of one line: line breaks as bars, one each; whatever else would not print as a
// question mark.
std::string cleanedReason(const NSException& exception) {
    const std::string_view reason = reasonOf(exception).substr(0, platform::kDescriptionBytesMax);
    std::string cleaned;
    cleaned.reserve(reason.size());
    for (std::size_t position = 0; position < reason.size();) {
        const std::size_t start = position;
        const char32_t character = platform::decodeUtf8(reason, position);
        if (platform::isNewline(character)) {
            cleaned += " | ";
        } else if (platform::isControlOrIllegal(character)) {
            cleaned += '?';
        } else {
            cleaned.append(reason, start, position - start);
        }
    }
    if (reason.size() < reasonOf(exception).size()) cleaned += platform::kEllipsis;
    return cleaned;
}

}  // namespace

// A record that fails on the way, for want of memory, is as long as it got.
LogLineIdentifierPtr Logger::logMapInLineException(LogClassification classification,
                                                   const LogClassificationMap* map,
                                                   const LogLineIdentifierPtr& line,
                                                   const NSException& exception) {
    const RecordExtent extent;
    LogLineIdentifierPtr head = line ? line : rootLogLine();
    try {
        {
            const std::lock_guard guard(lastExceptionLock_);
            lastException_ = exception.object();
        }
        if (classification == LogClassification::Preferred) {
            classification = SVException::preferredLogClassForException(exception);
        }
        head = writeComposed(classification, line,
                             [&](std::string& message) { message += cleanedReason(exception); });
        writeInLineKeyValue(LogClassification::Subrosa, head, ".Exception", exception.name());
        logMapInLineDictionary(LogClassification::Details, map, head, exception.userInfo());
        if (!exception.callStackReturnAddresses().empty()) {
            writeBacktrace(head, exception.callStackReturnAddresses());
        }
    } catch (...) {
        // Nothing that fails here is worth more than what is being reported.
    }
    return head;
}

void Logger::writeBacktrace(const LogLineIdentifierPtr& line,
                            std::span<const std::uintptr_t> addresses) {
    const auto [tag, isNew] = backtraces_.tag(addresses);
    const LogLineIdentifierPtr head =
        writeInLineFormat(LogClassification::Debug, line, "backtrace %lx", tag);
    if (!isNew) return;
    for (const std::uintptr_t address : addresses) {
        writeComposed(LogClassification::Debug, head,
                      [&](std::string& message) { appendAddressLine(message, address); });
    }
}

bool Logger::isNewException(const NSException& exception) const {
    const std::lock_guard guard(lastExceptionLock_);
    const auto& object = exception.object();
    return lastException_.owner_before(object) || object.owner_before(lastException_);
}

void Logger::flushBacktraceCache() {
    backtraces_.flush();
}

LogLineIdentifierPtr Logger::logException(const NSException& exception) {
    return logException(LogClassification::Preferred, exception);
}

LogLineIdentifierPtr Logger::logException(LogClassification classification,
                                          const NSException& exception) {
    return logInLineException(classification, nullptr, exception);
}

LogLineIdentifierPtr Logger::logInLineException(LogClassification classification,
                                                const LogLineIdentifierPtr& line,
                                                const NSException& exception) {
    return LoggerInUse()->logMapInLineException(
        classification, &SVException::userInfoLogClassifications(), line, exception);
}

LogLineIdentifierPtr Logger::logNewException(const NSException& exception) {
    return logNewException(LogClassification::Preferred, exception);
}

LogLineIdentifierPtr Logger::logNewException(LogClassification classification,
                                             const NSException& exception) {
    if (!LoggerInUse()->isNewException(exception)) return nullptr;
    return logException(classification, exception);
}

LogLineIdentifierPtr Logger::logInLineMessageExceptionDetails(LogClassification classification,
                                                              const LogLineIdentifierPtr& line,
                                                              std::string_view message,
                                                              const NSException* exception) {
    LogLineIdentifierPtr head = logInLineMessage(classification, line, message);
    if (exception != nullptr) logInLineException(LogClassification::Details, head, *exception);
    return head;
}

LogLineIdentifierPtr Logger::logMessageError(LogClassification classification,
                                             const std::optional<std::string>& message,
                                             const NSErrorPtr& error) {
    std::optional<std::string> text = message;
    if (!text && error) text = error->localizedDescription();
    const SVException exception = SVException::errorNameReason(error, "IO", "general problem");
    return logInLineMessageExceptionDetails(classification, nullptr,
                                            text ? *text : "Unexpected error", &exception);
}

LogLineIdentifierPtr Logger::logDebugError(const NSErrorPtr& error) {
    return logMessageError(LogClassification::Debug, std::nullopt, error);
}

LogLineIdentifierPtr Logger::logInLinePlaceholderForKeyByException(LogClassification classification,
                                                                   const LogLineIdentifierPtr& line,
                                                                   std::string_view message,
                                                                   std::string_view key,
                                                                   const NSException* exception) {
    LogLineIdentifierPtr heading = logInLinePlaceholderForKey(classification, line, message, key);
    if (exception == nullptr) return heading;
    LogLineIdentifierPtr reasonLine =
        logInLinePlaceholderForKey(LogClassification::Plain, heading, reasonOf(*exception),
                                   std::string(key).append(reasonOf(*exception)));
    if (reasonLine->count() < kRecordsPerReasonMax) {
        logInLineException(LogClassification::Debug, reasonLine, *exception);
    }
    return reasonLine;
}

// The stack is captured here rather than where an exception would be raised: throwing one to catch
// it at once would tell no more.
void LogStackTrace(const Value& label) {
    std::array<std::uintptr_t, platform::kCallStackMax> addresses;
    const std::size_t count = platform::captureCallStack(addresses);
    const NSException exception = NSException::exceptionWithNameReasonUserInfo(
        platform::NSGenericException, "stack trace: " + platform::safeDescription(label));
    exception.object()->setCallStackReturnAddresses({addresses.begin(), addresses.begin() + count});
    Logger::logInLineException(LogClassification::Debug, nullptr, exception);
}

}  // namespace sevrin
