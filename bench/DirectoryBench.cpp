// What directories cost as items with names and attributes, beside the system calls that they
// cannot do without and beside others doing the same work.
//
//     directory-bench [--folder DIR] [--rounds N] [PART...]
//
// PART is list (folders of 10 to 1,000,000 files) or the number in one of its rows, tree (200,000
// files), memory, sort, release, calls; all of them when none is named, in about two minutes. Works
// in folders of its own within DIR (/dev/shm when that can be written to, else TMPDIR or /tmp),
// which it removes. All who are compared are measured in turn, round by round; the best round of
// each counts, for the machines are shared and nothing makes a round faster than it is.
#include <malloc.h>
#include <sched.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/KTDirectory.h"
#include "bench/DirectoryFolder.h"
#include "bench/DirectoryPeers.h"
#include "bench/SystemCalls.h"

namespace sevrin::bench {
namespace {

struct Options {
    std::string folder;
    int rounds = 3;
    std::vector<std::string> parts;

    [[nodiscard]] bool has(std::string_view part) const {
        return parts.empty() || std::find(parts.begin(), parts.end(), part) != parts.end();
    }
};

double nanosecondsOf(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double now() {
    return nanosecondsOf(CLOCK_MONOTONIC);
}

void check(std::int64_t seen, std::int64_t expected) {
    if (seen == expected) return;
    throw std::runtime_error("entries are missing: " + std::to_string(seen));
}

// While it lives, the process has one processor.
class OneProcessor {
public:
    OneProcessor() {
        ::sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(::sched_getcpu(), &one);
        ::sched_setaffinity(0, sizeof one, &one);
    }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;
    ~OneProcessor() { ::sched_setaffinity(0, sizeof before_, &before_); }

private:
    cpu_set_t before_;
};

KTDirectoryPtr listed(const std::string& path) {
    KTDirectoryPtr directory = KTDirectory::directoryWithPath(path);
    directory->lazyDirectoryRead();
    return directory;
}

std::weak_ptr<KTFileInfo> lastOf(const KTDirectoryPtr& directory) {
    std::weak_ptr<KTFileInfo> last;
    for (const KTFileInfoPtr& item : *directory)
        last = item;
    return last;
}

void waitForEndOf(const std::weak_ptr<KTFileInfo>& item) {
    constexpr timespec kPause{0, 1'000'000};
    while (!item.expired())
        ::nanosleep(&kPause, nullptr);
}

// Drops the listing and waits until it is gone.
void drop(KTDirectoryPtr directory) {
    const std::weak_ptr<KTFileInfo> last = lastOf(directory);
    directory.reset();
    waitForEndOf(last);
}

// Nanoseconds an entry; the listings are kept until the time has been taken.
double listOurs(const DirectoryFolder& folder, int times) {
    std::vector<KTDirectoryPtr> directories;
    const double begin = now();
    for (int i = 0; i < times; ++i)
        directories.push_back(listed(folder.path()));
    const double time = now() - begin;
    check(static_cast<std::int64_t>(directories[0]->count()), folder.entries());
    std::vector<std::weak_ptr<KTFileInfo>> lasts;
    for (const KTDirectoryPtr& directory : directories)
        lasts.push_back(lastOf(directory));
    directories.clear();
    for (const std::weak_ptr<KTFileInfo>& last : lasts)
        waitForEndOf(last);
    return time / static_cast<double>(folder.entries() * times);
}

// As a backup walks: a listing is dropped once everything in it has been seen.
std::int64_t walkItems(const KTDirectoryPtr& directory) {
    std::int64_t count = 0;
    for (const KTFileInfoPtr& item : *directory) {
        ++count;
        if (const KTDirectoryPtr inner = item->asDirectory()) {
            count += walkItems(inner);
            inner->flushDirectoryContents();
        }
    }
    return count;
}

double walkOurs(const DirectoryFolder& folder, int) {
    KTDirectoryPtr directory = KTDirectory::directoryWithPath(folder.path());
    const double begin = now();
    const std::int64_t count = walkItems(directory);
    const double time = now() - begin;
    check(count, folder.entries());
    drop(std::move(directory));
    return time / static_cast<double>(count);
}

// On one processor, for they have one thread: so none of them pays for being moved.
double readPeer(DirectoryReading read, void (*forget)(), const DirectoryFolder& folder, int times) {
    const OneProcessor one;
    double time = 0;
    for (int i = 0; i < times; ++i) {
        const double begin = now();
        const std::int64_t count = read(folder.path());
        time += now() - begin;
        check(count, folder.entries());
        if (forget != nullptr) forget();
    }
    return time / static_cast<double>(folder.entries() * times);
}

// One who is compared, and the best of the rounds.
struct Contestant {
    std::string name;
    std::function<double()> measure;
    double best = std::numeric_limits<double>::max();
};

using Measure = double (*)(const DirectoryFolder&, int);

// Ours, ours on one processor, the raw loop and the peers, in turn.
std::vector<Contestant> contest(const DirectoryFolder& folder, int times, int rounds, bool isTree) {
    const Measure ours = isTree ? &walkOurs : &listOurs;
    std::vector<Contestant> all;
    all.push_back({"ours", [&, ours] { return ours(folder, times); }});
    all.push_back({"ours, one processor", [&, ours] {
                       const OneProcessor one;
                       return ours(folder, times);
                   }});
    all.push_back({"raw loop",
                   [&] { return readPeer(isTree ? &walkRaw : &listRaw, nullptr, folder, times); }});
    for (const DirectoryPeer& peer : directoryPeers()) {
        const DirectoryReading read = isTree ? peer.walk : peer.list;
        all.push_back({peer.name, [&, read] {
                           return read == nullptr ? 0 : readPeer(read, peer.forget, folder, times);
                       }});
    }
    for (int round = 0; round < rounds; ++round) {
        for (Contestant& one : all) {
            // Small folders stay in the caches, whoever was there before.
            if (times > 1) check(listRaw(folder.path()), folder.entries());
            one.best = std::min(one.best, one.measure());
        }
    }
    return all;
}

void printContest(const char* entries, const std::vector<Contestant>& all) {
    for (int ours = 0; ours < 2; ++ours) {
        std::printf("| %s%s | %.2f M/s |", entries, ours == 0 ? "" : ", one processor",
                    1e3 / all[static_cast<std::size_t>(ours)].best);
        for (std::size_t i = 2; i < all.size(); ++i) {
            const double ratio = all[i].best / all[static_cast<std::size_t>(ours)].best;
            all[i].best > 0 ? std::printf(" %.2f |", ratio) : std::printf(" |");
        }
        std::printf("\n");
    }
}

void measureListing(const Options& options) {
    std::printf("Entries per second, and how many times those of the others that is:\n\n");
    std::printf("| Entries | Ours | raw loop |");
    for (const DirectoryPeer& peer : directoryPeers())
        std::printf(" %s |", peer.name);
    std::printf("\n|---|---|---|---|---|---|---|\n");
    struct Size {
        const char* name;
        std::int64_t entries;
        int times;   // in a row, as one measurement
        int rounds;  // for each of those asked for: the shorter, the more
    };
    constexpr Size kSizes[] = {{"10", 10, 100, 20},
                               {"1,000", 1000, 5, 20},
                               {"100,000", 100'000, 1, 4},
                               {"1,000,000", 1'000'000, 1, 1}};
    for (const Size& size : kSizes) {
        if (!options.has("list") && !options.has(size.name)) continue;
        const DirectoryFolder folder = DirectoryFolder::flat(options.folder, size.entries);
        const int rounds = options.rounds * size.rounds;
        printContest(size.name, contest(folder, size.times, rounds, false));
    }
    if (!options.has("tree")) return;
    const DirectoryFolder tree = DirectoryFolder::tree(options.folder, 200'000);
    printContest("tree of 200,000 files", contest(tree, 1, options.rounds * 2, true));
}

// Bytes of this process that are in memory.
double residentBytes() {
    std::ifstream status("/proc/self/statm");
    double total = 0;
    double resident = 0;
    status >> total >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

// What the allocator has given out, its own overhead included, and what has become resident.
void measureMemory(const char* name, const DirectoryFolder& folder) {
    ::malloc_trim(0);
    const auto inUse = [] {
        const struct mallinfo2 info = ::mallinfo2();
        return static_cast<double>(info.uordblks + info.hblkhd);
    };
    const double usedBefore = inUse();
    const double residentBefore = residentBytes();
    KTDirectoryPtr directory = listed(folder.path());
    const auto count = static_cast<double>(directory->count());
    std::printf("| memory per item, %s files | %.0f bytes (resident %.0f) | at most 256 |\n", name,
                (inUse() - usedBefore) / count, (residentBytes() - residentBefore) / count);
    drop(std::move(directory));
}

void measureSort(const DirectoryFolder& folder, int rounds) {
    double best = std::numeric_limits<double>::max();
    for (int round = 0; round < rounds; ++round) {
        KTDirectoryPtr directory = listed(folder.path());
        const double begin = now();
        directory->sort();
        best = std::min(best, now() - begin);
        drop(std::move(directory));
    }
    std::printf("| sort by name, 100,000 ASCII names | %.0f ns an item | at most 350 |\n",
                best / static_cast<double>(folder.entries()));
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// What the caller waits for, and the time of all processors that it takes until all is gone.
// Several listings are let go in a row: the first finds nothing of what it needs in the caches.
void measureRelease(const char* name, const DirectoryFolder& folder, int rounds) {
    constexpr int kInARow = 4;
    std::vector<double> caller;
    double total = std::numeric_limits<double>::max();
    for (int round = 0; round < rounds; ++round) {
        std::vector<KTDirectoryPtr> directories;
        std::vector<std::weak_ptr<KTFileInfo>> lasts;
        for (int i = 0; i < kInARow; ++i) {
            directories.push_back(listed(folder.path()));
            lasts.push_back(lastOf(directories.back()));
        }
        const double process = nanosecondsOf(CLOCK_PROCESS_CPUTIME_ID);
        for (KTDirectoryPtr& directory : directories) {
            const double begin = now();
            directory.reset();
            caller.push_back(now() - begin);
        }
        const double own = nanosecondsOf(CLOCK_THREAD_CPUTIME_ID);
        for (const std::weak_ptr<KTFileInfo>& last : lasts)
            waitForEndOf(last);
        const double waiting = nanosecondsOf(CLOCK_THREAD_CPUTIME_ID) - own;
        total = std::min(total, nanosecondsOf(CLOCK_PROCESS_CPUTIME_ID) - process - waiting);
    }
    const double worst = *std::max_element(caller.begin(), caller.end());
    std::printf(
        "| release of %s items, on the caller's thread | %.2f us, at worst %.2f us | 1 us |\n",
        name, median(caller) / 1e3, worst / 1e3);
    std::printf("| the same, processor time in all | %.1f ns an item | at most 30 |\n",
                total / static_cast<double>(folder.entries() * kInARow));
}

void measureCalls(const DirectoryFolder& folder) {
    std::int64_t all = 0;
    auto calls = systemCallsOf([&] { static_cast<void>(listed(folder.path())); });
    for (const auto& [number, count] : calls)
        all += count;
    const double entries = static_cast<double>(folder.entries());
    std::printf(
        "| system calls an entry, %lld files | %.3f: statx %.3f, getdents64 %.3f | 1.0 "
        "and the reads of names |\n",
        static_cast<long long>(folder.entries()), static_cast<double>(all) / entries,
        static_cast<double>(calls[SYS_statx]) / entries,
        static_cast<double>(calls[SYS_getdents64]) / entries);
}

void measureRest(const Options& options) {
    std::printf("\n| Measure | | Target |\n|---|---|---|\n");
    const DirectoryFolder thousand = DirectoryFolder::flat(options.folder, 1000);
    const DirectoryFolder many = DirectoryFolder::flat(options.folder, 100'000);
    if (options.has("sort")) measureSort(many, options.rounds * 3);
    if (options.has("calls")) {
        measureCalls(thousand);
        measureCalls(many);
    }
    if (options.has("memory")) measureMemory("100,000", many);
    if (options.has("release")) {
        measureRelease("1,000", thousand, options.rounds * 10);
        measureRelease("100,000", many, options.rounds * 5);
    }
    if (!options.has("memory") && !options.has("release")) return;
    const DirectoryFolder million = DirectoryFolder::flat(options.folder, 1'000'000);
    if (options.has("memory")) measureMemory("1,000,000", million);
    if (options.has("release")) measureRelease("1,000,000", million, options.rounds);
}

std::string defaultFolder() {
    if (::access("/dev/shm", W_OK) == 0) return "/dev/shm";
    const char* const temporary = ::getenv("TMPDIR");
    return temporary == nullptr ? "/tmp" : temporary;
}

int run(int count, char** words) {
    ::setvbuf(stdout, nullptr, _IOLBF, 0);
    Options options{.folder = defaultFolder(), .parts = {}};
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        if (word == "--folder" && i + 1 < count) {
            options.folder = words[++i];
        } else if (word == "--rounds" && i + 1 < count) {
            options.rounds = std::max(1, std::atoi(words[++i]));
        } else {
            options.parts.emplace_back(word);
        }
    }
    try {
        measureListing(options);
        measureRest(options);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "directory-bench: %s\n", failure.what());
        return 1;
    }
}

}  // namespace
}  // namespace sevrin::bench

int main(int count, char** words) {
    return sevrin::bench::run(count, words);
}
