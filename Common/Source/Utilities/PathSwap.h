// Exchanging two items, by the best of the ways that their volume offers.
//
// This is what KTPath's swapWith() does; apart from it, so that each way can be made to fail.
#pragma once

#include <cstdint>
#include <functional>

#include "Common/Source/Utilities/KTPath.h"

namespace sevrin {

// The ways, and what they stand on. The calls give -1 with errno.
struct SwapMethods {
    using Call = std::function<int(const char* path, const char* other)>;

    // The platform's, each only where the item's volume reports it. A volume that tells nothing
    // reports nothing.
    [[nodiscard]] static SwapMethods forItem(const KTPath& item);

    Call swapNames;     // empty when the volume cannot
    Call exchangeData;  // empty when the volume cannot
    Call rename;
    std::function<std::uint32_t()> randomNumber;
};

// Exchanges the items: each name then means what the other one meant. A way that fails is logged,
// and the next is tried; the last, three renames, passes through a temporary name beside `item`.
// Raises "cannot exchange files" when that fails as well; both items are then where they were,
// unless the third rename was the one that failed: then `item` is at the other's name and the other
// one at the temporary name.
void swapItems(const KTPath& item, const KTPath& other, const SwapMethods& methods);

}  // namespace sevrin
