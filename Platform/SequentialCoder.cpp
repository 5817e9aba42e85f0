// Values in order: written one after the other, objects nested in place.
#include "Platform/SequentialCoder.h"

#include <stdexcept>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {

namespace {

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

}  // namespace

void SequentialEncoder::encodeObject(const Value& object) {
    if (object.isNull()) {
        values_.emplace_back();
        return;
    }
    const ObjectPtr instance = object.object();
    const auto* coding = dynamic_cast<const NSCoding*>(instance.get());
    SEVRIN_ASSERT(coding != nullptr, "a sequential coder takes objects that can be archived");
    if (depth_ == kSequentialDepthMax) throw std::length_error("objects nested too deep to encode");

    const Level level(depth_);
    values_.emplace_back(instance->isa().name());
    coding->encodeWithCoder(*this);
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
    if (next.ifString() == nullptr) throw std::runtime_error("expected an object in the sequence");
    const NSCodingClass* const found = NSCodingClass::named(*next.ifString());
    if (found == nullptr) {
        throw std::runtime_error("cannot decode object of class " + *next.ifString());
    }
    if (depth_ == kSequentialDepthMax) throw std::runtime_error("objects nested too deep");

    const Level level(depth_);
    return found->initWithCoder(*this);
}

std::uint32_t SequentialDecoder::decodeUnsignedInt32() {
    const Value& next = takeNext();
    const std::int64_t* const number = next.ifSigned();
    if (number == nullptr || !std::in_range<std::uint32_t>(*number)) {
        throw std::runtime_error("expected an unsigned 32-bit number in the sequence");
    }
    return static_cast<std::uint32_t>(*number);
}

std::string_view SequentialDecoder::decodeBytes() {
    const Data* const data = takeNext().ifData();
    if (data == nullptr) throw std::runtime_error("expected bytes in the sequence");
    return data->bytes;
}

const Value& SequentialDecoder::takeNext() {
    if (position_ == values_.size()) throw std::runtime_error("the sequence ends too early");
    return values_[position_++];
}

}  // namespace sevrin::platform
