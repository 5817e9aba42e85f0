// For tests: spells keyed archives object by object, right or wrong.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/BinaryPropertyListWriter.h"

namespace sevrin::platform {

class TestArchive {
public:
    using Index = BinaryPropertyListWriter::Index;
    using Fields = std::vector<std::pair<std::string_view, Index>>;

    TestArchive() : top_(list.reserve()) { add(text("$null")); }

    [[nodiscard]] Index text(std::string_view text) { return list.addString(text); }
    [[nodiscard]] Index uid(std::uint32_t number) { return list.addUID(number); }
    [[nodiscard]] Index number(std::int64_t number) { return list.addInteger(number); }
    [[nodiscard]] Index uids(const std::vector<std::uint32_t>& numbers) {
        std::vector<Index> elements;
        for (const std::uint32_t number : numbers)
            elements.push_back(uid(number));
        return list.addArray(elements);
    }
    [[nodiscard]] Index dictionary(const Fields& fields) {
        std::vector<Index> keys;
        std::vector<Index> values;
        for (const auto& [key, value] : fields) {
            keys.push_back(text(key));
            values.push_back(value);
        }
        return list.addDictionary(keys, values);
    }

    // Adds an object and gives its number.
    std::uint32_t add(Index node) {
        objects_.push_back(node);
        return static_cast<std::uint32_t>(objects_.size() - 1);
    }
    std::uint32_t addObject(std::uint32_t theClass, Fields fields) {
        fields.emplace_back("$class", uid(theClass));
        return add(dictionary(fields));
    }
    std::uint32_t addClass(std::string_view name, const std::vector<std::string_view>& hints = {}) {
        std::vector<Index> names;
        for (const std::string_view hint : hints)
            names.push_back(text(hint));
        Fields fields = {{"$classname", text(name)}};
        if (!hints.empty()) fields.emplace_back("$classhints", list.addArray(names));
        return add(dictionary(fields));
    }

    // The archive with this root. Once.
    [[nodiscard]] std::string bytes(std::uint32_t root) {
        return bytes({{"$version", number(100'000)},
                      {"$archiver", text("NSKeyedArchiver")},
                      {"$top", dictionary({{"root", uid(root)}})},
                      {"$objects", list.addArray(objects_)}});
    }
    [[nodiscard]] std::string bytes(const Fields& outer) {
        std::vector<Index> keys;
        std::vector<Index> values;
        for (const auto& [key, value] : outer) {
            keys.push_back(text(key));
            values.push_back(value);
        }
        list.setDictionary(top_, keys, values);
        return list.finish(top_);
    }
    [[nodiscard]] Index objects() { return list.addArray(objects_); }

    BinaryPropertyListWriter list;

private:
    Index top_;
    std::vector<Index> objects_;
};

}  // namespace sevrin::platform
