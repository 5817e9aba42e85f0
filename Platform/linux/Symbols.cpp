// Symbols on Linux: what the dynamic linker knows. Programs are linked so that it knows theirs.
#include "Platform/Symbols.h"

#include <dlfcn.h>

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
    return symbol;
}

}  // namespace sevrin::platform
