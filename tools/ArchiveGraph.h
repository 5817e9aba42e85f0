// A keyed archive as a graph of whatever is in it: shown, compared and spelled as JSON without any
// of its classes.
//
// Archives come from anywhere. Nothing here recurses along what an archive refers to.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/BinaryPropertyList.h"
#include "tools/Json.h"

namespace sevrin {

// A file that is no archive, or a reference in one that leads nowhere; the text says which.
class ArchiveError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class ArchiveGraph {
public:
    using Index = platform::BinaryPropertyList::Index;

    // One place in the graph: an object by its number, or what stands within another one, which has
    // none.
    struct Item {
        Index node;
        std::uint32_t number;

        // Nothing at all, which every archive has as the object 0.
        bool isNil = false;
    };

    // What an item has below it, with the words for it: a key, or a place in brackets.
    struct Child {
        std::string label;
        Item item;
    };

    // Throws ArchiveError for bytes that are no archive. Takes them over.
    explicit ArchiveGraph(std::string bytes);
    ArchiveGraph(const ArchiveGraph&) = delete;
    ArchiveGraph& operator=(const ArchiveGraph&) = delete;

    // What the archive holds, under the names that it has there; usually the one "root".
    [[nodiscard]] std::vector<Child> roots() const;

    // The entries of dictionaries and the members of arrays and sets, whether they are objects or
    // property lists, and the fields of all other objects. Nothing for the rest. Throws
    // ArchiveError for a reference that leads nowhere.
    [[nodiscard]] std::vector<Child> children(const Item& item) const;

    // Whether the item may have something below it.
    [[nodiscard]] bool isContainer(const Item& item) const;

    // The class of an object; empty for everything else.
    [[nodiscard]] std::string className(const Item& item) const;

    // An item in words, on one line: a value as it is, of objects and containers the kind.
    [[nodiscard]] std::string text(const Item& item) const;

    [[nodiscard]] const platform::BinaryPropertyList& list() const { return list_; }

private:
    [[nodiscard]] Item follow(Index node) const;
    [[nodiscard]] std::vector<Child> fields(Index dictionary) const;
    [[nodiscard]] std::vector<Child> elements(Index array) const;
    [[nodiscard]] std::vector<Child> entries(Index keys, Index values) const;

    const std::string bytes_;
    const platform::BinaryPropertyList list_;
    const Index objects_;
};

// An archive as JSON, without loss, and back. Text, true, false and integers up to 2^53 are JSON's
// own; everything else is an object with one member that names its kind: "integer" (digits),
// "real" (a number, or "inf", "-inf", "nan"), "date" (seconds since 2001), "data" (base64), "uid"
// (the number of the object referred to), "array", "dictionary". Beside "nan" stand its "bits".
[[nodiscard]] Json jsonOfArchive(const ArchiveGraph& graph);

// The archive that such JSON says. Throws ArchiveError for text that is no JSON or says no archive;
// the reason names the place or the value.
[[nodiscard]] std::string archiveOfJson(std::string_view text);

}  // namespace sevrin
