// What archiving an exception and reading it back costs, and a property list of its details, beside
// a widely used C library that writes and reads the same bytes in the same run.
//
// The library builds and walks a tree of the property list only: to it an archive is numbers that
// mean nothing. Ours goes from the exception to the bytes and back to an exception.
#include <benchmark/benchmark.h>
#include <plist/plist.h>

#include <string>

#include "Common/Source/Utilities/SVException.h"
#include "Platform/BinaryPropertyList.h"
#include "Platform/NSKeyedArchiver.h"
#include "Platform/NSKeyedUnarchiver.h"

namespace sevrin {
namespace {

using platform::Dictionary;
using platform::NSKeyedArchiver;
using platform::NSKeyedUnarchiver;
using platform::Value;

constexpr int kDetails = 20;

// Numbers, text and booleans in turn, as failures of files have them.
Dictionary details() {
    Dictionary result;
    for (int i = 0; i < kDetails; ++i) {
        const Value values[] = {i * 1'000, "/Library/Application Support/Item " + std::to_string(i),
                                i % 2 == 0};
        result.set("Detail" + std::to_string(i), values[i % 3]);
    }
    return result;
}

Value exception() {
    const SVException made = SVException::exceptionWithNameReason("IO", "cannot delete item");
    for (const auto& [key, value] : details())
        made.object()->setUserInfoValueForKey(value, key);
    return made.object();
}

std::string archiveBytes() {
    return NSKeyedArchiver::archivedDataWithRootObject(exception());
}

std::string listBytes() {
    return platform::dataFromPropertyList(details());
}

void readWithLibrary(benchmark::State& state, const std::string& bytes) {
    for (auto _ : state) {
        plist_t tree = nullptr;
        plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &tree);
        if (tree == nullptr) state.SkipWithError("the library does not read these bytes");
        plist_free(tree);
    }
}

void writeWithLibrary(benchmark::State& state, const std::string& bytes) {
    plist_t tree = nullptr;
    plist_from_bin(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &tree);
    for (auto _ : state) {
        char* written = nullptr;
        std::uint32_t size = 0;
        plist_to_bin(tree, &written, &size);
        benchmark::DoNotOptimize(size);
        plist_to_bin_free(written);
    }
    plist_free(tree);
}

void archivingAnException(benchmark::State& state) {
    const Value object = exception();
    for (auto _ : state)
        benchmark::DoNotOptimize(NSKeyedArchiver::archivedDataWithRootObject(object));
    state.counters["bytes"] = static_cast<double>(archiveBytes().size());
}
BENCHMARK(archivingAnException);

void libraryWritingThatArchive(benchmark::State& state) {
    writeWithLibrary(state, archiveBytes());
}
BENCHMARK(libraryWritingThatArchive);

void unarchivingAnException(benchmark::State& state) {
    const std::string bytes = archiveBytes();
    for (auto _ : state)
        benchmark::DoNotOptimize(NSKeyedUnarchiver::unarchiveObjectWithData(bytes));
}
BENCHMARK(unarchivingAnException);

void libraryReadingThatArchive(benchmark::State& state) {
    readWithLibrary(state, archiveBytes());
}
BENCHMARK(libraryReadingThatArchive);

void writingAPropertyList(benchmark::State& state) {
    const Value list = details();
    for (auto _ : state)
        benchmark::DoNotOptimize(platform::dataFromPropertyList(list));
    state.counters["bytes"] = static_cast<double>(listBytes().size());
}
BENCHMARK(writingAPropertyList);

void libraryWritingThatList(benchmark::State& state) {
    writeWithLibrary(state, listBytes());
}
BENCHMARK(libraryWritingThatList);

void readingAPropertyList(benchmark::State& state) {
    const std::string bytes = listBytes();
    for (auto _ : state)
        benchmark::DoNotOptimize(platform::propertyListFromData(bytes));
}
BENCHMARK(readingAPropertyList);

void libraryReadingThatList(benchmark::State& state) {
    readWithLibrary(state, listBytes());
}
BENCHMARK(libraryReadingThatList);

}  // namespace
}  // namespace sevrin

BENCHMARK_MAIN();
