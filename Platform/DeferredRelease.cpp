// Ends long chains of objects without recursion: the outermost ending object ends the others.
#include "Platform/DeferredRelease.h"

#include <utility>
#include <vector>

namespace sevrin::platform {

namespace {

// What awaits its end; on the stack of whoever sees to it.
thread_local std::vector<Dictionary>* pending = nullptr;

}  // namespace

void releaseWithoutRecursion(Dictionary contents) noexcept {
    if (contents.empty()) return;
    if (pending != nullptr) {
        try {
            pending->push_back(std::move(contents));
        } catch (...) {
            // Without memory for the list, what is left ends with this call.
        }
        return;
    }
    std::vector<Dictionary> waiting;
    pending = &waiting;
    contents = Dictionary();
    while (!waiting.empty()) {
        const Dictionary next = std::move(waiting.back());
        waiting.pop_back();
    }
    pending = nullptr;
}

}  // namespace sevrin::platform
