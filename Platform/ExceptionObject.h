// What the copies of one exception share: its name, its reason, its user info, and where it was
// raised.
//
// It is the exception as an object: it has a class, may stand as a value among the details of
// another exception, and can be archived. NSException (Platform/NSException.h) is the handle by
// which it is thrown and caught. Used by one thread at a time, except that any number of threads
// may read it while none changes it.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Class.h"
#include "Platform/NSCoder.h"
#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin::platform {

class ExceptionObject;
using ExceptionObjectPtr = std::shared_ptr<ExceptionObject>;

class ExceptionObject : public Object,
                        public NSCoding,
                        public std::enable_shared_from_this<ExceptionObject> {
public:
    // An exception may have no reason and no user info, which differs from an empty one in
    // archives only.
    ExceptionObject() = default;
    ExceptionObject(std::string name, std::optional<std::string> reason,
                    std::optional<Dictionary> userInfo);
    ~ExceptionObject() override;

    // The class "NSException".
    [[nodiscard]] static Class& classObject();

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::optional<std::string>& reason() const { return reason_; }

    // Empty when there is none. Valid until it is changed.
    [[nodiscard]] const Dictionary& userInfo() const;
    [[nodiscard]] bool hasUserInfo() const {
        return userInfo_.has_value() || !decodedInfo_.isNull();
    }

    // Stores `value` under `key` in the user info, replacing what was there. An exception may be
    // its own detail: it is then kept in a way that does not keep it alive for ever. Raises
    // NSInvalidArgumentException for a null key.
    void setUserInfoValueForKey(Value value, Value key);

    // Where it was raised first, innermost first; empty before.
    [[nodiscard]] const std::vector<std::uintptr_t>& callStackReturnAddresses() const {
        return returnAddresses_;
    }
    // Keeps the addresses, unless it has some: those given, or those from the
    // caller outward.
    void setCallStackReturnAddresses(std::vector<std::uintptr_t> addresses);
    [[gnu::noinline]] void recordCallStack();

    // Throws the handle of this class on this object, which is how a caught handle has the right
    // type whatever the type of the one that raised it. Records nothing.
    [[noreturn]] virtual void throwHandle();

    // The description as a C string, made once for each state of the exception; the name when it
    // cannot be made. Valid until the exception is changed.
    [[nodiscard]] const char* what() const noexcept;

    [[nodiscard]] const Class& isa() const override { return classObject(); }

    // The reason; the name when there is none.
    [[nodiscard]] std::string description() const override;

    // Equal to itself and to what refers to it (ExceptionReference).
    [[nodiscard]] bool isEqual(const Object& other) const override;

    // Keyed or in sequence: name, reason and user info, each present even when null. The return
    // addresses stay here: they mean nothing in another process.
    void encodeWithCoder(NSCoder& coder) const override;

    // Takes the place of what is here by what encodeWithCoder() wrote, or by what a writer without
    // keys did. An exception without a name gets NSGenericException. Throws what the coder throws.
    virtual void readFromCoder(NSCoder& coder);

    // How the classes of exceptions are decoded, which may stand in their own user info.
    template <typename Type>
    [[nodiscard]] static NSCodingClass::TwoSteps stepsFor() {
        return {[]() -> ObjectPtr { return std::make_shared<Type>(); },
                [](Object& instance, NSCoder& coder) {
                    static_cast<Type&>(instance).readFromCoder(coder);
                },
                &referenceTo};
    }

protected:
    // How the user info, or null, is written; here as a dictionary that does not change.
    virtual void encodeUserInfoForKey(NSCoder& coder, const Value& info,
                                      std::string_view key) const;

    // Has an empty user info where there is none. For subclasses that always have one.
    void ensureUserInfo();

    // Has what() ask for the description again. For subclasses that describe more than is here.
    void forgetDescription() noexcept;

private:
    static ObjectPtr referenceTo(const ObjectPtr& exception);

    std::string name_;
    std::optional<std::string> reason_;
    std::optional<Dictionary> userInfo_;
    Value decodedInfo_;  // in place of that one as long as nobody changes it: shared with its coder
    std::vector<std::uintptr_t> returnAddresses_;
    mutable std::atomic<const std::string*> description_ = nullptr;
};

// Stands for an exception where holding it would make it hold itself: among its own details, or in
// what lies below them. Describes itself as the exception does and is archived as that exception;
// afterwards, when the exception is gone, as null.
class ExceptionReference final : public Object, public NSCoding {
public:
    explicit ExceptionReference(const ExceptionObjectPtr& exception)
        : exception_(exception), hash_(exception ? exception->hash() : 0) {}

    // nullptr when it is gone.
    [[nodiscard]] ExceptionObjectPtr exception() const { return exception_.lock(); }

    // The class "ExceptionReference".
    [[nodiscard]] static Class& classObject();
    [[nodiscard]] const Class& isa() const override { return classObject(); }

    [[nodiscard]] std::string description() const override;

    // Equal to the exception and to other references to it: whatever holds the one or the other
    // says the same. That stays so when it is gone.
    [[nodiscard]] bool isEqual(const Object& other) const override;
    [[nodiscard]] std::size_t hash() const override { return hash_; }

    [[nodiscard]] std::optional<Value> replacementObjectForCoder(NSCoder& coder) const override;

    // Never called: another object is archived.
    void encodeWithCoder(NSCoder& coder) const override;

private:
    const std::weak_ptr<ExceptionObject> exception_;
    const std::size_t hash_;
};

// The exception that a value holds, itself or by reference; nullptr when it holds none.
[[nodiscard]] ExceptionObjectPtr exceptionObjectOf(const Value& value);

}  // namespace sevrin::platform
