// Descriptions for reports: bounded, and never a failure of their own.
#include "Platform/SafeDescription.h"

#include <exception>
#include <string_view>

#include "Platform/DescriptionScope.h"

namespace sevrin::platform {

void appendSafeDescription(std::string& out, const Value& value) {
    const std::string* const text = value.ifString();
    if (text != nullptr && text->size() <= kDescriptionBytesMax) {
        out += *text;
        return;
    }
    try {
        out += withoutExcess(value.description());
    } catch (const std::exception& error) {
        out.append("(no description: ").append(error.what()).append(")");
    } catch (...) {
        out += "(no description)";
    }
}

std::string safeDescription(const Value& value) {
    std::string text;
    appendSafeDescription(text, value);
    return text;
}

}  // namespace sevrin::platform
