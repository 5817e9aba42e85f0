// One value of any kind: the total order, and the flat sorted containers that rest on it.
#include "Platform/Value.h"

#include <algorithm>
#include <bit>

namespace sevrin::platform {

namespace {

using Entry = Dictionary::Entry;

std::strong_ordering compareArrays(const ValueArray& left, const ValueArray& right) {
    return std::lexicographical_compare_three_way(left.begin(), left.end(), right.begin(),
                                                  right.end());
}

// Equality is the objects' own. Ordering by hash first keeps equal objects together, whatever their
// addresses.
std::strong_ordering compareObjects(const ObjectPtr& left, const ObjectPtr& right) {
    if (left == right || left->isEqual(*right)) return std::strong_ordering::equal;
    const std::strong_ordering byHash = left->hash() <=> right->hash();
    return byHash != 0 ? byHash : std::compare_three_way{}(left.get(), right.get());
}

}  // namespace

Value::Value(Data value) : Value(Kind::Data, std::make_shared<const Data>(std::move(value))) {}

Value::Value(ValueArray value)
    : Value(Kind::Array, std::make_shared<const ValueArray>(std::move(value))) {}

Value::Value(Dictionary value)
    : Value(Kind::Dictionary, std::make_shared<const Dictionary>(std::move(value))) {}

Value::Value(Set value) : Value(Kind::Set, std::make_shared<const Set>(std::move(value))) {}

Value Value::sharedString(std::string text) {
    constexpr std::size_t kInPlaceMax =
        15;  // A string this short owns no memory that a copy needs.
    if (text.size() <= kInPlaceMax) return text;
    return {Kind::String, std::make_shared<const std::string>(std::move(text))};
}

void Value::copyContent(const Value& other) {
    if (form_ == Form::Text) {
        std::construct_at(&text_, other.text_);
    } else {
        std::construct_at(&shared_, other.shared_);
    }
}

void Value::endContent() noexcept {
    if (form_ == Form::Text) {
        std::destroy_at(&text_);
    } else {
        std::destroy_at(&shared_);
    }
}

std::strong_ordering operator<=>(const Value& left, const Value& right) {
    if (left.kind() != right.kind()) return left.kind() <=> right.kind();

    switch (left.kind()) {
        case Value::Kind::Null:
            return std::strong_ordering::equal;
        case Value::Kind::Boolean:
            return *left.ifBoolean() <=> *right.ifBoolean();
        case Value::Kind::Signed:
            return *left.ifSigned() <=> *right.ifSigned();
        case Value::Kind::Unsigned:
            return *left.ifUnsigned() <=> *right.ifUnsigned();
        case Value::Kind::Double:
            return std::strong_order(*left.ifDouble(), *right.ifDouble());
        case Value::Kind::String:
            return *left.ifString() <=> *right.ifString();
        case Value::Kind::Data:
            return *left.ifData() <=> *right.ifData();
        case Value::Kind::Date:
            return std::strong_order(left.ifDate()->timeIntervalSinceReferenceDate(),
                                     right.ifDate()->timeIntervalSinceReferenceDate());
        case Value::Kind::Array:
            return compareArrays(*left.ifArray(), *right.ifArray());
        case Value::Kind::Dictionary:
            return *left.ifDictionary() <=> *right.ifDictionary();
        case Value::Kind::Set:
            return compareArrays(left.ifSet()->members(), right.ifSet()->members());
        case Value::Kind::Object:
            return compareObjects(left.object(), right.object());
    }
    return std::strong_ordering::equal;
}

Set::Set(ValueArray members) : members_(std::move(members)) {
    std::stable_sort(members_.begin(), members_.end());
    members_.erase(std::unique(members_.begin(), members_.end()), members_.end());
}

bool Set::contains(const Value& member) const {
    return std::binary_search(members_.begin(), members_.end(), member);
}

Dictionary::Dictionary(std::initializer_list<Entry> entries)
    : Dictionary(fromEntries(std::vector<Entry>(entries))) {}

Dictionary Dictionary::fromEntries(std::vector<Entry> entries) {
    Dictionary result;
    const auto keyLess = [](const Entry& a, const Entry& b) { return a.first < b.first; };
    const auto doesNotAscend = [](const Entry& a, const Entry& b) { return a.first >= b.first; };
    const auto disorder = std::adjacent_find(entries.begin(), entries.end(), doesNotAscend);
    if (disorder != entries.end()) {
        std::stable_sort(entries.begin(), entries.end(), keyLess);
    }
    if (disorder == entries.end() ||
        std::adjacent_find(entries.begin(), entries.end(), doesNotAscend) == entries.end()) {
        result.entries_ = std::move(entries);
        return result;
    }
    result.entries_.reserve(entries.size());
    for (Entry& entry : entries) {
        if (!result.entries_.empty() && result.entries_.back().first == entry.first) {
            result.entries_.back() = std::move(entry);
        } else {
            result.entries_.push_back(std::move(entry));
        }
    }
    return result;
}

const Value* Dictionary::find(const Value& key) const {
    const auto found = std::lower_bound(
        entries_.begin(), entries_.end(), key,
        [](const Entry& entry, const Value& wanted) { return entry.first < wanted; });
    return found != entries_.end() && found->first == key ? &found->second : nullptr;
}

const Value* Dictionary::find(std::string_view key) const {
    const auto precedes = [](const Entry& entry, std::string_view wanted) {
        const std::string* text = entry.first.ifString();
        return text ? *text < wanted : entry.first.kind() < Value::Kind::String;
    };
    const auto found = std::lower_bound(entries_.begin(), entries_.end(), key, precedes);
    if (found == entries_.end()) return nullptr;
    const std::string* text = found->first.ifString();
    return text && *text == key ? &found->second : nullptr;
}

void Dictionary::set(Value key, Value value) {
    const auto place = std::lower_bound(
        entries_.begin(), entries_.end(), key,
        [](const Entry& entry, const Value& wanted) { return entry.first < wanted; });
    if (place != entries_.end() && place->first == key) {
        place->second = std::move(value);
    } else {
        entries_.emplace(place, std::move(key), std::move(value));
    }
}

bool Dictionary::remove(const Value& key) {
    const auto place = std::lower_bound(
        entries_.begin(), entries_.end(), key,
        [](const Entry& entry, const Value& wanted) { return entry.first < wanted; });
    if (place == entries_.end() || place->first != key) return false;
    entries_.erase(place);
    return true;
}

std::strong_ordering operator<=>(const Dictionary& left, const Dictionary& right) {
    return std::lexicographical_compare_three_way(
        left.entries_.begin(), left.entries_.end(), right.entries_.begin(), right.entries_.end(),
        [](const Entry& a, const Entry& b) {
            const std::strong_ordering byKey = a.first <=> b.first;
            return byKey != 0 ? byKey : a.second <=> b.second;
        });
}

}  // namespace sevrin::platform
