// A directory of a million entries, from the first to the last thing that is done with it.
//
// The sanitizers make everything several times slower and larger; with them a hundred thousand
// entries must do, which still are far more than a stack has room for.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "Common/Source/Utilities/KTDirectory.h"
#include "Platform/TestFolder.h"
#include "Platform/UniqueFd.h"

namespace sevrin {
namespace {

using platform::TestFolder;
using platform::UniqueFd;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kEntries = 100'000;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr int kEntries = 100'000;
#else
constexpr int kEntries = 1'000'000;
#endif
#else
constexpr int kEntries = 1'000'000;
#endif

// 0, or why the folder cannot have so many entries.
int fill(const TestFolder& folder) {
    const UniqueFd place(::open(folder.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < kEntries; ++i) {
        const std::string name = "entry " + std::to_string(i);
        if (::symlinkat("x", place.get(), name.c_str()) != 0) return errno;
    }
    return 0;
}

// Calls `body` on a thread whose stack has room for a thousandth of the entries, one in another.
template <typename Body>
void runOnSmallStack(Body body) {
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_attr_init(&attributes), 0);
    ASSERT_EQ(::pthread_attr_setstacksize(&attributes, std::size_t{256} << 10U), 0);
    pthread_t thread{};
    const auto start = [](void* work) -> void* {
        (*static_cast<Body*>(work))();
        return nullptr;
    };
    ASSERT_EQ(::pthread_create(&thread, &attributes, start, &body), 0);
    ASSERT_EQ(::pthread_join(thread, nullptr), 0);
    ::pthread_attr_destroy(&attributes);
}

TEST(KTDirectorySlowTest, AMillionEntriesAreListedSortedAndReleased) {
    if (::access("/dev/shm", W_OK) != 0) GTEST_SKIP() << "needs a folder in memory, /dev/shm";
    const TestFolder folder("/dev/shm");
    if (const int error = fill(folder); error != 0) {
        ASSERT_TRUE(error == ENOSPC || error == EDQUOT || error == ENOMEM) << error;
        GTEST_SKIP() << "/dev/shm has no room for a million entries";
    }
    std::weak_ptr<KTFileInfo> last;
    int number = 0;
    bool isInOrder = true;

    runOnSmallStack([&] {
        const auto directory = KTDirectory::directoryWithPath(folder.path());
        directory->sort();
        for (const KTFileInfoPtr& item : *directory) {
            isInOrder &= item->name() == "entry " + std::to_string(number++);
            last = item;
        }
        isInOrder &= directory->count() == static_cast<std::uint64_t>(kEntries);
    });
    const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!last.expired() && std::chrono::steady_clock::now() < limit)
        std::this_thread::yield();

    EXPECT_EQ(number, kEntries);
    EXPECT_TRUE(isInOrder);
    EXPECT_TRUE(last.expired());
}

}  // namespace
}  // namespace sevrin
