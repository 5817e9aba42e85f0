// Ends long chains of objects without recursion: the outermost ending object ends the others.
#include "Platform/DeferredRelease.h"

#include <utility>
#include <vector>

namespace sevrin::platform {

namespace {

struct Contents {
    Dictionary dictionary;
    Value value;
};

// What awaits its end; on the stack of whoever sees to it.
thread_local std::vector<Contents>* pending = nullptr;

void release(Contents contents) noexcept {
    if (pending != nullptr) {
        try {
            pending->push_back(std::move(contents));
        } catch (...) {
            // Without memory for the list, what is left ends with this call.
        }
        return;
    }
    std::vector<Contents> waiting;
    pending = &waiting;
    contents = Contents();
    while (!waiting.empty()) {
        const Contents next = std::move(waiting.back());
        waiting.pop_back();
    }
    pending = nullptr;
}

}  // namespace

void releaseWithoutRecursion(Dictionary contents) noexcept {
    if (!contents.empty()) release({std::move(contents), Value()});
}

void releaseWithoutRecursion(Value contents) noexcept {
    if (!contents.isNull()) release({Dictionary(), std::move(contents)});
}

}  // namespace sevrin::platform
