// What the copies of one exception share: its fields, its description, its archived form.
#include "Platform/ExceptionObject.h"

#include <array>
#include <functional>
#include <utility>

#include "Platform/Assertion.h"
#include "Platform/CallStack.h"
#include "Platform/DeferredRelease.h"
#include "Platform/NSException.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kNameKey = "NS.name";
constexpr std::string_view kReasonKey = "NS.reason";
constexpr std::string_view kUserInfoKey = "NS.userinfo";

Value valueOf(const std::optional<std::string>& text) {
    return text ? Value(*text) : Value();
}

// Archives know the class before the program has made an exception.
[[maybe_unused]] const Class& theRegisteredClass = ExceptionObject::classObject();

}  // namespace

ExceptionObject::ExceptionObject(std::string name, std::optional<std::string> reason,
                                 std::optional<Dictionary> userInfo)
    : name_(std::move(name)), reason_(std::move(reason)), userInfo_(std::move(userInfo)) {}

ExceptionObject::~ExceptionObject() {
    forgetDescription();
    if (userInfo_) releaseWithoutRecursion(std::move(*userInfo_));
    releaseWithoutRecursion(std::move(decodedInfo_));
}

Class& ExceptionObject::classObject() {
    static NSCodingClass& theClass =
        *new NSCodingClass("NSException", &Object::classObject(), stepsFor<ExceptionObject>());
    return theClass;
}

const Dictionary& ExceptionObject::userInfo() const {
    static const Dictionary& theEmpty = *new Dictionary;
    if (const Dictionary* const decoded = decodedInfo_.ifDictionary()) return *decoded;
    return userInfo_ ? *userInfo_ : theEmpty;
}

void ExceptionObject::setUserInfoValueForKey(Value value, Value key) {
    if (key.isNull()) {
        NSException::raiseFormat(NSInvalidArgumentException,
                                 "an exception's user info has no null key");
    }
    forgetDescription();
    if (value.object().get() == this)
        value = std::make_shared<ExceptionReference>(shared_from_this());
    if (const Dictionary* const decoded = decodedInfo_.ifDictionary()) {
        userInfo_ = *decoded;
        decodedInfo_ = Value();
    }
    ensureUserInfo();
    userInfo_->set(std::move(key), std::move(value));
}

void ExceptionObject::ensureUserInfo() {
    if (!hasUserInfo()) userInfo_.emplace();
}

void ExceptionObject::setCallStackReturnAddresses(std::vector<std::uintptr_t> addresses) {
    if (returnAddresses_.empty()) returnAddresses_ = std::move(addresses);
}

void ExceptionObject::recordCallStack() {
    if (!returnAddresses_.empty()) return;
    std::array<std::uintptr_t, kCallStackMax> addresses;
    const std::size_t count = captureCallStack(addresses);
    returnAddresses_.assign(addresses.begin(), addresses.begin() + count);
}

void ExceptionObject::throwHandle() {
    throw NSException(*this);
}

// Of several threads that ask at once, one keeps its text; the others let theirs go.
const char* ExceptionObject::what() const noexcept {
    if (const std::string* known = description_.load(std::memory_order_acquire)) {
        return known->c_str();
    }
    try {
        auto fresh = std::make_unique<const std::string>(description());
        const std::string* known = nullptr;
        if (description_.compare_exchange_strong(known, fresh.get(), std::memory_order_acq_rel)) {
            return fresh.release()->c_str();
        }
        return known->c_str();
    } catch (...) {
        return name_.c_str();
    }
}

void ExceptionObject::forgetDescription() noexcept {
    if (description_.load(std::memory_order_relaxed) == nullptr) return;
    delete description_.exchange(nullptr, std::memory_order_acq_rel);
}

std::string ExceptionObject::description() const {
    return reason_ ? *reason_ : name_;
}

void ExceptionObject::encodeWithCoder(NSCoder& coder) const {
    const Value info = hasUserInfo() ? Value(userInfo()) : Value();
    if (coder.allowsKeyedCoding()) {
        coder.encodeObjectForKey(name_, kNameKey);
        coder.encodeObjectForKey(valueOf(reason_), kReasonKey);
        encodeUserInfoForKey(coder, info, kUserInfoKey);
    } else {
        coder.encodeObject(name_);
        coder.encodeObject(valueOf(reason_));
        coder.encodeObject(info);
    }
}

void ExceptionObject::encodeUserInfoForKey(NSCoder& coder, const Value& info,
                                           std::string_view key) const {
    coder.encodeObjectForKey(info, key);
}

void ExceptionObject::readFromCoder(NSCoder& coder) {
    const bool hasKeys = coder.allowsKeyedCoding() && (coder.containsValueForKey(kNameKey) ||
                                                       coder.containsValueForKey(kReasonKey) ||
                                                       coder.containsValueForKey(kUserInfoKey));
    const auto next = [&](std::string_view key) {
        return hasKeys ? coder.decodeObjectForKey(key) : coder.decodeObject();
    };
    const Value name = next(kNameKey);
    const Value reason = next(kReasonKey);
    Value info = next(kUserInfoKey);
    if (!name.isNull() && name.ifString() == nullptr) {
        coder.failDecoding("the name of an exception is no text");
    }
    if (!reason.isNull() && reason.ifString() == nullptr) {
        coder.failDecoding("the reason of an exception is no text");
    }
    if (!info.isNull() && info.ifDictionary() == nullptr) {
        coder.failDecoding("the user info of an exception is no dictionary");
    }
    forgetDescription();
    name_ = name.isNull() ? std::string(NSGenericException) : *name.ifString();
    reason_ = reason.isNull() ? std::nullopt : std::optional(*reason.ifString());
    userInfo_.reset();
    decodedInfo_ = std::move(info);
}

bool ExceptionObject::isEqual(const Object& other) const {
    return this == &other ||
           (dynamic_cast<const ExceptionReference*>(&other) != nullptr && other.isEqual(*this));
}

ObjectPtr ExceptionObject::referenceTo(const ObjectPtr& exception) {
    return std::make_shared<ExceptionReference>(
        std::dynamic_pointer_cast<ExceptionObject>(exception));
}

Class& ExceptionReference::classObject() {
    static Class& theClass = *new Class("ExceptionReference", &Object::classObject(), {});
    return theClass;
}

std::string ExceptionReference::description() const {
    const ExceptionObjectPtr found = exception();
    return found ? found->description() : "(null)";
}

bool ExceptionReference::isEqual(const Object& other) const {
    std::weak_ptr<const ExceptionObject> theirs;
    if (const auto* reference = dynamic_cast<const ExceptionReference*>(&other)) {
        theirs = reference->exception_;
    } else if (const auto* exception = dynamic_cast<const ExceptionObject*>(&other)) {
        theirs = exception->weak_from_this();
    } else {
        return false;
    }
    return !exception_.owner_before(theirs) && !theirs.owner_before(exception_);
}

std::optional<Value> ExceptionReference::replacementObjectForCoder(NSCoder&) const {
    return Value(exception());
}

void ExceptionReference::encodeWithCoder(NSCoder&) const {
    SEVRIN_ASSERT(false, "a reference is archived as its exception");
}

ExceptionObjectPtr exceptionObjectOf(const Value& value) {
    const ObjectPtr object = value.object();
    if (const auto* reference = dynamic_cast<const ExceptionReference*>(object.get())) {
        return reference->exception();
    }
    return std::dynamic_pointer_cast<ExceptionObject>(object);
}

}  // namespace sevrin::platform
