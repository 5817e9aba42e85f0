// Reading: following references along a stack, so that every object finds those below it complete.
// What is made of each object is next door, and so are the calls that objects make.
#include "Platform/NSKeyedUnarchiver.h"

#include <algorithm>
#include <new>

#include "Platform/Format.h"
#include "Platform/NSError.h"
#include "Platform/NSException.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSLog.h"

namespace sevrin::platform {

namespace {

constexpr std::string_view kInit = "*** -[NSKeyedUnarchiver initForReadingWithData:]:";
constexpr std::string_view kNullMarker = "$null";

// Bytes that the message of an archive that is none shows.
constexpr std::size_t kBytesShown = 8;

// Objects that fail but that nobody asks for are forgiven up to this number, so that remembering
// them costs no more than the archive.
constexpr std::size_t kFailuresMax = 100;

[[noreturn]] void raiseIncomprehensible(std::string_view data, std::string_view reason) {
    std::string shown;
    for (const char byte : data.substr(0, kBytesShown)) {
        if (!shown.empty()) shown += ", ";
        shown +=
            stringWithFormat("0x%x", static_cast<std::int32_t>(static_cast<signed char>(byte)));
    }
    NSException::raiseFormat(NSInvalidArgumentException, "%@ incomprehensible archive (%@): %@",
                             kInit, shown, reason);
}

[[noreturn]] void raiseInvalid(std::string_view what) {
    NSException::raiseFormat(NSInvalidUnarchiveOperationException,
                             "*** -[NSKeyedUnarchiver decodeObjectForKey:]: %@", what);
}

std::string inObject(std::uint32_t slot) {
    return " in object " + std::to_string(slot);
}

}  // namespace

std::string_view keyedArchiveFault(const BinaryPropertyList& list) {
    using Kind = BinaryPropertyList::Kind;
    const auto top = list.top();
    if (list.kind(top) != Kind::Dictionary) return "the top object is no dictionary";
    const auto archiver = list.find(top, "$archiver");
    if (!archiver || list.kind(*archiver) != Kind::String ||
        !list.stringEquals(*archiver, kKeyedArchiverName)) {
        return "$archiver is not NSKeyedArchiver";
    }
    const auto version = list.find(top, "$version");
    if (!version || list.kind(*version) != Kind::Integer ||
        list.integer(*version) != Value(kKeyedArchiveVersion)) {
        return "$version is not 100000";
    }
    const auto outer = list.find(top, "$top");
    if (!outer || list.kind(*outer) != Kind::Dictionary) return "$top is no dictionary";
    const auto objects = list.find(top, "$objects");
    if (!objects || list.kind(*objects) != Kind::Array) return "$objects is no array";
    if (list.size(*objects) == 0) return "$objects is empty";
    const auto first = list.element(*objects, 0);
    if (list.kind(first) != Kind::String || !list.stringEquals(first, kNullMarker)) {
        return "$objects does not begin with $null";
    }
    return {};
}

Value NSKeyedUnarchiver::unarchiveObjectWithData(std::string_view data) {
    // Classes whose only mention may be in the archive.
    static_cast<void>(ExceptionObject::classObject());
    static_cast<void>(NSError::classObject());

    if (data.empty()) {
        NSLog("%@ data is %@", kInit,
              data.data() == nullptr ? "NULL"
                                     : "empty; did you forget to send -finishEncoding to the "
                                       "NSKeyedArchiver?");
        return {};
    }
    std::optional<BinaryPropertyList> list;
    try {
        list.emplace(data);
    } catch (const PropertyListError& error) {
        raiseIncomprehensible(data, error.what());
    }
    if (const std::string_view fault = keyedArchiveFault(*list); !fault.empty()) {
        raiseIncomprehensible(data, fault);
    }
    return NSKeyedUnarchiver(*list).unarchive();
}

// Every reference of an archive that shares nothing takes a byte at least, so the factor leaves
// room for those that share the little there is to share.
NSKeyedUnarchiver::NSKeyedUnarchiver(const BinaryPropertyList& list)
    : list_(list),
      objects_(*list.find(list.top(), "$objects")),
      entryOfSlot_(list.size(objects_)),
      numberOfNode_(list.count()),
      referencesLeft_(2 * list.byteCount() + 1'024),
      walkMax_(std::min<std::uint64_t>(
          std::max(kPropertyListWalkBytes, kPropertyListGrowthMax * list.byteCount()),
          std::numeric_limits<std::uint32_t>::max())) {
    constexpr std::size_t kEntriesExpected = 8;
    comparisonsLeft_ = walkMax_;
    entries_.reserve(kEntriesExpected);
    open_.reserve(kEntriesExpected);
    classes_.reserve(kEntriesExpected);
    texts_.reserve(kEntriesExpected);
}

// One with a class that nothing referred to before. A reference that leads nowhere matters only to
// whoever asks for it.
inline bool NSKeyedUnarchiver::isObjectToRead(Index slot) const {
    return slot != 0 && slot < entryOfSlot_.size() && entryOfSlot_[slot] == 0 &&
           list_.kind(list_.element(objects_, slot)) == Kind::Dictionary;
}

Value NSKeyedUnarchiver::unarchive() {
    const Index outer = *list_.find(list_.top(), "$top");
    const std::optional<Index> root = list_.find(outer, NSKeyedArchiveRootObjectKey);
    if (!root) return {};
    if (list_.kind(*root) != Kind::UID) {
        failAt("no reference to an object", NSKeyedArchiveRootObjectKey);
    }
    const Index slot = list_.uid(*root);
    if (isObjectToRead(slot)) {
        open(slot, std::nullopt);
        while (!open_.empty())
            readFrame();
    }
    current_ = 0;
    return valueOfSlot(slot, NSKeyedArchiveRootObjectKey);
}

// The references of the innermost object up to one that has to be followed first, or the object
// itself when there is none left.
void NSKeyedUnarchiver::readFrame() {
    const std::size_t depth = open_.size();
    std::optional<Index> key;
    while (const std::optional<Index> slot = nextReference(open_.back(), key)) {
        open(*slot, key);
        if (open_.size() != depth) return;
    }
    const std::uint32_t entry = open_.back().entry;
    open_.pop_back();
    complete(entry);
}

std::optional<NSKeyedUnarchiver::Index> NSKeyedUnarchiver::nextReference(
    Frame& frame, std::optional<Index>& key) const {
    const Index node = entries_[frame.entry - 1].node;
    const std::size_t fields = list_.size(node);
    for (; frame.field < fields; ++frame.field, frame.element = 0) {
        const Index value = list_.value(node, frame.field);
        const Kind kind = list_.kind(value);
        key = list_.key(node, frame.field);
        if (kind == Kind::Array) {
            const std::size_t elements = list_.size(value);
            for (std::size_t place = frame.element; place < elements; ++place) {
                const Index element = list_.element(value, place);
                if (list_.kind(element) != Kind::UID) continue;
                const Index slot = list_.uid(element);
                if (!isObjectToRead(slot)) continue;
                frame.element = place + 1;
                return slot;
            }
        } else if (kind == Kind::UID && isObjectToRead(list_.uid(value)) &&
                   !list_.stringEquals(*key, "$class")) {
            ++frame.field;
            return list_.uid(value);
        }
    }
    return std::nullopt;
}

// Gives an object that something refers to its entry, to be read. `key` is the one under which it
// was met, none for the root.
void NSKeyedUnarchiver::open(Index slot, std::optional<Index> key) {
    const Index node = list_.element(objects_, slot);
    entries_.push_back({});
    const auto number = static_cast<std::uint32_t>(entries_.size());
    entryOfSlot_[slot] = number;
    Entry& entry = entries_.back();
    entry.slot = slot;
    entry.node = node;
    try {
        current_ = number;
        std::uint64_t references = list_.size(node);
        for (std::size_t place = 0; place < list_.size(node); ++place) {
            const Index value = list_.value(node, place);
            if (list_.kind(value) == Kind::Array) references += list_.size(value);
        }
        spend(referencesLeft_, references);
        entry.knownClass = knownClassOf(node, key);
        entry.isWalked = classes_[entry.knownClass].foundation.has_value();
        open_.push_back({number, 0, 0});
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        if (failures_.size() == kFailuresMax) throw;
        failures_.emplace(slot, std::current_exception());
        entry.state = Entry::State::Failed;
    }
}

// Everything that it refers to has an entry by now.
void NSKeyedUnarchiver::complete(std::uint32_t number) {
    current_ = number;
    keyless_ = 0;
    Entry& entry = entries_[number - 1];
    try {
        entry.value = makeValue(number);
        entry.state = Entry::State::Done;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (...) {
        if (failures_.size() == kFailuresMax) throw;
        failures_.emplace(entry.slot, std::current_exception());
        entry.state = Entry::State::Failed;
    }
}

void NSKeyedUnarchiver::spend(std::uint64_t& budget, std::uint64_t amount) {
    if (amount > budget) failAt("shared contents would grow beyond any use", {});
    budget -= amount;
}

std::uint32_t NSKeyedUnarchiver::knownClassOf(Index node, std::optional<Index> key) {
    const std::optional<Index> reference = list_.find(node, "$class");
    if (!reference || list_.kind(*reference) != Kind::UID) {
        failAt("missing class information for object", "$class");
    }
    const Index slot = list_.uid(*reference);
    if (slot == 0 || slot >= entryOfSlot_.size()) {
        failAt("missing class information for object", "$class");
    }
    const Index classNode = list_.element(objects_, slot);
    if (list_.kind(classNode) != Kind::Dictionary) {
        failAt("missing class information for object", "$class");
    }
    std::uint32_t& number = numberOfNode_[classNode];
    if (number == 0) {
        classes_.push_back(readClass(classNode));
        number = static_cast<std::uint32_t>(classes_.size());
    }
    const KnownClass& known = classes_[number - 1];
    if (!known.foundation && known.coding == nullptr) {
        NSException::raiseFormat(
            NSInvalidUnarchiveOperationException,
            "*** -[NSKeyedUnarchiver decodeObjectForKey:]: cannot decode object of class (%@) for "
            "key (%@); the class may be defined in source code or a library that is not linked",
            list_.string(known.name),
            key ? list_.string(*key) : std::string(NSKeyedArchiveRootObjectKey));
    }
    return number - 1;
}

// By its own name, else by the first name known of those that the archive gives as substitutes.
NSKeyedUnarchiver::KnownClass NSKeyedUnarchiver::readClass(Index node) {
    const std::optional<Index> name = list_.find(node, "$classname");
    if (!name || list_.kind(*name) != Kind::String) {
        failAt("missing class information for object", "$class");
    }
    KnownClass result{*name, std::nullopt, nullptr};
    const auto look = [this, &result](Index candidate) {
        const std::string text = list_.string(candidate);
        result.foundation = foundationClassNamed(text);
        if (!result.foundation) result.coding = NSCodingClass::named(text);
        return result.foundation || result.coding != nullptr;
    };
    if (look(*name)) return result;
    const std::optional<Index> hints = list_.find(node, "$classhints");
    if (!hints || list_.kind(*hints) != Kind::Array) return result;
    spend(referencesLeft_, list_.size(*hints));
    for (std::size_t place = 0; place < list_.size(*hints); ++place) {
        const Index hint = list_.element(*hints, place);
        if (list_.kind(hint) == Kind::String && look(hint)) break;
    }
    return result;
}

// "... at key (k) of object 4 of class (X)".
void NSKeyedUnarchiver::failAt(std::string_view what, std::string_view key) const {
    std::string text(what);
    if (!key.empty()) text.append(" for key (").append(key).append(")");
    if (current_ == 0) {
        text += " in $top";
    } else {
        const Entry& entry = entries_[current_ - 1];
        text += inObject(entry.slot);
        if (entry.knownClass != kNoClass) {
            text += " of class (" + list_.string(classes_[entry.knownClass].name) + ")";
        }
    }
    raiseInvalid(text);
}

void NSKeyedUnarchiver::failIn(Index slot, std::string_view what) {
    raiseInvalid(std::string(what) + inObject(slot));
}

}  // namespace sevrin::platform
