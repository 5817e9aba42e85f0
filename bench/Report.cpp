// Alternating measurement and the table that comes of it.
#include "bench/Report.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace sevrin::bench {

double median(std::vector<double> figures) {
    if (figures.empty()) return 0;
    const auto middle = figures.begin() + static_cast<std::ptrdiff_t>(figures.size() / 2);
    std::nth_element(figures.begin(), middle, figures.end());
    return *middle;
}

Row compare(std::string measure, std::string unit, std::string target, int rounds,
            const std::function<double()>& ours, const std::function<double()>& raw) {
    std::vector<double> oursAll;
    std::vector<double> rawAll;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        oursAll.push_back(ours());
        rawAll.push_back(raw());
        ratios.push_back(oursAll.back() / rawAll.back());
    }
    return {std::move(measure), std::move(unit), median(oursAll),
            median(rawAll),     median(ratios),  std::move(target)};
}

Row compareLeast(std::string measure, std::string unit, std::string target, int rounds,
                 const std::function<double()>& ours, const std::function<double()>& raw) {
    Row row{std::move(measure), std::move(unit), ours(), raw(), 0, std::move(target)};
    for (int round = 1; round < rounds; ++round) {
        row.ours = std::min(row.ours, ours());
        row.raw = std::min(row.raw, raw());
    }
    row.ratio = row.ours / row.raw;
    return row;
}

void printHead(const char* ours, const char* raw) {
    std::printf("| Measure | %s | %s | Ratio | Target |\n|---|---|---|---|---|\n", ours, raw);
}

void print(const Row& row) {
    std::printf("| %s | %.*f %s |", row.measure.c_str(), row.ours >= 1000 ? 0 : 2, row.ours,
                row.unit.c_str());
    if (row.raw > 0) {
        std::printf(" %.*f %s | %.2f |", row.raw >= 1000 ? 0 : 2, row.raw, row.unit.c_str(),
                    row.ratio);
    } else {
        std::printf(" | |");
    }
    std::printf(" %s |\n", row.target.c_str());
    std::fflush(stdout);
}

}  // namespace sevrin::bench
