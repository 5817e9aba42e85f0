// The functions of one program or library by its full symbol table: static ones too, which the
// dynamic linker does not know.
//
// Read from the image's file when first asked for and kept for the life of the process. A file that
// has been replaced since it was loaded, one that is gone, stripped or damaged names nothing. Any
// thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sevrin::platform {

class ImageSymbols {
public:
    struct Function {
        std::uintptr_t begin;   // in memory
        std::uint64_t size;     // bytes
        std::string_view name;  // as the linker knows it; valid as long as the table
    };

    // The table of the image that begins at `base` in memory and was loaded from `path`.
    [[nodiscard]] static const ImageSymbols& ofImage(std::uintptr_t base, const std::string& path);

    // Reads the table of the file at `path`, whose first bytes must be those at `base`.
    ImageSymbols(std::uintptr_t base, const std::string& path);
    ImageSymbols(const ImageSymbols&) = delete;
    ImageSymbols& operator=(const ImageSymbols&) = delete;

    // The function that `place` lies in; nullptr when there is none.
    [[nodiscard]] const Function* find(std::uintptr_t place) const;

private:
    template <typename Entry>
    void takeFunctions(const std::vector<Entry>& entries, std::uintptr_t added);

    std::vector<char> names_;
    std::vector<Function> functions_;  // By their beginning.
};

}  // namespace sevrin::platform
