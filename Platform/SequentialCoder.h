// A coder without keys that keeps its values in memory, in the order in which they were written.
//
// An object is its class name followed by its fields, an absent object is null; an object written
// twice is written twice. Text, numbers and the like are objects of the platform's classes with one
// field, themselves; a container has its count and its members, a dictionary each key before its
// value. One encoder fills a sequence, one decoder reads it from the start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Platform/FoundationClasses.h"
#include "Platform/NSCoder.h"

namespace sevrin::platform {

// Objects within objects a sequential coder follows before it throws: its form is nested, so each
// level takes stack.
inline constexpr std::size_t kSequentialDepthMax = 512;

class SequentialEncoder final : public NSCoder {
public:
    [[nodiscard]] bool allowsKeyedCoding() const override { return false; }

    // Takes any value; an object in it that is not NSCoding is a bug of the caller. Raises
    // NSInvalidArgumentException beyond kSequentialDepthMax.
    void encodeObject(const Value& object) override;
    void encodeUnsignedInt32(std::uint32_t number) override;
    void encodeBytes(std::string_view bytes) override;

    // All that was written so far.
    [[nodiscard]] const std::vector<Value>& values() const { return values_; }

private:
    void encodeMembers(const Value& container);

    std::vector<Value> values_;
    std::size_t depth_ = 0;
};

class SequentialDecoder final : public NSCoder {
public:
    explicit SequentialDecoder(std::vector<Value> values);

    [[nodiscard]] bool allowsKeyedCoding() const override { return false; }

    // All raise NSInvalidUnarchiveOperationException when the next value is missing or is not what
    // was asked for; decodeObject() also for a class that is unknown or cannot be archived, and
    // beyond kSequentialDepthMax.
    [[nodiscard]] Value decodeObject() override;
    [[nodiscard]] std::uint32_t decodeUnsignedInt32() override;
    [[nodiscard]] std::string_view decodeBytes() override;

    // Raises NSInvalidUnarchiveOperationException with `what` and the place in the sequence.
    [[noreturn]] void failDecoding(std::string_view what) override;

private:
    const Value& takeNext();
    Value decodeFoundationObject(FoundationClass foundation);
    ValueArray decodeMembers(std::size_t valuesEach);
    Dictionary decodeEntries();

    const std::vector<Value> values_;
    std::size_t position_ = 0;
    std::size_t depth_ = 0;
};

}  // namespace sevrin::platform
