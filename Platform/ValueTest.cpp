// Contract tests of values: kinds never mix, every value has its place in one order, and the
// containers that rest on the order.
#include "Platform/Value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <concepts>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sevrin::platform {
namespace {

using namespace std::string_view_literals;
using Kind = Value::Kind;

// An object that is equal to every other one with the same number.
class Numbered : public Object {
public:
    explicit Numbered(int number) : number_(number) {}
    bool isEqual(const Object& other) const override {
        const auto* numbered = dynamic_cast<const Numbered*>(&other);
        return numbered != nullptr && numbered->number_ == number_;
    }
    std::size_t hash() const override { return static_cast<std::size_t>(number_ % 2); }

private:
    const int number_;
};

Value realWithBits(std::uint64_t bits) {
    return std::bit_cast<double>(bits);
}

NSDate dateAt(double seconds) {
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

// Every kind, edge cases included, in the order of values.
std::vector<Value> sortedValues() {
    using Real = std::numeric_limits<double>;
    return {
        Value(),
        false,
        true,
        std::numeric_limits<std::int64_t>::min(),
        -1,
        0,
        1,
        std::numeric_limits<std::int64_t>::max(),
        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + 1,
        std::numeric_limits<std::uint64_t>::max(),
        -Real::quiet_NaN(),
        -Real::infinity(),
        Real::lowest(),
        -1.0,
        -0.0,
        0.0,
        Real::denorm_min(),
        1.0,
        Real::infinity(),
        realWithBits(0x7FF0'0000'0000'0001),  // A signalling NaN
        Real::quiet_NaN(),
        realWithBits(0x7FF8'0000'0000'0001),  // and a quiet one with a payload.
        "",
        "1",
        "A",
        "a",
        "a\0"sv,
        "aa",
        "\xFF",
        Data{""},
        Data{"1"},
        Data{"\xFF"},
        dateAt(-Real::infinity()),
        dateAt(-0.0),
        dateAt(0.0),
        dateAt(Real::quiet_NaN()),
        ValueArray{},
        ValueArray{Value()},
        ValueArray{1},
        ValueArray{1, 1},
        ValueArray{2},
        ValueArray{Value(ValueArray{})},
        Dictionary{},
        Dictionary{{"a", 1}},
        Dictionary{{"a", 1}, {"b", 0}},
        Dictionary{{"a", 2}},
        Dictionary{{"b", 0}},
        Set(),
        Set({1}),
        Set({1, 2}),
        Set({2}),
        std::make_shared<Numbered>(0),
        std::make_shared<Numbered>(1),
    };
}

TEST(ValueTest, ThereIsAKindForEachType) {
    const std::vector<std::pair<Value, Kind>> table{
        {Value(), Kind::Null},
        {nullptr, Kind::Null},
        {std::shared_ptr<Numbered>(), Kind::Null},
        {true, Kind::Boolean},
        {'a', Kind::Signed},
        {1U, Kind::Signed},
        {std::numeric_limits<std::uint64_t>::max(), Kind::Unsigned},
        {1.0F, Kind::Double},
        {"text", Kind::String},
        {"text"sv, Kind::String},
        {std::string("text"), Kind::String},
        {Data{"bytes"}, Kind::Data},
        {dateAt(0), Kind::Date},
        {ValueArray{}, Kind::Array},
        {Dictionary{}, Kind::Dictionary},
        {Set(), Kind::Set},
        {std::make_shared<Numbered>(1), Kind::Object},
    };

    for (const auto& [value, kind] : table)
        EXPECT_EQ(value.kind(), kind) << value.description();
}

TEST(ValueTest, TheContentIsGivenUnderItsOwnKindOnly) {
    for (const Value& value : sortedValues()) {
        const Kind kind = value.kind();
        EXPECT_EQ(value.isNull(), kind == Kind::Null);
        EXPECT_EQ(value.ifBoolean() != nullptr, kind == Kind::Boolean);
        EXPECT_EQ(value.ifSigned() != nullptr, kind == Kind::Signed);
        EXPECT_EQ(value.ifUnsigned() != nullptr, kind == Kind::Unsigned);
        EXPECT_EQ(value.ifDouble() != nullptr, kind == Kind::Double);
        EXPECT_EQ(value.ifString() != nullptr, kind == Kind::String);
        EXPECT_EQ(value.ifData() != nullptr, kind == Kind::Data);
        EXPECT_EQ(value.ifDate() != nullptr, kind == Kind::Date);
        EXPECT_EQ(value.ifArray() != nullptr, kind == Kind::Array);
        EXPECT_EQ(value.ifDictionary() != nullptr, kind == Kind::Dictionary);
        EXPECT_EQ(value.ifSet() != nullptr, kind == Kind::Set);
        EXPECT_EQ(value.object() != nullptr, kind == Kind::Object);
    }
}

TEST(ValueTest, TheContentIsWhatItWasMadeFrom) {
    EXPECT_EQ(*Value(true).ifBoolean(), true);
    EXPECT_EQ(*Value(-5).ifSigned(), -5);
    EXPECT_EQ(*Value(1.5F).ifDouble(), 1.5);
    EXPECT_EQ(*Value("a\0b"sv).ifString(), "a\0b"sv);
    EXPECT_EQ(Value(Data{"\xFF"}).ifData()->bytes, "\xFF");
    EXPECT_EQ(*Value(dateAt(7)).ifDate(), dateAt(7));
    EXPECT_EQ(Value(ValueArray{1, "b"}).ifArray()->at(1), Value("b"));
}

TEST(ValueTest, AnIntegerIsUnsignedOnlyWhereSignedHasNoRoom) {
    constexpr std::uint64_t kSignedMax = std::numeric_limits<std::int64_t>::max();

    EXPECT_EQ(Value(kSignedMax).kind(), Kind::Signed);
    EXPECT_EQ(Value(kSignedMax + 1).kind(), Kind::Unsigned);
    EXPECT_EQ(*Value(kSignedMax + 1).ifUnsigned(), kSignedMax + 1);
    EXPECT_EQ(Value(std::uint8_t{7}), Value(std::int64_t{7}));
}

TEST(ValueTest, KindsNeverCoerce) {
    EXPECT_NE(Value(true), Value(1));
    EXPECT_NE(Value(1), Value(1.0));
    EXPECT_NE(Value("1"), Value(1));
    EXPECT_NE(Value("text"), Value(Data{"text"}));
    EXPECT_NE(Value(), Value(false));
    EXPECT_NE(Value(), Value(""));
    EXPECT_NE(Value(ValueArray{}), Value(Dictionary{}));
    EXPECT_NE(Value(ValueArray{1}), Value(Set({1})));
}

// A pointer that happens to convert to a boolean, and an enumeration, are no values.
static_assert(!std::constructible_from<Value, const void*>);
static_assert(!std::constructible_from<Value, std::shared_ptr<int>>);
static_assert(!std::constructible_from<Value, Kind>);

TEST(ValueTest, AnObjectIsGivenAsTheClassItHas) {
    const auto object = std::make_shared<Numbered>(1);
    const Value value(object);

    EXPECT_EQ(value.object(), object);
    EXPECT_EQ(value.object<Numbered>(), object);
    EXPECT_EQ(Value(std::make_shared<Object>()).object<Numbered>(), nullptr);
    EXPECT_EQ(Value("text").object<Numbered>(), nullptr);
}

TEST(ValueTest, ContainersAreSharedByCopies) {
    const Value value(ValueArray{1, 2});
    const Value copy = value;

    EXPECT_EQ(copy.ifArray(), value.ifArray());
}

TEST(ValueTest, MovingTakesTheContentAndLeavesTextContainersAndObjectsNull) {
    for (const Value& value : {Value("text"), Value(std::string(100, 'x')), Value(ValueArray{1}),
                               Value(Data{"bytes"}), Value(std::make_shared<Object>())}) {
        Value from = value;
        Value to = std::move(from);
        EXPECT_EQ(to, value);
        EXPECT_TRUE(from.isNull());

        Value replaced(ValueArray{"another"});
        replaced = std::move(to);
        EXPECT_EQ(replaced, value);
        EXPECT_TRUE(to.isNull());
    }
}

TEST(ValueTest, AnElementMayTakeThePlaceOfItsContainer) {
    const Value inner(Dictionary{{"key", "more text than what lies in place"}});
    Value value(ValueArray{1, inner});
    value = (*value.ifArray())[1];
    EXPECT_EQ(value, inner);
    const Value& same = value;
    value = same;
    EXPECT_EQ(value, inner);
}

TEST(ValueTest, EveryTwoValuesHaveAnOrder) {
    const std::vector<Value> values = sortedValues();

    for (std::size_t i = 0; i < values.size(); ++i) {
        for (std::size_t j = 0; j < values.size(); ++j) {
            EXPECT_EQ(values[i] <=> values[j], i <=> j)
                << values[i].description() << " and " << values[j].description();
            EXPECT_EQ(values[i] == values[j], i == j);
        }
    }
}

TEST(ValueTest, EqualContentMakesEqualValues) {
    const std::vector<Value> values = sortedValues();
    const std::vector<Value> others = sortedValues();

    EXPECT_EQ(values, others);
}

TEST(ValueTest, ObjectsAreEqualWhenTheySaySo) {
    const auto one = std::make_shared<Numbered>(1);

    EXPECT_EQ(Value(one), Value(std::make_shared<Numbered>(1)));
    EXPECT_NE(Value(one), Value(std::make_shared<Numbered>(2)));
    EXPECT_NE(Value(std::make_shared<Object>()), Value(std::make_shared<Object>()));
}

TEST(ValueTest, DifferentObjectsOfOneHashHaveAnOrderToo) {
    const Value one(std::make_shared<Numbered>(1));
    const Value three(std::make_shared<Numbered>(3));

    EXPECT_NE(one <=> three, std::strong_ordering::equal);
    EXPECT_EQ(one<three, three> one);
}

TEST(DictionaryTest, IsSortedWhateverOrderItWasMadeIn) {
    const Dictionary dictionary{{"b", 2}, {7, 3}, {"a", 1}, {nullptr, 4}};

    const std::vector<Dictionary::Entry> expected{{nullptr, 4}, {7, 3}, {"a", 1}, {"b", 2}};
    EXPECT_EQ(dictionary.entries(), expected);
    EXPECT_EQ(dictionary.size(), 4U);
    EXPECT_TRUE(std::equal(dictionary.begin(), dictionary.end(), expected.begin()));
}

TEST(DictionaryTest, OfEqualKeysTheLastOneStays) {
    const Dictionary dictionary =
        Dictionary::fromEntries({{"b", 1}, {"a", 1}, {"b", 2}, {"a", 2}, {"b", 3}});

    EXPECT_EQ(dictionary, (Dictionary{{"a", 2}, {"b", 3}}));
    EXPECT_EQ(Dictionary::fromEntries({{"a", 1}, {"a", 2}}), (Dictionary{{"a", 2}}));
}

TEST(DictionaryTest, KeysOfDifferentKindsAreDifferent) {
    const Dictionary dictionary{{1, "integer"}, {1.0, "real"}, {true, "boolean"}, {"1", "text"}};

    EXPECT_EQ(dictionary.size(), 4U);
    EXPECT_EQ(*dictionary.find(Value(1)), Value("integer"));
    EXPECT_EQ(*dictionary.find(Value(1.0)), Value("real"));
    EXPECT_EQ(*dictionary.find(Value(true)), Value("boolean"));
    EXPECT_EQ(*dictionary.find("1"), Value("text"));
}

TEST(DictionaryTest, IsSearchedByTextAmongKeysOfEveryKind) {
    std::vector<Dictionary::Entry> entries;
    for (const Value& key : sortedValues())
        entries.emplace_back(key, key);
    const Dictionary dictionary = Dictionary::fromEntries(std::move(entries));

    for (const std::string_view text : {""sv, "1"sv, "A"sv, "a"sv, "a\0"sv, "aa"sv, "\xFF"sv}) {
        ASSERT_NE(dictionary.find(text), nullptr) << text;
        EXPECT_EQ(*dictionary.find(text), Value(text));
        EXPECT_EQ(dictionary.find(text), dictionary.find(Value(text)));
    }
    for (const std::string_view text : {"0"sv, "b"sv, "\xFF\xFF"sv})
        EXPECT_EQ(dictionary.find(text), nullptr) << text;
}

TEST(DictionaryTest, AnEmptyOneHasNothing) {
    const Dictionary dictionary;

    EXPECT_TRUE(dictionary.empty());
    EXPECT_EQ(dictionary.find("a"), nullptr);
    EXPECT_EQ(dictionary.find(Value(1)), nullptr);
}

TEST(DictionaryTest, SettingAddsOrReplaces) {
    Dictionary dictionary{{"b", 1}};

    dictionary.set("c", 1);
    dictionary.set("a", 1);
    dictionary.set("b", 2);

    EXPECT_EQ(dictionary, (Dictionary{{"a", 1}, {"b", 2}, {"c", 1}}));
}

TEST(DictionaryTest, RemovingSaysWhetherTheKeyWasThere) {
    Dictionary dictionary{{"a", 1}, {"b", 2}};

    EXPECT_TRUE(dictionary.remove("a"));
    EXPECT_FALSE(dictionary.remove("a"));

    EXPECT_EQ(dictionary, (Dictionary{{"b", 2}}));
}

TEST(SetTest, HoldsEqualMembersOnceAndSorted) {
    const Set set({3, "a", 1, 3, 1, "a", 1.0});

    EXPECT_EQ(set.members(), (ValueArray{1, 3, 1.0, "a"}));
}

TEST(SetTest, ContainsItsMembersOnly) {
    const Set set({1, "a", Value()});

    EXPECT_TRUE(set.contains(1));
    EXPECT_TRUE(set.contains("a"));
    EXPECT_TRUE(set.contains(nullptr));
    EXPECT_FALSE(set.contains(true));
    EXPECT_FALSE(set.contains("b"));
}

TEST(ValueTest, CopiesOfLongSharedTextShareIt) {
    const std::string text(100, 'x');
    const Value value = Value::sharedString(text);
    const Value copy = value;

    EXPECT_EQ(copy.ifString(), value.ifString());
    EXPECT_EQ(value.kind(), Value::Kind::String);
    EXPECT_EQ(value, Value(text));
    EXPECT_EQ(Value::sharedString("short"), Value("short"));
}

}  // namespace
}  // namespace sevrin::platform
