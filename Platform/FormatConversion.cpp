// Which argument a conversion takes, and text under a conversion.
#include "Platform/FormatConversion.h"

#include <string.h>

#include <algorithm>

#include "Platform/Text.h"
#include "Platform/Value.h"

namespace sevrin::platform {

namespace {

using Content = FormatArgument::Content;

constexpr std::string_view kNothing = "(null)";

// The first characters of `text`, at most `count`; `count` becomes how many there are.
std::string_view firstCharacters(std::string_view text, std::size_t& count) {
    std::size_t position = 0;
    std::size_t characters = 0;
    for (; position < text.size() && characters < count; ++characters)
        decodeUtf8(text, position);
    count = characters;
    return text.substr(0, position);
}

void appendText(std::string& out, const Conversion& conversion, std::string_view text) {
    if (conversion.width == 0 && !conversion.precision) {
        out.append(text);
        return;
    }
    std::size_t size = text.size();
    if (conversion.precision)
        size = std::min(size, static_cast<std::size_t>(*conversion.precision));
    text = conversion.letter == '@' ? firstCharacters(text, size) : text.substr(0, size);

    const std::size_t blanks = conversion.width > size ? conversion.width - size : 0;
    if (!conversion.isLeftAligned) out.append(blanks, ' ');
    out.append(text);
    if (conversion.isLeftAligned) out.append(blanks, ' ');
}

// %@.
const char* appendObject(std::string& out, const Conversion& conversion, const Content& content) {
    if (const auto* value = std::get_if<const Value*>(&content)) {
        const std::string* text = (*value)->ifString();
        appendText(out, conversion, text ? *text : (*value)->description());
    } else if (const auto* object = std::get_if<const Object*>(&content)) {
        appendText(out, conversion, *object ? (*object)->description() : kNothing);
    } else if (const auto* date = std::get_if<NSDate>(&content)) {
        appendText(out, conversion, date->description());
    } else if (const auto* text = std::get_if<const char*>(&content)) {
        appendText(out, conversion, *text ? *text : kNothing);
    } else if (const auto* view = std::get_if<std::string_view>(&content)) {
        appendText(out, conversion, *view);
    } else if (std::holds_alternative<std::nullptr_t>(content)) {
        appendText(out, conversion, kNothing);
    } else {
        return "a value, an object, a date or text";
    }
    return nullptr;
}

// A C string, of which no more is read than the precision allows: it may lack its end.
std::string_view cText(const Conversion& conversion, const char* text) {
    if (text == nullptr) return kNothing;
    if (!conversion.precision) return text;
    return {text, ::strnlen(text, static_cast<std::size_t>(*conversion.precision))};
}

// %s.
const char* appendString(std::string& out, const Conversion& conversion, const Content& content) {
    if (const auto* text = std::get_if<const char*>(&content)) {
        appendText(out, conversion, cText(conversion, *text));
    } else if (const auto* view = std::get_if<std::string_view>(&content)) {
        appendText(out, conversion, *view);
    } else if (std::holds_alternative<std::nullptr_t>(content)) {
        appendText(out, conversion, kNothing);
    } else {
        return "text";
    }
    return nullptr;
}

// %p.
const char* appendPointer(std::string& out, const Conversion& conversion, const Content& content) {
    if (const auto* pointer = std::get_if<const void*>(&content)) {
        appendAddress(out, conversion, *pointer);
    } else if (const auto* object = std::get_if<const Object*>(&content)) {
        appendAddress(out, conversion, *object);
    } else if (const auto* text = std::get_if<const char*>(&content)) {
        appendAddress(out, conversion, *text);
    } else if (std::holds_alternative<std::nullptr_t>(content)) {
        appendAddress(out, conversion, nullptr);
    } else {
        return "a pointer or an object";
    }
    return nullptr;
}

// %d %i %u %o %x %X and %c.
const char* appendWhole(std::string& out, const Conversion& conversion, const Content& content) {
    const auto* integer = std::get_if<FormatArgument::Integer>(&content);
    if (!integer) return "an integer";
    if (conversion.letter == 'c') {
        const char byte = static_cast<char>(integer->bits);
        Conversion unlimited = conversion;
        unlimited.precision.reset();
        appendText(out, unlimited, {&byte, 1});
    } else {
        appendInteger(out, conversion, *integer);
    }
    return nullptr;
}

// %f %e %g %a and their capitals.
const char* appendFraction(std::string& out, const Conversion& conversion, const Content& content) {
    if (const auto* real = std::get_if<double>(&content)) {
        appendReal(out, conversion, *real);
    } else if (const auto* longReal = std::get_if<long double>(&content)) {
        appendReal(out, conversion, *longReal);
    } else {
        return "a real";
    }
    return nullptr;
}

}  // namespace

const char* appendArgument(std::string& out, const Conversion& conversion,
                           const FormatArgument& argument) {
    const Content& content = argument.content();
    switch (conversion.letter) {
        case '@':
            return appendObject(out, conversion, content);
        case 's':
            return appendString(out, conversion, content);
        case 'p':
            return appendPointer(out, conversion, content);
        case 'd':
        case 'i':
        case 'u':
        case 'o':
        case 'x':
        case 'X':
        case 'c':
            return appendWhole(out, conversion, content);
        default:
            return appendFraction(out, conversion, content);
    }
}

const char* nameOf(const FormatArgument& argument) {
    constexpr std::array kNames{"nothing", "an integer", "a real",    "a real", "text",
                                "text",    "a value",    "an object", "a date", "a pointer"};
    static_assert(kNames.size() == std::variant_size_v<Content>);
    return kNames[argument.content().index()];
}

}  // namespace sevrin::platform
