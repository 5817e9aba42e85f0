// What the copies of one SVException share: its class, its preferred classification, its text.
#include "Common/Source/Utilities/SVExceptionObject.h"

#include <string_view>
#include <utility>

#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/ValueConversion.h"
#include "Platform/DescriptionScope.h"
#include "Platform/SafeDescription.h"
#include "Platform/Text.h"

namespace sevrin {

using platform::DescriptionScope;
using platform::Value;

namespace {

constexpr std::string_view kLogClassKey = ".LogClass";

// Archives know the class before the program has made an exception.
[[maybe_unused]] const platform::Class& theRegisteredClass = SVExceptionObject::classObject();

bool hasWhitespace(std::string_view text) {
    for (std::size_t position = 0; position < text.size();) {
        if (platform::isWhitespace(platform::decodeUtf8(text, position))) return true;
    }
    return false;
}

}  // namespace

// The details exist from the start, be they empty.
SVExceptionObject::SVExceptionObject()
    : ExceptionObject({}, std::nullopt, platform::Dictionary()) {}

SVExceptionObject::SVExceptionObject(std::string name, std::string reason)
    : ExceptionObject(std::move(name), std::move(reason), platform::Dictionary()) {}

platform::Class& SVExceptionObject::classObject() {
    static platform::NSCodingClass& theClass = *new platform::NSCodingClass(
        "SVException", &ExceptionObject::classObject(), stepsFor<SVExceptionObject>(),
        {{"preferredLogClass", [](Object* receiver, platform::Invocation&) {
              return Value(static_cast<std::int32_t>(
                  static_cast<SVExceptionObject*>(receiver)->preferredLogClass()));
          }}});
    return theClass;
}

LogClassification SVExceptionObject::preferredLogClass() const {
    if (const Value* stored = userInfo().find(kLogClassKey)) {
        if (const auto number = integerOf(*stored)) {
            return LogClassification{static_cast<std::int32_t>(*number)};
        }
    }
    return SVException::preferredLogClassForName(name());
}

void SVExceptionObject::throwHandle() {
    throw SVException(*this);
}

std::string SVExceptionObject::description() const {
    const DescriptionScope scope(this);
    std::string text;
    text.append("<").append(name()).append("> ").append(reason() ? *reason() : "(null)");
    if (userInfo().empty()) return text;
    if (!scope.mayDescribeContents()) return text.append(" { ... }");

    std::string_view separator = " { ";
    for (const auto& [key, value] : userInfo()) {
        text += separator;
        separator = ", ";
        if (DescriptionScope::isFull()) {
            text += platform::kEllipsis;
            break;
        }
        const std::size_t before = text.size();
        const std::string valueText = platform::safeDescription(value);
        const std::string_view quote = hasWhitespace(valueText) ? "'" : "";
        text.append(platform::safeDescription(key))
            .append("=")
            .append(quote)
            .append(valueText)
            .append(quote);
        DescriptionScope::noteText(text.size() - before);
    }
    return text.append(" }");
}

void SVExceptionObject::readFromCoder(platform::NSCoder& coder) {
    ExceptionObject::readFromCoder(coder);
    ensureUserInfo();
}

void SVExceptionObject::encodeUserInfoForKey(platform::NSCoder& coder, const Value& info,
                                             std::string_view key) const {
    coder.encodeMutableObjectForKey(info, key);
}

}  // namespace sevrin
