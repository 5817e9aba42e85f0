// Text for the length of one call, with memory that the thread keeps for the next.
//
// A log line is put together, converted and written in three nested calls, each with a text of its
// own; with these, none of them allocates once a thread has written its first lines. Safe until the
// very end of a thread, when nothing is kept any more.
#pragma once

#include <string>

namespace sevrin {

// Lives on the stack only: scratch texts of a thread end in the reverse order of their making.
class ScratchText {
public:
    ScratchText();
    ScratchText(const ScratchText&) = delete;
    ScratchText& operator=(const ScratchText&) = delete;
    ~ScratchText();

    // Empty at first.
    [[nodiscard]] std::string& operator*() { return *text_; }
    [[nodiscard]] std::string* operator->() { return text_; }

private:
    std::string* text_;  // One of the thread's, or made for this one.
    bool isKept_;
};

}  // namespace sevrin
