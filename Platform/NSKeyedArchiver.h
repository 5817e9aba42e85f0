// Writes values and objects as a keyed archive, the form that other programs of the platform read.
//
// Every object is written once, however often it is met: objects by identity, containers by their
// shared payload, equal text and numbers by content. An object takes its number first, then those
// within it take theirs in the order in which it encodes them. Objects are asked for their fields
// one after the other, never one within the other, so a chain of them may have any length. For one
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Platform/BinaryPropertyListWriter.h"
#include "Platform/NSCoder.h"

namespace sevrin::platform {

// What every keyed archive says of itself.
inline constexpr std::string_view kKeyedArchiverName = "NSKeyedArchiver";
inline constexpr std::int64_t kKeyedArchiveVersion = 100'000;
inline constexpr std::string_view NSKeyedArchiveRootObjectKey = "root";

class NSKeyedArchiver final : public NSCoder {
public:
    // The archive of `root`, null included. Text that is not UTF-8 is archived with each stray byte
    // as \xNN, for an archive holds Unicode only. Raises NSInvalidArgumentException for what no
    // reader would take, wherever it is: an object of a class that cannot be archived, a date that
    // is not a number, containers nested deeper than kPropertyListDepthMax.
    [[nodiscard]] static std::string archivedDataWithRootObject(const Value& root);

    [[nodiscard]] bool allowsKeyedCoding() const override { return true; }

    void encodeObjectForKey(const Value& object, std::string_view key) override;
    void encodeMutableObjectForKey(const Value& object, std::string_view key) override;
    void encodeInt32ForKey(std::int32_t number, std::string_view key) override;
    void encodeInt64ForKey(std::int64_t number, std::string_view key) override;
    void encodeBoolForKey(bool value, std::string_view key) override;
    void encodeDoubleForKey(double number, std::string_view key) override;
    void encodeBytesForKey(std::string_view bytes, std::string_view key) override;

private:
    using Index = BinaryPropertyListWriter::Index;

    // One field of an object: a property list at hand, or an object whose number comes later.
    struct Field {
        Index key;
        bool isInline;
        bool isMutable;
        Index content;
        Value object;
    };

    // An object whose number is given and whose content is being written.
    struct Frame {
        Index node;                  // its dictionary
        const Class* theClass;       // or nullptr
        std::string_view className;  // of the platform's own
        bool isContainer;
        std::size_t next;             // the field or element to go on with
        std::vector<Field> fields;    // of an object
        Value container;              // or its elements
        std::vector<Index> elements;  // numbers of those that have theirs
    };

    NSKeyedArchiver();

    std::string archive(const Value& root);
    void writeOpen();
    void writeField(std::size_t frame);
    bool writeElement(std::size_t frame);
    void close();

    Index slotOf(const Value& value, bool isMutable);
    Index slotOfScalar(Index scalar);
    Index slotOfContainer(const Value& value, const void* payload, bool isMutable);
    Index slotOfObject(const ObjectPtr& object);
    Index slotOfNull();
    Index slotOfClass(const Frame& frame);
    Index slotOfFoundationObject(std::string_view className, std::vector<Field> fields);
    bool fieldsOfFoundationObject(const Object& object, std::vector<Field>& fields,
                                  std::string_view& className);

    Index newSlot(Index node);
    Index addText(std::string_view text);
    Index addKey(std::string_view key);
    void addInline(std::string_view key, Index content);
    Field inlineField(std::string_view key, Index content);
    Field objectField(std::string_view key, Value object);

    BinaryPropertyListWriter writer_;
    std::vector<Index> objects_;   // their nodes, by number
    std::vector<Frame> open_;      // the innermost last
    std::vector<Field> recorded_;  // by the object that is encoding itself
    std::unordered_map<const void*, Index> slots_;
    std::vector<Index> scalarSlots_;  // by node; 0 for none
    std::vector<std::pair<std::string_view, Index>> classSlots_;
    std::vector<Value> kept_;  // so that no address comes back for another object
    Index nullSlot_ = 0;
    std::size_t containersOpen_ = 0;
};

}  // namespace sevrin::platform
