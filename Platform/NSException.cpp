// The handle of an exception: making one, and raising it.
#include "Platform/NSException.h"

#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {

NSException NSException::exceptionWithNameReasonUserInfo(std::string_view name,
                                                         std::optional<std::string> reason,
                                                         std::optional<Dictionary> userInfo) {
    return NSException(std::make_shared<ExceptionObject>(std::string(name), std::move(reason),
                                                         std::move(userInfo)));
}

NSException NSException::exceptionForStandardException(const std::exception& error) {
    if (const auto* own = dynamic_cast<const NSException*>(&error)) return *own;
    return exceptionWithNameReasonUserInfo(NSGenericException, error.what());
}

NSException::NSException(ExceptionObjectPtr object) : object_(std::move(object)) {
    SEVRIN_ASSERT(object_ != nullptr, "the handle of an exception has one");
}

NSException::NSException(ExceptionObject& object) : object_(object.shared_from_this()) {}

NSException::~NSException() = default;

std::optional<NSException> NSException::exceptionInValue(const Value& value) {
    ExceptionObjectPtr object = exceptionObjectOf(value);
    if (!object) return std::nullopt;
    return NSException(std::move(object));
}

}  // namespace sevrin::platform
