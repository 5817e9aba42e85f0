// The calls by which an object reads its fields.
#include <limits>
#include <utility>

#include "Platform/NSException.h"
#include "Platform/NSKeyedUnarchiver.h"

namespace sevrin::platform {

std::optional<NSKeyedUnarchiver::Index> NSKeyedUnarchiver::find(std::string_view key) const {
    const Index node = entries_[current_ - 1].node;
    // The archive's own keys begin with one dollar sign, those of objects get one more.
    return key.starts_with('$') ? list_.find(node, '$' + std::string(key)) : list_.find(node, key);
}

// None when the key is absent; raises when another kind of value stands there.
std::optional<NSKeyedUnarchiver::Index> NSKeyedUnarchiver::findOfKind(Kind kind,
                                                                      std::string_view key) const {
    const std::optional<Index> found = find(key);
    if (found && list_.kind(*found) != kind) failWrongKind(key);
    return found;
}

void NSKeyedUnarchiver::failWrongKind(std::string_view key) const {
    failAt("a value of the wrong kind", key);
}

void NSKeyedUnarchiver::failDecoding(std::string_view what) {
    failAt(what, {});
}

bool NSKeyedUnarchiver::containsValueForKey(std::string_view key) {
    return find(key).has_value();
}

Value NSKeyedUnarchiver::decodeObjectForKey(std::string_view key) {
    const std::optional<Index> found = findOfKind(Kind::UID, key);
    return found ? valueOfSlot(list_.uid(*found), key) : Value();
}

Value NSKeyedUnarchiver::decodePropertyListForKey(std::string_view key) {
    const std::optional<Index> found = find(key);
    if (!found || list_.kind(*found) == Kind::UID) return decodeObjectForKey(key);
    if (const auto made = inlineValues_.find(*found); made != inlineValues_.end()) {
        return made->second;
    }
    try {
        return inlineValues_.emplace(*found, propertyListValue(list_, *found)).first->second;
    } catch (const PropertyListError& error) {
        failAt(error.what(), key);
    }
}

ObjectPtr NSKeyedUnarchiver::decodeObjectOfClassForKey(const Class& expected,
                                                       std::string_view key) {
    const Value value = decodeObjectForKey(key);
    if (value.isNull()) return nullptr;
    ObjectPtr object = value.object();
    if (!object || !object->isa().isSubclassOf(expected)) {
        failAt("something else than an object of class (" + expected.name() + ")", key);
    }
    return object;
}

std::int64_t NSKeyedUnarchiver::decodeInt64ForKey(std::string_view key) {
    const std::optional<Index> found = findOfKind(Kind::Integer, key);
    if (!found) return 0;
    const Value number = list_.integer(*found);
    if (number.ifSigned()) return *number.ifSigned();
    NSException::raiseFormat(NSRangeException,
                             "*** -[NSKeyedUnarchiver decodeInt64ForKey:]: value (%lu) for key "
                             "(%@) too large to fit in 64-bit integer",
                             *number.ifUnsigned(), key);
}

std::int32_t NSKeyedUnarchiver::decodeInt32ForKey(std::string_view key) {
    const std::int64_t number = decodeInt64ForKey(key);
    if (std::in_range<std::int32_t>(number)) return static_cast<std::int32_t>(number);
    NSException::raiseFormat(NSRangeException,
                             "*** -[NSKeyedUnarchiver decodeInt32ForKey:]: value (%ld) for key "
                             "(%@) too large to fit in 32-bit integer",
                             number, key);
}

bool NSKeyedUnarchiver::decodeBoolForKey(std::string_view key) {
    const std::optional<Index> found = findOfKind(Kind::Boolean, key);
    return found && list_.boolean(*found);
}

double NSKeyedUnarchiver::decodeDoubleForKey(std::string_view key) {
    const std::optional<Index> found = findOfKind(Kind::Real, key);
    return found ? list_.real(*found) : 0.0;
}

std::optional<std::string_view> NSKeyedUnarchiver::decodeBytesForKey(std::string_view key) {
    const std::optional<Index> found = findOfKind(Kind::Data, key);
    if (!found) return std::nullopt;
    return list_.data(*found);
}

// Objects without a key stand under $0, $1 and so on.
Value NSKeyedUnarchiver::decodeObject() {
    const std::string key = '$' + std::to_string(keyless_++);
    const std::optional<Index> found = list_.find(entries_[current_ - 1].node, key);
    if (!found) return {};
    if (list_.kind(*found) != Kind::UID) failWrongKind(key);
    return valueOfSlot(list_.uid(*found), key);
}

}  // namespace sevrin::platform
