// What listing a directory costs with all attributes, beside the calls of the kernel that it cannot
// do without: getdents64 and one statx an entry, measured in the same run, and beside the standard
// library doing the same work.
//
//   directory-bench [--benchmark_filter=...]
//
// Folders of 10 to 100,000 empty files are made in TMPDIR (or /tmp) and removed at the end. Each
// figure is per entry; the ratio of a reader to "raw" is what counts. A million more takes
// BENCH_MILLION=1.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

#include "Platform/AttributeList.h"
#include "Platform/UniqueFd.h"
#include "Platform/linux/DirectoryEntries.h"

namespace sevrin {

namespace {

using platform::UniqueFd;

constexpr std::size_t kBufferSize = 16384;  // what the object model reads with
constexpr platform::attrgroup_t kItem = 0x0227'8F0B;

// A folder of empty files with names like those of a user's, made when first needed.
class Folder {
public:
    explicit Folder(std::int64_t count) {
        const char* temporary = ::getenv("TMPDIR");
        path_ = std::string(temporary == nullptr ? "/tmp" : temporary) + "/directory-bench-XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder");
        for (std::int64_t i = 0; i < count; ++i) {
            const std::string name = path_ + "/document " + std::to_string(i) + ".txt";
            const UniqueFd file(::open(name.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
            if (!file) throw std::runtime_error("no file");
        }
    }
    ~Folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const { return path_; }

    static const std::string& of(std::int64_t count) {
        static std::map<std::int64_t, std::unique_ptr<Folder>> folders;
        std::unique_ptr<Folder>& folder = folders[count];
        if (!folder) folder = std::make_unique<Folder>(count);
        return folder->path();
    }

private:
    std::string path_;
};

UniqueFd openFolder(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_DIRECTORY | O_CLOEXEC));
}

void report(benchmark::State& state, std::int64_t entries) {
    if (entries != state.iterations() * state.range(0)) state.SkipWithError("entries are missing");
    state.SetItemsProcessed(entries);
    state.counters["per entry"] = benchmark::Counter(
        static_cast<double>(entries), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

std::int64_t listRaw(int directory) {
    constexpr unsigned kFields = STATX_BASIC_STATS | STATX_BTIME;
    constexpr int kFlags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    alignas(8) std::array<std::byte, kBufferSize> names;
    std::int64_t count = 0;
    for (long size; (size = platform::readEntries(directory, names.data(), names.size())) > 0;) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
            const platform::DirectoryEntry& entry = platform::entryAt(names.data() + at);
            at += entry.length;
            if (platform::isDotEntry(entry)) continue;
            struct statx stat;
            count += ::statx(directory, entry.name(), kFlags, kFields, &stat) == 0;
            benchmark::DoNotOptimize(stat);
        }
    }
    return count;
}

void raw(benchmark::State& state) {
    const std::string& path = Folder::of(state.range(0));
    std::int64_t entries = 0;
    for (auto _ : state)
        entries += listRaw(openFolder(path).get());
    report(state, entries);
}

void bulkReader(benchmark::State& state) {
    const std::string& path = Folder::of(state.range(0));
    const platform::attrlist list = {platform::ATTR_BIT_MAP_COUNT,
                                     0,
                                     kItem | platform::ATTR_CMN_RETURNED_ATTRS,
                                     0,
                                     0x7,
                                     0x207,
                                     0};
    alignas(8) std::array<std::byte, kBufferSize> buffer;
    std::int64_t entries = 0;
    for (auto _ : state) {
        const UniqueFd directory = openFolder(path);
        for (int count; (count = platform::getattrlistbulk(
                             directory.get(), &list, buffer.data(), buffer.size(),
                             platform::FSOPT_PACK_INVAL_ATTRS)) > 0;) {
            entries += count;
            benchmark::DoNotOptimize(buffer);
        }
    }
    report(state, entries);
}

void attributeReader(benchmark::State& state) {
    const std::string& path = Folder::of(state.range(0));
    const platform::attrlist list = {platform::ATTR_BIT_MAP_COUNT, 0, kItem, 0, 0x7, 0x207, 0};
    alignas(8) std::array<std::byte, kBufferSize> buffer;
    std::int64_t entries = 0;
    for (auto _ : state) {
        const UniqueFd directory = openFolder(path);
        for (int isEnd = 0; isEnd == 0;) {
            std::uint32_t count = 102;
            std::uint32_t base = 0;
            std::uint32_t directoryState = 0;
            isEnd = platform::getdirentriesattr(directory.get(), &list, buffer.data(),
                                                buffer.size(), &count, &base, &directoryState, 0);
            if (isEnd >= 0) entries += count;
            benchmark::DoNotOptimize(buffer);
        }
    }
    report(state, entries);
}

void readdirAndFstatat(benchmark::State& state) {
    const std::string& path = Folder::of(state.range(0));
    std::int64_t entries = 0;
    for (auto _ : state) {
        const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
        while (const dirent* entry = ::readdir(directory.get())) {
            if (entry->d_name[0] == '.') continue;
            struct stat stat;
            entries +=
                ::fstatat(::dirfd(directory.get()), entry->d_name, &stat, AT_SYMLINK_NOFOLLOW) == 0;
            benchmark::DoNotOptimize(stat);
        }
    }
    report(state, entries);
}

void standardLibrary(benchmark::State& state) {
    const std::string& path = Folder::of(state.range(0));
    std::int64_t entries = 0;
    for (auto _ : state) {
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            benchmark::DoNotOptimize(entry.symlink_status());
            benchmark::DoNotOptimize(entry.file_size());
            benchmark::DoNotOptimize(entry.last_write_time());
            benchmark::DoNotOptimize(entry.hard_link_count());
            ++entries;
        }
    }
    report(state, entries);
}

void sizes(benchmark::internal::Benchmark* one) {
    one->Arg(10)->Arg(1000)->Arg(100000);
    if (::getenv("BENCH_MILLION") != nullptr) one->Arg(1000000);
}

BENCHMARK(raw)->Apply(sizes);
BENCHMARK(bulkReader)->Apply(sizes);
BENCHMARK(attributeReader)->Apply(sizes);
BENCHMARK(readdirAndFstatat)->Apply(sizes);
BENCHMARK(standardLibrary)->Apply(sizes);

}  // namespace

}  // namespace sevrin

BENCHMARK_MAIN();
