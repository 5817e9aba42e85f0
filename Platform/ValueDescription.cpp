// A value as text for people, laid out as the platform lays out property lists, so that logs of
// either system read the same.
#include <array>
#include <charconv>
#include <cmath>
#include <string>
#include <string_view>

#include "Platform/DescriptionScope.h"
#include "Platform/Value.h"

namespace sevrin::platform {

namespace {

// Containers within as many others are only hinted at: nobody reads them, and each takes stack.
constexpr unsigned kLevelMax = 64;
constexpr std::size_t kIndentation = 4;

// Longer data shows its first 16 and its last 8 bytes.
constexpr std::size_t kWholeBytesMax = 24;
constexpr std::size_t kFirstBytes = 16;
constexpr std::size_t kLastBytes = 8;
constexpr std::size_t kGroupBytes = 4;

void appendMember(std::string& out, const Value& value, unsigned level);

template <typename Number>
std::string integerText(Number number) {
    std::array<char, 24> buffer;
    return {buffer.data(), std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr};
}

// The fewest digits that read back as the same real; with an exponent only where a row of zeros
// would hide the size of the number.
std::string realText(double real) {
    constexpr double kPlainMin = 1e-4;
    constexpr double kPlainEnd = 1e17;
    const double magnitude = std::abs(real);
    const bool isPlain = magnitude == 0 || (magnitude >= kPlainMin && magnitude < kPlainEnd);
    std::array<char, 32> buffer;
    char* const begin = buffer.data();
    char* const end = begin + buffer.size();
    if (!std::isfinite(real)) return std::isnan(real) ? "nan" : real < 0 ? "-inf" : "inf";
    return {begin, isPlain ? std::to_chars(begin, end, real, std::chars_format::fixed).ptr
                           : std::to_chars(begin, end, real).ptr};
}

void appendBytes(std::string& out, std::string_view bytes) {
    constexpr char kHexDigits[] = "0123456789abcdef";
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        out.append({kHexDigits[value >> 4], kHexDigits[value & 15]});
    }
}

void appendGroups(std::string& out, std::string_view bytes) {
    for (std::size_t i = 0; i < bytes.size(); i += kGroupBytes) {
        appendBytes(out, bytes.substr(i, kGroupBytes));
        out += ' ';
    }
}

void appendData(std::string& out, std::string_view bytes) {
    out.append("{length = ").append(integerText(bytes.size())).append(", bytes = 0x");
    if (bytes.size() <= kWholeBytesMax) {
        appendBytes(out, bytes);
    } else {
        appendGroups(out, bytes.substr(0, kFirstBytes));
        out += "... ";
        appendGroups(out, bytes.substr(bytes.size() - kLastBytes));
    }
    out += '}';
}

// Within a container text stands in quotation marks unless it is letters and digits only.
void appendQuoted(std::string& out, std::string_view text) {
    const bool isWord = text.find_first_not_of(
                            "0123456789"
                            "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                            "abcdefghijklmnopqrstuvwxyz") == text.npos;
    if (isWord && !text.empty()) {
        out += text;
        return;
    }
    out += '"';
    for (const char character : text) {
        switch (character) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                out += character;
        }
    }
    out += '"';
}

void appendMembers(std::string& out, const ValueArray& members, unsigned level) {
    std::string_view separator = "\n";
    for (const Value& member : members) {
        out.append(separator).append((level + 1) * kIndentation, ' ');
        if (DescriptionScope::isFull()) {
            out += kEllipsis;
            break;
        }
        appendMember(out, member, level + 1);
        separator = ",\n";
    }
    out.append("\n").append(level * kIndentation, ' ');
}

void appendEntries(std::string& out, const Dictionary& dictionary, unsigned level) {
    out += '\n';
    for (const auto& [key, value] : dictionary) {
        out.append((level + 1) * kIndentation, ' ');
        if (DescriptionScope::isFull()) {
            out.append(kEllipsis).append("\n");
            break;
        }
        appendMember(out, key, level + 1);
        out += " = ";
        appendMember(out, value, level + 1);
        out += ";\n";
    }
    out.append(level * kIndentation, ' ');
}

// A container's text from its opening bracket; false when the value is no container.
bool appendContainer(std::string& out, const Value& value, unsigned level) {
    if (const ValueArray* array = value.ifArray()) {
        out += '(';
        appendMembers(out, *array, level);
        out += ')';
    } else if (const Dictionary* dictionary = value.ifDictionary()) {
        out += '{';
        appendEntries(out, *dictionary, level);
        out += '}';
    } else if (const Set* set = value.ifSet()) {
        out += "{(";
        appendMembers(out, set->members(), level);
        out += ")}";
    } else {
        return false;
    }
    return true;
}

bool isContainer(const Value& value) {
    return value.ifArray() || value.ifDictionary() || value.ifSet();
}

// What stands within a container at `level`. Nested containers are indented once more before their
// opening bracket, which is how the platform does it.
void appendMember(std::string& out, const Value& value, unsigned level) {
    const std::size_t before = out.size();
    if (isContainer(value)) {
        if (level > kLevelMax) {
            out += kEllipsis;
            return;
        }
        DescriptionScope::noteText(3 * (level + 1) * kIndentation);
        out.append(level * kIndentation, ' ');
        appendContainer(out, value, level);
        return;
    }
    if (const Data* data = value.ifData()) {
        appendData(out, data->bytes);
    } else if (const std::string* text = value.ifString()) {
        appendQuoted(out, *text);
    } else {
        appendQuoted(out, value.isNull() ? "<null>" : value.description());
    }
    DescriptionScope::noteText(out.size() - before + (level + 1) * kIndentation);
}

}  // namespace

std::string Value::description() const {
    switch (kind()) {
        case Kind::Null:
            return "(null)";
        case Kind::Boolean:
            return *ifBoolean() ? "1" : "0";
        case Kind::Signed:
            return integerText(*ifSigned());
        case Kind::Unsigned:
            return integerText(*ifUnsigned());
        case Kind::Double:
            return realText(*ifDouble());
        case Kind::String:
            return *ifString();
        case Kind::Date:
            return ifDate()->description();
        case Kind::Object:
            return object()->description();
        case Kind::Data: {
            std::string text;
            appendData(text, ifData()->bytes);
            return text;
        }
        case Kind::Array:
        case Kind::Dictionary:
        case Kind::Set: {
            const DescriptionScope scope(nullptr);
            if (!scope.mayDescribeContents()) return std::string(kEllipsis);
            std::string text;
            appendContainer(text, *this, 0);
            return text;
        }
    }
    return "";
}

}  // namespace sevrin::platform
