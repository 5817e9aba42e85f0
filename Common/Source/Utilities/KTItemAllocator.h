// One block of memory for an item, the count of its owners, and its name behind both.
//
// A directory has a million items: three allocations instead of one would cost more than asking the
// kernel for their attributes. Part of KTFileInfo; nobody else needs it.
#pragma once

#include <cstddef>
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

template <typename Type, typename Room>
struct KTItemAllocator {
    using value_type = Type;

    KTItemAllocator() = default;
    template <typename Other>
    KTItemAllocator(const KTItemAllocator<Other, Room>&) noexcept {}

    Type* allocate(std::size_t count) {
        void* const block = ::operator new(count * sizeof(Type) + Room::wanted->size);
        Room::wanted->place = static_cast<char*>(block) + count * sizeof(Type);
        return static_cast<Type*>(block);
    }
    void deallocate(Type* block, std::size_t) noexcept { ::operator delete(block); }

    friend bool operator==(const KTItemAllocator&, const KTItemAllocator&) { return true; }
};

}  // namespace sevrin
