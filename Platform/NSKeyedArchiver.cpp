// Writing: numbers are given on the way down a stack of open objects, content follows.
#include "Platform/NSKeyedArchiver.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "Platform/ArchivedURL.h"
#include "Platform/Assertion.h"
#include "Platform/BinaryPropertyList.h"
#include "Platform/FoundationClasses.h"
#include "Platform/NSException.h"
#include "Platform/NSURL.h"
#include "Platform/NSUUID.h"
#include "Platform/Text.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kNullMarker = "$null";

// The element of a container at `place`, as archives count them: of a dictionary all keys, then
// all values. nullptr beyond the last.
const Value* elementAt(const Value& container, std::size_t place) {
    if (const Dictionary* dictionary = container.ifDictionary()) {
        const auto& entries = dictionary->entries();
        if (place < entries.size()) return &entries[place].first;
        place -= entries.size();
        return place < entries.size() ? &entries[place].second : nullptr;
    }
    const ValueArray& elements =
        container.ifArray() ? *container.ifArray() : container.ifSet()->members();
    return place < elements.size() ? &elements[place] : nullptr;
}

std::string_view containerClass(const Value& container, bool isMutable) {
    if (container.ifArray()) return isMutable ? "NSMutableArray" : "NSArray";
    if (container.ifSet()) return isMutable ? "NSMutableSet" : "NSSet";
    return isMutable ? "NSMutableDictionary" : "NSDictionary";
}

[[noreturn]] void fail(const std::string& what) {
    NSException::raiseFormat(NSInvalidArgumentException,
                             "*** -[NSKeyedArchiver encodeObject:forKey:]: %@", what);
}

}  // namespace

std::string NSKeyedArchiver::archivedDataWithRootObject(const Value& root) {
    return NSKeyedArchiver().archive(root);
}

NSKeyedArchiver::NSKeyedArchiver() = default;

std::string NSKeyedArchiver::archive(const Value& root) {
    const Index top = writer_.reserve();
    newSlot(addText(kNullMarker));
    const Index rootUID = writer_.addUID(slotOf(root, false));
    writeOpen();

    const Index rootKey = addText(NSKeyedArchiveRootObjectKey);
    const std::array keys = {addText("$version"), addText("$archiver"), addText("$top"),
                             addText("$objects")};
    const std::array values = {
        writer_.addInteger(kKeyedArchiveVersion), addText(kKeyedArchiverName),
        writer_.addDictionary({&rootKey, 1}, {&rootUID, 1}), writer_.addArray(objects_)};
    writer_.setDictionary(top, keys, values);
    return writer_.finish(top);
}

void NSKeyedArchiver::writeOpen() {
    while (!open_.empty()) {
        const std::size_t innermost = open_.size() - 1;
        const Frame& frame = open_[innermost];
        if (frame.isContainer) {
            if (!writeElement(innermost)) close();
        } else if (frame.next == frame.fields.size()) {
            close();
        } else {
            writeField(innermost);
        }
    }
}

// Giving a number may open a further object and move all the others.
void NSKeyedArchiver::writeField(std::size_t frame) {
    const std::size_t place = open_[frame].next++;
    if (open_[frame].fields[place].isInline) return;
    kept_.push_back(std::move(open_[frame].fields[place].object));
    const Value object = kept_.back();
    const Index slot = slotOf(object, open_[frame].fields[place].isMutable);
    open_[frame].fields[place].content = writer_.addUID(slot);
}

// False when there is none left.
bool NSKeyedArchiver::writeElement(std::size_t frame) {
    const Value* const element = elementAt(open_[frame].container, open_[frame].next);
    if (element == nullptr) return false;
    ++open_[frame].next;
    const Index slot = element->isNull() ? slotOfNull() : slotOf(*element, false);
    open_[frame].elements.push_back(writer_.addUID(slot));
    return true;
}

void NSKeyedArchiver::close() {
    const Frame frame = std::move(open_.back());
    open_.pop_back();
    std::vector<Index> keys;
    std::vector<Index> values;
    if (frame.isContainer) {
        --containersOpen_;
        std::span<const Index> elements = frame.elements;
        if (frame.container.ifDictionary()) {
            keys.push_back(addText("NS.keys"));
            values.push_back(writer_.addArray(elements.first(elements.size() / 2)));
            elements = elements.subspan(elements.size() / 2);
        }
        keys.push_back(addText("NS.objects"));
        values.push_back(writer_.addArray(elements));
    }
    for (const Field& field : frame.fields) {
        SEVRIN_ASSERT(std::find(keys.begin(), keys.end(), field.key) == keys.end(),
                      "an object stores one value under one key");
        keys.push_back(field.key);
        values.push_back(field.content);
    }
    keys.push_back(addText("$class"));
    values.push_back(writer_.addUID(slotOfClass(frame)));
    writer_.setDictionary(frame.node, keys, values);
}

NSKeyedArchiver::Index NSKeyedArchiver::slotOf(const Value& value, bool isMutable) {
    switch (value.kind()) {
        case Value::Kind::Null:
            return 0;
        case Value::Kind::Boolean:
            return slotOfScalar(writer_.addBoolean(*value.ifBoolean()));
        case Value::Kind::Signed:
            return slotOfScalar(writer_.addInteger(*value.ifSigned()));
        case Value::Kind::Unsigned:
            return slotOfScalar(writer_.addUnsigned(*value.ifUnsigned()));
        case Value::Kind::Double:
            return slotOfScalar(writer_.addReal(*value.ifDouble()));
        case Value::Kind::String: {
            const Index text = addText(*value.ifString());
            if (!isMutable) return slotOfScalar(text);
            return slotOfFoundationObject("NSMutableString", {inlineField("NS.string", text)});
        }
        case Value::Kind::Data: {
            const Index data = writer_.addData(value.ifData()->bytes);
            if (!isMutable) return slotOfScalar(data);
            return slotOfFoundationObject("NSMutableData", {inlineField("NS.data", data)});
        }
        case Value::Kind::Date: {
            const double seconds = value.ifDate()->timeIntervalSinceReferenceDate();
            if (std::isnan(seconds)) fail("a date that is not a number");
            return slotOfFoundationObject("NSDate",
                                          {inlineField("NS.time", writer_.addReal(seconds))});
        }
        case Value::Kind::Array:
            return slotOfContainer(value, value.ifArray(), isMutable);
        case Value::Kind::Dictionary:
            return slotOfContainer(value, value.ifDictionary(), isMutable);
        case Value::Kind::Set:
            return slotOfContainer(value, value.ifSet(), isMutable);
        case Value::Kind::Object:
            return slotOfObject(value.object());
    }
    return 0;
}

NSKeyedArchiver::Index NSKeyedArchiver::slotOfScalar(Index scalar) {
    if (scalar >= scalarSlots_.size()) scalarSlots_.resize(std::size_t{scalar} * 2 + 64);
    if (scalarSlots_[scalar] == 0) scalarSlots_[scalar] = newSlot(scalar);
    return scalarSlots_[scalar];
}

NSKeyedArchiver::Index NSKeyedArchiver::slotOfContainer(const Value& value, const void* payload,
                                                        bool isMutable) {
    const auto [place, isNew] = slots_.try_emplace(payload);
    if (!isNew) return place->second;
    if (++containersOpen_ > kPropertyListDepthMax) fail("containers nested too deep to be read");
    const Index node = writer_.reserve();
    const Index slot = newSlot(node);
    place->second = slot;
    open_.push_back({node, nullptr, containerClass(value, isMutable), true, 0, {}, value, {}});
    return slot;
}

NSKeyedArchiver::Index NSKeyedArchiver::slotOfObject(const ObjectPtr& object) {
    const auto* const coding = dynamic_cast<const NSCoding*>(object.get());
    if (coding != nullptr) {
        if (const std::optional<Value> other = coding->replacementObjectForCoder(*this)) {
            kept_.push_back(*other);
            return slotOf(*other, false);
        }
    }
    if (const auto known = slots_.find(object.get()); known != slots_.end()) return known->second;

    Frame frame{0, nullptr, {}, false, 0, {}, {}, {}};
    if (!fieldsOfFoundationObject(*object, frame.fields, frame.className)) {
        frame.theClass = &object->isa();
        if (coding == nullptr) {
            fail("an object of class (" + frame.theClass->name() + ") cannot be archived");
        }
        // What it encodes is only written down here, so nothing recurses.
        recorded_.clear();
        coding->encodeWithCoder(*this);
        frame.fields = std::move(recorded_);
    }
    frame.node = writer_.reserve();
    const Index slot = newSlot(frame.node);
    slots_.emplace(object.get(), slot);
    open_.push_back(std::move(frame));
    return slot;
}

bool NSKeyedArchiver::fieldsOfFoundationObject(const Object& object, std::vector<Field>& fields,
                                               std::string_view& className) {
    if (const auto* url = dynamic_cast<const NSURL*>(&object)) {
        className = "NSURL";
        fields.push_back(objectField("NS.base", Value()));
        fields.push_back(objectField("NS.relative", url->absoluteString()));
        return true;
    }
    if (const auto* url = dynamic_cast<const ArchivedURL*>(&object)) {
        className = "NSURL";
        fields.push_back(objectField("NS.base", url->baseURL()));
        fields.push_back(objectField("NS.relative", url->relativeString()));
        return true;
    }
    if (const auto* uuid = dynamic_cast<const NSUUID*>(&object)) {
        const auto* const bytes = reinterpret_cast<const char*>(uuid->bytes().data());
        className = "NSUUID";
        fields.push_back(
            inlineField("NS.uuidbytes", writer_.addData({bytes, uuid->bytes().size()})));
        return true;
    }
    return false;
}

// An object of the platform that no two places share.
NSKeyedArchiver::Index NSKeyedArchiver::slotOfFoundationObject(std::string_view className,
                                                               std::vector<Field> fields) {
    const Index node = writer_.reserve();
    const Index slot = newSlot(node);
    open_.push_back({node, nullptr, className, false, 0, std::move(fields), {}, {}});
    return slot;
}

// Null within a container, where nothing cannot be.
NSKeyedArchiver::Index NSKeyedArchiver::slotOfNull() {
    if (nullSlot_ == 0) nullSlot_ = slotOfFoundationObject("NSNull", {});
    return nullSlot_;
}

NSKeyedArchiver::Index NSKeyedArchiver::slotOfClass(const Frame& frame) {
    const std::string_view name = frame.theClass ? frame.theClass->name() : frame.className;
    for (const auto& [known, slot] : classSlots_) {
        if (known == name) return slot;
    }
    std::vector<Index> chain;
    if (frame.theClass == nullptr) {
        for (const std::string_view above : foundationClassChain(name))
            chain.push_back(addText(above));
    }
    for (const Class* walk = frame.theClass; walk != nullptr; walk = walk->superclass()) {
        chain.push_back(
            addText(walk->superclass() ? std::string_view(walk->name()) : kRootClassName));
    }
    const std::array keys = {addText("$classname"), addText("$classes")};
    const std::array values = {chain.front(), writer_.addArray(chain)};
    const Index slot = newSlot(writer_.addDictionary(keys, values));
    classSlots_.emplace_back(name, slot);
    return slot;
}

NSKeyedArchiver::Index NSKeyedArchiver::newSlot(Index node) {
    objects_.push_back(node);
    return static_cast<Index>(objects_.size() - 1);
}

NSKeyedArchiver::Index NSKeyedArchiver::addText(std::string_view text) {
    try {
        return writer_.addString(text);
    } catch (const PropertyListError&) {
        return writer_.addString(escapeInvalidUtf8(text));
    }
}

// The archive's own keys begin with one dollar sign.
NSKeyedArchiver::Index NSKeyedArchiver::addKey(std::string_view key) {
    return key.starts_with('$') ? addText('$' + std::string(key)) : addText(key);
}

NSKeyedArchiver::Field NSKeyedArchiver::inlineField(std::string_view key, Index content) {
    return {addText(key), true, false, content, {}};
}

NSKeyedArchiver::Field NSKeyedArchiver::objectField(std::string_view key, Value object) {
    return {addText(key), false, false, 0, std::move(object)};
}

void NSKeyedArchiver::addInline(std::string_view key, Index content) {
    recorded_.push_back({addKey(key), true, false, content, {}});
}

void NSKeyedArchiver::encodeObjectForKey(const Value& object, std::string_view key) {
    recorded_.push_back({addKey(key), false, false, 0, object});
}

void NSKeyedArchiver::encodeMutableObjectForKey(const Value& object, std::string_view key) {
    recorded_.push_back({addKey(key), false, true, 0, object});
}

void NSKeyedArchiver::encodeInt32ForKey(std::int32_t number, std::string_view key) {
    addInline(key, writer_.addInteger(number));
}

void NSKeyedArchiver::encodeInt64ForKey(std::int64_t number, std::string_view key) {
    addInline(key, writer_.addInteger(number));
}

void NSKeyedArchiver::encodeBoolForKey(bool value, std::string_view key) {
    addInline(key, writer_.addBoolean(value));
}

void NSKeyedArchiver::encodeDoubleForKey(double number, std::string_view key) {
    addInline(key, writer_.addReal(number));
}

void NSKeyedArchiver::encodeBytesForKey(std::string_view bytes, std::string_view key) {
    addInline(key, writer_.addData(bytes));
}

}  // namespace sevrin::platform
