// What is made of one object of an archive, by its class.
#include <cmath>
#include <utility>

#include "Platform/ArchivedURL.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/NSURL.h"
#include "Platform/NSUUID.h"

namespace sevrin::platform {

Value NSKeyedUnarchiver::makeValue(std::uint32_t number) {
    const KnownClass& known = classes_[entries_[number - 1].knownClass];
    if (!known.foundation) return makeObject(number);
    Value value = makeFoundationObject(*known.foundation);
    const bool isContainer = value.ifArray() || value.ifDictionary() || value.ifSet();
    Entry& entry = entries_[number - 1];
    if (isContainer && ++entry.levels > kPropertyListDepthMax) {
        failAt("containers nested too deep", {});
    }
    if (entry.walk >= walkMax_) failAt("shared contents would grow beyond any use", {});
    return value;
}

Value NSKeyedUnarchiver::makeFoundationObject(FoundationClass foundation) {
    switch (foundation) {
        case FoundationClass::String:
            return makeString();
        case FoundationClass::Data:
            return makeData();
        case FoundationClass::Date:
            return makeDate();
        case FoundationClass::Array:
            return valuesOf("NS.objects");
        case FoundationClass::Set:
            return makeSet();
        case FoundationClass::Dictionary:
            return makeDictionary();
        case FoundationClass::URL:
            return makeURL();
        case FoundationClass::UUID:
            return makeUUID();
        case FoundationClass::Null:
            return {};
    }
    return {};
}

Value NSKeyedUnarchiver::makeString() {
    const std::optional<Index> text = findOfKind(Kind::String, "NS.string");
    if (!text) failAt("no text", "NS.string");
    return scalarValue(*text);
}

Value NSKeyedUnarchiver::makeData() {
    const std::optional<Index> data = findOfKind(Kind::Data, "NS.data");
    if (!data) failAt("no data", "NS.data");
    return scalarValue(*data);
}

Value NSKeyedUnarchiver::makeDate() {
    if (!find("NS.time")) failAt("no number of seconds", "NS.time");
    const double seconds = decodeDoubleForKey("NS.time");
    if (std::isnan(seconds)) failAt("a date that is not a number", "NS.time");
    return NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
}

NSKeyedUnarchiver::Index NSKeyedUnarchiver::arrayUnder(std::string_view key) const {
    const std::optional<Index> array = findOfKind(Kind::Array, key);
    if (!array) failAt("no array of references", key);
    return *array;
}

// A member of a container. Nil is none: it could not be told from nothing.
Value NSKeyedUnarchiver::member(Index array, std::size_t place, std::string_view key) {
    const Index element = list_.element(array, place);
    if (list_.kind(element) != Kind::UID) failAt("a member that is no reference", key);
    const Index slot = list_.uid(element);
    if (slot == 0) failAt("a nil member", key);
    return valueOfSlot(slot, key);
}

ValueArray NSKeyedUnarchiver::valuesOf(std::string_view key) {
    const Index array = arrayUnder(key);
    ValueArray values;
    values.reserve(list_.size(array));
    for (std::size_t place = 0; place < list_.size(array); ++place)
        values.push_back(member(array, place, key));
    return values;
}

// Making one of these compares its members.
Value NSKeyedUnarchiver::makeSet() {
    ValueArray members = valuesOf("NS.objects");
    spend(comparisonsLeft_, entries_[current_ - 1].comparison);
    return Set(std::move(members));
}

Value NSKeyedUnarchiver::makeDictionary() {
    const Index keys = arrayUnder("NS.keys");
    const Index values = arrayUnder("NS.objects");
    const std::size_t count = list_.size(keys);
    if (count != list_.size(values)) {
        failAt(
            std::to_string(count) + " keys and " + std::to_string(list_.size(values)) + " values",
            "NS.objects");
    }
    std::vector<Dictionary::Entry> entries(count);
    for (std::size_t place = 0; place < count; ++place)
        entries[place].first = member(keys, place, "NS.keys");
    spend(comparisonsLeft_, entries_[current_ - 1].comparison);
    for (std::size_t place = 0; place < count; ++place)
        entries[place].second = member(values, place, "NS.objects");
    Dictionary dictionary = Dictionary::fromEntries(std::move(entries));
    if (dictionary.size() != count) failAt("a key that stands twice", "NS.keys");
    return dictionary;
}

// The base of a URL has none of its own: it would be absolute otherwise.
Value NSKeyedUnarchiver::makeURL() {
    const Value relative = decodeObjectForKey("NS.relative");
    if (relative.ifString() == nullptr) failAt("no text", "NS.relative");
    const Value base = decodeObjectForKey("NS.base");
    if (base.isNull()) {
        if (NSURLPtr url = NSURL::URLWithString(*relative.ifString())) return url;
        return std::make_shared<ArchivedURL>(*relative.ifString(), nullptr);
    }
    const auto other = base.object<ArchivedURL>();
    if (!base.object<NSURL>() && (!other || other->baseURL())) {
        failAt("no absolute URL", "NS.base");
    }
    return std::make_shared<ArchivedURL>(*relative.ifString(), base.object());
}

Value NSKeyedUnarchiver::makeUUID() {
    const std::string_view key = find("NS.uuidbytes") ? "NS.uuidbytes" : "uuid";
    const std::optional<std::string_view> bytes = decodeBytesForKey(key);
    std::shared_ptr<NSUUID> uuid = bytes ? NSUUID::initWithUUIDBytes(*bytes) : nullptr;
    if (!uuid) failAt("no sixteen bytes", "NS.uuidbytes");
    return uuid;
}

ObjectPtr NSKeyedUnarchiver::makeObject(std::uint32_t number) {
    const NSCodingClass& coding = *classes_[entries_[number - 1].knownClass].coding;
    try {
        const NSCodingClass::TwoSteps* const steps = coding.twoSteps();
        if (steps == nullptr) return coding.initWithCoder(*this);
        ObjectPtr instance = entries_[number - 1].value.object();
        if (!instance) {
            instance = steps->allocate();
            entries_[number - 1].value = instance;
        }
        steps->fill(*instance, *this);
        return instance;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const NSException&) {
        throw;
    } catch (const std::exception& error) {
        failDecoding(error.what());
    }
}

}  // namespace sevrin::platform
