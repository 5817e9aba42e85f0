// What a log knows about backtraces: tags, and descriptions made once.
#include "Common/Source/Utilities/Backtraces.h"

#include <algorithm>
#include <numeric>

#include "Platform/Format.h"
#include "Platform/Symbols.h"

namespace sevrin {

namespace {

struct AddressLines {
    std::mutex lock;
    std::unordered_map<std::uintptr_t, std::string> lines;
};

// Never destroyed: what ends with the program may log to the last.
AddressLines& addressLines() {
    static AddressLines& theLines = *new AddressLines;
    return theLines;
}

const void* pointer(std::uintptr_t address) {
    return reinterpret_cast<const void*>(address);
}

std::string makeAddressLine(std::uintptr_t address) {
    std::string line = platform::stringWithFormat("%18p: ", pointer(address));
    const std::optional<platform::Symbol> symbol = platform::findSymbol(address);
    if (!symbol) return line += "(unknown image)";
    const char* const name = symbol->name.empty() ? "unknown" : symbol->name.c_str();
    return line += platform::stringWithFormat("%18p %s (%s@%18p)", pointer(symbol->address), name,
                                              symbol->imagePath, pointer(symbol->imageBase));
}

}  // namespace

BacktraceCache::Tagged BacktraceCache::tag(std::span<const std::uintptr_t> addresses) {
    std::uint64_t tag = std::accumulate(addresses.begin(), addresses.end(), std::uint64_t{0});
    const std::lock_guard guard(lock_);
    while (true) {
        const auto found = backtraces_.find(tag);
        if (found == backtraces_.end()) break;
        if (std::ranges::equal(found->second, addresses)) {
            if (++repetitions_ == kRepetitionsMax) {
                backtraces_.clear();
                repetitions_ = 0;
            }
            return {tag, false};
        }
        ++tag;
    }
    backtraces_.emplace(tag, std::vector<std::uintptr_t>(addresses.begin(), addresses.end()));
    return {tag, true};
}

void BacktraceCache::flush() {
    const std::lock_guard guard(lock_);
    backtraces_.clear();
    repetitions_ = 0;
}

// The line is made without the lock: two threads that need the same one make it twice, and nobody
// waits.
void appendAddressLine(std::string& out, std::uintptr_t address) {
    AddressLines& known = addressLines();
    {
        const std::lock_guard guard(known.lock);
        const auto found = known.lines.find(address);
        if (found != known.lines.end()) {
            out += found->second;
            return;
        }
    }
    std::string line = makeAddressLine(address);
    out += line;
    const std::lock_guard guard(known.lock);
    if (known.lines.size() == kAddressLinesMax) known.lines.clear();
    known.lines.try_emplace(address, std::move(line));
}

}  // namespace sevrin
