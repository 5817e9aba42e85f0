// One value of any kind that the system stores, logs, archives or sends: the property-list kinds,
// and objects.
//
// Values are immutable and cheap to copy: containers and data are shared payloads. Kinds never
// coerce: true, 1 and 1.0 are three different values. Values have one total order (by kind, then by
// content; reals by their bits, so that every real has a place), which makes dictionaries and sets
// flat sorted arrays: nothing to collide in, whoever chose the keys.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/Export.h"
#include "Platform/NSDate.h"
#include "Platform/Object.h"

namespace sevrin::platform {

class Value;
class Dictionary;

using ValueArray = std::vector<Value>;

// Bytes; a type of its own so that data never passes for text.
struct Data {
    std::string bytes;

    friend auto operator<=>(const Data&, const Data&) = default;
};

// A set: sorted, each member once.
class SEVRIN_EXPORT Set {
public:
    Set() = default;

    // Keeps one of each group of equal members.
    explicit Set(ValueArray members);

    [[nodiscard]] const ValueArray& members() const { return members_; }
    [[nodiscard]] bool contains(const Value& member) const;

private:
    ValueArray members_;
};

class SEVRIN_EXPORT Value {
public:
    // Encoded nowhere; the order of kinds is part of the order of values.
    enum class Kind {
        Null,
        Boolean,
        Signed,
        Unsigned,
        Double,
        String,
        Data,
        Date,
        Array,
        Dictionary,
        Set,
        Object
    };

    Value() = default;
    Value(std::nullptr_t) {}
    Value(std::same_as<bool> auto value) : payload_(value) {}

    // Any integer. What fits a signed 64-bit integer is Signed, larger numbers are Unsigned, so
    // equal numbers are equal values.
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) Value(Integer value) {
        const auto number = static_cast<std::int64_t>(value);
        if (std::signed_integral<Integer> || number >= 0) {
            payload_ = number;
        } else {
            payload_ = static_cast<std::uint64_t>(value);
        }
    }

    Value(std::floating_point auto value) : payload_(static_cast<double>(value)) {}
    Value(std::string value) : payload_(std::move(value)) {}
    Value(std::string_view value) : payload_(std::string(value)) {}
    Value(const char* value) : payload_(std::string(value)) {}

    // Text whose copies share it when it is long: for text that one reader hands out many times.
    [[nodiscard]] static Value sharedString(std::string text);

    Value(Data value) : payload_(std::make_shared<const Data>(std::move(value))) {}
    Value(NSDate value) : payload_(value) {}
    Value(ValueArray value) : payload_(std::make_shared<const ValueArray>(std::move(value))) {}
    Value(Dictionary value);
    Value(Set value) : payload_(std::make_shared<const Set>(std::move(value))) {}

    // An object; nullptr is null.
    template <std::derived_from<Object> Type>
    Value(std::shared_ptr<Type> value) {
        if (value) payload_ = std::shared_ptr<Object>(std::move(value));
    }

    [[nodiscard]] Kind kind() const {
        const std::size_t index = payload_.index();
        return index == kSharedString ? Kind::String : static_cast<Kind>(index);
    }
    [[nodiscard]] bool isNull() const { return kind() == Kind::Null; }

    // The content, or nullptr when the value is of another kind. Valid as long as the value.
    [[nodiscard]] const bool* ifBoolean() const { return std::get_if<bool>(&payload_); }
    [[nodiscard]] const std::int64_t* ifSigned() const {
        return std::get_if<std::int64_t>(&payload_);
    }
    [[nodiscard]] const std::uint64_t* ifUnsigned() const {
        return std::get_if<std::uint64_t>(&payload_);
    }
    [[nodiscard]] const double* ifDouble() const { return std::get_if<double>(&payload_); }
    [[nodiscard]] const std::string* ifString() const {
        const auto* own = std::get_if<std::string>(&payload_);
        return own ? own : shared<std::string>();
    }
    [[nodiscard]] const NSDate* ifDate() const { return std::get_if<NSDate>(&payload_); }
    [[nodiscard]] const Data* ifData() const { return shared<Data>(); }
    [[nodiscard]] const ValueArray* ifArray() const { return shared<ValueArray>(); }
    [[nodiscard]] const Dictionary* ifDictionary() const { return shared<Dictionary>(); }
    [[nodiscard]] const Set* ifSet() const { return shared<Set>(); }

    // The object, or nullptr when the value is of another kind (or the object of another class).
    [[nodiscard]] ObjectPtr object() const {
        const auto* found = std::get_if<ObjectPtr>(&payload_);
        return found ? *found : nullptr;
    }
    template <std::derived_from<Object> Type>
    [[nodiscard]] std::shared_ptr<Type> object() const {
        return std::dynamic_pointer_cast<Type>(object());
    }

    // Text for people, in the platform's form: a string as it is, a boolean as 1 or 0, a real in
    // the fewest digits that read back equal, null as "(null)", data with its length (long data
    // abbreviated), containers as property-list text over several lines. Within a container text is
    // quoted unless it is letters and digits only, with quotation marks, backslashes and line
    // breaks escaped, and null is "<null>"; nothing else is escaped. Containers are cut short where
    // kDescriptionBytesMax is reached (Platform/DescriptionScope.h).
    [[nodiscard]] std::string description() const;

    friend SEVRIN_EXPORT std::strong_ordering operator<=>(const Value& left, const Value& right);
    friend bool operator==(const Value& left, const Value& right) { return (left <=> right) == 0; }

private:
    template <typename Type>
    [[nodiscard]] const Type* shared() const {
        const auto* found = std::get_if<std::shared_ptr<const Type>>(&payload_);
        return found ? found->get() : nullptr;
    }

    // Behind the kinds, in their order, the shared form of text.
    static constexpr std::size_t kSharedString = static_cast<std::size_t>(Kind::Object) + 1;

    std::variant<std::monostate, bool, std::int64_t, std::uint64_t, double, std::string,
                 std::shared_ptr<const Data>, NSDate, std::shared_ptr<const ValueArray>,
                 std::shared_ptr<const Dictionary>, std::shared_ptr<const Set>, ObjectPtr,
                 std::shared_ptr<const std::string>>
        payload_;
};

// Keys and values, sorted by key; each key once. Keys are usually strings but may be any value.
class SEVRIN_EXPORT Dictionary {
public:
    using Entry = std::pair<Value, Value>;

    Dictionary() = default;
    Dictionary(std::initializer_list<Entry> entries);

    // Builds from entries in any order. Of entries with equal keys the last one stays.
    [[nodiscard]] static Dictionary fromEntries(std::vector<Entry> entries);

    // The value under `key`, or nullptr. Valid until the next change. Looking for text builds no
    // Value.
    [[nodiscard]] const Value* find(const Value& key) const;
    [[nodiscard]] const Value* find(std::string_view key) const;
    [[nodiscard]] const Value* find(const char* key) const { return find(std::string_view(key)); }

    // Stores `value` under `key`, replacing what was there.
    void set(Value key, Value value);

    // Removes `key`; answers whether it was there.
    bool remove(const Value& key);

    [[nodiscard]] std::size_t size() const { return entries_.size(); }
    [[nodiscard]] bool empty() const { return entries_.empty(); }
    [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
    [[nodiscard]] auto begin() const { return entries_.begin(); }
    [[nodiscard]] auto end() const { return entries_.end(); }

    friend SEVRIN_EXPORT std::strong_ordering operator<=>(const Dictionary& left,
                                                          const Dictionary& right);
    friend bool operator==(const Dictionary& left, const Dictionary& right) {
        return (left <=> right) == 0;
    }

private:
    std::vector<Entry> entries_;
};

}  // namespace sevrin::platform
