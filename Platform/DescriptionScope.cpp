// Keeps descriptions finite: the chain of what is being described on this thread.
#include "Platform/DescriptionScope.h"

#include <utility>

namespace sevrin::platform {

namespace {

thread_local const DescriptionScope* innermost = nullptr;
thread_local std::size_t textBytes = 0;

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

}  // namespace

DescriptionScope::DescriptionScope(const void* subject) noexcept
    : subject_(subject), outer_(innermost), level_(outer_ == nullptr ? 1 : outer_->level_ + 1) {
    if (outer_ == nullptr) textBytes = 0;
    innermost = this;
}

DescriptionScope::~DescriptionScope() {
    innermost = outer_;
}

bool DescriptionScope::mayDescribeContents() const noexcept {
    if (level_ > kDescriptionLevelsMax || isFull()) return false;
    if (subject_ == nullptr) return true;
    for (const DescriptionScope* walk = outer_; walk != nullptr; walk = walk->outer_) {
        if (walk->subject_ == subject_) return false;
    }
    return true;
}

void DescriptionScope::noteText(std::size_t bytes) noexcept {
    textBytes += bytes;
}

bool DescriptionScope::isFull() noexcept {
    return textBytes > kDescriptionBytesMax;
}

std::string withoutExcess(std::string text) {
    if (text.size() <= kDescriptionBytesMax) return text;
    std::size_t end = kDescriptionBytesMax;
    while (end > kDescriptionBytesMax - 4 && isContinuation(text[end]))
        --end;
    text.replace(end, std::string::npos, kEllipsis);
    return text;
}

}  // namespace sevrin::platform
