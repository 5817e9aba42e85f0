// What a log knows about backtraces: which it has shown already, and what lies at their addresses.
//
// A backtrace is shown in full once in each log file and referred to by its tag afterwards. Any
// thread may use any of this.
#pragma once

#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace sevrin {

// The backtraces that one log file shows in full.
class BacktraceCache {
public:
    // Repetitions after which everything is forgotten, so that each backtrace is shown in full now
    // and then.
    static constexpr std::uint64_t kRepetitionsMax = 1001;

    struct Tagged {
        std::uint64_t tag;
        bool isNew;  // To be shown in full.
    };

    // The tag of a backtrace: the sum of its addresses, or the next number that no other backtrace
    // has.
    [[nodiscard]] Tagged tag(std::span<const std::uintptr_t> addresses);

    // Forgets all of them.
    void flush();

private:
    std::mutex lock_;
    std::unordered_map<std::uint64_t, std::vector<std::uintptr_t>> backtraces_;  // By tag.
    std::uint64_t repetitions_ = 0;
};

// Addresses that are remembered at a time.
inline constexpr std::size_t kAddressLinesMax = 4096;

// Appends the line that describes one return address: where the call was made, in which function of
// which image. Made once for each address of the process, for finding a function can take long.
void appendAddressLine(std::string& out, std::uintptr_t address);

}  // namespace sevrin
