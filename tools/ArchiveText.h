// Archives in words for people: one as a tree, and what differs between two.
//
// Archives come from anywhere. Nothing here recurses along what an archive refers to.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/ArchiveGraph.h"

namespace sevrin {

// Levels that a tree shows; what lies deeper is left out and said to be.
inline constexpr std::size_t kArchiveLevelsShown = 100;

// One line for each item, those within another one indented below it. An object has its number
// behind its class; when it is met again, the number is all.
[[nodiscard]] std::string archiveTree(const ArchiveGraph& graph);

// Something that two archives do not have in common: the way to it from the root, and what is there
// in each, empty where there is nothing.
struct ArchiveDifference {
    std::string path;
    std::string left;
    std::string right;
};

// What differs between two graphs. The numbers of objects do not matter, nor the order of entries
// and of a set's members; whether two places lead to one and the same object does.
[[nodiscard]] std::vector<ArchiveDifference> archiveDifferences(const ArchiveGraph& left,
                                                                const ArchiveGraph& right);

}  // namespace sevrin
