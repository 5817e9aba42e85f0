// Values in order: written one after the other, objects nested in place.
#include "Platform/SequentialCoder.h"

#include <utility>

#include "Platform/Assertion.h"
#include "Platform/NSException.h"

namespace sevrin::platform {

namespace {

// Numbers of every kind; keyed archives have no class for them.
constexpr std::string_view kNumberName = "NSNumber";

// Counts one level of nesting for as long as it lives.
class Level {
public:
    explicit Level(std::size_t& depth) : depth_(depth) { ++depth_; }
    Level(const Level&) = delete;
    Level& operator=(const Level&) = delete;
    ~Level() { --depth_; }

private:
    std::size_t& depth_;
};

// The class of a value that is no object; text without a meaning for the others.
std::string_view foundationClassOf(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Boolean:
        case Value::Kind::Signed:
        case Value::Kind::Unsigned:
        case Value::Kind::Double:
            return kNumberName;
        case Value::Kind::String:
            return "NSString";
        case Value::Kind::Data:
            return "NSData";
        case Value::Kind::Date:
            return "NSDate";
        case Value::Kind::Array:
            return "NSArray";
        case Value::Kind::Dictionary:
            return "NSDictionary";
        case Value::Kind::Set:
            return "NSSet";
        case Value::Kind::Null:
        case Value::Kind::Object:
            break;
    }
    return {};
}

}  // namespace

void SequentialEncoder::encodeObject(const Value& object) {
    if (object.isNull()) {
        values_.emplace_back();
        return;
    }
    if (depth_ == kSequentialDepthMax) {
        NSException::raiseFormat(NSInvalidArgumentException, "objects nested too deep to encode");
    }
    const Level level(depth_);
    const ObjectPtr instance = object.object();
    if (!instance) {
        values_.emplace_back(foundationClassOf(object));
        encodeMembers(object);
        return;
    }
    const auto* coding = dynamic_cast<const NSCoding*>(instance.get());
    SEVRIN_ASSERT(coding != nullptr, "a sequential coder takes objects that can be archived");
    if (const std::optional<Value> other = coding->replacementObjectForCoder(*this)) {
        encodeObject(*other);
        return;
    }
    values_.emplace_back(instance->isa().name());
    coding->encodeWithCoder(*this);
}

void SequentialEncoder::encodeMembers(const Value& container) {
    if (const Dictionary* dictionary = container.ifDictionary()) {
        values_.emplace_back(dictionary->size());
        for (const auto& [key, value] : *dictionary) {
            encodeObject(key);
            encodeObject(value);
        }
        return;
    }
    const ValueArray* const members =
        container.ifSet() ? &container.ifSet()->members() : container.ifArray();
    if (members == nullptr) {
        values_.push_back(container);
        return;
    }
    values_.emplace_back(members->size());
    for (const Value& member : *members)
        encodeObject(member);
}

void SequentialEncoder::encodeUnsignedInt32(std::uint32_t number) {
    values_.emplace_back(number);
}

void SequentialEncoder::encodeBytes(std::string_view bytes) {
    values_.emplace_back(Data{std::string(bytes)});
}

SequentialDecoder::SequentialDecoder(std::vector<Value> values) : values_(std::move(values)) {}

Value SequentialDecoder::decodeObject() {
    const Value& next = takeNext();
    if (next.isNull()) return {};
    if (next.ifString() == nullptr) failDecoding("expected an object");
    if (depth_ == kSequentialDepthMax) failDecoding("objects nested too deep");
    const Level level(depth_);

    const std::string& name = *next.ifString();
    if (name == kNumberName) {
        Value number = takeNext();
        if (foundationClassOf(number) != kNumberName) failDecoding("expected a number");
        return number;
    }
    if (const auto foundation = foundationClassNamed(name)) {
        return decodeFoundationObject(*foundation);
    }
    const NSCodingClass* const found = NSCodingClass::named(name);
    if (found == nullptr) failDecoding("cannot decode object of class (" + name + ")");
    return found->initWithCoder(*this);
}

Value SequentialDecoder::decodeFoundationObject(FoundationClass foundation) {
    switch (foundation) {
        case FoundationClass::Array:
            return decodeMembers(1);
        case FoundationClass::Set:
            return Set(decodeMembers(1));
        case FoundationClass::Dictionary:
            return decodeEntries();
        case FoundationClass::String:
        case FoundationClass::Data:
        case FoundationClass::Date:
            break;
        default:
            failDecoding("cannot decode an object of this class in sequence");
    }
    Value content = takeNext();
    if (foundationClassNamed(foundationClassOf(content)) != foundation) {
        failDecoding("a value of the wrong kind");
    }
    return content;
}

// The count and that many times `valuesEach` objects. There cannot be more of them than values; not
// even so many are made room for, since each of the containers around may claim them.
ValueArray SequentialDecoder::decodeMembers(std::size_t valuesEach) {
    const std::uint64_t count = decodeUnsignedInt32() * std::uint64_t{valuesEach};
    if (count > values_.size() - position_) failDecoding("more members than values");
    ValueArray members;
    for (std::uint64_t place = 0; place < count; ++place)
        members.push_back(decodeObject());
    return members;
}

Dictionary SequentialDecoder::decodeEntries() {
    ValueArray members = decodeMembers(2);
    std::vector<Dictionary::Entry> entries;
    entries.reserve(members.size() / 2);
    for (std::size_t place = 0; place < members.size(); place += 2)
        entries.emplace_back(std::move(members[place]), std::move(members[place + 1]));
    const std::size_t count = entries.size();
    Dictionary dictionary = Dictionary::fromEntries(std::move(entries));
    if (dictionary.size() != count) failDecoding("a key that stands twice");
    return dictionary;
}

std::uint32_t SequentialDecoder::decodeUnsignedInt32() {
    const Value& next = takeNext();
    const std::int64_t* const number = next.ifSigned();
    if (number == nullptr || !std::in_range<std::uint32_t>(*number)) {
        failDecoding("expected an unsigned 32-bit number");
    }
    return static_cast<std::uint32_t>(*number);
}

std::string_view SequentialDecoder::decodeBytes() {
    const Data* const data = takeNext().ifData();
    if (data == nullptr) failDecoding("expected bytes");
    return data->bytes;
}

void SequentialDecoder::failDecoding(std::string_view what) {
    NSException::raiseFormat(NSInvalidUnarchiveOperationException,
                             "*** -[NSCoder decodeObject]: %@ at value %zu of the sequence", what,
                             position_);
}

const Value& SequentialDecoder::takeNext() {
    if (position_ == values_.size()) failDecoding("the sequence ends too early");
    return values_[position_++];
}

}  // namespace sevrin::platform
