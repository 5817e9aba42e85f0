// One block of memory for an item, the count of its owners, and its name behind both; and one piece
// of memory for all the blocks of a portion of a listing.
//
// A directory has a million items: three allocations instead of one would cost more than asking the
// kernel for their attributes, and one for each still a third of it. A chunk goes when the last of
// its items has gone; as an item keeps all that follow it, little is kept longer for that. Part of
// KTFileInfo; nobody else needs it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "Common/Source/Utilities/KTFileInfo.h"

namespace sevrin {

// How much is wanted, and where it is once the block has been allocated.
struct KTFileInfo::NameRoom {
    std::size_t size;
    char* place = nullptr;

    // The room that this thread's next block is to have. A block does not know of it otherwise: an
    // allocator with content would be kept in every block.
    static inline thread_local NameRoom* wanted = nullptr;
};

// Memory for items. While one lives, this thread's items lie in it as long as there is room; they
// may end on any thread, at any time.
class KTItemChunk {
public:
    // Makes room for so many bytes, of which each item takes what roomFor() says.
    explicit KTItemChunk(std::size_t size);
    KTItemChunk(const KTItemChunk&) = delete;
    KTItemChunk& operator=(const KTItemChunk&) = delete;
    ~KTItemChunk();

    // For an object of so many bytes with a name of so many characters.
    [[nodiscard]] static constexpr std::size_t roomFor(std::size_t object, std::size_t name) {
        constexpr std::size_t kOwnerCounts = 16;  // as std::allocate_shared puts them before it
        return kPrefixSize + rounded(kOwnerCounts + object + name + 1);
    }

    // A block, in this thread's chunk if it has one with room; aligned to eight bytes.
    [[nodiscard]] static void* allocate(std::size_t size);
    static void deallocate(void* block) noexcept;

private:
    // At the start of a chunk.
    struct Head {
        std::atomic<std::uint32_t> users;
    };
    static constexpr std::size_t kHeadSize = 8;

    // Before each block: how far it is from its chunk's start, 0 when it is in none.
    static constexpr std::size_t kPrefixSize = 8;

    static constexpr std::size_t rounded(std::size_t size) { return (size + 7) & ~std::size_t{7}; }
    static void leave(std::byte* chunk, std::uint32_t users) noexcept;

    // More than a chunk can have: so nobody ends it while it is filled.
    static constexpr std::uint32_t kFilling = 1U << 30U;

    static inline thread_local KTItemChunk* current_ = nullptr;

    KTItemChunk* const before_ = current_;
    std::byte* const chunk_;
    const std::size_t size_;
    std::size_t used_ = kHeadSize;
    std::uint32_t items_ = 0;
};

template <typename Type, typename Room>
struct KTItemAllocator {
    using value_type = Type;
    static_assert(alignof(Type) <= 8);

    KTItemAllocator() = default;
    template <typename Other>
    KTItemAllocator(const KTItemAllocator<Other, Room>&) noexcept {}

    Type* allocate(std::size_t count) {
        void* const block = KTItemChunk::allocate(count * sizeof(Type) + Room::wanted->size);
        Room::wanted->place = static_cast<char*>(block) + count * sizeof(Type);
        return static_cast<Type*>(block);
    }
    void deallocate(Type* block, std::size_t) noexcept { KTItemChunk::deallocate(block); }

    friend bool operator==(const KTItemAllocator&, const KTItemAllocator&) { return true; }
};

}  // namespace sevrin
