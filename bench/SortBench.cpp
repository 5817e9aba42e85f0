// Sorting the names of a folder: the order that people expect, beside a plain comparison of bytes.
//
// Each is a stable sort of 100,000 names in no order; what is printed is per name. The difference
// to the bytes is the price of the order, and the target is 350 ns for names of ASCII characters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/FinderCompare.h"

namespace sevrin {

namespace {

constexpr std::size_t kNames = 100'000;

// As cameras, builds and people name files: numbers, words, common beginnings; `letter` among them.
std::vector<std::string> namesWith(std::string_view letter) {
    std::mt19937 random(1);  // NOLINT: every run sorts the same names.
    std::vector<std::string> names;
    for (std::size_t i = 0; i < kNames; ++i) {
        const std::string number = std::to_string(random() % 1'000'000);
        switch (random() % 4) {
            case 0:
                names.push_back("IMG_" + number + ".JPG");
                break;
            case 1:
                names.push_back("Screenshot " + number + " at 9.41.png");
                break;
            case 2:
                names.push_back(number + " r" + std::string(letter) + "port.txt");
                break;
            default:
                names.push_back("lib" + number.substr(0, 2) + "-v" + number + ".so");
                break;
        }
    }
    return names;
}

struct Item {
    platform::FinderSortKey key;
    std::string_view name;
};

template <typename Compare>
void sortNames(benchmark::State& state, std::string_view letter, bool hasKeys,
               const Compare& compare) {
    const std::vector<std::string> names = namesWith(letter);
    for (auto _ : state) {
        std::vector<Item> items;
        items.reserve(names.size());
        for (const std::string& name : names)
            items.push_back(
                {hasKeys ? platform::finderSortKey(name) : platform::FinderSortKey{}, name});
        std::stable_sort(items.begin(), items.end(), compare);
        benchmark::DoNotOptimize(items.data());
    }
    state.counters["per name"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * static_cast<double>(names.size()),
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

bool isBeforeByKey(const Item& left, const Item& right) {
    return platform::finderLikeCompare(left.key, left.name, right.key, right.name) < 0;
}
bool isBeforeByName(const Item& left, const Item& right) {
    return platform::finderLikeCompare(left.name, right.name) < 0;
}
bool isBeforeByBytes(const Item& left, const Item& right) {
    return left.name < right.name;
}

void sortingASCIIByBytes(benchmark::State& state) {
    sortNames(state, "e", false, &isBeforeByBytes);
}
BENCHMARK(sortingASCIIByBytes)->Unit(benchmark::kMillisecond);

void sortingASCIIWithKeys(benchmark::State& state) {
    sortNames(state, "e", true, &isBeforeByKey);
}
BENCHMARK(sortingASCIIWithKeys)->Unit(benchmark::kMillisecond);

void sortingASCIIWithoutKeys(benchmark::State& state) {
    sortNames(state, "e", false, &isBeforeByName);
}
BENCHMARK(sortingASCIIWithoutKeys)->Unit(benchmark::kMillisecond);

// A quarter of the names has an accent.
void sortingAccentsByBytes(benchmark::State& state) {
    sortNames(state, "\xc3\xa9", false, &isBeforeByBytes);
}
BENCHMARK(sortingAccentsByBytes)->Unit(benchmark::kMillisecond);

void sortingAccentsWithKeys(benchmark::State& state) {
    sortNames(state, "\xc3\xa9", true, &isBeforeByKey);
}
BENCHMARK(sortingAccentsWithKeys)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace sevrin

BENCHMARK_MAIN();
