// Tests that many threads use files at once: each on items of its own, and all on the same.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "Platform/FinderCompare.h"
#include "Platform/NSFileManager.h"
#include "Platform/NSURL.h"
#include "Platform/TestFolder.h"

namespace sevrin::platform {
namespace {

// Runs `work` on several threads, each with a number of its own.
void onThreads(const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

const NSFileManager& manager() {
    return NSFileManager::defaultManager();
}

TEST(FileThreadsTest, TreesAreCopiedMovedAndRemovedSideBySide) {
    const TestFolder folder;
    folder.makeFolder("source");
    for (int i = 0; i < 20; ++i)
        folder.write("source/" + std::to_string(i), "content");

    onThreads([&](int number) {
        const std::string mine = folder / std::to_string(number);
        for (int round = 0; round < 5; ++round) {
            EXPECT_EQ(manager().copyItemAtPathToPath(folder / "source", mine), nullptr);
            EXPECT_EQ(manager().moveItemAtPathToPath(mine, mine + " moved"), nullptr);
            EXPECT_EQ(manager().removeItemAtPath(mine + " moved"), nullptr);
        }
    });

    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(FileThreadsTest, OneTreeIsRemovedByAllAtOnce) {
    const TestFolder folder;
    for (int round = 0; round < 10; ++round) {
        folder.makeFolder("tree");
        for (int i = 0; i < 20; ++i) {
            folder.makeFolder("tree/" + std::to_string(i));
            folder.write("tree/" + std::to_string(i) + "/file");
        }

        onThreads([&](int) { static_cast<void>(manager().removeItemAtPath(folder / "tree")); });

        ASSERT_FALSE(folder.has("tree"));
    }
}

TEST(FileThreadsTest, OnlyOneOfManyMovesToOneNameSucceeds) {
    const TestFolder folder;
    for (int i = 0; i < 6; ++i)
        folder.write(std::to_string(i), std::to_string(i));
    std::vector<int> outcomes(6);

    onThreads([&](int number) {
        const NSErrorPtr error =
            manager().moveItemAtPathToPath(folder / std::to_string(number), folder / "target");
        outcomes[static_cast<std::size_t>(number)] = error == nullptr ? 1 : 0;
    });

    int winners = 0;
    for (int i = 0; i < 6; ++i) {
        const bool hasWon = outcomes[static_cast<std::size_t>(i)] == 1;
        winners += hasWon ? 1 : 0;
        EXPECT_EQ(folder.has(std::to_string(i)), !hasWon);
        if (hasWon) {
            EXPECT_EQ(folder.read("target"), std::to_string(i));
        }
    }
    EXPECT_EQ(winners, 1);
}

TEST(FileThreadsTest, OneURLIsAskedAndDroppedByAll) {
    const TestFolder folder;
    const NSURLPtr url = NSURL::fileURLWithPath(folder.write("file"));

    onThreads([&](int) {
        for (int round = 0; round < 200; ++round) {
            EXPECT_EQ(std::get<Value>(url->resourceValueForKey(NSURLLocalizedNameKey)),
                      Value("file"));
            url->removeAllCachedResourceValues();
        }
    });
}

TEST(FileThreadsTest, NamesAreComparedByAllFromTheFirstOn) {
    onThreads([](int) {
        for (int round = 0; round < 500; ++round) {
            EXPECT_EQ(finderLikeCompare("caf\xc3\xa9 2", "caf\xc3\xa9 10"), -1);
            EXPECT_EQ(finderLikeCompare("a2", "a10"), -1);
        }
    });
}

}  // namespace
}  // namespace sevrin::platform
