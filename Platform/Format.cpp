// Formats: reading the conversions and pairing each with its argument.
#include "Platform/Format.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "Platform/FormatConversion.h"

namespace sevrin::platform {

namespace {

using Integer = FormatArgument::Integer;

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || character == '@';
}

// One pass over one format.
class Formatter {
public:
    Formatter(std::string& out, std::string_view format, std::span<const FormatArgument> arguments)
        : out_(out), format_(format), arguments_(arguments) {}

    void run();

private:
    // Positions count from 1; an argument without one is the next in order.
    using Position = std::size_t;
    static constexpr Position kNext = 0;

    [[noreturn]] void fail(const std::string& what) const;

    [[nodiscard]] char peek() const { return cursor_ < format_.size() ? format_[cursor_] : '\0'; }
    [[nodiscard]] bool skip(char character);
    [[nodiscard]] int number();
    [[nodiscard]] Position positionBeforeDollar();
    [[nodiscard]] const FormatArgument& take(Position position);
    [[nodiscard]] int takeNumber();

    void readFlags(Conversion& conversion);
    void readWidth(Conversion& conversion);
    void readPrecision(Conversion& conversion);
    void skipLengthModifier();
    void convert();

    void checkThatAllWereTaken();

    std::string& out_;
    const std::string_view format_;
    const std::span<const FormatArgument> arguments_;
    std::size_t cursor_ = 0;
    std::size_t conversionStart_ = 0;
    std::size_t takenInOrder_ = 0;
    std::vector<bool> takenByPosition_;  // Empty as long as no position is given.
};

void Formatter::fail(const std::string& what) const {
    throw FormatError("format \"" + std::string(format_) + "\" at " +
                      std::to_string(conversionStart_) + ": " + what);
}

void Formatter::run() {
    while (cursor_ < format_.size()) {
        const std::size_t percent = std::min(format_.find('%', cursor_), format_.size());
        out_.append(format_, cursor_, percent - cursor_);
        cursor_ = percent;
        if (percent < format_.size()) convert();
    }
    checkThatAllWereTaken();
}

bool Formatter::skip(char character) {
    if (cursor_ == format_.size() || format_[cursor_] != character) return false;
    ++cursor_;
    return true;
}

// The digits at the cursor as a number; none are 0.
int Formatter::number() {
    int result = 0;
    for (; peek() >= '0' && peek() <= '9'; ++cursor_) {
        const int digit = peek() - '0';
        if (result > (std::numeric_limits<int>::max() - digit) / 10) fail("a number is too large");
        result = result * 10 + digit;
    }
    return result;
}

// Reads "3$"; leaves the cursor where it is when something else stands there.
Formatter::Position Formatter::positionBeforeDollar() {
    const std::size_t start = cursor_;
    const int position = number();
    if (cursor_ > start && skip('$')) {
        if (position == 0) fail("positions count from 1");
        return static_cast<Position>(position);
    }
    cursor_ = start;
    return kNext;
}

const FormatArgument& Formatter::take(Position position) {
    const bool isFirst = takenInOrder_ == 0 && takenByPosition_.empty();
    if (!isFirst && (position == kNext) != takenByPosition_.empty())
        fail("arguments are taken in order or by position, not both");

    const std::size_t index = position == kNext ? takenInOrder_ : position - 1;
    if (index >= arguments_.size()) {
        fail("argument " + std::to_string(index + 1) + " is wanted of " +
             std::to_string(arguments_.size()));
    }
    if (position == kNext) {
        ++takenInOrder_;
    } else {
        takenByPosition_.resize(arguments_.size());
        takenByPosition_[index] = true;
    }
    return arguments_[index];
}

// The argument of a `*`, which may have a position behind it.
int Formatter::takeNumber() {
    const FormatArgument& argument = take(positionBeforeDollar());
    const auto* integer = std::get_if<Integer>(&argument.content());
    if (!integer) fail(std::string("* takes an integer, not ") + nameOf(argument));
    const auto value = static_cast<std::int64_t>(integer->bits);
    if (!std::in_range<int>(value) || (value < 0 && !integer->isSigned))
        fail("a number is too large");
    return static_cast<int>(value);
}

void Formatter::readFlags(Conversion& conversion) {
    for (;; ++cursor_) {
        switch (peek()) {
            case '-':
                conversion.isLeftAligned = true;
                break;
            case '+':
                conversion.hasPlus = true;
                break;
            case ' ':
                conversion.hasBlank = true;
                break;
            case '#':
                conversion.isAlternate = true;
                break;
            case '0':
                conversion.hasZeros = true;
                break;
            case '\'':  // Groups digits as the locale does: here, not at all.
                break;
            default:
                return;
        }
    }
}

void Formatter::readWidth(Conversion& conversion) {
    if (!skip('*')) {
        conversion.width = static_cast<std::size_t>(number());
        return;
    }
    const std::int64_t width = takeNumber();
    if (width < 0) conversion.isLeftAligned = true;
    conversion.width = static_cast<std::size_t>(width < 0 ? -width : width);
}

void Formatter::readPrecision(Conversion& conversion) {
    if (!skip('.')) return;
    const int precision = skip('*') ? takeNumber() : number();
    if (precision >= 0) conversion.precision = precision;
}

void Formatter::skipLengthModifier() {
    const char modifier = peek();
    if (modifier == '\0' || std::string_view("hlqztjL").find(modifier) == std::string_view::npos)
        return;
    ++cursor_;
    if (modifier == 'h' || modifier == 'l') static_cast<void>(skip(modifier));
}

// Writes the conversion whose percent sign is at the cursor.
void Formatter::convert() {
    conversionStart_ = cursor_++;
    if (skip('%')) {
        out_ += '%';
        return;
    }

    Conversion conversion;
    Position position = kNext;
    if (!isLetter(peek())) {  // Most conversions are nothing but their letter.
        position = positionBeforeDollar();
        readFlags(conversion);
        readWidth(conversion);
        readPrecision(conversion);
    }
    skipLengthModifier();
    if (cursor_ == format_.size()) fail("the conversion has no end");
    conversion.letter = format_[cursor_++];
    constexpr std::string_view kLetters = "@sduxXicofFeEgGaAp";
    if (kLetters.find(conversion.letter) == std::string_view::npos)
        fail(std::string("there is no conversion ") + conversion.letter);
    const FormatArgument& argument = take(position);
    if (const char* wanted = appendArgument(out_, conversion, argument))
        fail(std::string("%") + conversion.letter + " takes " + wanted + ", not " +
             nameOf(argument));
}

void Formatter::checkThatAllWereTaken() {
    conversionStart_ = format_.size();
    for (std::size_t i = 0; i < arguments_.size(); ++i) {
        if (takenByPosition_.empty() ? i < takenInOrder_ : takenByPosition_[i]) continue;
        fail("argument " + std::to_string(i + 1) + " of " + std::to_string(arguments_.size()) +
             " is not used");
    }
}

}  // namespace

void appendFormat(std::string& out, std::string_view format,
                  std::span<const FormatArgument> arguments) {
    const std::size_t sizeBefore = out.size();
    try {
        Formatter(out, format, arguments).run();
    } catch (...) {
        out.resize(sizeBefore);
        throw;
    }
}

}  // namespace sevrin::platform
