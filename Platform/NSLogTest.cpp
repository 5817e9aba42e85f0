// Contract tests of the console. Each writes from a child process whose standard error is a pipe, a
// socket or a file of the test's. Nothing is timed; a child that hangs is ended by an alarm, which
// the test sees as its exit.
#include "Platform/NSLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/NSDateFormatter.h"
#include "Platform/TestTimeZone.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

using namespace std::string_literals;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;

constexpr unsigned kHangSeconds = 60;

struct Channel {
    UniqueFd reader;
    UniqueFd writer;
};

Channel makePipe() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::pipe(ends.data()), 0);
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

Channel makeNonBlockingPipe() {
    Channel channel = makePipe();
    EXPECT_EQ(::fcntl(channel.writer.get(), F_SETFL, O_NONBLOCK), 0);
    return channel;
}

Channel makeSocket() {
    std::array<int, 2> ends{-1, -1};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

constexpr std::array kChannels = {makePipe, makeNonBlockingPipe, makeSocket};

// Starts a child that has `standardError` as its own, does `work` and ends with status 0.
pid_t startChild(int standardError, const std::function<void()>& work) {
    std::fflush(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kHangSeconds);
        ::signal(SIGPIPE, SIG_DFL);
        ::dup2(standardError, STDERR_FILENO);
        work();
        ::_exit(0);
    }
    EXPECT_GT(child, 0);
    return child;
}

// How `child` ended, as waitpid says; 0 when it did its work.
int endOf(pid_t child) {
    int status = -1;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

std::string readToEnd(int fd) {
    std::string text;
    std::array<char, 1024> buffer;
    while (true) {
        const ssize_t size = ::read(fd, buffer.data(), buffer.size());
        if (size <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(size));
    }
}

// What reaches the other end of `channel` while a child does `work` on it.
std::string outputOn(Channel channel, const std::function<void()>& work) {
    const pid_t child = startChild(channel.writer.get(), work);
    channel.writer.reset();
    std::string output = readToEnd(channel.reader.get());
    EXPECT_EQ(endOf(child), 0);
    return output;
}

std::string outputOf(const std::function<void()>& work) {
    return outputOn(makePipe(), work);
}

std::string outputOfMessage(const std::string& message) {
    return outputOf([&] { NSLog(message); });
}

// As JOURNAL_STREAM names the file behind `fd`.
std::string journalStream(int fd) {
    struct stat file {};
    EXPECT_EQ(::fstat(fd, &file), 0);
    return std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

std::string journalOutputOfMessage(const std::string& message) {
    return outputOf([&] {
        ::setenv("JOURNAL_STREAM", journalStream(STDERR_FILENO).c_str(), 1);
        NSLog(message);
    });
}

// The message in a console line, or the whole text when it is none.
std::string messageIn(const std::string& line) {
    const std::size_t end = line.find("] ");
    return end == std::string::npos ? line : line.substr(end + 2);
}

// Fills what `fd` leads to until it takes no more, and leaves its blocking mode as it was.
void fill(int fd) {
    const int flags = ::fcntl(fd, F_GETFL);
    ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
    const std::string filler(4096, '.');
    while (::write(fd, filler.data(), filler.size()) > 0) {
    }
    ::fcntl(fd, F_SETFL, flags);
}

TEST(NSLogTest, ALineBearsTimeProcessNameAndPid) {
    const std::string name = std::filesystem::read_symlink("/proc/self/exe").filename();
    Channel channel = makePipe();

    const pid_t child =
        startChild(channel.writer.get(), [] { NSLog("(Failure) missing --users"); });
    channel.writer.reset();

    EXPECT_THAT(
        readToEnd(channel.reader.get()),
        ContainsRegex("^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} " + name +
                      "\\[" + std::to_string(child) + "\\] \\(Failure\\) missing --users\n$"));
    EXPECT_EQ(endOf(child), 0);
}

TEST(NSLogTest, TheTimeIsLocal) {
    const ScopedTimeZone zone("<+0517>-5:17");
    const NSDateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS");

    const std::string before = formatter.stringFromDate(NSDate::date());
    const std::string time = outputOfMessage("now").substr(0, before.size());
    const std::string after = formatter.stringFromDate(NSDate::date());

    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST(NSLogTest, AFormatIsFilledWithItsArguments) {
    EXPECT_EQ(messageIn(outputOf([] { NSLog("%@ of %d", "one", 2); })), "one of 2\n");
}

TEST(NSLogTest, AMessageWithoutArgumentsIsNoFormat) {
    EXPECT_EQ(messageIn(outputOfMessage("100%d of %@")), "100%d of %@\n");
}

TEST(NSLogTest, UnderTheJournalAPriorityStandsInsteadOfTheTime) {
    EXPECT_EQ(journalOutputOfMessage("started"), "<6>started\n");
}

TEST(NSLogTest, AJournalThatStandardErrorDoesNotLeadToIsNotMeant) {
    const Channel journal = makePipe();
    const std::string stream = journalStream(journal.writer.get());

    const std::string output = outputOf([&] {
        ::setenv("JOURNAL_STREAM", stream.c_str(), 1);
        NSLog("redirected");
    });

    EXPECT_THAT(output, EndsWith("] redirected\n"));
}

TEST(NSLogTest, AJournalStreamThatIsNotTwoNumbersIsNotMeant) {
    const std::string output = outputOf([] {
        const std::string stream = journalStream(STDERR_FILENO);
        for (const std::string& value :
             {""s, ":"s, stream + " ", " " + stream, stream + ":1", "+" + stream,
              stream.substr(0, stream.find(':')), stream.substr(0, stream.find(':') + 1),
              "999999999999999999999" + stream}) {
            ::setenv("JOURNAL_STREAM", value.c_str(), 1);
            NSLog("odd");
        }
    });

    EXPECT_THAT(output, Not(HasSubstr("<6>")));
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 9);
}

TEST(NSLogTest, FurtherLinesOfAMessageAreIndented) {
    EXPECT_EQ(messageIn(outputOfMessage("one\ntwo\n\nfour")), "one\n    two\n    \n    four\n");
}

TEST(NSLogTest, UnderTheJournalEveryLineOfAMessageHasThePriority) {
    EXPECT_EQ(journalOutputOfMessage("one\n<0>two\nthree"),
              "<6>one\n<6>    <0>two\n<6>    three\n");
}

TEST(NSLogTest, ALineBreakAtTheEndOfAMessageAddsNothing) {
    EXPECT_EQ(messageIn(outputOfMessage("done\n")), "done\n");
    EXPECT_EQ(messageIn(outputOfMessage("")), "\n");
}

TEST(NSLogTest, WhatATerminalMightObeyIsEscaped) {
    EXPECT_EQ(messageIn(outputOfMessage("a\x1B[31mb\rc\0d\x7F\xC2\x9B"s)),
              "a\\x1b[31mb\\x0dc\\x00d\\x7f\\xc2\\x9b\n");
}

TEST(NSLogTest, BytesThatAreNoTextAreEscaped) {
    EXPECT_EQ(messageIn(outputOfMessage("caf\xE9 \xE2\x82")), "caf\\xe9 \\xe2\\x82\n");
}

TEST(NSLogTest, TabsAndTextOutsideAsciiAreShown) {
    EXPECT_EQ(messageIn(outputOfMessage("a\tZürich 日本 \xF0\x9F\x98\x80 \\")),
              "a\tZürich 日本 \xF0\x9F\x98\x80 \\\n");
}

TEST(NSLogTest, ErrnoIsLeftAsItWas) {
    const Channel channel = makePipe();

    const pid_t child = startChild(channel.writer.get(), [] {
        errno = E2BIG;
        NSLog("written");
        const bool isKeptWhenWritten = errno == E2BIG;
        ::close(STDERR_FILENO);
        NSLog("not written");
        ::_exit(isKeptWhenWritten && errno == E2BIG ? 0 : 1);
    });

    EXPECT_EQ(endOf(child), 0);
}

TEST(NSLogTest, AClosedStandardErrorDoesNoHarm) {
    const Channel channel = makePipe();

    const pid_t child = startChild(channel.writer.get(), [] {
        ::close(STDERR_FILENO);
        NSLog("to nobody");
    });

    EXPECT_EQ(endOf(child), 0);
}

TEST(NSLogTest, AStandardErrorWithoutReadersKillsNobody) {
    for (const auto& makeChannel : kChannels) {
        Channel channel = makeChannel();
        channel.reader.reset();

        const pid_t child = startChild(channel.writer.get(), [] { NSLog("to nobody"); });

        EXPECT_EQ(endOf(child), 0);
    }
}

TEST(NSLogTest, TheSignalOfABrokenPipeIsNeitherLeftPendingNorBlocked) {
    Channel channel = makePipe();
    channel.reader.reset();

    const pid_t child = startChild(channel.writer.get(), [] {
        sigset_t blocked;
        sigset_t pending;
        NSLog("to nobody");
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        ::sigpending(&pending);
        ::_exit(::sigismember(&blocked, SIGPIPE) + ::sigismember(&pending, SIGPIPE));
    });

    EXPECT_EQ(endOf(child), 0);
}

TEST(NSLogTest, ASignalOfABrokenPipeThatWasPendingBeforeIsKept) {
    Channel channel = makePipe();
    channel.reader.reset();

    const pid_t child = startChild(channel.writer.get(), [] {
        sigset_t pipe;
        ::sigemptyset(&pipe);
        ::sigaddset(&pipe, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
        ::raise(SIGPIPE);
        NSLog("to nobody");
        sigset_t pending;
        ::sigpending(&pending);
        ::_exit(::sigismember(&pending, SIGPIPE) == 1 ? 0 : 1);
    });

    EXPECT_EQ(endOf(child), 0);
}

TEST(NSLogTest, AFullStandardErrorHoldsUpNobodyForEver) {
    for (const auto& makeChannel : kChannels) {
        const Channel channel = makeChannel();
        fill(channel.writer.get());

        // More messages than the child has seconds: only the first may wait for the reader.
        const pid_t child = startChild(channel.writer.get(), [] {
            for (unsigned message = 0; message < 2 * kHangSeconds; ++message)
                NSLog("stuck");
        });

        EXPECT_EQ(endOf(child), 0);
    }
}

TEST(NSLogTest, MessagesAreWrittenAgainOnceAStuckReaderReads) {
    Channel channel = makePipe();
    fill(channel.writer.get());

    const pid_t child = startChild(channel.writer.get(), [&] {
        NSLog("dropped");
        std::array<char, 65'536> filler;
        if (::read(channel.reader.get(), filler.data(), filler.size()) <= 0) ::_exit(1);
        NSLog("written");
    });
    EXPECT_EQ(endOf(child), 0);

    channel.writer.reset();
    const std::string output = readToEnd(channel.reader.get());
    EXPECT_THAT(output, Not(HasSubstr("dropped")));
    EXPECT_THAT(output, EndsWith("] written\n"));
}

TEST(NSLogTest, AMessageLongerThanAnyBufferArrivesWhole) {
    const std::string message(1'000'000, 'x');
    for (const auto& makeChannel : kChannels) {
        EXPECT_EQ(messageIn(outputOn(makeChannel(), [&] { NSLog(message); })), message + "\n");
    }
}

TEST(NSLogTest, AMessageArrivesWholeThoughSignalsInterruptItsWriting) {
    const std::string message(1'000'000, 'x');
    for (const auto& makeChannel : kChannels) {
        const std::string output = outputOn(makeChannel(), [&] {
            struct sigaction interrupting {};  // Its handler does not restart system calls.
            interrupting.sa_handler = [](int) {};
            ::sigaction(SIGUSR1, &interrupting, nullptr);
            sigevent event{};
            event.sigev_signo = SIGUSR1;
            timer_t timer{};
            ::timer_create(CLOCK_MONOTONIC, &event, &timer);
            const itimerspec often{{0, 20'000}, {0, 20'000}};
            ::timer_settime(timer, 0, &often, nullptr);
            NSLog(message);
        });

        EXPECT_EQ(messageIn(output), message + "\n");
    }
}

TEST(NSLogTest, AFileIsWrittenAtItsEnd) {
    std::string path = testing::TempDir() + "NSLogTest-XXXXXX";
    const UniqueFd file(::mkostemp(path.data(), O_APPEND));
    ASSERT_TRUE(file);
    ::unlink(path.c_str());

    for (const char* message : {"one", "two"}) {
        EXPECT_EQ(endOf(startChild(file.get(), [&] { NSLog(message); })), 0);
    }

    ::lseek(file.get(), 0, SEEK_SET);
    EXPECT_THAT(readToEnd(file.get()), ContainsRegex("\\] one\n[^\n]+\\] two\n$"));
}

// The lines of `output`, counted; each must be a console line with a message of `size` equal
// letters.
int countWholeLines(const std::string& output, std::size_t size) {
    std::istringstream lines(output);
    int whole = 0;
    for (std::string line; std::getline(lines, line);) {
        const std::string message = messageIn(line);
        whole += message == std::string(size, message.empty() ? '?' : message.front());
    }
    return whole;
}

TEST(NSLogTest, LinesOfTwoProcessesAreNeverMixed) {
    constexpr std::size_t kSize = 4000;  // With what stands before it, nearly the most for a pipe.
    Channel channel = makePipe();
    std::vector<pid_t> children;

    for (const char letter : {'a', 'b'}) {
        children.push_back(startChild(channel.writer.get(), [=] {
            for (int line = 0; line < 500; ++line)
                NSLog(std::string(kSize, letter));
        }));
    }
    channel.writer.reset();
    const std::string output = readToEnd(channel.reader.get());

    for (const pid_t child : children)
        EXPECT_EQ(endOf(child), 0);
    EXPECT_EQ(countWholeLines(output, kSize), 1000);
}

TEST(NSLogTest, LinesOfTwoThreadsAreNeverMixedHoweverLong) {
    constexpr std::size_t kSize = 10'000;

    const std::string output = outputOf([] {
        std::vector<std::thread> threads;
        for (const char letter : {'a', 'b'}) {
            threads.emplace_back([=] {
                for (int line = 0; line < 200; ++line)
                    NSLog(std::string(kSize, letter));
            });
        }
        for (std::thread& thread : threads)
            thread.join();
    });

    EXPECT_EQ(countWholeLines(output, kSize), 400);
}

}  // namespace
}  // namespace sevrin::platform
