// Tests of collecting the output of real children, and of pipes that the test writes itself.
#include "Common/Source/Utilities/TextPipeReader.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "Platform/NSTask.h"

namespace sevrin {
namespace {

using platform::NSTask;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

using Lines = std::vector<std::string>;

// Starts a shell script whose output goes to `reader`.
std::unique_ptr<NSTask> launch(TextPipeReader& reader, const std::string& script) {
    auto task = std::make_unique<NSTask>();
    task->setLaunchPath("/bin/sh");
    task->setArguments({"-c", script});
    task->setStandardOutput(reader.pipe());
    task->launch();
    return task;
}

void write(TextPipeReader& reader, std::string_view bytes) {
    const int writingEnd = reader.pipe()->fileHandleForWriting()->fileDescriptor();
    ASSERT_EQ(::write(writingEnd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

// The lines of `bytes`.
Lines linesOf(TextPipeReader& reader, std::string_view bytes) {
    write(reader, bytes);
    reader.pipe()->fileHandleForWriting()->closeFile();
    reader.startReading();
    return reader.lines().value();
}

Lines linesOf(std::string_view bytes, std::uint64_t encoding = 0) {
    TextPipeReader reader;
    reader.setEncoding(encoding);
    return linesOf(reader, bytes);
}

// From now on each write to the pipe is one chunk to its reader.
void keepChunksApart(TextPipeReader& reader) {
    const int writingEnd = reader.pipe()->fileHandleForWriting()->fileDescriptor();
    ASSERT_EQ(::fcntl(writingEnd, F_SETFL, O_DIRECT), 0);
}

std::size_t openDescriptors() {
    return static_cast<std::size_t>(
        std::distance(std::filesystem::directory_iterator("/dev/fd/"), {}));
}

// Whether so many are open in the end: a block whose reader is gone ends when it ends.
bool descriptorsBecome(std::size_t number) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (openDescriptors() != number && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    return openDescriptors() == number;
}

TEST(TextPipeReaderTest, BlankLinesAreLeftOut) {
    EXPECT_THAT(linesOf("a\n\n  \nb\n"), ElementsAre("a", "b"));
    EXPECT_THAT(linesOf("\n\n\t\n \t \n"), IsEmpty());
}

TEST(TextPipeReaderTest, WithoutAFinalNewlineTheLastLineIsKept) {
    EXPECT_THAT(linesOf("a\nb"), ElementsAre("a", "b"));
    EXPECT_THAT(linesOf("a"), ElementsAre("a"));
}

TEST(TextPipeReaderTest, NoOutputHasNoLines) {
    EXPECT_THAT(linesOf(""), IsEmpty());
}

TEST(TextPipeReaderTest, LinesThatAreKeptAreNotTrimmed) {
    EXPECT_THAT(linesOf("  a\t\n b \n"), ElementsAre("  a\t", " b "));
}

TEST(TextPipeReaderTest, OnlySpacesAndTabsAreBlank) {
    EXPECT_THAT(linesOf(std::string_view("\0\n.\n", 4)),
                ElementsAre(std::string_view("\0", 1), "."));
}

TEST(TextPipeReaderTest, EveryNewlineCharacterEndsALine) {
    EXPECT_THAT(linesOf("a\nb\rc\r\nd\ve\ff\xC2\x85g\xE2\x80\xA8h\xE2\x80\xA9i"),
                ElementsAre("a", "b", "c", "d", "e", "f", "g", "h", "i"));
}

TEST(TextPipeReaderTest, EncodingAndLimitAreAsTheyWereSet) {
    TextPipeReader reader;
    EXPECT_EQ(reader.encoding(), 0U);
    EXPECT_EQ(reader.limit(), 0U);

    reader.setEncoding(30);
    reader.setLimit(10);

    EXPECT_EQ(reader.encoding(), 30U);
    EXPECT_EQ(reader.limit(), 10U);
}

TEST(TextPipeReaderTest, TheEncodingIsUTF8UnlessItWasSet) {
    EXPECT_THAT(linesOf("caf\xC3\xA9\n"), ElementsAre("café"));
    EXPECT_THAT(linesOf("caf\xC3\xA9\n", 4), ElementsAre("café"));
}

TEST(TextPipeReaderTest, OutputIsDecodedInItsEncoding) {
    EXPECT_THAT(linesOf("cafe\n", 1), ElementsAre("cafe"));
    EXPECT_THAT(linesOf("caf\xE9\n", 5), ElementsAre("café"));
    EXPECT_THAT(linesOf("\x80 5\n", 12), ElementsAre("€ 5"));
    EXPECT_THAT(linesOf("caf\x8E\n", 30), ElementsAre("café"));
    EXPECT_THAT(linesOf(std::string_view("\xFF\xFE\x61\0\n\0b\0", 8), 10), ElementsAre("a", "b"));
    EXPECT_THAT(linesOf(std::string_view("\0a\0\n\0b", 6), 0x90000100), ElementsAre("a", "b"));
    EXPECT_THAT(linesOf(std::string_view("a\0\n\0b\0", 6), 0x94000100), ElementsAre("a", "b"));
}

TEST(TextPipeReaderTest, OutputThatDoesNotDecodeHasNoLines) {
    EXPECT_THAT(linesOf("fine\nnot: \xFF\n"), IsEmpty());
    EXPECT_THAT(linesOf("caf\xC3\xA9\n", 1), IsEmpty());
    EXPECT_THAT(linesOf("odd", 10), IsEmpty());
    EXPECT_THAT(linesOf("fine\n", 99), IsEmpty());
}

TEST(TextPipeReaderTest, ACharacterCutByTwoChunksIsWhole) {
    TextPipeReader reader;
    keepChunksApart(reader);
    write(reader, "caf\xC3");

    EXPECT_THAT(linesOf(reader, "\xA9\n"), ElementsAre("café"));
}

TEST(TextPipeReaderTest, TheChunkThatPassesTheLimitIsTheLastOneKept) {
    TextPipeReader reader;
    reader.setLimit(10);
    keepChunksApart(reader);
    write(reader, "1234567\n");
    write(reader, "abcdefg\n");

    EXPECT_THAT(linesOf(reader, "ABCDEFG\n"), ElementsAre("1234567", "abcdefg"));
}

TEST(TextPipeReaderTest, AChunkThatReachesTheLimitExactlyIsTheLastOneKept) {
    TextPipeReader reader;
    reader.setLimit(8);
    keepChunksApart(reader);
    write(reader, "1234567\n");

    EXPECT_THAT(linesOf(reader, "abcdefg\n"), ElementsAre("1234567"));
}

TEST(TextPipeReaderTest, BeforeItIsStartedThereIsNothingToWaitFor) {
    TextPipeReader reader;

    EXPECT_EQ(reader.lines(), std::nullopt);
    (void)reader.pipe();
    EXPECT_EQ(reader.lines(), std::nullopt);
}

TEST(TextPipeReaderTest, ThePipeStaysTheSame) {
    TextPipeReader reader;
    const auto pipe = reader.pipe();

    reader.startReading();

    EXPECT_EQ(reader.pipe(), pipe);
    pipe->fileHandleForWriting()->closeFile();
    EXPECT_THAT(reader.lines(), Optional(IsEmpty()));
}

TEST(TextPipeReaderTest, LinesWaitForTheEndAndMayBeAskedForAgain) {
    TextPipeReader reader;
    reader.startReading();
    std::vector<std::thread> asking;
    for (int i = 0; i < 3; ++i)
        asking.emplace_back([&] { EXPECT_THAT(reader.lines(), Optional(ElementsAre("a", "b"))); });

    write(reader, "a\n");
    write(reader, "b\n");
    reader.pipe()->fileHandleForWriting()->closeFile();

    for (std::thread& each : asking)
        each.join();
    EXPECT_THAT(reader.lines(), Optional(ElementsAre("a", "b")));
}

TEST(TextPipeReaderTest, TheOutputOfAChildIsCollected) {
    TextPipeReader reader;
    const auto task = launch(reader, "echo one; echo; echo ' two'; printf three");

    reader.startReading();

    EXPECT_THAT(reader.lines(), Optional(ElementsAre("one", " two", "three")));
}

TEST(TextPipeReaderTest, AChildThatWritesMoreThanAPipeHoldsIsReadToItsEnd) {
    TextPipeReader reader;
    const auto task = launch(reader, "seq 1 200000");

    reader.startReading();
    const Lines lines = reader.lines().value();
    task->waitUntilExit();

    EXPECT_EQ(lines.size(), 200'000U);
    EXPECT_EQ(lines.front(), "1");
    EXPECT_EQ(lines.back(), "200000");
    EXPECT_EQ(task->terminationStatus(), 0);
}

TEST(TextPipeReaderTest, BeyondTheLimitAChildIsStillReadToItsEnd) {
    TextPipeReader reader;
    reader.setLimit(100);
    const auto task = launch(reader, "seq 1 200000");

    reader.startReading();
    const Lines lines = reader.lines().value();
    task->waitUntilExit();

    EXPECT_GE(lines.size(), 36U);  // A hundred bytes of small numbers.
    EXPECT_LT(lines.size(), 100'000U);
    EXPECT_EQ(task->terminationStatus(), 0);
}

TEST(TextPipeReaderTest, AChildThatCannotBeStartedHasNoLines) {
    TextPipeReader reader;
    NSTask task;
    task.setLaunchPath("/nowhere/at/all");
    task.setStandardOutput(reader.pipe());
    EXPECT_THROW(task.launch(), std::system_error);

    reader.startReading();

    EXPECT_THAT(reader.lines(), Optional(IsEmpty()));
}

TEST(TextPipeReaderTest, AChildThatDiesAtOnceHasNoLines) {
    TextPipeReader reader;
    const auto task = launch(reader, "kill -KILL $$");

    reader.startReading();

    EXPECT_THAT(reader.lines(), Optional(IsEmpty()));
}

TEST(TextPipeReaderTest, AChildThatClosesItsOutputAndLivesOnKeepsNobodyWaiting) {
    TextPipeReader reader;
    const auto task = launch(reader, "echo last words; exec sleep 60 >&-");

    reader.startReading();

    EXPECT_THAT(reader.lines(), Optional(ElementsAre("last words")));
    EXPECT_TRUE(task->isRunning());
    ::kill(task->processIdentifier(), SIGTERM);
    task->waitUntilExit();
}

TEST(TextPipeReaderTest, AReaderThatIsGoneStillEmptiesThePipe) {
    EXPECT_THAT(linesOf(""), IsEmpty());  // What the queue keeps is open from here on.
    const std::size_t before = openDescriptors();
    std::unique_ptr<NSTask> task;
    {
        TextPipeReader reader;
        task = launch(reader, "seq 1 200000");
        reader.startReading();
    }

    task->waitUntilExit();

    EXPECT_EQ(task->terminationReason(), NSTask::TerminationReason::Exit);
    EXPECT_EQ(task->terminationStatus(), 0);
    task.reset();  // It has the pipe, too.
    EXPECT_TRUE(descriptorsBecome(before));
}

TEST(TextPipeReaderTest, NeitherDescriptorsNorZombiesAreLeft) {
    EXPECT_THAT(linesOf(""), IsEmpty());  // What the queue keeps is open from here on.
    const std::size_t before = openDescriptors();

    for (const char* script : {"echo fine", "exit 1", "kill -KILL $$", "printf '\\377'",
                               "exec sleep 60 >&-", "seq 1 20000"}) {
        TextPipeReader reader;
        const auto task = launch(reader, script);
        reader.startReading();
        EXPECT_NE(reader.lines(), std::nullopt);
        ::kill(task->processIdentifier(), SIGTERM);
        task->waitUntilExit();
    }
    {
        TextPipeReader reader;
        NSTask task;
        task.setLaunchPath("/nowhere");
        task.setStandardOutput(reader.pipe());
        EXPECT_THROW(task.launch(), std::system_error);
        reader.startReading();
        EXPECT_THAT(reader.lines(), Optional(IsEmpty()));
    }

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(TextPipeReaderTest, AReaderThatGoesWithItsPipeUnusedLeavesNothingReading) {
    EXPECT_THAT(linesOf(""), IsEmpty());
    const std::size_t before = openDescriptors();
    {
        TextPipeReader reader;
        reader.startReading();
    }

    EXPECT_TRUE(descriptorsBecome(before));
}

TEST(TextPipeReaderDeathTest, StartingTwiceIsABug) {
    const auto startTwice = [] {
        TextPipeReader reader;
        reader.startReading();
        reader.startReading();
    };

    EXPECT_DEATH(startTwice(), "a text pipe reader is started once");
}

}  // namespace
}  // namespace sevrin
