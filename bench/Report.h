// Alternating measurement and the table that comes of it.
//
// These machines are shared, so a figure alone says little: the service and its raw peer are
// measured in turn, and what counts is the median of the ratios of neighbouring rounds, or for
// short work the least of each.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace sevrin::bench {

// One measure: what the server in question and its raw peer achieved, and what they were meant to.
struct Row {
    std::string measure;
    std::string unit;
    double ours = 0;
    double raw = 0;    // 0: there is no raw peer for this
    double ratio = 0;  // ours / raw
    std::string target;
};

[[nodiscard]] double median(std::vector<double> figures);

// Measures both `rounds` times in turn.
[[nodiscard]] Row compare(std::string measure, std::string unit, std::string target, int rounds,
                          const std::function<double()>& ours, const std::function<double()>& raw);

// The same by the least of each: for short work, which is disturbed in many rounds but not in all.
[[nodiscard]] Row compareLeast(std::string measure, std::string unit, std::string target,
                               int rounds, const std::function<double()>& ours,
                               const std::function<double()>& raw);

// Prints the head of a Markdown table with the names of the two, and a row of it.
void printHead(const char* ours, const char* raw);
void print(const Row& row);

}  // namespace sevrin::bench
