// What the copies of one exception share: its fields, its description, its archived form.
#include "Platform/ExceptionObject.h"

#include <functional>
#include <utility>

#include "Platform/NSException.h"

namespace sevrin::platform {

ExceptionObject::ExceptionObject(std::string name, std::optional<std::string> reason,
                                 std::optional<Dictionary> userInfo)
    : name_(std::move(name)), reason_(std::move(reason)), userInfo_(std::move(userInfo)) {}

ExceptionObject::~ExceptionObject() {
    forgetDescription();
}

Class& ExceptionObject::classObject() {
    static Class theClass("NSException", &Object::classObject(), {});
    return theClass;
}

const Dictionary& ExceptionObject::userInfo() const {
    static const Dictionary& theEmpty = *new Dictionary;
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
    if (!userInfo_) userInfo_.emplace();
    userInfo_->set(std::move(key), std::move(value));
}

void ExceptionObject::setCallStackReturnAddresses(std::vector<std::uintptr_t> addresses) {
    if (returnAddresses_.empty()) returnAddresses_ = std::move(addresses);
}

void ExceptionObject::throwHandle() {
    throw NSException(shared_from_this());
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
    delete description_.exchange(nullptr, std::memory_order_acq_rel);
}

std::string ExceptionObject::description() const {
    return reason_ ? *reason_ : name_;
}

void ExceptionObject::encodeWithCoder(NSCoder& coder) const {
    coder.encodeObjectForKey(name_, "NS.name");
    coder.encodeObjectForKey(reason_ ? Value(*reason_) : Value(), "NS.reason");
    coder.encodeObjectForKey(userInfo_ ? Value(*userInfo_) : Value(), "NS.userinfo");
}

Class& ExceptionReference::classObject() {
    static Class theClass("ExceptionReference", &Object::classObject(), {});
    return theClass;
}

std::string ExceptionReference::description() const {
    const ExceptionObjectPtr found = exception();
    return found ? found->description() : "(null)";
}

bool ExceptionReference::isEqual(const Object& other) const {
    const auto* reference = dynamic_cast<const ExceptionReference*>(&other);
    return reference != nullptr && !exception_.owner_before(reference->exception_) &&
           !reference->exception_.owner_before(exception_);
}

std::size_t ExceptionReference::hash() const {
    return std::hash<const Object*>{}(exception().get());
}

ExceptionObjectPtr exceptionObjectOf(const Value& value) {
    const ObjectPtr object = value.object();
    if (const auto* reference = dynamic_cast<const ExceptionReference*>(object.get())) {
        return reference->exception();
    }
    return std::dynamic_pointer_cast<ExceptionObject>(object);
}

}  // namespace sevrin::platform
