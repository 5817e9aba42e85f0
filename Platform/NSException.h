// The platform's exception: a name, a reason and a dictionary of further information.
//
// Thrown and caught by value. What is thrown is a handle over one shared object, so a copy is the
// same exception: details that a catcher adds are seen by whoever catches it next. An exception
// that is raised, rather than thrown, also knows where that was. Threads: see
// Platform/ExceptionObject.h.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/ExceptionObject.h"
#include "Platform/Format.h"

namespace sevrin::platform {

// Names of exceptions, as the platform spells them.
inline constexpr std::string_view NSGenericException = "NSGenericException";
inline constexpr std::string_view NSInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr std::string_view NSRangeException = "NSRangeException";
inline constexpr std::string_view NSInvalidArchiveOperationException =
    "NSInvalidArchiveOperationException";
inline constexpr std::string_view NSInvalidUnarchiveOperationException =
    "NSInvalidUnarchiveOperationException";

class NSException : public std::exception {
public:
    // A new exception. Either of the last two may be absent.
    [[nodiscard]] static NSException exceptionWithNameReasonUserInfo(
        std::string_view name, std::optional<std::string> reason,
        std::optional<Dictionary> userInfo = std::nullopt);

    // Raises a new one without user info; the reason is a format with its arguments.
    template <typename... Arguments>
    [[noreturn]] static void raiseFormat(std::string_view name, std::string_view format,
                                         const Arguments&... arguments) {
        exceptionWithNameReasonUserInfo(name, stringWithFormat(format, arguments...)).raise();
    }

    // The exception that was caught as a standard one: itself when it is of the platform, else a
    // new one named NSGenericException whose reason is what the other says.
    [[nodiscard]] static NSException exceptionForStandardException(const std::exception& error);

    // The handle of an exception that is at hand as an object, which may not be nullptr. The second
    // one leaves nothing behind for a throw to clean up, which would cost as much as a further
    // frame; its object is held by a pointer already.
    explicit NSException(ExceptionObjectPtr object);
    explicit NSException(ExceptionObject& object);

    // Copied even from temporaries: a handle without an exception does not exist.
    NSException(const NSException&) noexcept = default;
    NSException& operator=(const NSException&) noexcept = default;
    ~NSException() override;

    // The exception that a value holds; none when it holds another thing.
    [[nodiscard]] static std::optional<NSException> exceptionInValue(const Value& value);

    [[nodiscard]] const std::string& name() const { return object_->name(); }
    [[nodiscard]] const std::optional<std::string>& reason() const { return object_->reason(); }

    // Empty when there is none. Valid until it is changed.
    [[nodiscard]] const Dictionary& userInfo() const { return object_->userInfo(); }

    // Where it was raised first, innermost first; empty when it was thrown without being raised.
    [[nodiscard]] const std::vector<std::uintptr_t>& callStackReturnAddresses() const {
        return object_->callStackReturnAddresses();
    }

    // Throws the exception, as the type that it was made as whatever the type of this handle. The
    // first time, it keeps where that was. Part of its caller, for each frame between a throw and
    // its catch costs more than all that is done here.
    [[noreturn, gnu::always_inline]] void raise() const {
        object_->recordCallStack();
        object_->throwHandle();
        std::terminate();  // Not reached; not every compiler sees that through a virtual call.
    }

    // Whether both are the very same exception.
    [[nodiscard]] bool isSame(const NSException& other) const { return object_ == other.object_; }

    [[nodiscard]] std::string description() const { return object_->description(); }

    // The description. Valid until the exception is changed.
    [[nodiscard]] const char* what() const noexcept override { return object_->what(); }

    // The exception as an object, to be a value or to be kept beyond the handle. Never nullptr.
    [[nodiscard]] const ExceptionObjectPtr& object() const { return object_; }

    // The class of the exception, which may be one below that of the handle.
    [[nodiscard]] const Class& isa() const { return object_->isa(); }

private:
    ExceptionObjectPtr object_;
};

}  // namespace sevrin::platform
