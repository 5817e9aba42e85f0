// The calls that a coder does not offer, and the classes that archives can name.
#include "Platform/NSCoder.h"

#include <utility>

#include "Platform/Assertion.h"
#include "Platform/NSException.h"

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

void NSCoder::encodeBoolForKey(bool, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedEncoding);
}

void NSCoder::encodeDoubleForKey(double, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedEncoding);
}

void NSCoder::encodeBytesForKey(std::string_view, std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedEncoding);
}

void NSCoder::encodeMutableObjectForKey(const Value& object, std::string_view key) {
    encodeObjectForKey(object, key);
}

bool NSCoder::containsValueForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return false;
}

Value NSCoder::decodeObjectForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return {};
}

Value NSCoder::decodePropertyListForKey(std::string_view key) {
    return decodeObjectForKey(key);
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

bool NSCoder::decodeBoolForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return false;
}

double NSCoder::decodeDoubleForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return 0;
}

std::optional<std::string_view> NSCoder::decodeBytesForKey(std::string_view) {
    SEVRIN_ASSERT(false, kNoKeyedDecoding);
    return {};
}

void NSCoder::encodeObject(const Value&) {
    SEVRIN_ASSERT(false, kNoSequentialEncoding);
}

void NSCoder::encodeUnsignedInt32(std::uint32_t) {
    SEVRIN_ASSERT(false, kNoSequentialEncoding);
}

void NSCoder::encodeBytes(std::string_view) {
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

std::string_view NSCoder::decodeBytes() {
    SEVRIN_ASSERT(false, kNoSequentialDecoding);
    return {};
}

void NSCoder::failDecoding(std::string_view what) {
    NSException::raiseFormat(NSInvalidUnarchiveOperationException, "*** -[NSCoder]: %@", what);
}

std::optional<Value> NSCoding::replacementObjectForCoder(NSCoder&) const {
    return std::nullopt;
}

NSCodingClass::NSCodingClass(std::string name, Class* superclass, InitWithCoder init,
                             MethodTable instanceMethods, MethodTable classMethods)
    : Class(std::move(name), superclass, std::move(instanceMethods), std::move(classMethods)),
      initWithCoder_(init) {}

NSCodingClass::NSCodingClass(std::string name, Class* superclass, TwoSteps steps,
                             MethodTable instanceMethods, MethodTable classMethods)
    : Class(std::move(name), superclass, std::move(instanceMethods), std::move(classMethods)),
      twoSteps_(steps) {}

ObjectPtr NSCodingClass::initWithCoder(NSCoder& coder) const {
    if (!twoSteps_) return initWithCoder_(coder);
    ObjectPtr instance = twoSteps_->allocate();
    twoSteps_->fill(*instance, coder);
    return instance;
}

const NSCodingClass* NSCodingClass::named(std::string_view name) {
    return dynamic_cast<const NSCodingClass*>(Class::named(name));
}

}  // namespace sevrin::platform
