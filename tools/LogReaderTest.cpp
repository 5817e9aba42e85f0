// Reading the generations of a log while somebody writes and rotates.
#include "tools/LogReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <filesystem>
#include <fstream>

#include "Platform/TestFolder.h"
#include "tools/Failure.h"

namespace sevrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string line(const std::string& message) {
    return "2026-11-16 07:12:03.481 +0100 Failure " + message + " [8.1.2.3]\n";
}

class LogReaderTest : public testing::Test {
protected:
    std::vector<std::string> paths() const {
        return {folder_ / "log", folder_ / "log.1", folder_ / "log.2"};
    }

    void append(const std::string& name, const std::string& text) const {
        std::ofstream(folder_ / name, std::ios::app) << text;
    }
    void rename(const std::string& from, const std::string& to) const {
        std::filesystem::rename(folder_ / from, folder_ / to);
    }
    void rotate() const {
        if (std::filesystem::exists(folder_ / "log.1")) rename("log.1", "log.2");
        rename("log", "log.1");
    }

    // The messages that came since the last call.
    std::vector<std::string> messages() { return std::exchange(messages_, {}); }

    const LogReader::Take take_ = [this](const LogRecord& record) {
        messages_.push_back(record.time ? record.message : record.text);
    };
    const platform::TestFolder folder_;

private:
    std::vector<std::string> messages_;
};

TEST_F(LogReaderTest, TheOldestGenerationComesFirst) {
    append("log", line("three"));
    append("log.1", line("two"));
    append("log.2", line("one"));
    LogReader reader(paths());

    reader.read(0, take_);

    EXPECT_THAT(messages(), ElementsAre("one", "two", "three"));
}

TEST_F(LogReaderTest, WithoutFilesThereIsNothing) {
    LogReader reader(paths());
    reader.read(0, take_);
    EXPECT_FALSE(reader.hasFiles());
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(LogReaderTest, AFileThatEndedBeforeTheTimeIsNotRead) {
    append("log.1", line("old"));
    append("log", line("new"));
    const timeval times[2] = {{1'000'000, 0}, {1'000'000, 0}};
    ASSERT_EQ(::utimes((folder_ / "log.1").c_str(), times), 0);
    LogReader reader(paths());

    reader.read(2'000'000'000, take_);

    EXPECT_THAT(messages(), ElementsAre("new"));
}

TEST_F(LogReaderTest, OneFileUnderTwoNamesIsReadOnce) {
    append("log", line("one"));
    std::filesystem::create_hard_link(folder_ / "log", folder_ / "log.1");
    LogReader reader(paths());
    reader.read(0, take_);
    EXPECT_THAT(messages(), ElementsAre("one"));
}

TEST_F(LogReaderTest, AFolderIsNoLog) {
    std::filesystem::create_directory(folder_ / "log");
    LogReader reader(paths());
    EXPECT_THROW(reader.read(0, take_), Failure);
}

TEST_F(LogReaderTest, TheLastLineMayBeCutOff) {
    append("log", "2026-11-16 07:12:03.481 +0100 Failure half");
    LogReader reader(paths());
    reader.read(0, take_);
    EXPECT_THAT(messages(), IsEmpty());
    reader.finish(take_);
    EXPECT_THAT(messages(), ElementsAre("half"));
}

// MARK: Going on

TEST_F(LogReaderTest, WhatIsWrittenAfterwardsIsRead) {
    append("log", line("one"));
    LogReader reader(paths());
    reader.read(0, take_);
    append("log", line("two"));
    (void)messages();

    reader.readOn(take_);
    EXPECT_THAT(messages(), ElementsAre("two"));
    reader.readOn(take_);
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(LogReaderTest, ALogThatDidNotExistIsReadOnceItDoes) {
    LogReader reader(paths());
    reader.read(0, take_);
    reader.readOn(take_);
    append("log", line("one"));
    reader.readOn(take_);
    EXPECT_THAT(messages(), ElementsAre("one"));
}

TEST_F(LogReaderTest, ARotationLosesNothingAndRepeatsNothing) {
    append("log.1", line("before"));
    append("log", line("one"));
    LogReader reader(paths());
    reader.read(0, take_);
    append("log", line("two"));
    rotate();
    append("log.1", line("three"));
    append("log", line("four"));

    reader.readOn(take_);

    EXPECT_THAT(messages(), ElementsAre("before", "one", "two", "three", "four"));
}

TEST_F(LogReaderTest, SeveralRotationsAtOnceLoseNothingEither) {
    append("log", line("one"));
    LogReader reader(paths());
    reader.read(0, take_);
    rotate();
    append("log", line("two"));
    rotate();
    append("log", line("three"));

    reader.readOn(take_);

    EXPECT_THAT(messages(), ElementsAre("one", "two", "three"));
}

TEST_F(LogReaderTest, AFileThatWasRemovedIsFollowedByTheNewOneAlone) {
    append("log.1", line("before"));
    append("log", line("one"));
    LogReader reader(paths());
    reader.read(0, take_);
    std::filesystem::remove(folder_ / "log");
    reader.readOn(take_);
    append("log", line("two"));
    reader.readOn(take_);
    EXPECT_THAT(messages(), ElementsAre("before", "one", "two"));
}

TEST_F(LogReaderTest, ATruncatedFileIsReadFromItsBeginning) {
    append("log", line("one") + line("two"));
    LogReader reader(paths());
    reader.read(0, take_);
    (void)messages();
    std::filesystem::resize_file(folder_ / "log", 0);
    append("log", line("three"));

    reader.readOn(take_);

    EXPECT_THAT(messages(), ElementsAre("three"));
}

}  // namespace
}  // namespace sevrin
