// Contract tests of pipes and of the handles at their ends.
#include "Platform/NSPipe.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace sevrin::platform {
namespace {

void write(NSPipe& pipe, std::string_view bytes) {
    ASSERT_EQ(::write(pipe.fileHandleForWriting()->fileDescriptor(), bytes.data(), bytes.size()),
              static_cast<ssize_t>(bytes.size()));
}

TEST(NSPipeTest, WhatIsWrittenIsAvailable) {
    NSPipe pipe;
    write(pipe, std::string_view("one\0two", 7));

    EXPECT_EQ(pipe.fileHandleForReading()->availableData(), std::string("one\0two", 7));
}

TEST(NSPipeTest, AllThatIsThereIsOneChunkUpToItsLimit) {
    NSPipe pipe;
    write(pipe, "one");
    write(pipe, std::string(NSFileHandle::kChunkBytesMax / 2, 'x'));

    EXPECT_EQ(pipe.fileHandleForReading()->availableData().size(),
              3 + NSFileHandle::kChunkBytesMax / 2);
}

TEST(NSPipeTest, ReadingWaitsForData) {
    NSPipe pipe;
    std::thread writer([&] { write(pipe, "late"); });

    EXPECT_EQ(pipe.fileHandleForReading()->availableData(), "late");

    writer.join();
}

TEST(NSPipeTest, TheEndComesAfterTheLastByteAndStays) {
    NSPipe pipe;
    write(pipe, "last");
    pipe.fileHandleForWriting()->closeFile();

    EXPECT_EQ(pipe.fileHandleForReading()->availableData(), "last");
    EXPECT_EQ(pipe.fileHandleForReading()->availableData(), "");
    EXPECT_EQ(pipe.fileHandleForReading()->availableData(), "");
}

TEST(NSPipeTest, NeitherEndIsInheritedByChildren) {
    NSPipe pipe;

    for (const auto& end : {pipe.fileHandleForReading(), pipe.fileHandleForWriting()})
        EXPECT_EQ(::fcntl(end->fileDescriptor(), F_GETFD), FD_CLOEXEC);
}

TEST(NSPipeTest, AClosedHandleHasNoDescriptorAndCannotBeRead) {
    NSPipe pipe;
    NSFileHandle& reading = *pipe.fileHandleForReading();
    const int descriptor = reading.fileDescriptor();

    reading.closeFile();
    reading.closeFile();

    EXPECT_EQ(reading.fileDescriptor(), -1);
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
    EXPECT_THROW((void)reading.availableData(), std::system_error);
}

TEST(NSPipeTest, AHandleThatCannotBeReadSaysWhy) {
    NSFileHandle folder(UniqueFd(::open("/", O_RDONLY | O_CLOEXEC)));

    try {
        (void)folder.availableData();
        FAIL() << "a folder was read";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EISDIR);
    }
}

TEST(NSPipeTest, BothEndsAreClosedWithThePipe) {
    std::pair<int, int> ends;
    {
        NSPipe pipe;
        ends = {pipe.fileHandleForReading()->fileDescriptor(),
                pipe.fileHandleForWriting()->fileDescriptor()};
    }

    EXPECT_EQ(::fcntl(ends.first, F_GETFD), -1);
    EXPECT_EQ(::fcntl(ends.second, F_GETFD), -1);
}

TEST(NSPipeTest, AnEndThatIsKeptWithoutThePipeDoesNotKeepTheOther) {
    std::shared_ptr<NSFileHandle> reading;
    {
        NSPipe pipe;
        write(pipe, "last");
        reading = pipe.fileHandleForReading();
    }

    EXPECT_EQ(reading->availableData(), "last");
    EXPECT_EQ(reading->availableData(), "");
}

TEST(NSPipeTest, WithoutDescriptorsThereIsNoPipe) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);

    int error = 0;
    try {
        NSPipe pipe;
    } catch (const std::system_error& failure) {
        error = failure.code().value();
    }
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);

    EXPECT_EQ(error, EMFILE);
}

}  // namespace
}  // namespace sevrin::platform
