// Numbers in formats are what the C library's printf makes of them: every combination of flags,
// width, precision and conversion that C defines is compared, for numbers at the edges of each
// type.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "Platform/Format.h"

namespace sevrin::platform {
namespace {

template <typename... Arguments>
std::string printed(const std::string& format, Arguments... arguments) {
    const int size = std::snprintf(nullptr, 0, format.c_str(), arguments...);
    std::string text(static_cast<std::size_t>(size) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), arguments...);
    text.pop_back();
    return text;
}

// "%", every subset of `flags`, some widths, some precisions, `modifier`, and each of `letters`.
std::vector<std::string> formats(const std::string& flags, const std::string& modifier,
                                 const std::string& letters) {
    std::vector<std::string> result;
    for (unsigned subset = 0; subset < 1U << flags.size(); ++subset) {
        std::string start = "%";
        for (std::size_t i = 0; i < flags.size(); ++i) {
            if ((subset >> i & 1U) != 0) start += flags[i];
        }
        for (const char* width : {"", "1", "9", "30"}) {
            for (const char* precision : {"", ".", ".0", ".1", ".7", ".21"}) {
                for (const char letter : letters)
                    result.push_back(start + width + precision + modifier + letter);
            }
        }
    }
    return result;
}

template <typename Number>
void expectAsPrinted(const std::vector<std::string>& formats, const std::vector<Number>& numbers) {
    for (const std::string& format : formats) {
        for (const Number number : numbers)
            ASSERT_EQ(stringWithFormat(format, number), printed(format, number)) << format;
    }
}

template <typename Signed>
std::vector<Signed> signedNumbers() {
    using Limits = std::numeric_limits<Signed>;
    return {0, 1, -1, 7, 8, -10, 99, 100, Limits::max(), Limits::min()};
}

template <typename Unsigned>
std::vector<Unsigned> unsignedNumbers() {
    using Limits = std::numeric_limits<Unsigned>;
    return {0, 1, 8, 10, 255, Limits::max() / 2, Limits::max() / 2 + 1, Limits::max()};
}

TEST(FormatNumberTest, SignedConversionsEqualPrintf) {
    expectAsPrinted(formats("-+ 0", "", "di"), signedNumbers<int>());
    expectAsPrinted(formats("-+ 0", "l", "di"), signedNumbers<long>());
    expectAsPrinted(formats("-+ 0", "ll", "di"), signedNumbers<long long>());
}

TEST(FormatNumberTest, UnsignedConversionsEqualPrintf) {
    expectAsPrinted(formats("-0", "", "u"), unsignedNumbers<unsigned>());
    expectAsPrinted(formats("-#0", "", "oxX"), unsignedNumbers<unsigned>());
    expectAsPrinted(formats("-0", "l", "u"), unsignedNumbers<unsigned long>());
    expectAsPrinted(formats("-#0", "l", "oxX"), unsignedNumbers<unsigned long>());
}

TEST(FormatNumberTest, ANegativeNumberUnderAnUnsignedConversionEqualsPrintf) {
    expectAsPrinted(formats("-#0", "", "oxX"), signedNumbers<int>());
    expectAsPrinted(formats("-0", "", "u"), signedNumbers<int>());
    expectAsPrinted(formats("-#0", "l", "oxX"), signedNumbers<long>());
}

TEST(FormatNumberTest, ANegativeNumberHasTheDigitsOfItsOwnSize) {
    EXPECT_EQ(stringWithFormat("%x", std::int8_t{-1}), "ff");
    EXPECT_EQ(stringWithFormat("%x", std::int16_t{-1}), "ffff");
    EXPECT_EQ(stringWithFormat("%x", std::int32_t{-1}), "ffffffff");
    EXPECT_EQ(stringWithFormat("%x", std::int64_t{-1}), "ffffffffffffffff");
    EXPECT_EQ(stringWithFormat("%u", std::int16_t{-2}), "65534");
    EXPECT_EQ(stringWithFormat("%02x", '\xE4'), "e4");
}

TEST(FormatNumberTest, AnUnsignedNumberUnderASignedConversionEqualsPrintf) {
    expectAsPrinted(formats("-+ 0", "", "d"), unsignedNumbers<unsigned>());
    expectAsPrinted(formats("-+ 0", "l", "d"), unsignedNumbers<unsigned long>());
    expectAsPrinted(formats("-+ 0", "", "d"), unsignedNumbers<std::uint16_t>());
    expectAsPrinted(formats("-+ 0", "", "d"), unsignedNumbers<std::uint8_t>());
}

TEST(FormatNumberTest, LengthModifiersMeanNothing) {
    for (const char* modifier : {"", "h", "hh", "l", "ll", "q", "z", "t", "j", "L"}) {
        EXPECT_EQ(stringWithFormat(std::string("%") + modifier + "d", INT64_MIN),
                  "-9223372036854775808");
        EXPECT_EQ(stringWithFormat(std::string("%") + modifier + "u", UINT64_MAX),
                  "18446744073709551615");
        EXPECT_EQ(stringWithFormat(std::string("%") + modifier + "g", 0.5), "0.5");
    }
}

TEST(FormatNumberTest, BooleansAndUnscopedEnumerationsAreNumbers) {
    enum Fruit : unsigned char { Apple = 1, Pear = 200 };

    EXPECT_EQ(stringWithFormat("%d %d", true, false), "1 0");
    EXPECT_EQ(stringWithFormat("%d %u", Apple, Pear), "1 200");
}

template <typename Real>
std::vector<Real> reals() {
    using Limits = std::numeric_limits<Real>;
    return {0,
            -Real{0},
            1,
            -1,
            Real(0.5),
            Real(1.5),
            Real(2.5),
            Real(0.1),
            Real(9.995),
            Real(99999.95),
            Real(999999.5),
            Real(123456789),
            Real(1e-4),
            Real(9.9999e-5),
            Real(1e15),
            Real(1e17),
            Real(1e21),
            Real(-3.14159265358979),
            Limits::max(),
            Limits::min(),
            Limits::denorm_min(),
            Limits::epsilon(),
            Limits::infinity(),
            -Limits::infinity(),
            Limits::quiet_NaN(),
            -Limits::quiet_NaN()};
}

TEST(FormatNumberTest, RealsEqualPrintf) {
    expectAsPrinted(formats("-+ #0", "", "fFeE"), reals<double>());
    expectAsPrinted(formats("-+ 0", "", "gG"), reals<double>());
}

// Without those that rounding lifts to another power of ten: of 999999.5 some C libraries make
// "1.e+06", where C keeps the zeros.
TEST(FormatNumberTest, ShortRealsThatKeepTheirZerosEqualPrintf) {
    expectAsPrinted(formats("-+ #0", "", "gG"),
                    std::vector<double>{0, 1, 0.5, 1.5, 0.1, 123456789, 1e-4, 1e-5, 1e15, 1e21,
                                        -3.14159265358979, DBL_MAX, DBL_MIN, HUGE_VAL});
    EXPECT_EQ(stringWithFormat("%#g", 999999.5), "1.00000e+06");
    EXPECT_EQ(stringWithFormat("%#g", 99999.951), "100000.");
}

TEST(FormatNumberTest, HexadecimalRealsEqualPrintf) {
    expectAsPrinted(formats("-+ #0", "", "aA"), reals<double>());
}

TEST(FormatNumberTest, LongRealsEqualPrintf) {
    expectAsPrinted(formats("#0", "L", "fea"), reals<long double>());
    expectAsPrinted(formats("0", "L", "g"), reals<long double>());
}

TEST(FormatNumberTest, FloatsAreWidened) {
    EXPECT_EQ(stringWithFormat("%.10g", 0.1F), printed("%.10g", static_cast<double>(0.1F)));
}

TEST(FormatNumberTest, APrecisionBeyondAnyBufferIsKept) {
    EXPECT_EQ(stringWithFormat("%.3000f", 1.0), "1." + std::string(3000, '0'));
    EXPECT_EQ(stringWithFormat("%.3000d", 1), std::string(2999, '0') + "1");
    EXPECT_EQ(stringWithFormat("%.0f", DBL_MAX), printed("%.0f", DBL_MAX));
}

TEST(FormatNumberTest, PointersEqualPrintf) {
    const int object = 0;
    const void* const pointer = &object;
    for (const char* format : {"%p", "%18p", "%-18p|", "%30p", "%3p"})
        EXPECT_EQ(stringWithFormat(format, pointer), printed(format, pointer)) << format;
}

TEST(FormatNumberTest, NoPointerIsZero) {
    EXPECT_EQ(stringWithFormat("%p", nullptr), "0x0");
    EXPECT_EQ(stringWithFormat("%6p", static_cast<const void*>(nullptr)), "   0x0");
}

}  // namespace
}  // namespace sevrin::platform
