// What is made of one object of an archive, by its class or its kind, and what stands for it where
// another one asks for it.
#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/ArchivedURL.h"
#include "Platform/Assertion.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedUnarchiver.h"
#include "Platform/NSURL.h"
#include "Platform/NSUUID.h"

namespace sevrin::platform {

namespace {

// Text of ASCII of up to so many characters is copied for everything that has it, longer one
// shared.
constexpr std::size_t kCopiedBytesMax = 15;

}  // namespace

// A walk through values goes into containers, comparing goes into objects too.
inline void NSKeyedUnarchiver::addToWalk(const Extent& child) {
    if (current_ == 0) return;
    const auto add = [this](std::uint32_t& sum, std::uint32_t more) {
        sum = static_cast<std::uint32_t>(
            std::min<std::uint64_t>(walkMax_, std::uint64_t{sum} + more));
    };
    Entry& entry = entries_[current_ - 1];
    add(entry.extent.comparison, child.comparison);
    if (entry.isWalked) add(entry.extent.walk, child.walk);
    entry.extent.levels = std::max(entry.extent.levels, child.levels);
}

// What stands for an object that is asked for. One that is still open encloses the one that asks.
Value NSKeyedUnarchiver::valueOfSlot(Index slot, std::string_view key) {
    if (slot == 0) return {};
    if (slot >= entryOfSlot_.size()) {
        failAt("a reference to object " + std::to_string(slot) + ", which there is not", key);
    }
    if (const std::uint32_t number = entryOfSlot_[slot]; number != 0) {
        return valueOfEntry(entries_[number - 1], key);
    }
    return scalarValue(slot, list_.element(objects_, slot));
}

Value NSKeyedUnarchiver::valueOfEntry(Entry& entry, std::string_view key) {
    if (entry.state == Entry::State::Done) {
        addToWalk(entry.extent);
        return entry.value;
    }
    if (entry.state == Entry::State::Failed) std::rethrow_exception(failures_.at(entry.slot));

    const NSCodingClass* const coding = classes_[entry.knownClass].coding;
    if (coding == nullptr || coding->twoSteps() == nullptr) {
        failAt("an object that holds itself", key);
    }
    if (entry.value.isNull()) entry.value = coding->twoSteps()->allocate();
    return coding->twoSteps()->backReference(entry.value.object());
}

// A string, number or the like that is an object by itself.
Value NSKeyedUnarchiver::scalarValue(Index slot, Index node) {
    switch (list_.kind(node)) {
        case Kind::Boolean:
            addToWalk({});
            return list_.boolean(node);
        case Kind::Integer:
            addToWalk({});
            return list_.integer(node);
        case Kind::Real:
            addToWalk({});
            return list_.real(node);
        case Kind::Date:
            addToWalk({});
            return NSDate::dateWithTimeIntervalSinceReferenceDate(list_.date(node));
        case Kind::String:
        case Kind::Data:
            addToWalk(textExtent(node));
            return textValue(node);
        case Kind::UID:
        case Kind::Array:
            break;
        case Kind::Dictionary:
            SEVRIN_ASSERT(false, "every reference was followed before it is asked for");
    }
    failIn(slot, "neither an object nor a value");
}

// Text that a Value holds within itself is made anew each time; longer text and data once.
Value NSKeyedUnarchiver::textValue(Index node) {
    const bool isData = list_.kind(node) == Kind::Data;
    if (!isData && list_.size(node) <= kCopiedBytesMax) {
        if (const auto ascii = list_.asciiString(node)) return *ascii;
    }
    std::uint32_t& number = numberOfNode_[node];
    if (number == 0) {
        texts_.push_back(isData ? Value(Data{std::string(list_.data(node))})
                                : Value::sharedString(list_.string(node)));
        number = static_cast<std::uint32_t>(texts_.size());
    }
    return texts_[number - 1];
}

NSKeyedUnarchiver::Extent NSKeyedUnarchiver::textExtent(Index node) const {
    const auto walk =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(list_.size(node) + 1, walkMax_));
    return {walk, walk, 0};
}

Value NSKeyedUnarchiver::makeValue(std::uint32_t number) {
    const KnownClass& known = classes_[entries_[number - 1].knownClass];
    if (!known.foundation) return makeObject(number);
    Value value = makeFoundationObject(*known.foundation);
    const bool isContainer = value.ifArray() || value.ifDictionary() || value.ifSet();
    Entry& entry = entries_[number - 1];
    if (isContainer && ++entry.extent.levels > kPropertyListDepthMax) {
        failAt("containers nested too deep", {});
    }
    if (entry.extent.walk >= walkMax_) failAt("shared contents would grow beyond any use", {});
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
    entries_[current_ - 1].extent = textExtent(*text);
    return textValue(*text);
}

Value NSKeyedUnarchiver::makeData() {
    const std::optional<Index> data = findOfKind(Kind::Data, "NS.data");
    if (!data) failAt("no data", "NS.data");
    entries_[current_ - 1].extent = textExtent(*data);
    return textValue(*data);
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
    spend(comparisonsLeft_, entries_[current_ - 1].extent.comparison);
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
    std::vector<Dictionary::Entry> entries;
    entries.reserve(count);
    for (std::size_t place = 0; place < count; ++place)
        entries.emplace_back(member(keys, place, "NS.keys"), nullptr);
    spend(comparisonsLeft_, entries_[current_ - 1].extent.comparison);
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
