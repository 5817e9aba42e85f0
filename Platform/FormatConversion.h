// One conversion of a format and how each kind of argument is written under it.
//
// Internal to formats: Format.cpp reads the conversions; the functions here append and know nothing
// of the format around a conversion.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Format.h"

namespace sevrin::platform {

// One conversion as the format spells it.
struct Conversion {
    bool isLeftAligned = false;
    bool hasPlus = false;
    bool hasBlank = false;
    bool isAlternate = false;
    bool hasZeros = false;
    std::size_t width = 0;
    std::optional<int> precision;  // never negative
    char letter = 0;
};

// Appends `argument` under `conversion`, whose letter is one of @ s p d i u o x X c f F e E g G a
// A. Gives nullptr, or, when the argument is of another type, what would have been right; nothing
// is appended then.
[[nodiscard]] const char* appendArgument(std::string& out, const Conversion& conversion,
                                         const FormatArgument& argument);

// "an integer", "text" ...: what the argument is, in words.
[[nodiscard]] const char* nameOf(const FormatArgument& argument);

// %d %i %u %o %x %X.
void appendInteger(std::string& out, const Conversion& conversion,
                   const FormatArgument::Integer& integer);

// %f %e %g %a and their capitals.
void appendReal(std::string& out, const Conversion& conversion, double real);
void appendReal(std::string& out, const Conversion& conversion, long double real);

// %p.
void appendAddress(std::string& out, const Conversion& conversion, const void* pointer);

}  // namespace sevrin::platform
