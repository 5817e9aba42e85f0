// The contract between objects that can be archived and the coders that carry them.
//
// An object writes its fields into a coder and is made again from one that gives them back. A coder
// is one of four: it encodes or decodes, and it is keyed (each value under a name) or sequential
// (values in order only); an object asks allowsKeyedCoding() and uses the matching calls. A call
// that a coder does not offer is a bug of the caller. What an archive contains is not: a decoder
// throws the unarchiver's exception on it. A coder serves one thread at a time.
//
// Objects of an archive can be chained in any number. A class whose instances hold others of its
// own kind directly must be able to end a long chain without recursion.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Class.h"
#include "Platform/Object.h"
#include "Platform/Value.h"

namespace sevrin::platform {

class NSCoder {
public:
    NSCoder() = default;
    NSCoder(const NSCoder&) = delete;
    NSCoder& operator=(const NSCoder&) = delete;
    virtual ~NSCoder();

    // Whether the keyed calls are the ones to use.
    [[nodiscard]] virtual bool allowsKeyedCoding() const = 0;

    // Keyed encoding: stores the value under `key`, once per object. An object must be NSCoding.
    virtual void encodeObjectForKey(const Value& object, std::string_view key);
    virtual void encodeInt32ForKey(std::int32_t number, std::string_view key);
    virtual void encodeInt64ForKey(std::int64_t number, std::string_view key);
    virtual void encodeBoolForKey(bool value, std::string_view key);
    virtual void encodeDoubleForKey(double number, std::string_view key);

    // Stores exactly these bytes, within the object instead of beside it.
    virtual void encodeBytesForKey(std::string_view bytes, std::string_view key);

    // As encodeObjectForKey() for a dictionary, array, set, text or data that its owner changes:
    // readers elsewhere get an instance of the mutable class, as an exception's details are.
    virtual void encodeMutableObjectForKey(const Value& object, std::string_view key);

    // Whether anything, nil included, stands under `key`.
    [[nodiscard]] virtual bool containsValueForKey(std::string_view key);

    // Keyed decoding. A key that is absent gives no object, 0, false or no bytes. Throws when
    // something of another class or kind stands under it, or a number too wide for the call.
    //
    // decodeObjectForKey() gives any object: text, numbers and containers as values of their kind,
    // nil as null. decodePropertyListForKey() takes besides an object also a property list that
    // stands within the object itself. The bytes are valid as long as the coder.
    [[nodiscard]] virtual Value decodeObjectForKey(std::string_view key);
    [[nodiscard]] virtual Value decodePropertyListForKey(std::string_view key);
    [[nodiscard]] virtual ObjectPtr decodeObjectOfClassForKey(const Class& expected,
                                                              std::string_view key);
    [[nodiscard]] virtual std::int32_t decodeInt32ForKey(std::string_view key);
    [[nodiscard]] virtual std::int64_t decodeInt64ForKey(std::string_view key);
    [[nodiscard]] virtual bool decodeBoolForKey(std::string_view key);
    [[nodiscard]] virtual double decodeDoubleForKey(std::string_view key);
    [[nodiscard]] virtual std::optional<std::string_view> decodeBytesForKey(std::string_view key);

    // Sequential encoding: the value follows those already written.
    virtual void encodeObject(const Value& object);
    virtual void encodeUnsignedInt32(std::uint32_t number);
    virtual void encodeBytes(std::string_view bytes);

    // Sequential decoding: the next value. Throws at the end and when the next value is of another
    // kind. The bytes are valid as long as the coder.
    //
    // A keyed decoder has decodeObject() too, for objects that some writers store without keys: the
    // next of them, or null when there is no more.
    [[nodiscard]] virtual Value decodeObject();
    [[nodiscard]] virtual std::uint32_t decodeUnsignedInt32();
    [[nodiscard]] virtual std::string_view decodeBytes();

    // Throws the unarchiver's exception for contents that no instance can be made of: `what` says
    // what is wrong with them, the decoder adds the place. For classes being decoded.
    [[noreturn]] virtual void failDecoding(std::string_view what);
};

// What an object has to offer besides to be archived; its Class is an NSCodingClass.
class NSCoding {
public:
    virtual void encodeWithCoder(NSCoder& coder) const = 0;

    // What to archive in place of this object, null included; nothing means the object itself,
    // which is the answer unless it merely stands for another.
    [[nodiscard]] virtual std::optional<Value> replacementObjectForCoder(NSCoder& coder) const;

protected:
    ~NSCoding() = default;
};

// A class whose instances archives can name: registered with what makes one of them
// from a decoder.
class NSCodingClass : public Class {
public:
    // Reads the fields of one instance; throws what the coder throws. Never gives nullptr.
    using InitWithCoder = ObjectPtr (*)(NSCoder& coder);

    // How instances are made that may reach themselves through their own fields, as an exception
    // does that stands in the details of its own cause.
    //
    // A decoder calls `allocate` and `fill` once for each instance, in this order; `backReference`
    // any number of times between the two, when it meets the instance among the objects that it
    // decodes for `fill`. Those are complete when `fill` runs, but what they refer back to is not.
    struct TwoSteps {
        // An instance without content.
        ObjectPtr (*allocate)();

        // Reads the fields of an instance that `allocate` made; throws what the coder throws.
        void (*fill)(Object& instance, NSCoder& coder);

        // What stands for the instance within its own fields. It must not keep the instance alive,
        // for then nothing would ever end it; archived again, it is the instance
        // (replacementObjectForCoder()).
        ObjectPtr (*backReference)(const ObjectPtr& instance);
    };

    NSCodingClass(std::string name, Class* superclass, InitWithCoder init,
                  MethodTable instanceMethods = {}, MethodTable classMethods = {});
    NSCodingClass(std::string name, Class* superclass, TwoSteps steps,
                  MethodTable instanceMethods = {}, MethodTable classMethods = {});

    // The class registered as `name`, or nullptr when there is none or it cannot be archived.
    [[nodiscard]] static const NSCodingClass* named(std::string_view name);

    // An instance, by whichever way the class has.
    [[nodiscard]] ObjectPtr initWithCoder(NSCoder& coder) const;

    // The two steps, or nullptr when the instances cannot reach themselves.
    [[nodiscard]] const TwoSteps* twoSteps() const { return twoSteps_ ? &*twoSteps_ : nullptr; }

private:
    const InitWithCoder initWithCoder_ = nullptr;
    const std::optional<TwoSteps> twoSteps_;
};

}  // namespace sevrin::platform
