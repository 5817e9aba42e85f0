// Chains of numbers: issuing, comparing, hashing, taking apart. Text and archives are next door.
#include "Common/Source/Utilities/LogLineIdentifier.h"

#include <utility>

namespace sevrin {

LogLineIdentifierPtr LogLineIdentifier::initExtendingWithID(LogLineIdentifierPtr parent,
                                                            std::uint64_t number) {
    return std::make_shared<LogLineIdentifier>(Passkey{}, std::move(parent), number);
}

LogLineIdentifier::LogLineIdentifier(Passkey, LogLineIdentifierPtr parent, std::uint64_t sequence)
    : parent_(std::move(parent)), sequence_(sequence), depth_(parent_ ? parent_->depth_ + 1 : 0) {}

// The end of the last child is the end of its parent, and so on up the chain. The outermost
// destructor takes them one at a time: each inner one hands its parent out instead of ending it.
LogLineIdentifier::~LogLineIdentifier() {
    delete childPrefix_.load(std::memory_order_relaxed);
    if (parent_.use_count() != 1) return;  // Somebody else will end it, or nobody.

    thread_local LogLineIdentifierPtr* handedOut = nullptr;
    if (handedOut != nullptr) {
        *handedOut = std::move(parent_);
        return;
    }
    LogLineIdentifierPtr rest = std::move(parent_);
    handedOut = &rest;
    while (rest) {
        LogLineIdentifierPtr current = std::move(rest);
        current.reset();
    }
    handedOut = nullptr;
}

LogLineIdentifierPtr LogLineIdentifier::next(const LogLineIdentifierPtr& line) {
    const std::uint64_t number = line->subsequence_.fetch_add(1, std::memory_order_relaxed) + 1;
    return initExtendingWithID(line, number);
}

void LogLineIdentifier::addClassification(LogClassification classification) noexcept {
    const auto number = static_cast<std::int32_t>(classification);
    if (number < 0) return;
    const auto bit = static_cast<std::uint16_t>(1U << (number % 16));
    // Nearly always set already: a look is cheaper than a write that all threads wait for.
    if ((classifications() & bit) != 0) return;
    classifications_.fetch_or(bit, std::memory_order_relaxed);
}

const LogLineIdentifier* LogLineIdentifier::ancestorAt(std::uint64_t depth) const noexcept {
    const LogLineIdentifier* walk = this;
    while (walk->depth_ > depth)
        walk = walk->parent_.get();
    return walk;
}

std::int32_t LogLineIdentifier::application() const noexcept {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(ancestorAt(0)->sequence_));
}

LogLineIdentifierPtr LogLineIdentifier::parentIdentifierWithDepth(const LogLineIdentifierPtr& line,
                                                                  std::uint64_t depth) {
    return line->depth_ <= depth ? line : line->ancestorAt(depth + 1)->parent_;
}

bool LogLineIdentifier::containsIdentifier(const LogLineIdentifierPtr& other) const noexcept {
    if (!other || other->depth_ <= depth_) return false;
    return compareWith(other->ancestorAt(depth_)) == 0;
}

int LogLineIdentifier::compare(const LogLineIdentifierPtr& other) const noexcept {
    return compareWith(other.get());
}

// The topmost difference decides, so on the way up each one found replaces the one below it. Where
// both chains meet in one object, everything above is equal.
int LogLineIdentifier::compareWith(const LogLineIdentifier* other) const noexcept {
    if (other == nullptr) return 1;
    if (depth_ != other->depth_) return depth_ < other->depth_ ? -1 : 1;
    int result = 0;
    for (const LogLineIdentifier* walk = this; walk != other;
         walk = walk->parent_.get(), other = other->parent_.get()) {
        if (walk->sequence_ != other->sequence_) {
            result = walk->sequence_ < other->sequence_ ? -1 : 1;
        }
    }
    return result;
}

bool LogLineIdentifier::isEqual(const platform::Object& other) const {
    const auto* identifier = dynamic_cast<const LogLineIdentifier*>(&other);
    return identifier != nullptr && compareWith(identifier) == 0;
}

std::size_t LogLineIdentifier::hash() const {
    constexpr unsigned kShiftMax = 48;
    std::uint64_t result = (sequence_ << kShiftMax) ^ (sequence_ << 2);
    unsigned shift = kShiftMax;
    for (const LogLineIdentifier* walk = parent_.get(); walk != nullptr;
         walk = walk->parent_.get()) {
        shift = shift <= 2 ? kShiftMax : shift - 3;
        result ^= walk->sequence_ << shift;
    }
    return result;
}

}  // namespace sevrin
