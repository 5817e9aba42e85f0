// Each thread's store of texts that are not in use.
#include "Common/Source/Utilities/ScratchText.h"

#include <array>
#include <cstddef>
#include <utility>

namespace sevrin {

namespace {

// Nesting deeper than this, and texts longer than this, are too rare to keep memory for.
constexpr std::size_t kKeptTexts = 4;
constexpr std::size_t kKeptCapacityMax = 16 * 1024;

struct Store {
    std::array<std::string, kKeptTexts> texts;
    std::size_t count = 0;
};

// Destructors of other thread-local objects may still log when the store is gone, so what is read
// then is a plain pointer, which has no end of life.
thread_local Store* store = nullptr;
thread_local bool threadEnds = false;

struct StoreOwner {
    ~StoreOwner() {
        threadEnds = true;
        delete std::exchange(store, nullptr);
    }
};

Store* threadStore() {
    if (store != nullptr || threadEnds) return store;
    thread_local StoreOwner owner;
    static_cast<void>(owner);
    store = new Store;
    return store;
}

}  // namespace

ScratchText::ScratchText() {
    Store* const kept = threadStore();
    if (kept != nullptr && kept->count > 0) text_ = std::move(kept->texts[--kept->count]);
}

ScratchText::~ScratchText() {
    Store* const kept = store;
    if (kept == nullptr || kept->count == kKeptTexts) return;
    if (text_.capacity() > kKeptCapacityMax) return;
    text_.clear();
    kept->texts[kept->count++] = std::move(text_);
}

}  // namespace sevrin
