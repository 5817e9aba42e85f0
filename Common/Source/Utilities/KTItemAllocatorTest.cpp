// The memory of items: in chunks and alone, ended in any order and on any thread.
#include "Common/Source/Utilities/KTItemAllocator.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/KTRegularFile.h"

namespace sevrin {
namespace {

KTFileInfoPtr newItem(std::string_view name) {
    static const KTPathPtr theParent = KTPath::pathWithPath("/nowhere");
    dirent entry{};
    entry.d_type = DT_REG;
    name.copy(entry.d_name, sizeof entry.d_name - 1);
    return KTFileInfo::initWithDirEntryParentPath(entry, theParent);
}

bool isWithin(const KTFileInfo* item, const KTFileInfo* first, std::size_t size) {
    const auto* const begin = reinterpret_cast<const char*>(first);
    const auto* const place = reinterpret_cast<const char*>(item);
    return place >= begin && place < begin + size;
}

constexpr std::size_t kRoom = KTItemChunk::roomFor(sizeof(KTRegularFile), 4);

TEST(KTItemChunkTest, AChunkHasRoomForExactlyItsItems) {
    const KTItemChunk chunk(3 * kRoom);

    const KTFileInfoPtr items[] = {newItem("aaaa"), newItem("bbbb"), newItem("cccc")};
    const auto distance = reinterpret_cast<const char*>(items[1].get()) -
                          reinterpret_cast<const char*>(items[0].get());

    EXPECT_EQ(static_cast<std::size_t>(distance), kRoom);
    EXPECT_TRUE(isWithin(items[2].get(), items[0].get(), 3 * kRoom));
    EXPECT_LE(kRoom, 256U);
}

TEST(KTItemChunkTest, WhatDoesNotFitHasABlockOfItsOwn) {
    const KTItemChunk chunk(kRoom);
    const KTFileInfoPtr first = newItem("aaaa");

    const KTFileInfoPtr second = newItem(std::string(200, 'b'));

    EXPECT_FALSE(isWithin(second.get(), first.get(), kRoom));
    EXPECT_EQ(second->name(), std::string(200, 'b'));
}

TEST(KTItemChunkTest, AnItemOutlivesItsChunksFilling) {
    KTFileInfoPtr kept;
    {
        const KTItemChunk chunk(3 * kRoom);
        const KTFileInfoPtr gone = newItem("aaaa");
        kept = newItem("kept");
    }

    EXPECT_EQ(kept->name(), "kept");
    EXPECT_EQ(kept->path(), "/nowhere/kept");
}

TEST(KTItemChunkTest, AChunkWithinAnotherIsFilledFirst) {
    const KTItemChunk outer(2 * kRoom);
    const KTFileInfoPtr before = newItem("aaaa");
    KTFileInfoPtr inside;
    {
        const KTItemChunk inner(kRoom);
        inside = newItem("bbbb");
    }

    const KTFileInfoPtr after = newItem("cccc");

    EXPECT_FALSE(isWithin(inside.get(), before.get(), 2 * kRoom));
    EXPECT_TRUE(isWithin(after.get(), before.get(), 2 * kRoom));
}

TEST(KTItemChunkTest, ItemsEndInAnyOrderOnAnyThread) {
    constexpr int kItems = 1000;
    std::vector<KTFileInfoPtr> items;
    {
        const KTItemChunk chunk(kItems / 2 * kRoom);
        for (int i = 0; i < kItems; ++i)
            items.push_back(newItem(std::to_string(1000 + i)));
    }
    std::shuffle(items.begin(), items.end(), std::mt19937(1));  // NOLINT: the same each time
    std::vector<KTFileInfoPtr> others(items.begin() + kItems / 2, items.end());
    items.resize(kItems / 2);

    std::thread other([&] { others.clear(); });
    items.clear();
    other.join();

    // That nothing was ended twice or never, or used afterwards, the sanitizers tell.
    EXPECT_TRUE(items.empty() && others.empty());
}

}  // namespace
}  // namespace sevrin
