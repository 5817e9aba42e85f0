// The contract between objects that can be archived and the coders that carry them.
//
// An object writes its fields into a coder and is made again from one that gives them back. A coder
// is one of four: it encodes or decodes, and it is keyed (each value under a name) or sequential
// (values in order only); an object asks allowsKeyedCoding() and uses the matching calls. A call
// that a coder does not offer is a bug of the caller. What an archive contains is not: a decoder
// throws on it. A coder serves one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
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

    // Keyed decoding. A key that is absent gives no object, or 0. Throws when something of another
    // class or kind stands under it, or a number too wide for the call.
    [[nodiscard]] virtual ObjectPtr decodeObjectOfClassForKey(const Class& expected,
                                                              std::string_view key);
    [[nodiscard]] virtual std::int32_t decodeInt32ForKey(std::string_view key);
    [[nodiscard]] virtual std::int64_t decodeInt64ForKey(std::string_view key);

    // Sequential encoding: the value follows those already written.
    virtual void encodeObject(const Value& object);
    virtual void encodeUnsignedInt32(std::uint32_t number);

    // Sequential decoding: the next value. Throws at the end and when the next value is of another
    // kind.
    [[nodiscard]] virtual Value decodeObject();
    [[nodiscard]] virtual std::uint32_t decodeUnsignedInt32();
};

// What an object has to offer besides to be archived; its Class is an NSCodingClass.
class NSCoding {
public:
    virtual void encodeWithCoder(NSCoder& coder) const = 0;

protected:
    ~NSCoding() = default;
};

// A class whose instances archives can name: registered with what makes one of them
// from a decoder.
class NSCodingClass : public Class {
public:
    // Reads the fields of one instance; throws what the coder throws. Never gives nullptr.
    using InitWithCoder = ObjectPtr (*)(NSCoder& coder);

    NSCodingClass(std::string name, Class* superclass, InitWithCoder init,
                  MethodTable instanceMethods = {}, MethodTable classMethods = {});

    // The class registered as `name`, or nullptr when there is none or it cannot be archived.
    [[nodiscard]] static const NSCodingClass* named(std::string_view name);

    [[nodiscard]] ObjectPtr initWithCoder(NSCoder& coder) const { return initWithCoder_(coder); }

private:
    const InitWithCoder initWithCoder_;
};

}  // namespace sevrin::platform
