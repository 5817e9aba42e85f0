// The calls that a coder does not offer, and the classes that archives can name.
#include "Platform/NSCoder.h"

#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kNoKeyedEncoding = "this coder does not encode under keys";
constexpr std::string_view kNoKeyedDecoding = "this coder does not decode by key";
constexpr std::string_view kNoSequentialEncoding = "this coder does not encode in sequence";
constexpr std::string_view kNoSequentialDecoding = "this coder does not decode in sequence";

}  // namespace

NSCoder::~NSCoder() = default;

void NSCoder::encodeObjectForKey(const Value&, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedEncoding);
}

void NSCoder::encodeInt32ForKey(std::int32_t, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedEncoding);
}

void NSCoder::encodeInt64ForKey(std::int64_t, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedEncoding);
}

ObjectPtr NSCoder::decodeObjectOfClassForKey(const Class&, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return nullptr;
}

std::int32_t NSCoder::decodeInt32ForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return 0;
}

std::int64_t NSCoder::decodeInt64ForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return 0;
}

void NSCoder::encodeObject(const Value&) {
    SEVRIN_ASSERT(false, kNoSequentialEncoding);
}

void NSCoder::encodeUnsignedInt32(std::uint32_t) {
    SEVRIN_ASSERT(false, kNoSequentialEncoding);
}

Value NSCoder::decodeObject() {
    SEVRIN_ASSERT(false, kNoSequentialDecoding);
    return {};
}

std::uint32_t NSCoder::decodeUnsignedInt32() {
    SEVRIN_ASSERT(false, kNoSequentialDecoding);
    return 0;
}

NSCodingClass::NSCodingClass(std::string name, Class* superclass, InitWithCoder init,
                             MethodTable instanceMethods, MethodTable classMethods)
    : Class(std::move(name), superclass, std::move(instanceMethods), std::move(classMethods)),
      initWithCoder_(init) {}

const NSCodingClass* NSCodingClass::named(std::string_view name) {
    return dynamic_cast<const NSCodingClass*>(Class::named(name));
}

}  // namespace sevrin::platform
