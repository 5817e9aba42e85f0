// The load that the driver puts on a server, over connections that stand already.
//
// Everything runs on the calling thread. Connections are Links; what is asked and how long the
// answers are is for the caller to know.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "bench/Link.h"

namespace sevrin::bench {

using Clock = std::chrono::steady_clock;

[[nodiscard]] double secondsSince(Clock::time_point begin);

// Sends `request` and waits for `replyBytes`, over and over; the chosen percentile in microseconds.
[[nodiscard]] double latency(const Link& link, const std::string& request, std::size_t replyBytes,
                             double seconds, double percentile);

// Every connection asks `batch` and asks again when all of its answer is there; answers of
// `perBatch` questions a second.
[[nodiscard]] double closedLoop(const std::vector<Link>& links, const std::string& batch,
                                std::size_t answerBytes, std::size_t perBatch, double seconds);

// Has `poster` send `posts` again and again, each time waiting until every listener has all of
// `deliveryBytes`; deliveries a second.
[[nodiscard]] double fanOut(const Link& poster, const std::vector<Link>& listeners,
                            const std::string& posts, std::size_t deliveryBytes,
                            std::size_t perPost, double seconds);

}  // namespace sevrin::bench
