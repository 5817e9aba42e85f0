// Many answers with few writes.
#include "tools/AnswerBuffer.h"

#include "tools/Output.h"

namespace sevrin {

namespace {

constexpr std::size_t kHeldMax = 32 * 1024;  // bytes
constexpr std::chrono::milliseconds kAgeMax{100};

}  // namespace

void AnswerBuffer::add(std::string_view answer) {
    held_ += answer;
    if (held_.size() >= kHeldMax || std::chrono::steady_clock::now() - written_ >= kAgeMax) flush();
}

void AnswerBuffer::flush() {
    if (!held_.empty()) writeAnswer(held_);
    held_.clear();
    written_ = std::chrono::steady_clock::now();
}

}  // namespace sevrin
