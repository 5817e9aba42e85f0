// Numbers and addresses under a conversion: the digits by std::to_chars, which knows no locale, and
// what surrounds them by hand.
#include "Platform/FormatConversion.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <span>
#include <system_error>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {

namespace {

using Integer = FormatArgument::Integer;

bool isUpperCase(const Conversion& conversion) {
    return conversion.letter >= 'A' && conversion.letter <= 'Z';
}

void makeUpperCase(std::span<char> text) {
    for (char& character : text) {
        if (character >= 'a' && character <= 'z')
            character = static_cast<char>(character - 'a' + 'A');
    }
}

std::string_view signOf(const Conversion& conversion, bool isNegative) {
    if (isNegative) return "-";
    if (conversion.hasPlus) return "+";
    return conversion.hasBlank ? " " : "";
}

// Appends the parts of a number, filled up to the width: with blanks, or with zeros behind the
// prefix.
void appendNumber(std::string& out, const Conversion& conversion, bool mayFillWithZeros,
                  std::string_view prefix, std::size_t zeros, std::string_view digits) {
    if (conversion.width == 0) {
        out.append(prefix).append(zeros, '0').append(digits);
        return;
    }
    const std::size_t size = prefix.size() + zeros + digits.size();
    std::size_t blanks = conversion.width > size ? conversion.width - size : 0;
    if (conversion.hasZeros && mayFillWithZeros && !conversion.isLeftAligned)
        zeros += std::exchange(blanks, 0);

    if (!conversion.isLeftAligned) out.append(blanks, ' ');
    out.append(prefix).append(zeros, '0').append(digits);
    if (conversion.isLeftAligned) out.append(blanks, ' ');
}

void appendWholeNumber(std::string& out, const Conversion& conversion, std::string_view prefix,
                       std::uint64_t number, int base) {
    std::array<char, 24> buffer;  // The longest is 22 octal digits.
    char* end = buffer.data();
    if (number != 0 || conversion.precision != 0)
        end = std::to_chars(end, end + buffer.size(), number, base).ptr;
    const std::span<char> digits(buffer.data(), end);
    if (isUpperCase(conversion)) makeUpperCase(digits);

    std::size_t zeros = 0;
    if (conversion.precision) {
        const auto wanted = static_cast<std::size_t>(*conversion.precision);
        zeros = wanted > digits.size() ? wanted - digits.size() : 0;
    }
    const bool isOctalMarked = conversion.letter == 'o' && conversion.isAlternate;
    if (isOctalMarked && zeros == 0 && (digits.empty() || digits.front() != '0')) zeros = 1;
    appendNumber(out, conversion, !conversion.precision, prefix, zeros,
                 {digits.data(), digits.size()});
}

// What C makes of the number where a signed one is wanted.
std::int64_t signedNumber(const Integer& integer) {
    if (!integer.isSigned && integer.size == sizeof(std::int32_t))
        return static_cast<std::int32_t>(static_cast<std::uint32_t>(integer.bits));
    return static_cast<std::int64_t>(integer.bits);
}

// The number's bits in its own size.
std::uint64_t unsignedNumber(const Integer& integer) {
    const unsigned unusedBits = 64U - 8U * integer.size;
    return integer.bits << unusedBits >> unusedBits;
}

// The text of a finite real by std::to_chars. Without a precision (hexadecimal only) it has as many
// digits as it takes.
template <typename Real>
std::string realText(Real magnitude, std::chars_format format, std::optional<int> precision) {
    // Room for the point, the exponent and the hexadecimal digits; in plain notation also for what
    // stands before the point, which is less than a third of the binary digits.
    std::size_t room = 48 + static_cast<std::size_t>(precision.value_or(0));
    if (format == std::chars_format::fixed && magnitude >= 1)
        room += static_cast<std::size_t>(std::ilogb(magnitude)) / 3;

    std::string text(room, '\0');
    char* const begin = text.data();
    char* const end = begin + room;
    const auto [last, error] = precision ? std::to_chars(begin, end, magnitude, format, *precision)
                                         : std::to_chars(begin, end, magnitude, format);
    SEVRIN_ASSERT(error == std::errc(), "a real has room for its text");
    text.resize(static_cast<std::size_t>(last - begin));
    return text;
}

// Puts a decimal point where a real has none: before its exponent, which begins with `mark`, or at
// its end.
std::string withPoint(std::string text, char mark) {
    if (text.find('.') == std::string::npos)
        text.insert(std::min(text.find(mark), text.size()), 1, '.');
    return text;
}

// %#g: like %g, but the zeros at the end stay.
template <typename Real>
std::string generalTextWithZeros(Real magnitude, int precision) {
    const int digits = std::max(precision, 1);
    std::string text = realText(magnitude, std::chars_format::scientific, digits - 1);
    const std::size_t sign = text.find('e') + 1;
    int exponent = 0;
    std::from_chars(text.data() + sign + 1, text.data() + text.size(), exponent);
    if (text[sign] == '-') exponent = -exponent;
    if (exponent >= -4 && exponent < digits)
        text = realText(magnitude, std::chars_format::fixed, digits - 1 - exponent);
    return withPoint(std::move(text), 'e');
}

// The digits of a finite real that is not negative, in lower case and without "0x".
template <typename Real>
std::string realDigits(Real magnitude, const Conversion& conversion) {
    const int precision = conversion.precision.value_or(6);
    char exponentMark = 'e';
    std::string text;
    switch (conversion.letter) {
        case 'f':
        case 'F':
            text = realText(magnitude, std::chars_format::fixed, precision);
            break;
        case 'e':
        case 'E':
            text = realText(magnitude, std::chars_format::scientific, precision);
            break;
        case 'g':
        case 'G':
            if (conversion.isAlternate) return generalTextWithZeros(magnitude, precision);
            return realText(magnitude, std::chars_format::general, precision);
        default:
            exponentMark = 'p';
            text = realText(magnitude, std::chars_format::hex, conversion.precision);
    }
    return conversion.isAlternate ? withPoint(std::move(text), exponentMark) : text;
}

template <typename Real>
void appendAnyReal(std::string& out, const Conversion& conversion, Real real) {
    const bool isFinite = std::isfinite(real);
    std::string prefix(signOf(conversion, std::signbit(real)));
    std::string digits;
    if (isFinite) {
        if (conversion.letter == 'a' || conversion.letter == 'A') prefix += "0x";
        digits = realDigits(std::abs(real), conversion);
    } else {
        digits = std::isnan(real) ? "nan" : "inf";
    }
    if (isUpperCase(conversion)) {
        makeUpperCase(prefix);
        makeUpperCase(digits);
    }
    appendNumber(out, conversion, isFinite, prefix, 0, digits);
}

}  // namespace

void appendInteger(std::string& out, const Conversion& conversion, const Integer& integer) {
    const std::uint64_t bits = unsignedNumber(integer);
    switch (conversion.letter) {
        case 'd':
        case 'i': {
            const std::int64_t number = signedNumber(integer);
            const auto same = static_cast<std::uint64_t>(number);
            appendWholeNumber(out, conversion, signOf(conversion, number < 0),
                              number < 0 ? 0 - same : same, 10);
            return;
        }
        case 'u':
            return appendWholeNumber(out, conversion, "", bits, 10);
        case 'o':
            return appendWholeNumber(out, conversion, "", bits, 8);
        default:
            const std::string_view mark = isUpperCase(conversion) ? "0X" : "0x";
            const bool isMarked = conversion.isAlternate && bits != 0;
            appendWholeNumber(out, conversion, isMarked ? mark : "", bits, 16);
    }
}

void appendReal(std::string& out, const Conversion& conversion, double real) {
    appendAnyReal(out, conversion, real);
}

void appendReal(std::string& out, const Conversion& conversion, long double real) {
    appendAnyReal(out, conversion, real);
}

void appendAddress(std::string& out, const Conversion& conversion, const void* pointer) {
    appendWholeNumber(out, conversion, "0x", reinterpret_cast<std::uintptr_t>(pointer), 16);
}

}  // namespace sevrin::platform
