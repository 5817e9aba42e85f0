// Tests of the log file: its lines, its folder, what is refused, how it is found again.
#include "Common/Source/Utilities/LogFileLogger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Common/Source/Utilities/NSLogLogger.h"
#include "Common/Source/Utilities/SVException.h"
#include "Common/Source/Utilities/TestLogFile.h"
#include "Platform/TestMounts.h"

namespace sevrin {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

class LogFileLoggerTest : public testing::Test {
protected:
    LogFileLoggerTest() { Logger::releaseDefaultLogger(); }
    ~LogFileLoggerTest() override { Logger::releaseDefaultLogger(); }

    static void log(const std::string& message) {
        Logger::logMessage(LogClassification::Failure, message);
    }

    // What the console shows while `work` is done.
    static std::string consoleDuring(const std::function<void()>& work) {
        testing::internal::CaptureStderr();
        work();
        return testing::internal::GetCapturedStderr();
    }

    const TestLogFile log_;
};

// The descriptor under which this process has the file open, or -1.
int descriptorOf(const std::string& path) {
    struct stat wanted {};
    if (::stat(path.c_str(), &wanted) != 0) return -1;
    for (int descriptor = 3; descriptor < 1024; ++descriptor) {
        struct stat found {};
        if (::fstat(descriptor, &found) == 0 && found.st_dev == wanted.st_dev &&
            found.st_ino == wanted.st_ino)
            return descriptor;
    }
    return -1;
}

TEST_F(LogFileLoggerTest, PathsAreTheFileAndItsGenerations) {
    EXPECT_THAT(LogFileLogger::logFilePathsInFolder(3, "/F"),
                ElementsAre("/F/Sevrin.log", "/F/Sevrin.log.1", "/F/Sevrin.log.2"));
    EXPECT_THAT(LogFileLogger::logFilePathsInFolder(0, "/F"), IsEmpty());
    EXPECT_THAT(LogFileLogger::make()->logFilePaths(10), SizeIs(10));
    EXPECT_EQ(LogFileLogger::make()->currentLogFilePath(), log_.path());
}

TEST_F(LogFileLoggerTest, TheFirstLineMakesFolderAndFileAndTheConsoleShowsNothing) {
    const std::string console = consoleDuring([] { log("hello"); });

    EXPECT_EQ(console, "");
    const std::string lines = log_.read();
    EXPECT_THAT(lines, HasSubstr(" Minutia Created folder " + log_.folder() + " ["));
    EXPECT_THAT(lines, HasSubstr(" Failure hello ["));
    EXPECT_NE(std::dynamic_pointer_cast<LogFileLogger>(Logger::defaultLogger()), nullptr);
}

TEST_F(LogFileLoggerTest, TheFoldersThatAreMadeForTheLogAreLoggedInItTheOutermostFirst) {
    log("hello");

    const std::string made = "Minutia Created folder " + log_.home();
    EXPECT_THAT(log_.lines(),
                ElementsAre(HasSubstr(made + "/Library ["), HasSubstr(made + "/Library/Logs ["),
                            HasSubstr(made + "/Library/Logs/Sevrin ["), HasSubstr(" hello [")));
}

TEST_F(LogFileLoggerTest, TheFilesModeIsWhatTheMaskLeavesOfTheGroupsToo) {
    const mode_t before = ::umask(0);
    log("hello");
    ::umask(before);

    struct stat found {};
    ASSERT_EQ(::stat(log_.path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 07777, 0664U);
}

TEST_F(LogFileLoggerTest, ALineHasDateWordMessageIdentifierAndLineFeed) {
    log("hello");

    const std::vector<std::string> lines = log_.lines();
    EXPECT_THAT(lines.back(),
                MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                             "[+-][0-9]{4} Failure hello \\[8\\.[0-9]+\\.[0-9]+\\.[0-9]+\\]"));
    EXPECT_TRUE(log_.read().ends_with('\n'));
}

TEST_F(LogFileLoggerTest, AFileThatExistsIsAppendedTo) {
    log_.makeFolder();
    std::ofstream(log_.path()) << "before\n";

    log("hello");

    EXPECT_THAT(log_.lines(), ElementsAre("before", HasSubstr("hello")));
}

TEST_F(LogFileLoggerTest, TheExistingFilesAreListedTheCurrentOneFirst) {
    log_.makeFolder();
    std::ofstream(log_.path(2)) << "old";
    fs::create_directory(log_.path(3));
    std::ofstream(log_.path()) << "new";

    EXPECT_THAT(LogFileLogger::make()->logFiles(), ElementsAre(log_.path(), log_.path(2)));
}

TEST_F(LogFileLoggerTest, OpeningTwiceOpensOnce) {
    log_.makeFolder();  // Else it would be logged, and another logger have the file open.
    const auto logger = LogFileLogger::make();
    logger->open();
    const int descriptor = descriptorOf(log_.path());

    logger->open();

    EXPECT_EQ(descriptorOf(log_.path()), descriptor);
    logger->flush();
    logger->close();
    EXPECT_EQ(descriptorOf(log_.path()), -1);
    logger->flush();
}

TEST_F(LogFileLoggerTest, ALoggerThatGoesClosesItsFile) {
    log_.makeFolder();  // Else it would be logged, and another logger have the file open.
    auto logger = LogFileLogger::make();
    logger->open();

    logger.reset();

    EXPECT_EQ(descriptorOf(log_.path()), -1);
}

TEST_F(LogFileLoggerTest, ALoggerWithoutAFileGivesUpAtItsFirstLine) {
    log_.makeFolder();
    const auto logger = LogFileLogger::make();
    const ScopedDefaultLogger installed(std::make_shared<TestLogger>());

    const std::string console = consoleDuring([&] { logger->logCString("line"); });

    EXPECT_THAT(console, HasSubstr("write('"));
    EXPECT_THAT(console, HasSubstr("errno=9"));
    EXPECT_NE(std::dynamic_pointer_cast<LogFileLogger>(Logger::defaultLogger()), nullptr);
}

// What stands where the log should be, and the words on the console about it.
struct Obstacle {
    const char* name;
    void (*set)(const TestLogFile& log);
    const char* words;
    void (*clear)(const TestLogFile& log);

    friend void PrintTo(const Obstacle& obstacle, std::ostream* out) { *out << obstacle.name; }
};

void removeFile(const TestLogFile& log) {
    fs::remove_all(log.path());
}

class LogFileObstacleTest : public LogFileLoggerTest,
                            public testing::WithParamInterface<Obstacle> {};

TEST_P(LogFileObstacleTest, IsReportedAndLoggingResumesWhenItIsGone) {
    GetParam().set(log_);

    std::string console = consoleDuring([] { log("lost"); });

    EXPECT_THAT(console,
                AllOf(HasSubstr(GetParam().words), HasSubstr("problem reopening log file: ")));
    GetParam().clear(log_);
    console = consoleDuring([] {
        log("perhaps the line that gives up");
        log("found");
    });
    EXPECT_THAT(log_.read(), HasSubstr(" Failure found ["));
    EXPECT_THAT(log_.read(), Not(HasSubstr("lost")));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, LogFileObstacleTest,
    testing::Values(
        Obstacle{"AFolder", [](const TestLogFile& log) { fs::create_directories(log.path()); },
                 "Sevrin.log') errno=21", removeFile},
        Obstacle{"ALink",
                 [](const TestLogFile& log) {
                     log.makeFolder();
                     std::ofstream(log.home() + "/elsewhere") << "";
                     fs::create_symlink(log.home() + "/elsewhere", log.path());
                 },
                 "Sevrin.log') errno=40",
                 [](const TestLogFile& log) {
                     EXPECT_EQ(fs::file_size(log.home() + "/elsewhere"), 0U);
                     removeFile(log);
                 }},
        Obstacle{"APipeWithoutReader",
                 [](const TestLogFile& log) {
                     log.makeFolder();
                     ASSERT_EQ(::mkfifo(log.path().c_str(), 0600), 0);
                 },
                 "Sevrin.log') errno=6", removeFile},
        Obstacle{"AFileWhereAFolderShouldBe",
                 [](const TestLogFile& log) { std::ofstream(log.home() + "/Library") << ""; },
                 "Item already exists; probably a file where a folder should be",
                 [](const TestLogFile& log) { fs::remove(log.home() + "/Library"); }},
        Obstacle{"AMissingHome", [](const TestLogFile& log) { fs::remove(log.home()); },
                 "Enclosing folder does not exist",
                 [](const TestLogFile& log) { fs::create_directory(log.home()); }}),
    [](const auto& one) { return one.param.name; });

TEST_F(LogFileLoggerTest, APipeWithAReaderIsRefusedToo) {
    log_.makeFolder();
    ASSERT_EQ(::mkfifo(log_.path().c_str(), 0600), 0);
    const platform::UniqueFd reader(::open(log_.path().c_str(), O_RDONLY | O_NONBLOCK));

    const std::string console = consoleDuring([] { log("lost"); });

    EXPECT_THAT(console, HasSubstr("Sevrin.log') errno=22"));
    char byte;
    EXPECT_LE(::read(reader.get(), &byte, 1), 0);
}

TEST_F(LogFileLoggerTest, AFolderThatTheUserMayNotWriteToIsReported) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to become somebody who may not";
    log_.makeFolder();
    fs::permissions(fs::path(log_.home()).parent_path(), fs::perms(0755));
    fs::permissions(log_.folder(), fs::perms(0555));

    ASSERT_EQ(::seteuid(65534), 0);
    const std::string console = consoleDuring([] { log("lost"); });
    ASSERT_EQ(::seteuid(0), 0);

    EXPECT_THAT(console, HasSubstr("open('" + log_.path() + "') errno=13"));
    EXPECT_THAT(console,
                MatchesRegex("(.|\n)*problem reopening log file: .*cannot open log file(.|\n)*"));
}

TEST_F(LogFileLoggerTest, OpeningRaisesWithReasonAndPath) {
    fs::create_directories(log_.path());
    const auto logger = LogFileLogger::make();
    consoleDuring([&] {
        try {
            logger->open();
            ADD_FAILURE() << "nothing was raised";
        } catch (const SVException& exception) {
            EXPECT_EQ(exception.name(), "IO");
            EXPECT_EQ(exception.reason(), "cannot open log file");
            const platform::Value* const path = exception.details().find("Path");
            ASSERT_NE(path, nullptr);
            EXPECT_EQ(*path, platform::Value(log_.path()));
            const platform::Value* const number = exception.details().find("POSIXErr");
            ASSERT_NE(number, nullptr);
        }
    });
}

TEST_F(LogFileLoggerTest, ADescriptorClosedBehindOurBackIsReportedAndTheNextLineFindsTheFile) {
    log("first");
    ::close(descriptorOf(log_.path()));

    const std::string console = consoleDuring([] {
        log("lost");
        log("third");
    });

    EXPECT_THAT(console, HasSubstr("write('" + log_.path() + "') errno=9"));
    EXPECT_THAT(log_.read(), AllOf(HasSubstr(" first ["), HasSubstr(" third [")));
    EXPECT_THAT(log_.read(), Not(HasSubstr("lost")));
}

TEST_F(LogFileLoggerTest, ADescriptorThatBecameAnothersIsNotClosed) {
    log_.makeFolder();  // Else it would be logged, and another logger have the file open.
    const auto logger = LogFileLogger::make();
    logger->open();
    const int descriptor = descriptorOf(log_.path());
    const platform::UniqueFd null(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(::dup2(null.get(), descriptor), descriptor);

    const std::string console = consoleDuring([&] { logger->close(); });

    EXPECT_THAT(console, HasSubstr("close('" + log_.path() + "') errno=9"));
    EXPECT_EQ(::fcntl(descriptor, F_GETFD) != -1, true);
    ::close(descriptor);
}

// A logger under a clock of the test's own, installed.
class LogFileWatchTest : public LogFileLoggerTest {
protected:
    LogFileWatchTest() {
        log_.makeFolder();
        Logger::setDefaultLogger(LogFileLogger::make([this] { return now_; }));
        log("first");
    }

    void pass(double seconds) {
        now_ = platform::NSDate::dateWithTimeIntervalSinceReferenceDate(
            now_.timeIntervalSinceReferenceDate() + seconds);
    }

    platform::NSDate now_ = platform::NSDate::date();
};

TEST_F(LogFileWatchTest, AFileThatSomebodyRenamedIsReplacedWithinASecond) {
    fs::rename(log_.path(), log_.home() + "/moved");

    const std::string console = consoleDuring([&] {
        pass(0.9);
        log("old");
        pass(0.1);
        log("new");
    });

    EXPECT_EQ(console, "");
    EXPECT_THAT(log_.lines(), ElementsAre(HasSubstr(" new [")));
}

TEST_F(LogFileWatchTest, AFileThatSomebodyRemovedWithItsFolderIsMadeAgain) {
    fs::remove_all(log_.home() + "/Library");
    pass(1);

    const std::string console = consoleDuring([] { log("new"); });

    EXPECT_EQ(console, "");
    EXPECT_THAT(log_.read(), HasSubstr(" new ["));
}

TEST_F(LogFileWatchTest, AFileThatSomebodyReplacedByALinkIsNotWrittenThrough) {
    fs::remove(log_.path());
    std::ofstream(log_.home() + "/victim") << "";
    fs::create_symlink(log_.home() + "/victim", log_.path());
    pass(1);

    const std::string console = consoleDuring([] { log("lost"); });

    EXPECT_THAT(console, HasSubstr("Sevrin.log') errno=40"));
    EXPECT_EQ(fs::file_size(log_.home() + "/victim"), 0U);
}

TEST_F(LogFileWatchTest, ADescriptorThatBecameAnothersIsNoticedToo) {
    const platform::UniqueFd other(
        ::open((log_.home() + "/other").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const int descriptor = descriptorOf(log_.path());
    ASSERT_EQ(::dup2(other.get(), descriptor), descriptor);
    pass(1);

    consoleDuring([] { log("new"); });

    EXPECT_THAT(log_.read(), HasSubstr(" new ["));
    EXPECT_EQ(fs::file_size(log_.home() + "/other"), 0U);
    ::close(descriptor);
}

TEST_F(LogFileWatchTest, AClockThatIsSetBackDoesNotBlind) {
    fs::remove(log_.path());
    pass(-3600);

    log("new");

    EXPECT_THAT(log_.read(), HasSubstr(" new ["));
}

// A home on a volume that is filled to the last byte and emptied again.
TEST(LogFileFullDiskTest, LinesAreLostWhileTheDiskIsFullAndWholeOnesFollow) {
    platform::TestMounts mounts;
    const std::string disk = mounts.mountMemory("disk");
    SEVRIN_SKIP_WITHOUT(mounts);
    const TestLogFile log(disk);
    Logger::releaseDefaultLogger();
    const std::string filler = log.home() + "/filler";
    Logger::logMessage(LogClassification::Failure, "before");
    {
        std::ofstream file(filler, std::ios::binary);
        while (file << std::string(1024, 'f') << std::flush) {
        }
    }

    testing::internal::CaptureStderr();
    // Some have room, in what the file has of its last page.
    for (int line = 0; line < 100; ++line)
        Logger::logMessage(LogClassification::Failure, "while it is full " + std::string(80, 'w'));
    const std::string console = testing::internal::GetCapturedStderr();
    fs::remove(filler);
    Logger::logMessage(LogClassification::Failure, "found");
    Logger::logMessage(LogClassification::Failure, "after");
    Logger::releaseDefaultLogger();

    EXPECT_THAT(console, HasSubstr("write('" + log.path() + "') errno=28"));
    const std::vector<std::string> lines = log.lines();
    EXPECT_LT(lines.size(), 100U);
    EXPECT_THAT(lines[lines.size() - 2], MatchesRegex("[0-9]{4}-.* Failure found \\[8[.0-9]+\\]"));
    EXPECT_THAT(lines.back(), MatchesRegex("[0-9]{4}-.* Failure after \\[8[.0-9]+\\]"));
    int cut = 0;
    for (const std::string& line : lines)
        cut += line.ends_with(']') ? 0 : 1;
    EXPECT_LE(cut, 1);
}

TEST_F(LogFileWatchTest, AFullDiskCostsTheLinesThatItHasNoRoomForAndTearsNoOther) {
    // A limit on the size of files does to this process what a full disk does to all. It holds for
    // what the test keeps of the console too, so the log is made longer than that.
    log(std::string(8000, 'x'));
    const struct rlimit before = [] {
        struct rlimit limit {};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        return limit;
    }();
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit full = before;
    full.rlim_cur = fs::file_size(log_.path()) + 20;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);

    log("cut short");
    const std::string console = consoleDuring([] { log("lost"); });
    ::setrlimit(RLIMIT_FSIZE, &before);
    ::signal(SIGXFSZ, handler);
    log("last");

    EXPECT_THAT(console, HasSubstr("write('" + log_.path() + "') errno=27"));
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_THAT(lines[0], HasSubstr(" first ["));
    EXPECT_EQ(lines[2].size(), 20U);
    EXPECT_THAT(lines[3], HasSubstr(" last ["));
}

TEST_F(LogFileLoggerTest, ReplacingAndReleasingTheLoggerKeepsTheNumbering) {
    const LogLineIdentifierPtr first = Logger::logMessage(LogClassification::Minutia, "first");
    Logger::releaseDefaultLogger();

    const LogLineIdentifierPtr second = Logger::logMessage(LogClassification::Minutia, "second");

    EXPECT_EQ(second->parent(), first->parent());
    EXPECT_THAT(log_.read(), AllOf(HasSubstr("first [" + first->description() + "]"),
                                   HasSubstr("second [" + second->description() + "]")));
}

TEST_F(LogFileLoggerTest, WhatIsNotAsciiIsEscaped) {
    log("na\xc3\xafve");

    EXPECT_THAT(log_.read(), HasSubstr("na\\u00efve ["));
}

}  // namespace
}  // namespace sevrin
