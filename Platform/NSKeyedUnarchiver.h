// Reads keyed archives, whoever wrote them, back into values and objects.
//
// The objects that another one refers to are complete before that one is asked to read its fields,
// so nothing recurses however long a chain of them is. What an archive refers to but nobody asks
// for does no harm. What comes out is bounded by what went in: shared containers stay shared, one
// that would grow beyond any use when walked is refused, as are cycles, except through objects that
// are made in two steps (Platform/NSCoder.h). For one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/BinaryPropertyList.h"
#include "Platform/FoundationClasses.h"
#include "Platform/NSCoder.h"

namespace sevrin::platform {

// What is wrong with the outermost dictionary of a property list that should be a keyed archive;
// empty when nothing is. What lies within the objects is not looked at.
[[nodiscard]] std::string_view keyedArchiveFault(const BinaryPropertyList& list);

class NSKeyedUnarchiver final : public NSCoder {
public:
    // The root object of an archive; null when it has none. Any class that is registered is
    // accepted; one that is not gives way to the first of those its archive names as substitutes.
    //
    // Raises NSInvalidArgumentException for bytes that are no keyed archive,
    // NSInvalidUnarchiveOperationException for one with something wrong inside, NSRangeException
    // for a number too wide for the object that reads it; each with the reason and the place.
    // Nothing at all (no bytes) is no archive either, but gives null and a message on the console.
    [[nodiscard]] static Value unarchiveObjectWithData(std::string_view data);

    [[nodiscard]] bool allowsKeyedCoding() const override { return true; }

    [[nodiscard]] bool containsValueForKey(std::string_view key) override;
    [[nodiscard]] Value decodeObjectForKey(std::string_view key) override;
    [[nodiscard]] Value decodePropertyListForKey(std::string_view key) override;
    [[nodiscard]] ObjectPtr decodeObjectOfClassForKey(const Class& expected,
                                                      std::string_view key) override;
    [[nodiscard]] std::int32_t decodeInt32ForKey(std::string_view key) override;
    [[nodiscard]] std::int64_t decodeInt64ForKey(std::string_view key) override;
    [[nodiscard]] bool decodeBoolForKey(std::string_view key) override;
    [[nodiscard]] double decodeDoubleForKey(std::string_view key) override;
    [[nodiscard]] std::optional<std::string_view> decodeBytesForKey(std::string_view key) override;
    [[nodiscard]] Value decodeObject() override;
    [[noreturn]] void failDecoding(std::string_view what) override;

private:
    using Index = BinaryPropertyList::Index;
    using Kind = BinaryPropertyList::Kind;

    // What a class of the archive is here; neither when it is unknown. `name` is that of the
    // archive.
    struct KnownClass {
        Index name;
        std::optional<FoundationClass> foundation;
        const NSCodingClass* coding;
    };

    static constexpr std::uint32_t kNoClass = std::numeric_limits<std::uint32_t>::max();

    // What a walk through a value visits, and its levels of containers, itself included.
    struct Extent {
        std::uint32_t walk = 1;        // not into objects
        std::uint32_t comparison = 1;  // into objects too
        std::uint16_t levels = 0;
    };

    // An object with a class that something refers to. Entries count from 1; 0 is none. Text,
    // numbers and the like have none: they are made whenever they are asked for.
    struct Entry {
        enum class State : std::uint8_t { Open, Done, Failed };

        Value value;
        Index slot = 0;
        Index node = 0;
        std::uint32_t knownClass = kNoClass;
        State state = State::Open;
        bool isWalked = false;  // a walk goes into it
        Extent extent;
    };

    // An object whose references are being followed.
    struct Frame {
        std::uint32_t entry;
        std::size_t field;
        std::size_t element;
    };

    explicit NSKeyedUnarchiver(const BinaryPropertyList& list);

    Value unarchive();
    void readFrame();
    void open(Index slot, std::optional<Index> key);
    std::optional<Index> nextReference(Frame& frame, std::optional<Index>& key) const;
    std::uint32_t knownClassOf(Index node, std::optional<Index> key);
    KnownClass readClass(Index node);

    void complete(std::uint32_t entry);
    Value makeValue(std::uint32_t entry);
    Value makeFoundationObject(FoundationClass foundation);
    Value makeString();
    Value makeData();
    Value makeDate();
    Value makeSet();
    Value makeDictionary();
    Value makeURL();
    Value makeUUID();
    ObjectPtr makeObject(std::uint32_t entry);
    Index arrayUnder(std::string_view key) const;
    Value member(Index array, std::size_t place, std::string_view key);
    ValueArray valuesOf(std::string_view key);
    void addToWalk(const Extent& child);
    void spend(std::uint64_t& budget, std::uint64_t amount);

    Value valueOfSlot(Index slot, std::string_view key);
    Value valueOfEntry(Entry& entry, std::string_view key);
    [[nodiscard]] bool isObjectToRead(Index slot) const;
    std::optional<Index> find(std::string_view key) const;
    std::optional<Index> findOfKind(Kind kind, std::string_view key) const;
    Value scalarValue(Index slot, Index node);
    Value textValue(Index node);
    [[nodiscard]] Extent textExtent(Index node) const;
    [[noreturn]] void failWrongKind(std::string_view key) const;
    [[noreturn]] void failAt(std::string_view what, std::string_view key) const;
    [[noreturn]] static void failIn(Index slot, std::string_view what);

    const BinaryPropertyList& list_;
    Index objects_ = 0;                       // the array of all objects
    std::vector<std::uint32_t> entryOfSlot_;  // 0 for none
    std::vector<Entry> entries_;
    std::vector<Frame> open_;
    std::vector<KnownClass> classes_;
    std::vector<Value> texts_;                 // long text and data, shared by all that have it
    std::vector<std::uint32_t> numberOfNode_;  // in the two above, plus one; 0 for none
    std::map<Index, Value> inlineValues_;      // property lists within objects, by node
    std::map<Index, std::exception_ptr> failures_;  // by slot
    std::uint32_t current_ = 0;                     // the entry being made, none at the top
    std::uint32_t keyless_ = 0;                     // objects that it took by decodeObject()
    std::uint64_t referencesLeft_ = 0;
    std::uint64_t comparisonsLeft_ = 0;
    std::uint64_t walkMax_ = 0;
};

}  // namespace sevrin::platform
