// Each thread's store of texts, used from its first one on.
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
    std::size_t used = 0;
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
    isKept_ = kept != nullptr && kept->used < kKeptTexts;
    text_ = isKept_ ? &kept->texts[kept->used++] : new std::string;
}

ScratchText::~ScratchText() {
    if (!isKept_) {
        delete text_;
        return;
    }
    --store->used;
    text_->clear();
    if (text_->capacity() > kKeptCapacityMax) std::string().swap(*text_);
}

}  // namespace sevrin
