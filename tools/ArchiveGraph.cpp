// Following what an archive refers to.
#include "tools/ArchiveGraph.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Platform/NSKeyedUnarchiver.h"
#include "tools/Printable.h"

namespace sevrin {

using platform::BinaryPropertyList;
using Kind = BinaryPropertyList::Kind;

namespace {

constexpr std::size_t kDataShownMax = 32;

BinaryPropertyList listOf(const std::string& bytes) {
    if (bytes.empty()) throw ArchiveError("no keyed archive: it is empty");
    try {
        return BinaryPropertyList(bytes);
    } catch (const platform::PropertyListError& error) {
        throw ArchiveError(std::string("no keyed archive: ") + error.what());
    }
}

// The array of all objects; throws when the list is no archive.
BinaryPropertyList::Index objectsOf(const BinaryPropertyList& list) {
    const std::string_view fault = platform::keyedArchiveFault(list);
    if (!fault.empty()) throw ArchiveError("no keyed archive: " + std::string(fault));
    return *list.find(list.top(), "$objects");
}

std::string quotedText(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return printable(result + '"');
}

std::string dataText(std::string_view bytes) {
    std::string text = fmt::format("{} bytes", bytes.size());
    if (!bytes.empty()) text += ": ";
    for (const char byte : bytes.substr(0, kDataShownMax))
        text += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    return bytes.size() > kDataShownMax ? text + "..." : text;
}

std::string dateText(double seconds) {
    const auto date = platform::NSDate::dateWithTimeIntervalSinceReferenceDate(seconds);
    return fmt::format("{} ({} s since 2001)", date.description(), seconds);
}

// A real always with a point, an exponent or letters: an integer has none of them.
std::string realText(double real) {
    std::string text = fmt::format("{}", real);
    if (text.find_first_not_of("-0123456789") == std::string::npos) text += ".0";
    return text;
}

}  // namespace

ArchiveGraph::ArchiveGraph(std::string bytes)
    : bytes_(std::move(bytes)), list_(listOf(bytes_)), objects_(objectsOf(list_)) {}

ArchiveGraph::Item ArchiveGraph::follow(Index node) const {
    if (list_.kind(node) != Kind::UID) return {node, 0};
    const std::uint32_t number = list_.uid(node);
    if (number >= list_.size(objects_)) {
        throw ArchiveError(fmt::format("no keyed archive: a reference to object {}, of {}", number,
                                       list_.size(objects_)));
    }
    return {list_.element(objects_, number), number, number == 0};
}

std::vector<ArchiveGraph::Child> ArchiveGraph::roots() const {
    return fields(*list_.find(list_.top(), "$top"));
}

std::vector<ArchiveGraph::Child> ArchiveGraph::fields(Index dictionary) const {
    std::vector<Child> children;
    for (std::size_t place = 0; place < list_.size(dictionary); ++place) {
        const std::string key = list_.string(list_.key(dictionary, place));
        if (key != "$class") {
            children.push_back({printable(key), follow(list_.value(dictionary, place))});
        }
    }
    return children;
}

std::vector<ArchiveGraph::Child> ArchiveGraph::elements(Index array) const {
    std::vector<Child> children;
    for (std::size_t place = 0; place < list_.size(array); ++place)
        children.push_back({fmt::format("[{}]", place), follow(list_.element(array, place))});
    return children;
}

std::vector<ArchiveGraph::Child> ArchiveGraph::entries(Index keys, Index values) const {
    std::vector<Child> children;
    for (std::size_t place = 0; place < list_.size(keys); ++place) {
        const Item key = follow(list_.element(keys, place));
        std::string label = text(key);
        // Only values say enough of themselves to be told apart.
        if (isContainer(key)) label += fmt::format(" #{}", key.number);
        children.push_back({std::move(label), follow(list_.element(values, place))});
    }
    return children;
}

std::vector<ArchiveGraph::Child> ArchiveGraph::children(const Item& item) const {
    if (item.isNil) return {};
    if (list_.kind(item.node) == Kind::Array) return elements(item.node);
    if (list_.kind(item.node) != Kind::Dictionary) return {};
    const auto isArray = [this](std::optional<Index> node) {
        return node && list_.kind(*node) == Kind::Array;
    };
    const bool isObject = !className(item).empty();
    const auto keys = list_.find(item.node, "NS.keys");
    const auto objects = list_.find(item.node, "NS.objects");
    if (isObject && isArray(objects) && list_.size(item.node) == 2) return elements(*objects);
    if (isObject && isArray(objects) && isArray(keys) && list_.size(item.node) == 3 &&
        list_.size(*keys) == list_.size(*objects)) {
        return entries(*keys, *objects);
    }
    return fields(item.node);
}

bool ArchiveGraph::isContainer(const Item& item) const {
    const Kind kind = list_.kind(item.node);
    return !item.isNil && (kind == Kind::Array || kind == Kind::Dictionary);
}

std::string ArchiveGraph::className(const Item& item) const {
    if (list_.kind(item.node) != Kind::Dictionary) return {};
    const auto reference = list_.find(item.node, "$class");
    if (!reference || list_.kind(*reference) != Kind::UID) return {};
    const Item theClass = follow(*reference);
    if (list_.kind(theClass.node) != Kind::Dictionary) return {};
    const auto name = list_.find(theClass.node, "$classname");
    if (!name || list_.kind(*name) != Kind::String) return {};
    return printable(list_.string(*name));
}

std::string ArchiveGraph::text(const Item& item) const {
    if (item.isNil) return "nil";
    switch (list_.kind(item.node)) {
        case Kind::Boolean:
            return list_.boolean(item.node) ? "true" : "false";
        case Kind::Integer:
            return list_.integer(item.node).description();
        case Kind::Real:
            return realText(list_.real(item.node));
        case Kind::Date:
            return dateText(list_.date(item.node));
        case Kind::Data:
            return dataText(list_.data(item.node));
        case Kind::String:
            return quotedText(list_.string(item.node));
        case Kind::UID:
            return fmt::format("a reference to a reference, {}", list_.uid(item.node));
        case Kind::Array:
            return "array";
        case Kind::Dictionary:
            break;
    }
    std::string name = className(item);
    if (name == "NSDate") {
        const auto time = list_.find(item.node, "NS.time");
        if (time && list_.kind(*time) == Kind::Real) name += ' ' + dateText(list_.real(*time));
    }
    return name.empty() ? "dictionary" : name;
}

}  // namespace sevrin
