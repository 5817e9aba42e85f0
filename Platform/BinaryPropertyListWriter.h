// Collects the objects of a binary property list and lays them out.
//
// Objects are added in any order and referred to by number, so nothing is built twice and nothing
// recurses. Equal scalars become one object: equal in kind and in every bit, so that 1, true and
// 1.0 stay three, and 0.0 and -0.0 two. Everything takes the smallest width. For one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace sevrin::platform {

class BinaryPropertyListWriter {
public:
    using Index = std::uint32_t;

    BinaryPropertyListWriter();

    // Takes the next number for a container whose content comes later, by setArray() or
    // setDictionary(). The outermost container should be the first: some readers expect it there.
    [[nodiscard]] Index reserve();

    [[nodiscard]] Index addBoolean(bool value);
    [[nodiscard]] Index addInteger(std::int64_t number);
    [[nodiscard]] Index addUnsigned(std::uint64_t number);
    [[nodiscard]] Index addReal(double number);
    [[nodiscard]] Index addDate(double secondsSince2001);
    [[nodiscard]] Index addData(std::string_view bytes);
    [[nodiscard]] Index addUID(std::uint32_t number);

    // Well-formed UTF-8. Throws PropertyListError for anything else.
    [[nodiscard]] Index addString(std::string_view text);

    [[nodiscard]] Index addArray(std::span<const Index> elements);

    // `keys` are strings, each once, with one value each.
    [[nodiscard]] Index addDictionary(std::span<const Index> keys, std::span<const Index> values);

    void setArray(Index reserved, std::span<const Index> elements);
    void setDictionary(Index reserved, std::span<const Index> keys, std::span<const Index> values);

    // Number of objects so far.
    [[nodiscard]] std::size_t count() const { return nodes_.size(); }

    // The whole list. Every reserved container has its content by now.
    [[nodiscard]] std::string finish(Index top) const;

private:
    enum class Kind : std::uint8_t { Scalar, Array, Dictionary };

    // A scalar is its bytes in `scalars_`, a container its references in `refs_`.
    struct Node {
        std::size_t start;
        std::size_t size;  // bytes; elements or entries
        Kind kind;
    };

    Index nextIndex() const;
    Index keepScalar(std::size_t start);
    void appendNumber(std::uint64_t number, std::size_t width);
    void appendHead(unsigned marker, std::size_t size);
    void growTable();
    std::size_t contentSize(const Node& node, std::size_t refBytes) const;

    std::vector<Node> nodes_;
    std::string scalars_;
    std::vector<Index> refs_;

    // Numbers of scalars, plus one, by the hash of their bytes; 0 where there is none.
    std::vector<Index> table_;
    std::size_t tableUsed_ = 0;
};

}  // namespace sevrin::platform
