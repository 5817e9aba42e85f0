// Chunks: cut from the front, ended as a whole. A block of a chunk is never used again, so under
// the address sanitizer it is poisoned once its item has gone.
#include "Common/Source/Utilities/KTItemAllocator.h"

#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#define SEVRIN_POISONS
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SEVRIN_POISONS
#endif
#endif
#ifdef SEVRIN_POISONS
extern "C" void __asan_poison_memory_region(const volatile void* place, std::size_t size);
extern "C" void __asan_unpoison_memory_region(const volatile void* place, std::size_t size);
#endif

namespace sevrin {

namespace {

// What a block's prefix says.
struct Prefix {
    std::uint32_t distance;
    std::uint32_t size;
};

#ifdef SEVRIN_POISONS
void poison(void* place, std::size_t size) {
    __asan_poison_memory_region(place, size);
}
void unpoison(void* place, std::size_t size) {
    __asan_unpoison_memory_region(place, size);
}
#else
void poison(void*, std::size_t) {}
void unpoison(void*, std::size_t) {}
#endif

// Making an item counts owners, and a count waits until all that was written before it has reached
// the cache. So the memory for the items after the next is brought there meanwhile; beyond the end
// of the chunk that does no harm.
void fetchAhead(const std::byte* next) {
    constexpr std::size_t kLine = 64;
    constexpr std::size_t kAhead = 512;
    constexpr std::size_t kItem = 256;
    for (std::size_t line = 0; line < kItem; line += kLine)
        __builtin_prefetch(next + kAhead + line, 1);
}

}  // namespace

KTItemChunk::KTItemChunk(std::size_t size)
    : chunk_(static_cast<std::byte*>(::operator new(kHeadSize + size))), size_(kHeadSize + size) {
    static_assert(sizeof(Head) <= kHeadSize && sizeof(Prefix) == kPrefixSize);
    new (chunk_) Head{kFilling};
    poison(chunk_ + kHeadSize, size);
    current_ = this;
}

KTItemChunk::~KTItemChunk() {
    current_ = before_;
    leave(chunk_, kFilling - items_);
}

void* KTItemChunk::allocate(std::size_t size) {
    const std::size_t needed = kPrefixSize + rounded(size);
    KTItemChunk* const chunk = current_;
    const bool isInChunk = chunk != nullptr && needed <= chunk->size_ - chunk->used_;
    std::byte* block = nullptr;
    std::size_t distance = 0;
    if (isInChunk) {
        distance = chunk->used_ + kPrefixSize;
        block = chunk->chunk_ + distance;
        unpoison(block - kPrefixSize, needed);
        fetchAhead(block + needed);
        chunk->used_ += needed;
        ++chunk->items_;
    } else {
        block = static_cast<std::byte*>(::operator new(needed)) + kPrefixSize;
    }
    const Prefix prefix{static_cast<std::uint32_t>(distance), static_cast<std::uint32_t>(size)};
    std::memcpy(block - kPrefixSize, &prefix, sizeof prefix);
    return block;
}

void KTItemChunk::deallocate(void* block) noexcept {
    std::byte* const begin = static_cast<std::byte*>(block) - kPrefixSize;
    Prefix prefix;
    std::memcpy(&prefix, begin, sizeof prefix);
    if (prefix.distance == 0) return ::operator delete(begin);
    std::byte* const chunk = static_cast<std::byte*>(block) - prefix.distance;
    poison(begin, kPrefixSize + prefix.size);
    leave(chunk, 1);
}

void KTItemChunk::leave(std::byte* chunk, std::uint32_t users) noexcept {
    Head& head = *std::launder(reinterpret_cast<Head*>(chunk));
    if (head.users.fetch_sub(users, std::memory_order_acq_rel) == users) ::operator delete(chunk);
}

}  // namespace sevrin
