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

// The members of a container. Nil is none: it could not be told from nothing.
ValueArray NSKeyedUnarchiver::valuesOf(std::string_view key) {
    const std::optional<Index> array = findOfKind(Kind::Array, key);
    if (!array) failAt("no array of references", key);
    ValueArray values;
    values.reserve(list_.size(*array));
    for (std::size_t place = 0; place < list_.size(*array); ++place) {
        const Index element = list_.element(*array, place);
        if (list_.kind(element) != Kind::UID) failAt("a member that is no reference", key);
        const Index slot = list_.uid(element);
        if (slot == 0) failAt("a nil member", key);
        values.push_back(valueOfSlot(slot, key));
    }
    return values;
}

// Making one of these compares its members.
Value NSKeyedUnarchiver::makeSet() {
    ValueArray members = valuesOf("NS.objects");
    spend(comparisonsLeft_, entries_[current_ - 1].comparison);
    return Set(std::move(members));
}

Value NSKeyedUnarchiver::makeDictionary() {
    ValueArray keys = valuesOf("NS.keys");
    spend(comparisonsLeft_, entries_[current_ - 1].comparison);
    ValueArray values = valuesOf("NS.objects");
    if (keys.size() != values.size()) {
        failAt(
            std::to_string(keys.size()) + " keys and " + std::to_string(values.size()) + " values",
            "NS.objects");
    }
    std::vector<Dictionary::Entry> entries;
    entries.reserve(keys.size());
    for (std::size_t place = 0; place < keys.size(); ++place)
        entries.emplace_back(std::move(keys[place]), std::move(values[place]));
    Dictionary dictionary = Dictionary::fromEntries(std::move(entries));
    if (dictionary.size() != keys.size()) failAt("a key that stands twice", "NS.keys");
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
