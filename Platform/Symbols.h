// What lies at an address of this process's code: a function of a program or library.
//
// Looking one up costs from a fraction of a microsecond to many, by the number of functions in the
// image, so whoever asks often remembers the answers. On any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sevrin::platform {

// Where code was found.
struct Symbol {
    // The function's first byte, and its name as the linker knows it: mangled, so that no blank or
    // bracket of a parameter list comes between the parts of a line that holds it. Zero and empty
    // when the image does not name what is there.
    std::uintptr_t address = 0;
    std::string name;

    // The program or library, by the path it was loaded from, and where it begins in memory.
    std::string imagePath;
    std::uintptr_t imageBase = 0;
};

// What the call that returns to `returnAddress` is part of; none when that lies in no image. A
// function that ends with the call is found too, though what it returns to is the next one.
[[nodiscard]] std::optional<Symbol> findSymbol(std::uintptr_t returnAddress);

}  // namespace sevrin::platform
