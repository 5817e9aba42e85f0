// Narrowing exceptions, exceptions as bytes, failures that are recorded instead of raised.
#include "Common/Source/Utilities/ExceptionTransport.h"

#include <memory>
#include <utility>

#include "Common/Source/Utilities/Logger.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/ValueClass.h"

namespace sevrin {

using platform::NSException;
using platform::Value;

std::atomic<bool> SVPersistFailures = false;

std::optional<SVException> asSVException(const NSException& exception) {
    auto object = std::dynamic_pointer_cast<SVExceptionObject>(exception.object());
    if (!object) return std::nullopt;
    return SVException(std::move(object));
}

std::optional<SVException> asSoftException(const NSException& exception) {
    std::optional<SVException> rich = asSVException(exception);
    return rich && rich->isSoft() ? rich : std::nullopt;
}

std::optional<std::string> dataForException(const NSException& exception) {
    try {
        return platform::NSKeyedArchiver::archivedDataWithRootObject(exception.object());
    } catch (const NSException&) {
        return std::nullopt;
    }
}

std::optional<NSException> exceptionFromData(std::optional<std::string_view> data) {
    if (!data) return std::nullopt;
    const Value root = platform::NSKeyedUnarchiver::unarchiveObjectWithData(*data);
    std::optional<NSException> exception = NSException::exceptionInValue(root);
    if (!exception) {
        Logger::logFormat(LogClassification::Debug, "%s exception object was actually a %@",
                          "+[NSException(SVException) exceptionFromData:]",
                          platform::classNameOf(root));
    }
    return exception;
}

void raiseOrPersist(const NSException& exception) {
    if (!SVPersistFailures.load(std::memory_order_relaxed)) exception.raise();
    const LogLineIdentifierPtr heading = Logger::logPlaceholderForKey(
        LogClassification::Warning, "Ignored failures", "ShePersisted");
    Logger::logInLineException(LogClassification::Failure, heading, exception);
}

}  // namespace sevrin
