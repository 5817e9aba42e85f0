// `switchboardctl ping`: how long the switchboard takes to answer a barrier.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "tools/Duration.h"
#include "tools/Verbs/Verbs.h"

namespace sevrin {

namespace {

using Clock = std::chrono::steady_clock;

void noteSummary(const Invocation& invocation, std::vector<Clock::duration> times) {
    std::ranges::sort(times);
    invocation.note(fmt::format(
        "{} answers: least {}, median {}, most {}", times.size(), millisecondsText(times.front()),
        millisecondsText(times[times.size() / 2]), millisecondsText(times.back())));
}

ExitStatus ping(const Invocation& invocation, std::uint64_t count) {
    const Columns columns({{"seq", true, 5}, {"time", true}}, invocation.options().columns);
    SwitchboardClient client = invocation.connect();
    invocation.answerHeader(columns);
    std::vector<Clock::duration> times;
    for (std::uint64_t number = 1; number <= count; ++number) {
        const auto sent = Clock::now();
        invocation.require(client.barrier(invocation.deadline()));
        times.push_back(Clock::now() - sent);

        Json record = newRecord();
        record["seq"] = number;
        record["time_us"] = std::chrono::duration<double, std::micro>(times.back()).count();
        invocation.answerRow(columns, {std::to_string(number), millisecondsText(times.back())},
                             record);
    }
    if (count > 1) noteSummary(invocation, std::move(times));
    return ExitStatus::Done;
}

}  // namespace

void addPing(CommandLine& commandLine) {
    const auto count = std::make_shared<std::uint64_t>(1);
    CLI::App& verb = commandLine.addVerb(
        "ping", "Print how long the switchboard takes to answer", "ping\nping --count 100 --json",
        [count](const Invocation& invocation) { return ping(invocation, *count); });
    verb.add_option("--count", *count, "Ask so many times, one after the other (1 unless given)")
        ->type_name("N")
        ->check(CLI::Range(1, 1'000'000));
    commandLine.addColumns(verb);
}

}  // namespace sevrin
