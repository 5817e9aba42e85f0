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
    enum class Kind : std::uint8_t {
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

    Value() noexcept : plain_{.natural = 0} {}
    Value(std::nullptr_t) noexcept : Value() {}
    Value(std::same_as<bool> auto value) noexcept
        : kind_(Kind::Boolean), plain_{.boolean = value} {}

    // Any integer. What fits a signed 64-bit integer is Signed, larger numbers are Unsigned, so
    // equal numbers are equal values.
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) Value(Integer value)
    noexcept {
        const auto number = static_cast<std::int64_t>(value);
        if (std::signed_integral<Integer> || number >= 0) {
            kind_ = Kind::Signed;
            plain_ = {.integer = number};
        } else {
            kind_ = Kind::Unsigned;
            plain_ = {.natural = static_cast<std::uint64_t>(value)};
        }
    }

    Value(std::floating_point auto value) noexcept
        : kind_(Kind::Double), plain_{.real = static_cast<double>(value)} {}
    Value(std::string value) noexcept
        : kind_(Kind::String), form_(Form::Text), text_(std::move(value)) {}
    Value(std::string_view value) : kind_(Kind::String), form_(Form::Text), text_(value) {}
    Value(const char* value) : kind_(Kind::String), form_(Form::Text), text_(value) {}

    // Text whose copies share it when it is long: for text that one reader hands out many times.
    [[nodiscard]] static Value sharedString(std::string text);

    Value(Data value);
    Value(NSDate value) noexcept : kind_(Kind::Date), plain_{.date = value} {}
    Value(ValueArray value);
    Value(Dictionary value);
    Value(Set value);

    // An object; nullptr is null.
    template <std::derived_from<Object> Type>
    Value(std::shared_ptr<Type> value) : Value() {
        if (value) *this = Value(Kind::Object, ObjectPtr(std::move(value)));
    }

    // A value that another one was moved from is null.
    Value(const Value& other) : kind_(other.kind_), form_(other.form_) {
        if (form_ == Form::Plain) {
            plain_ = other.plain_;
        } else {
            copyContent(other);
        }
    }
    Value(Value&& other) noexcept { take(other); }
    Value& operator=(const Value& other) { return *this = Value(other); }
    Value& operator=(Value&& other) noexcept {
        // What was here ends last: that may lead to anything, even to what is taken.
        const Value before(std::move(*this));
        take(other);
        return *this;
    }
    ~Value() {
        if (form_ != Form::Plain) endContent();
    }

    [[nodiscard]] Kind kind() const { return kind_; }
    [[nodiscard]] bool isNull() const { return kind_ == Kind::Null; }

    // The content, or nullptr when the value is of another kind. Valid as long as the value.
    [[nodiscard]] const bool* ifBoolean() const {
        return kind_ == Kind::Boolean ? &plain_.boolean : nullptr;
    }
    [[nodiscard]] const std::int64_t* ifSigned() const {
        return kind_ == Kind::Signed ? &plain_.integer : nullptr;
    }
    [[nodiscard]] const std::uint64_t* ifUnsigned() const {
        return kind_ == Kind::Unsigned ? &plain_.natural : nullptr;
    }
    [[nodiscard]] const double* ifDouble() const {
        return kind_ == Kind::Double ? &plain_.real : nullptr;
    }
    [[nodiscard]] const std::string* ifString() const {
        return form_ == Form::Text ? &text_ : shared<std::string>(Kind::String);
    }
    [[nodiscard]] const NSDate* ifDate() const {
        return kind_ == Kind::Date ? &plain_.date : nullptr;
    }
    [[nodiscard]] const Data* ifData() const { return shared<Data>(Kind::Data); }
    [[nodiscard]] const ValueArray* ifArray() const { return shared<ValueArray>(Kind::Array); }
    [[nodiscard]] const Dictionary* ifDictionary() const {
        return shared<Dictionary>(Kind::Dictionary);
    }
    [[nodiscard]] const Set* ifSet() const { return shared<Set>(Kind::Set); }

    // The object, or nullptr when the value is of another kind (or the object of another class).
    [[nodiscard]] ObjectPtr object() const {
        if (kind_ != Kind::Object) return nullptr;
        return {shared_, static_cast<Object*>(const_cast<void*>(shared_.get()))};
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
    // How the content is kept. Most values are numbers or short text, and copying, moving and
    // ending one has to cost no more than that; a std::variant of all kinds does each of them by
    // way of a table of functions.
    enum class Form : std::uint8_t { Plain, Text, Shared };

    union Plain {
        std::uint64_t natural;
        std::int64_t integer;
        bool boolean;
        double real;
        NSDate date;
    };

    // `content` is of the type that belongs to the kind, an object's an Object.
    Value(Kind kind, std::shared_ptr<const void> content) noexcept
        : kind_(kind), form_(Form::Shared), shared_(std::move(content)) {}

    template <typename Type>
    [[nodiscard]] const Type* shared(Kind kind) const {
        return kind_ == kind ? static_cast<const Type*>(shared_.get()) : nullptr;
    }

    // The content of `other`, where there is none yet.
    void take(Value& other) noexcept {
        kind_ = other.kind_;
        form_ = other.form_;
        if (form_ == Form::Plain) {
            plain_ = other.plain_;
            return;
        }
        if (form_ == Form::Text) {
            std::construct_at(&text_, std::move(other.text_));
            std::destroy_at(&other.text_);
        } else {
            std::construct_at(&shared_, std::move(other.shared_));
            std::destroy_at(&other.shared_);
        }
        other.kind_ = Kind::Null;
        other.form_ = Form::Plain;
    }
    void copyContent(const Value& other);
    void endContent() noexcept;

    Kind kind_ = Kind::Null;
    Form form_ = Form::Plain;
    union {
        Plain plain_;
        std::string text_;
        std::shared_ptr<const void> shared_;  // containers, data, objects, text of sharedString()
    };
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
