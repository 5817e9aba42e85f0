// The table of words.
#include "Common/Source/Utilities/LogClassification.h"

#include <array>
#include <cstddef>

namespace sevrin {

namespace {

// Filled up to a power of two, so that an index is made safe by masking instead of by a branch.
constexpr std::array<std::string_view, 16> kWords = {
    "       ", "-------", "Curious", "Caution", "Warning", "Failure", "Minutia", "Details",
    "Subrosa", "#debug#", "       ", "       ", "       ", "       ", "       ", "       ",
};

}  // namespace

std::string_view nameOfClassification(LogClassification classification) noexcept {
    return kWords[static_cast<std::size_t>(classification) % kWords.size()];
}

LogClassification classificationFromName(std::string_view name) noexcept {
    for (int number = 0; number < kLogClassificationCount; ++number) {
        if (name == kWords[static_cast<std::size_t>(number)]) return LogClassification{number};
    }
    return LogClassification::Preferred;
}

}  // namespace sevrin
