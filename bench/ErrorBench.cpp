// What failures cost: raising and catching one beside a bare throw, and writing its record beside
// writing the same lines ready-made.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "Common/Source/Utilities/Logger.h"
#include "Common/Source/Utilities/SVException.h"
#include "Platform/CallStack.h"
#include "Platform/UniqueFd.h"

namespace sevrin {

namespace {

// Frames between the place that fails and the one that catches.
constexpr int kFewFrames = 1;
constexpr int kManyFrames = 30;

struct Bare {
    std::array<std::uintptr_t, platform::kCallStackMax> addresses;
    std::size_t count;
};

[[gnu::noinline]] void failBarely() {
    Bare bare;
    bare.count = platform::captureCallStack(bare.addresses);
    throw bare;
}

[[gnu::noinline]] void failRichly() {
    SVException::exceptionWithNameReason("IO", "cannot delete item")
        .setDecimalDetailKey(13, "POSIXErr")
        .setDetailKey("Permission denied", "ErrDescription")
        .setStrPath("/Library/Application Support/Sevrin/item")
        .raise();
}

// Fails below so many frames; something is left to do in each, so that none is left out.
[[gnu::noinline]] int descend(std::int64_t frames, void (*fail)()) {
    if (frames <= 1) {
        fail();
        return 0;
    }
    const int result = descend(frames - 1, fail);
    benchmark::DoNotOptimize(result);
    return result + 1;
}

// Keeps the compiler from knowing what is called.
template <typename Pointer>
Pointer unknown(Pointer pointer) {
    benchmark::DoNotOptimize(pointer);
    return pointer;
}

void throwingBarely(benchmark::State& state) {
    for (auto _ : state) {
        try {
            descend(state.range(0), unknown(&failBarely));
        } catch (const Bare& bare) {
            benchmark::DoNotOptimize(bare.count);
        }
    }
}
BENCHMARK(throwingBarely)->Arg(kFewFrames)->Arg(kManyFrames);

void raisingAnException(benchmark::State& state) {
    for (auto _ : state) {
        try {
            descend(state.range(0), unknown(&failRichly));
        } catch (const SVException& exception) {
            benchmark::DoNotOptimize(exception.details().size());
        }
    }
}
BENCHMARK(raisingAnException)->Arg(kFewFrames)->Arg(kManyFrames);

void capturingTheCallStack(benchmark::State& state) {
    std::array<std::uintptr_t, platform::kCallStackMax> addresses;
    for (auto _ : state)
        benchmark::DoNotOptimize(platform::captureCallStack(addresses));
}
BENCHMARK(capturingTheCallStack);

// Writes each line with one call, as a log file does, to where it costs nothing more.
class NowhereLogger : public Logger {
public:
    void logCString(const char* bytes) override {
        const std::string_view line(bytes);
        if (lines != nullptr) lines->emplace_back(line);
        write(line);
    }
    void write(std::string_view line) const {
        benchmark::DoNotOptimize(::write(nowhere_.get(), line.data(), line.size()));
    }
    std::vector<std::string>* lines = nullptr;

private:
    const platform::UniqueFd nowhere_{::open("/dev/null", O_WRONLY | O_CLOEXEC)};
};

SVException failure() {
    try {
        descend(kManyFrames, unknown(&failRichly));
    } catch (const SVException& exception) {
        return exception;
    }
    return SVException::exceptionWithNameReason("Bug", "nothing was raised");
}

void writeRecord(NowhereLogger& logger, const SVException& exception) {
    logger.logMapInLineException(LogClassification::Failure,
                                 &SVException::userInfoLogClassifications(), nullptr, exception);
}

// The record of an exception whose backtrace the log has shown (0) or not (1), and the same lines
// without anything but the writing.
void writingTheRecord(benchmark::State& state) {
    NowhereLogger logger;
    const SVException exception = failure();
    writeRecord(logger, exception);
    for (auto _ : state) {
        if (state.range(0) == 1) logger.flushBacktraceCache();
        writeRecord(logger, exception);
    }
    state.counters["addresses"] = static_cast<double>(exception.callStackReturnAddresses().size());
}
BENCHMARK(writingTheRecord)->Arg(0)->Arg(1);

void writingItsLinesOnly(benchmark::State& state) {
    NowhereLogger logger;
    const SVException exception = failure();
    std::vector<std::string> lines;
    writeRecord(logger, exception);
    if (state.range(0) == 1) logger.flushBacktraceCache();
    logger.lines = &lines;
    writeRecord(logger, exception);
    for (auto _ : state) {
        for (const std::string& line : lines)
            logger.write(line);
    }
    state.counters["lines"] = static_cast<double>(lines.size());
}
BENCHMARK(writingItsLinesOnly)->Arg(0)->Arg(1);

void dumpingAMegabyte(benchmark::State& state) {
    NowhereLogger logger;
    const std::string data(1024 * 1024, 'a');
    for (auto _ : state)
        logger.logInLineKeyDataTail(LogClassification::Details, nullptr, "data", data, 0);
    state.SetBytesProcessed(static_cast<std::int64_t>(data.size()) * state.iterations());
}
BENCHMARK(dumpingAMegabyte)->Unit(benchmark::kMillisecond);

void writingTheLinesOfAMegabyteOnly(benchmark::State& state) {
    NowhereLogger logger;
    const std::string data(1024 * 1024, 'a');
    std::vector<std::string> lines;
    logger.lines = &lines;
    logger.logInLineKeyDataTail(LogClassification::Details, nullptr, "data", data, 0);
    for (auto _ : state) {
        for (const std::string& line : lines)
            logger.write(line);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(data.size()) * state.iterations());
}
BENCHMARK(writingTheLinesOfAMegabyteOnly)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace sevrin

BENCHMARK_MAIN();
