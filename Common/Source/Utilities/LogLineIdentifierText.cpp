// An identifier as text and as an archive, in both directions.
#include <charconv>
#include <utility>

#include "Common/Source/Utilities/LogLineIdentifier.h"
#include "Platform/Text.h"

namespace sevrin {

using platform::NSCoder;
using platform::NSCodingClass;

namespace {

// Deeper lines keep no text for their children: each level's would be longer by a number, and all
// together grow with the square of the depth.
constexpr std::uint64_t kDepthWithPrefixMax = 32;

constexpr std::size_t kDigitsMax = 20;  // Of a 64-bit number.

std::size_t digitsOf(std::uint64_t number) {
    std::size_t digits = 1;
    for (; number >= 10; number /= 10)
        ++digits;
    return digits;
}

// Registered with the program, not on first use: an archive may name the class before any line was
// logged.
[[maybe_unused]] const platform::Class& registeredClass = LogLineIdentifier::classObject();

}  // namespace

void LogLineIdentifier::appendIdentifierToString(std::string& text) const {
    const std::size_t sizeMax = keptSizeMax();
    if (sizeMax == 0) {
        appendPath(text);
        return;
    }
    const std::size_t start = text.size();
    text.resize(start + sizeMax);
    text.resize(static_cast<std::size_t>(writeKept(text.data() + start) - text.data()));
}

std::size_t LogLineIdentifier::keptSizeMax() const {
    const std::string* const prefix = parent_ ? parent_->childPrefix() : nullptr;
    return prefix == nullptr ? 0 : prefix->size() + kDigitsMax;
}

char* LogLineIdentifier::writeKept(char* out) const {
    const std::string& prefix = *parent_->childPrefix_.load(std::memory_order_acquire);
    out += prefix.copy(out, prefix.size());
    return std::to_chars(out, out + kDigitsMax, sequence_).ptr;
}

std::string LogLineIdentifier::description() const {
    std::string text;
    text.reserve(32);
    appendIdentifierToString(text);
    return text;
}

// The kept text, made now if it is worth it; nullptr when it is not.
const std::string* LogLineIdentifier::childPrefix() const {
    if (const std::string* made = childPrefix_.load(std::memory_order_acquire)) return made;
    if (count() < 2 || depth_ > kDepthWithPrefixMax) return nullptr;

    auto prefix = std::make_unique<std::string>();
    appendPath(*prefix);
    *prefix += '.';
    const std::string* expected = nullptr;
    if (childPrefix_.compare_exchange_strong(expected, prefix.get(), std::memory_order_acq_rel)) {
        return prefix.release();
    }
    return expected;  // Another thread was faster, with the same text.
}

// Up the chain once to learn how long the text is, once more to write it from its end; both times
// as far as the first ancestor whose text is known.
void LogLineIdentifier::appendPath(std::string& text) const {
    std::size_t length = 0;
    const std::string* known = nullptr;
    const LogLineIdentifier* stop = this;
    for (; stop != nullptr; stop = stop->parent_.get()) {
        if (stop != this) {
            known = stop->childPrefix_.load(std::memory_order_acquire);
            if (known != nullptr) break;
            ++length;  // The point.
        }
        length += digitsOf(stop->sequence_);
    }
    if (known != nullptr) text += *known;

    text.resize(text.size() + length);
    char* end = text.data() + text.size();
    for (const LogLineIdentifier* walk = this; walk != stop; walk = walk->parent_.get()) {
        if (walk != this) *--end = '.';
        const std::size_t digits = digitsOf(walk->sequence_);
        end -= digits;
        std::to_chars(end, end + digits, walk->sequence_);
    }
}

LogLineIdentifierPtr LogLineIdentifier::logLineIdentifierFromString(std::string_view text) {
    LogLineIdentifierPtr identifier;
    std::uint64_t value = 0;
    std::size_t position = 0;
    const auto addUnit = [&value](std::uint64_t unit) { value = value * 10 + (unit - '0'); };
    while (position < text.size()) {
        const auto byte = static_cast<unsigned char>(text[position]);
        if (byte == '.') {
            identifier = initExtendingWithID(std::move(identifier), value);
            value = 0;
            ++position;
            continue;
        }
        const char32_t character = platform::decodeUtf8(text, position);
        if (character == platform::kInvalidUtf8) {
            addUnit(byte);
        } else if (character <= 0xFFFF) {
            addUnit(character);
        } else {  // Two UTF-16 units.
            addUnit(0xD7C0 + (character >> 10));
            addUnit(0xDC00 + (character & 0x3FF));
        }
    }
    const bool endsInPoint = text.ends_with('.');
    if (text.empty() || endsInPoint) return identifier;
    return initExtendingWithID(std::move(identifier), value);
}

platform::Class& LogLineIdentifier::classObject() {
    static NSCodingClass& theClass =
        *new NSCodingClass("LogLineIdentifier", &platform::Object::classObject(),
                           [](NSCoder& coder) -> platform::ObjectPtr {
                               return LogLineIdentifier::initWithCoder(coder);
                           });
    return theClass;
}

void LogLineIdentifier::encodeWithCoder(NSCoder& coder) const {
    if (coder.allowsKeyedCoding()) {
        coder.encodeObjectForKey(parent_, "parent");
        coder.encodeInt32ForKey(classifications(), "classmap");
        coder.encodeInt64ForKey(static_cast<std::int64_t>(sequence_), "seq");
        coder.encodeInt64ForKey(static_cast<std::int64_t>(count()), "subseq");
        return;
    }
    coder.encodeObject(parent_);
    coder.encodeUnsignedInt32(classifications());
    coder.encodeUnsignedInt32(static_cast<std::uint32_t>(sequence_));
    coder.encodeUnsignedInt32(static_cast<std::uint32_t>(count()));
}

LogLineIdentifierPtr LogLineIdentifier::initWithCoder(NSCoder& coder) {
    const bool keyed = coder.allowsKeyedCoding();
    const platform::ObjectPtr parent =
        keyed ? coder.decodeObjectOfClassForKey(classObject(), "parent")
              : coder.decodeObject().object();
    const auto classmap = keyed ? static_cast<std::uint32_t>(coder.decodeInt32ForKey("classmap"))
                                : coder.decodeUnsignedInt32();
    const auto sequence = keyed ? static_cast<std::uint64_t>(coder.decodeInt64ForKey("seq"))
                                : coder.decodeUnsignedInt32();
    const auto subsequence = keyed ? static_cast<std::uint64_t>(coder.decodeInt64ForKey("subseq"))
                                   : coder.decodeUnsignedInt32();

    auto enclosing = std::dynamic_pointer_cast<LogLineIdentifier>(parent);
    if (parent && !enclosing) coder.failDecoding("a log line lies in something else");
    const LogLineIdentifierPtr identifier = initExtendingWithID(std::move(enclosing), sequence);
    identifier->classifications_ = static_cast<std::uint16_t>(classmap);
    identifier->subsequence_ = subsequence;
    return identifier;
}

}  // namespace sevrin
