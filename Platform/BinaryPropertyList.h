// Binary property lists: reading them where they lie, and values to and from them.
//
// What is read comes from anywhere. All of it is checked before anything is handed out: the frame,
// the extent and content of every object, every reference, nesting, cycles. Nothing recurses, no
// count is believed before it is compared with the bytes at hand, and a list of shared containers
// that would grow large when walked is refused. Text is UTF-8 outside and any Unicode inside,
// U+0000 included. On any thread; a reader is immutable.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Value.h"

namespace sevrin::platform {

// Containers within containers, the outermost included; as deep as other readers go.
inline constexpr std::size_t kPropertyListDepthMax = 512;

// What a walk through a list may visit, in bytes of content, shared containers counted each time
// they are met: this, or kPropertyListGrowthMax times the bytes read, whichever is more. A list
// that shares nothing stays below its own size.
inline constexpr std::size_t kPropertyListWalkBytes = std::size_t{1} << 20;
inline constexpr std::size_t kPropertyListGrowthMax = 16;

// Bytes that are no binary property list, or a value that cannot be in one.
class PropertyListError : public std::runtime_error {
public:
    // In bytes read: what is wrong, and the offset of the byte where that shows.
    PropertyListError(const std::string& reason, std::size_t offset);

    // In a value to be written: what is wrong, and the way to it, such as `"key"[3]`; empty for the
    // outermost.
    PropertyListError(const std::string& reason, const std::string& path);

    // What is wrong, without the place.
    [[nodiscard]] const std::string& reason() const { return reason_; }

    // The offset in the bytes read, none for values.
    [[nodiscard]] std::optional<std::size_t> offset() const { return offset_; }

private:
    std::string reason_;
    std::optional<std::size_t> offset_;
};

// A property list in the bytes that hold it, as numbered objects that refer to each other. Borrows
// the bytes.
class BinaryPropertyList {
public:
    using Index = std::uint32_t;

    enum class Kind : std::uint8_t {
        Boolean,
        Integer,
        Real,
        Date,
        Data,
        String,
        UID,
        Array,
        Dictionary
    };

    // Checks everything. Throws PropertyListError.
    explicit BinaryPropertyList(std::string_view bytes);
    BinaryPropertyList(const BinaryPropertyList&) = delete;
    BinaryPropertyList& operator=(const BinaryPropertyList&) = delete;

    // The outermost object.
    [[nodiscard]] Index top() const { return top_; }

    // Number of objects; those that nothing refers to are counted.
    [[nodiscard]] std::size_t count() const { return nodes_.size(); }

    [[nodiscard]] Kind kind(Index object) const { return nodes_[object].kind; }

    // The content of an object of the kind that each call names. Whoever asks for another kind than
    // the object's has a bug.
    [[nodiscard]] bool boolean(Index object) const { return nodes_[object].size != 0; }
    [[nodiscard]] Value integer(Index object) const;  // Signed, or Unsigned above its range
    [[nodiscard]] double real(Index object) const;    // of 4 or 8 bytes
    [[nodiscard]] double date(Index object) const;    // seconds since 2001
    [[nodiscard]] std::string_view data(Index object) const {
        return bytes_.substr(nodes_[object].start, nodes_[object].size);
    }
    [[nodiscard]] std::string string(Index object) const;
    [[nodiscard]] std::uint32_t uid(Index object) const {
        const Node& node = nodes_[object];
        const std::size_t width = node.size < 4 ? node.size : 4;
        return static_cast<std::uint32_t>(number(node.start + node.size - width, width));
    }

    // Elements of an array, entries of a dictionary.
    [[nodiscard]] std::size_t size(Index object) const { return nodes_[object].size; }
    [[nodiscard]] Index element(Index array, std::size_t place) const { return ref(array, place); }
    [[nodiscard]] Index key(Index dictionary, std::size_t place) const {
        return ref(dictionary, place);
    }
    [[nodiscard]] Index value(Index dictionary, std::size_t place) const {
        return ref(dictionary, size(dictionary) + place);
    }

    // The value under `key`, or nothing. Looks at one key after the other.
    [[nodiscard]] std::optional<Index> find(Index dictionary, std::string_view key) const {
        const std::size_t place = placeOfKey(dictionary, key);
        if (place == size(dictionary)) return std::nullopt;
        return value(dictionary, place);
    }

    // Whether a string reads `text`.
    [[nodiscard]] bool stringEquals(Index object, std::string_view text) const {
        const Node& node = nodes_[object];
        if (node.unit != 1) return string(object) == text;
        return node.size == text.size() && data(object) == text;
    }

    // Characters of one byte, ASCII only, so that they can be borrowed; else nothing.
    [[nodiscard]] std::optional<std::string_view> asciiString(Index string) const {
        if (nodes_[string].unit != 1) return std::nullopt;
        return data(string);
    }

    // Where the content of an object begins, for messages.
    [[nodiscard]] std::size_t offset(Index object) const { return nodes_[object].start; }

    // The size of all bytes.
    [[nodiscard]] std::size_t byteCount() const { return bytes_.size(); }

private:
    // `size` counts bytes of numbers, dates, data and UIDs, characters of strings, elements and
    // entries; of a boolean it is the value.
    struct Node {
        std::uint32_t start;
        std::uint32_t size;
        Kind kind;
        std::uint8_t unit;  // bytes of each character or reference
    };

    // A list of up to so many objects takes no memory besides the reader's own.
    static constexpr std::size_t kNodesNearby = 256;

    void readTrailer();
    void readNodes();
    void readNode(Node& node, std::size_t offset);
    void readLargeNode(Node& node, std::size_t offset);
    void readLongSize(Node& node, std::size_t offset) const;
    [[nodiscard]] std::size_t contentBytes(const Node& node) const {
        return refCount(node) * node.unit;
    }
    void checkContent(const Node& node) const;
    void checkText(const Node& node) const;
    [[nodiscard]] bool isAscii(std::size_t start, std::size_t size) const;
    void checkReferences(const Node& container) const;
    void checkGraph() const;
    void checkKeys(Index dictionary) const;
    [[nodiscard]] std::size_t placeOfKey(Index dictionary, std::string_view key) const;
    [[nodiscard]] bool keysEqual(Index left, Index right) const;
    [[nodiscard]] bool keysAscend(Index dictionary) const;
    [[nodiscard]] bool anyKeyTwice(Index dictionary) const;

    // A number of up to 8 bytes, the most significant first; they lie within.
    [[nodiscard]] std::uint64_t number(std::size_t offset, std::size_t width) const {
        const char* const from = bytes_.data() + offset;
        std::uint64_t result = static_cast<unsigned char>(*from);
        if (width == 1) return result;
        result = result << 8 | static_cast<unsigned char>(from[1]);
        for (std::size_t i = 2; i < width; ++i)
            result = result << 8 | static_cast<unsigned char>(from[i]);
        return result;
    }

    [[nodiscard]] Index ref(Index container, std::size_t place) const {
        return static_cast<Index>(number(nodes_[container].start + place * refBytes_, refBytes_));
    }
    // Units of the content: of a dictionary keys and values.
    [[nodiscard]] static std::size_t refCount(const Node& node) {
        return node.kind == Kind::Dictionary ? std::size_t{2} * node.size : node.size;
    }

    std::string_view bytes_;
    std::span<Node> nodes_;  // in one of the two below
    std::array<Node, kNodesNearby> nearNodes_;
    std::vector<Node> farNodes_;
    std::size_t objectsEnd_ = 0;  // where the table of offsets begins
    std::size_t objectCount_ = 0;
    std::size_t containerCount_ = 0;
    std::uint8_t offsetBytes_ = 0;
    std::uint8_t refBytes_ = 0;
    Index top_ = 0;

    friend class PropertyListGraphCheck;
};

// The value that a binary property list holds. Containers met several times share one payload.
// Throws PropertyListError; also for a UID, which only archives hold.
[[nodiscard]] Value propertyListFromData(std::string_view bytes);

// The same for one object of a list, so that a reader can take what it does not look into.
[[nodiscard]] Value propertyListValue(const BinaryPropertyList& list,
                                      BinaryPropertyList::Index object);

// `value` as a binary property list. Throws PropertyListError for what none can hold: null, sets,
// objects, keys that are no text, text that is not UTF-8, nesting beyond kPropertyListDepthMax.
[[nodiscard]] std::string dataFromPropertyList(const Value& value);

}  // namespace sevrin::platform
