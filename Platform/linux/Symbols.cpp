// Symbols on Linux: what the dynamic linker knows, and for functions that were not made known to it
// what the image's file says.
#include "Platform/Symbols.h"

#include <dlfcn.h>

#include "Platform/linux/ImageSymbols.h"

namespace sevrin::platform {

std::optional<Symbol> findSymbol(std::uintptr_t returnAddress) {
    // The call itself ends one byte before the place that it returns to.
    const std::uintptr_t place = returnAddress == 0 ? 0 : returnAddress - 1;
    Dl_info found{};
    if (::dladdr(reinterpret_cast<const void*>(place), &found) == 0) return std::nullopt;
    Symbol symbol;
    symbol.address = reinterpret_cast<std::uintptr_t>(found.dli_saddr);
    if (found.dli_sname != nullptr) symbol.name = found.dli_sname;
    if (found.dli_fname != nullptr) symbol.imagePath = found.dli_fname;
    symbol.imageBase = reinterpret_cast<std::uintptr_t>(found.dli_fbase);
    if (symbol.name.empty()) {
        const auto* function =
            ImageSymbols::ofImage(symbol.imageBase, symbol.imagePath).find(place);
        if (function != nullptr) {
            symbol.address = function->begin;
            symbol.name = function->name;
        }
    }
    return symbol;
}

}  // namespace sevrin::platform
