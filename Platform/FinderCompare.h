// The order in which people expect names in a folder: letters regardless of case, numbers by their
// value.
//
// Total over all byte strings: names that people would call equal ("a1", "A01") are told apart by
// case, small letters first, then by their bytes. Names of printable ASCII characters are compared
// here, in nanoseconds; all others by the system's collation (Collation.h), whose rules for ASCII
// these are, so that the order stays an order when both kinds meet. On any thread.
#pragma once

#include <cstdint>
#include <string_view>

namespace sevrin::platform {

// -1, 0 or 1: `left` stands before `right`, is the same bytes, or stands behind.
[[nodiscard]] int finderLikeCompare(std::string_view left, std::string_view right);

// How a name begins, in a form that two comparisons of numbers decide; made once for each name of a
// list that is to be sorted.
struct FinderSortKey {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
};

[[nodiscard]] FinderSortKey finderSortKey(std::string_view name) noexcept;

// As finderLikeCompare() of the names whose keys these are, or 0 where the names have to be looked
// at.
[[nodiscard]] inline int compareFinderSortKeys(const FinderSortKey& left,
                                               const FinderSortKey& right) noexcept {
    if (left.high == 0 || right.high == 0) return 0;  // A key of zeros decides nothing.
    if (left.high != right.high) return left.high < right.high ? -1 : 1;
    return left.low == right.low ? 0 : (left.low < right.low ? -1 : 1);
}

// As finderLikeCompare() of the names, whose keys these are; looks at them only where the keys do
// not decide.
[[nodiscard]] inline int finderLikeCompare(const FinderSortKey& leftKey, std::string_view left,
                                           const FinderSortKey& rightKey, std::string_view right) {
    const int order = compareFinderSortKeys(leftKey, rightKey);
    return order != 0 ? order : finderLikeCompare(left, right);
}

// The same order where the system has no collation: characters beyond ASCII stand behind the
// letters, in the order of their code points.
[[nodiscard]] int finderLikeCompareByCodePoint(std::string_view left,
                                               std::string_view right) noexcept;

}  // namespace sevrin::platform
