// When a caller stops waiting: a moment on the steady clock, or a time span from now.
//
// Every call that waits for another process takes one, and none has a default: how long is too long
// is for the caller to say. A value; usable on any thread.
#pragma once

#include <chrono>

namespace sevrin {

class Deadline {
public:
    using Clock = std::chrono::steady_clock;

    // The longest span that is told apart from longer ones; it keeps the arithmetic from wrapping.
    static constexpr std::chrono::hours kSpanMax{24 * 365 * 100};

    // `span` from now, such as 500ms. Not positive: it has passed already.
    template <typename Count, typename Period>
    Deadline(std::chrono::duration<Count, Period> span) {
        using Seconds = std::chrono::duration<double>;
        const bool isLong = std::chrono::duration_cast<Seconds>(span) >= Seconds(kSpanMax);
        const bool isPast = span < decltype(span)::zero();
        at_ = Clock::now();
        if (isLong) at_ += kSpanMax;
        if (!isLong && !isPast) at_ += std::chrono::ceil<Clock::duration>(span);
    }

    // At `moment`.
    Deadline(Clock::time_point moment) : at_(moment) {}

    [[nodiscard]] Clock::time_point at() const { return at_; }
    [[nodiscard]] bool hasPassed() const { return Clock::now() >= at_; }

private:
    Clock::time_point at_;
};

}  // namespace sevrin
