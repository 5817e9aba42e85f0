// What a log line costs, beside bare writev() of the same bytes and beside spdlog that flushes
// every line; and what preferences cost, beside the system calls that they are made of.
//
//     log-bench [ROUNDS]
//
// Works in a folder of its own in memory (/dev/shm). Everything is measured in turn with its peer.
// Lines and dumps are measured in many short rounds, of which the quickest of each side counts;
// preferences by the median of the ratios.
#include <fcntl.h>
#include <sched.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/KTCachedPreferences.h"
#include "Common/Source/Utilities/KTUserPreferences.h"
#include "Common/Source/Utilities/LogFileLogger.h"
#include "Common/Source/Utilities/NSLogLogger.h"
#include "Platform/CFPreferences.h"
#include "Platform/UniqueFd.h"
#include "bench/Report.h"

namespace {

// Each thread's own: one count for all would cost every line what it is there to measure.
constinit thread_local std::uint64_t allocations = 0;

}  // namespace

// Not inlined: the compiler would take them for each other's mismatch.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace sevrin::bench {
namespace {

using Clock = std::chrono::steady_clock;
using platform::UniqueFd;

constexpr int kLines = 20'000;
constexpr int kSamples = 20'000;
constexpr int kShortRounds = 5;  // In place of one: some of them are left alone by the machine.
constexpr std::size_t kDumpBytes = std::size_t{1} << 20;
constexpr std::size_t kRowBytes = 64;

// How the measures end of which the opposite is shown too.
constexpr std::string_view kPerLine = ", per line";

std::string folder;

double nanosecondsOf(const std::function<void()>& work, double count) {
    const auto begin = Clock::now();
    work();
    return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / count;
}

std::string logPath() {
    return LogFileLogger::make()->currentLogFilePath();
}

void emptyLog() {
    if (::truncate(logPath().c_str(), 0) != 0) std::perror("truncate");
}

// The message whose line has 131 bytes with its line feed, as most lines of the suite are about:
// date, word and identifier take the rest.
const std::string& message() {
    static const std::string theMessage = [] {
        constexpr std::size_t kLineBytes = 131;
        emptyLog();
        Logger::logMessage(LogClassification::Minutia, "");
        return std::string(kLineBytes - std::filesystem::file_size(logPath()), 'm');
    }();
    return theMessage;
}

// MARK: Ways to write one line

void ours() {
    Logger::logMessage(LogClassification::Minutia, message());
}

// The same bytes by the one system call and nothing else.
class Bare {
public:
    Bare()
        : file_(::open((folder + "/bare").c_str(), O_WRONLY | O_APPEND | O_CREAT | O_TRUNC, 0600)) {
    }
    void write() const {
        iovec pieces[] = {{const_cast<char*>(line_.data()), line_.size()},
                          {const_cast<char*>("\n"), 1}};
        if (::writev(file_.get(), pieces, 2) < 0) std::perror("writev");
    }

private:
    const UniqueFd file_;
    const std::string line_ = std::string(130, 'x');
};

std::shared_ptr<spdlog::logger> makeSpdlog() {
    const auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(folder + "/spdlog", true);
    auto logger = std::make_shared<spdlog::logger>("bench", sink);
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %z %l %v [8.73957130.412.1]");
    logger->flush_on(spdlog::level::trace);
    return logger;
}

// MARK: Measures

double oneThread(const std::function<void()>& write) {
    return nanosecondsOf(
        [&] {
            for (int line = 0; line < kLines; ++line)
                write();
        },
        kLines);
}

// On a processor of its own for as long as this lives: on a busy machine two threads would else run
// one after the other on the same, and never meet.
class Pinned {
public:
    explicit Pinned(std::size_t processor) {
        ::sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        ::sched_setaffinity(0, sizeof one, &one);
    }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;
    ~Pinned() { ::sched_setaffinity(0, sizeof before_, &before_); }

private:
    cpu_set_t before_{};
};

double twoThreads(const std::function<void()>& write) {
    const auto half = [&](std::size_t processor) {
        const Pinned pinned(processor);
        for (int line = 0; line < kLines / 2; ++line)
            write();
    };
    return nanosecondsOf(
        [&] {
            std::thread other(half, 1);
            half(0);
            other.join();
        },
        kLines);
}

double twoProcesses(const std::function<void()>& write) {
    return nanosecondsOf(
        [&] {
            pid_t children[2];
            for (pid_t& child : children) {
                child = ::fork();
                if (child != 0) continue;
                for (int line = 0; line < kLines / 2; ++line)
                    write();
                ::_exit(0);
            }
            for (const pid_t child : children)
                ::waitpid(child, nullptr, 0);
        },
        kLines);
}

double ninetyNinth(const std::function<void()>& write) {
    std::vector<double> samples(kSamples);
    for (double& sample : samples)
        sample = nanosecondsOf(write, 1);
    const auto place = samples.begin() + kSamples / 100 * 99;
    std::nth_element(samples.begin(), place, samples.end());
    return *place;
}

double allocationsPerLine(const std::function<void()>& write) {
    write();
    const std::uint64_t before = allocations;
    for (int line = 0; line < 1000; ++line)
        write();
    return static_cast<double>(allocations - before) / 1000;
}

void measureLines(int rounds) {
    const Bare bare;
    const auto writeBare = [&] { bare.write(); };
    const auto spd = makeSpdlog();
    const auto writeSpd = [&] { spd->info(message()); };
    const auto alternate = [&](const char* measure, const char* target, const auto& measured,
                               const std::function<void()>& peer) {
        const auto clean = [&](const std::function<void()>& write) {
            const double figure = measured(write);
            emptyLog();
            for (const char* name : {"/bare", "/spdlog"})
                if (::truncate((folder + name).c_str(), 0) != 0) std::perror("truncate");
            return figure;
        };
        const Row row = compareLeast(
            measure, "ns", target, rounds * kShortRounds, [&] { return clean(ours); },
            [&] { return clean(peer); });
        print(row);
        if (!row.measure.ends_with(kPerLine)) return;
        const std::string several = row.measure.substr(0, row.measure.size() - kPerLine.size());
        print({several + ", lines per second", "/s", 1e9 / row.ours, 1e9 / row.raw,
               row.raw / row.ours, ""});
    };

    printHead("log line", "bare writev");
    alternate("one thread, per line", "at most 1.25", oneThread, writeBare);
    alternate("two threads, per line", "", twoThreads, writeBare);
    alternate("two processes, per line", "", twoProcesses, writeBare);
    alternate("p99", "", ninetyNinth, writeBare);
    std::printf("\n");
    printHead("log line", "spdlog, flushing");
    alternate("one thread, per line", "at most 0.71", oneThread, writeSpd);
    alternate("two threads, per line", "at most 0.74", twoThreads, writeSpd);
    alternate("two processes, per line", "about 1", twoProcesses, writeSpd);
    alternate("p99", "at most 1", ninetyNinth, writeSpd);
}

// The same rows, put together as fast as a plain loop does it.
void dumpWithSpdlog(spdlog::logger& logger, const std::string& data) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string row;
    for (std::size_t start = 0; start < data.size(); start += kRowBytes) {
        row.clear();
        fmt::format_to(std::back_inserter(row), "{:06x}: ", start);
        for (std::size_t place = start; place < start + kRowBytes; ++place) {
            const auto byte = static_cast<unsigned char>(data[place]);
            row += kDigits[byte >> 4U];
            row += kDigits[byte & 15U];
        }
        row += " |";
        for (std::size_t place = start; place < start + kRowBytes; ++place)
            row += data[place] >= 0x20 && data[place] <= 0x7E ? data[place] : '_';
        row += '|';
        logger.info(row);
    }
}

void measureDump(int rounds) {
    const std::string data(kDumpBytes, 'd');
    const auto spd = makeSpdlog();
    print(compareLeast(
        "a dump of 1 MB", "ms", "at most 0.71", rounds * kShortRounds,
        [&] {
            const double figure = nanosecondsOf(
                [&] {
                    Logger::defaultLogger()->logInLineKeyDataTail(LogClassification::Minutia,
                                                                  nullptr, "data", data, 0);
                },
                1e6);
            emptyLog();
            return figure;
        },
        [&] { return nanosecondsOf([&] { dumpWithSpdlog(*spd, data); }, 1e6); }));
}

void measureAlone() {
    const auto suppressed = [] {
        Logger::logInLineFormat(LogClassification::Debug, nullptr, "%@ of %d", "part", 7);
    };
    std::printf("\nAllocations per line: %.2f\n", allocationsPerLine(ours));
    Logger::setDefaultLogger(std::make_shared<NSLogLogger>());
    std::printf("A suppressed line: %.0f ns (target: under 60), %.2f allocations\n",
                oneThread(suppressed), allocationsPerLine(suppressed));
    Logger::releaseDefaultLogger();
}

// MARK: Preferences

// What replacing one file by the book takes, without anything else.
void replaceBare(const std::string& path, const std::string& bytes) {
    const std::string beside = path + ".new";
    const UniqueFd file(::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (::write(file.get(), bytes.data(), bytes.size()) < 0 || ::fsync(file.get()) != 0 ||
        std::rename(beside.c_str(), path.c_str()) != 0)
        std::perror("replace");
    const UniqueFd parent(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ::fsync(parent.get());
}

void measurePreferences(int rounds) {
    constexpr int kReads = 20'000;
    constexpr int kFlushes = 50;
    constexpr const char* kDomains[] = {"com.example.first", "com.example.second"};
    const auto preferences = KTUserPreferences::sharedPreferences();
    for (const char* domain : kDomains)
        for (int key = 0; key < 20; ++key)
            preferences->setIntegerForKeyInDomain(key, "key" + std::to_string(key), domain);
    preferences->synchronize();
    ::usleep(100'000);  // Until the files are old enough to be relied on.
    const std::string file = folder + "/Library/Preferences/" + std::string(kDomains[0]) + ".plist";

    const auto reads = [&](KTUserPreferences& from, const char* key) {
        return nanosecondsOf(
            [&] {
                for (int read = 0; read < kReads; ++read)
                    static_cast<void>(from.integerForKeyInDomain(key, kDomains[0]));
            },
            kReads);
    };
    const auto stats = [&] {
        return nanosecondsOf(
            [&] {
                struct stat found {};
                for (int read = 0; read < kReads; ++read)
                    ::stat(file.c_str(), &found);
            },
            kReads);
    };
    std::printf("\n");
    printHead("preferences", "the system calls");
    print(compare(
        "a read, beside one stat", "ns", "", rounds, [&] { return reads(*preferences, "key7"); },
        stats));
    print(compare(
        "a read of what is nowhere", "ns", "", rounds, [&] { return reads(*preferences, "none"); },
        stats));
    print(compare(
        "a cached read", "ns", "", rounds,
        [&] { return reads(*KTCachedPreferences::sharedPreferences(), "key7"); }, stats));

    std::int64_t value = 0;
    const std::string bytes(400, 'b');
    print(compare(
        "a flush of two domains", "us", "", rounds,
        [&] {
            return nanosecondsOf(
                [&] {
                    for (int flush = 0; flush < kFlushes; ++flush) {
                        ++value;
                        for (const char* domain : kDomains) {
                            platform::CFPreferencesSetAppValue("key7", value, domain);
                            static_cast<void>(platform::CFPreferencesAppSynchronize(domain));
                        }
                    }
                },
                kFlushes * 1e3);
        },
        [&] {
            return nanosecondsOf(
                [&] {
                    for (int flush = 0; flush < kFlushes; ++flush)
                        for (const char* name : {"/first", "/second"})
                            replaceBare(folder + name, bytes);
                },
                kFlushes * 1e3);
        }));
}

int run(int rounds) {
    folder = "/dev/shm/sevrin-log-bench-XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    ::setenv("CFFIXED_USER_HOME", folder.c_str(), 1);
    ::setenv("SEVRIN_LOCAL_ROOT", folder.c_str(), 1);
    ours();
    measureLines(rounds);
    measureDump(rounds);
    measureAlone();
    measurePreferences(rounds);
    std::filesystem::remove_all(folder);
    return 0;
}

}  // namespace
}  // namespace sevrin::bench

int main(int count, char** words) {
    return sevrin::bench::run(count > 1 ? std::max(1, std::atoi(words[1])) : 7);
}
