// Formats in the platform's vocabulary: printf's conversions and %@ for objects, type-safe.
//
// An argument carries its own type and size, so a conversion never reads what is not there: a wrong
// type, a missing or a superfluous argument does not compile or throws FormatError. Nothing depends
// on a locale. On any thread.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include "Platform/NSDate.h"
#include "Platform/Object.h"

namespace sevrin::platform {

class Value;

// A format and its arguments do not fit. The text names the format, the byte offset of the
// conversion in it, and what is wrong. Formats are written by us, so this is our own mistake; it is
// thrown, not asserted, because formatting mostly happens on the way to reporting something worse.
class FormatError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

// An enumeration that passes for its number by itself.
template <typename Type>
concept UnscopedEnum =
    std::is_enum_v<Type> && std::convertible_to<Type, std::underlying_type_t<Type>>;

// One argument of a format. Borrows what it is made from; use it within the same expression.
class FormatArgument {
public:
    // Sign-extended (or zero-extended) to 64 bits; `size` in bytes is that of the original.
    struct Integer {
        std::uint64_t bits;
        std::uint8_t size;
        bool isSigned;
    };
    using Content =
        std::variant<std::nullptr_t, Integer, double, long double, const char*, std::string_view,
                     const Value*, const Object*, NSDate, const void*>;

    FormatArgument(std::nullptr_t) {}
    FormatArgument(std::integral auto value)
        : content_(Integer{static_cast<std::uint64_t>(value), sizeof value,
                           std::is_signed_v<decltype(value)>}) {}
    FormatArgument(UnscopedEnum auto value)
        : FormatArgument(static_cast<std::underlying_type_t<decltype(value)>>(value)) {}
    FormatArgument(float value) : content_(static_cast<double>(value)) {}
    FormatArgument(double value) : content_(value) {}
    FormatArgument(long double value) : content_(value) {}
    FormatArgument(const char* text) : content_(text) {}
    FormatArgument(std::string_view text) : content_(text) {}
    FormatArgument(const std::string& text) : content_(std::string_view(text)) {}
    FormatArgument(const std::optional<std::string>& text) {
        if (text) content_ = std::string_view(*text);
    }
    // Exactly a Value: what merely converts to one would be a temporary that is gone too soon.
    FormatArgument(const std::same_as<Value> auto& value) : content_(&value) {}
    FormatArgument(const Object& object) : content_(&object) {}
    FormatArgument(const Object* object) : content_(object) {}
    template <std::derived_from<Object> Type>
    FormatArgument(const std::shared_ptr<Type>& object)
        : content_(static_cast<const Object*>(object.get())) {}
    FormatArgument(NSDate date) : content_(date) {}
    FormatArgument(const void* pointer) : content_(pointer) {}

    [[nodiscard]] const Content& content() const { return content_; }

private:
    Content content_;
};

// Appends `format` to `out` with its conversions replaced by `arguments`:
//
//     %@                  a Value, an object, a date: its description; text as it is
//     %s                  text: a C string, std::string, std::string_view, std::optional of it
//     %d %i %u %o %x %X   any integer, boolean or unscoped enumeration
//     %c                  an integer, as one byte
//     %f %e %g %a         a real (and %F %E %G %A)
//     %p                  a pointer or an object: its address; none is "0x0"
//     %%                  a percent sign
//
// with printf's flags, width, precision, `*` and positions (%2$@, for all conversions or for none),
// and with printf's result. Nothing under %@ or %s is "(null)". Under %@ width and precision count
// characters, under %s bytes. The length modifiers (hh h l ll q z t j L) are accepted and mean
// nothing: a negative number under %u, %o or %x is the two's complement in the argument's own size;
// an unsigned number that only an unsigned int or a larger type can hold is under %d, as in C, the
// signed number with the same bits.
//
// Nothing that is formatted may lie within `out`. Throws FormatError, and what a description
// throws; `out` is then as it was.
void appendFormat(std::string& out, std::string_view format,
                  std::span<const FormatArgument> arguments);

// The text that appendFormat appends.
template <typename... Arguments>
[[nodiscard]] std::string stringWithFormat(std::string_view format, const Arguments&... arguments) {
    std::string result;
    appendFormat(result, format,
                 std::array<FormatArgument, sizeof...(Arguments)>{FormatArgument(arguments)...});
    return result;
}

}  // namespace sevrin::platform
