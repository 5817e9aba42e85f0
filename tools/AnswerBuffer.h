// Many answers with few writes: what a verb prints that has a hundred thousand of them.
//
// What is held is written when it is much, when it is old, and at the end; a reader that looks on
// never waits for more than a moment as long as answers come. On one thread.
#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace sevrin {

class AnswerBuffer {
public:
    AnswerBuffer() = default;
    AnswerBuffer(const AnswerBuffer&) = delete;
    AnswerBuffer& operator=(const AnswerBuffer&) = delete;
    ~AnswerBuffer() { flush(); }

    // Adds a whole answer, with its line end.
    void add(std::string_view answer);

    // Writes what is held: before notes that belong behind it, and before a wait.
    void flush();

private:
    std::string held_;
    std::chrono::steady_clock::time_point written_ = std::chrono::steady_clock::now();
};

}  // namespace sevrin
