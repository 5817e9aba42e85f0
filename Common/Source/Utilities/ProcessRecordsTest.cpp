// Tests of the records that a process writes when it starts and when it stops.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Common/Source/Utilities/NSLogLogger.h"
#include "Common/Source/Utilities/TestLogger.h"
#include "Common/Source/Utilities/TextPipeReader.h"
#include "Platform/NSProcessInfo.h"
#include "Platform/NSTask.h"

namespace sevrin {
namespace {

using platform::NSProcessInfo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr const char* kName = "Switchboard-2.2.5.12";

class ProcessRecordsTest : public ::testing::Test {
protected:
    // Writes a start record and gives its lines, each as "9 message" after its place in the record:
    // 0 is the head, 0.1 its first child.
    std::vector<std::string> startRecord() {
        const std::size_t before = logger_->lines().size();
        const LogLineIdentifierPtr head = Logger::logStartProcess(kName);
        const std::vector<std::string> lines = logger_->lines();
        const std::string headText = "[" + head->description();
        std::vector<std::string> record;
        for (std::size_t i = before; i < lines.size(); ++i) {
            const std::string& line = lines[i];
            const std::size_t identifier = line.rfind(headText);
            EXPECT_NE(identifier, std::string::npos) << line;
            const std::string below = line.substr(identifier + headText.size());
            record.push_back("0" + below.substr(0, below.size() - 1) + " " +
                             line.substr(0, identifier - 1));
        }
        return record;
    }

    // The message of the line under `key`, or "none".
    std::string valueOf(const std::string& key) {
        const std::string start = " 9 " + key + ": ";
        for (const std::string& line : startRecord()) {
            const std::size_t found = line.find(start);
            if (found != std::string::npos) return line.substr(found + start.size());
        }
        return "none";
    }

    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed_{logger_};
};

TEST_F(ProcessRecordsTest, TheStartRecordHasItsLinesInOrder) {
    const std::vector<std::string> record = startRecord();

    ASSERT_GE(record.size(), 10U);
    EXPECT_EQ(record[0], "0 9 started Switchboard-2.2.5.12");
    EXPECT_THAT(record[1], MatchesRegex("0.1 9 id: .+"));
    EXPECT_THAT(record[2], MatchesRegex("0.2 9 os: Version .+"));
    EXPECT_THAT(record[3], MatchesRegex("0.3 9 arch: [a-z0-9_]+"));
    EXPECT_THAT(record[4], MatchesRegex("0.4 9 ppid: [0-9]+"));
    EXPECT_THAT(record[5], MatchesRegex("0.5 9 uid: [0-9]+"));
    EXPECT_THAT(record[6], MatchesRegex("0.6 9 up: [0-9.]+"));
    EXPECT_THAT(record[7], MatchesRegex("0.7 9 wd: /.*"));
    EXPECT_EQ(record[8], "0.8 9 args:");
    EXPECT_THAT(record[9], MatchesRegex("0.8.1 9 \\[0\\]: .+"));
}

TEST_F(ProcessRecordsTest, TheHeadIsATopLevelLine) {
    const LogLineIdentifierPtr head = Logger::logStartProcess(kName);

    EXPECT_EQ(head->parent(), Logger::rootLogLine());
}

TEST_F(ProcessRecordsTest, TheFactsAreThoseOfThisProcess) {
    EXPECT_EQ(valueOf("id"), NSProcessInfo::processInfo().processName());
    EXPECT_EQ(valueOf("os"), NSProcessInfo::processInfo().operatingSystemVersionString());
    EXPECT_EQ(valueOf("ppid"), std::to_string(::getppid()));
    EXPECT_EQ(valueOf("uid"), std::to_string(::getuid()));
    EXPECT_EQ(valueOf("wd"), std::filesystem::current_path());
}

TEST_F(ProcessRecordsTest, TheArchitectureIsTheOneBuiltFor) {
#if defined(__x86_64__)
    EXPECT_EQ(valueOf("arch"), "x86_64");
#elif defined(__aarch64__)
    EXPECT_EQ(valueOf("arch"), "arm64");
#else
    EXPECT_NE(valueOf("arch"), "none");
#endif
}

TEST_F(ProcessRecordsTest, EqualUserIdsAreSaidOnce) {
    ASSERT_EQ(::getuid(), ::geteuid());

    EXPECT_EQ(valueOf("euid"), "none");
}

TEST_F(ProcessRecordsTest, AnEffectiveUserIdOfItsOwnFollowsTheRealOne) {
    constexpr uid_t kOther = 65'534;
    if (::geteuid() != 0) GTEST_SKIP() << "only root may take another user's id";

    ASSERT_EQ(::seteuid(kOther), 0);
    const std::vector<std::string> record = startRecord();
    ASSERT_EQ(::seteuid(0), 0);

    EXPECT_EQ(record[5], "0.5 9 uid: 0");
    EXPECT_EQ(record[6], "0.6 9 euid: 65534");
    EXPECT_THAT(record[7], MatchesRegex("0.7 9 up: .*"));
}

TEST_F(ProcessRecordsTest, EveryArgumentIsAChildOfTheArgumentsByItsIndex) {
    const std::vector<std::string> arguments = NSProcessInfo::processInfo().arguments();
    const std::vector<std::string> record = startRecord();

    ASSERT_EQ(record.size(), 9 + arguments.size());
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        EXPECT_EQ(record[9 + i], "0.8." + std::to_string(i + 1) + " 9 [" + std::to_string(i) +
                                     "]: " + arguments[i]);
    }
}

TEST_F(ProcessRecordsTest, AProgramWithoutArgumentsHasItsPathAsTheOnlyOne) {
    platform::NSTask task;
    TextPipeReader reader;
    task.setLaunchPath(PROCESS_TEST_HELPER);
    task.setStandardOutput(reader.pipe());
    task.launch();
    reader.startReading();
    const std::vector<std::string> lines = reader.lines().value();

    ASSERT_GE(lines.size(), 3U);
    EXPECT_THAT(lines[0], StartsWith("9 started helper-1 ["));
    EXPECT_THAT(lines[1], StartsWith("9 id: process-test-helper ["));
    EXPECT_THAT(lines[lines.size() - 2], StartsWith("9 args:"));
    EXPECT_THAT(lines.back(), StartsWith("9 [0]: " PROCESS_TEST_HELPER " ["));
}

TEST_F(ProcessRecordsTest, AFolderThatIsGoneIsAnEmptyOne) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::string folder = std::filesystem::temp_directory_path() / "ProcessRecordsTest.XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    std::filesystem::current_path(folder);
    ASSERT_EQ(::rmdir(folder.c_str()), 0);

    const std::string value = valueOf("wd");
    std::filesystem::current_path(before);

    EXPECT_EQ(value, "");
}

TEST_F(ProcessRecordsTest, AFolderMayHaveAPathOfAnyLength) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::string folder = std::filesystem::temp_directory_path() / "ProcessRecordsTest.XXXXXX";
    ASSERT_NE(::mkdtemp(folder.data()), nullptr);
    std::filesystem::current_path(folder);
    const std::string name(250, 'a');
    std::string path = std::filesystem::current_path();
    while (path.size() <= 2 * PATH_MAX) {
        ASSERT_EQ(::mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(::chdir(name.c_str()), 0);
        path += '/' + name;
    }

    const std::string value = valueOf("wd");
    std::filesystem::current_path(before);
    std::filesystem::remove_all(folder);

    EXPECT_EQ(value, path);
}

TEST_F(ProcessRecordsTest, AStopWithoutAnErrorHasNoStatus) {
    const auto line = Logger::logStopProcessExitStatus(kName, 0);

    EXPECT_THAT(logger_->lines(),
                ElementsAre("9 stopping Switchboard-2.2.5.12 [" + line->description() + "]"));
    EXPECT_EQ(line->parent(), Logger::rootLogLine());
}

TEST_F(ProcessRecordsTest, AStopWithAnErrorNamesItsStatus) {
    const auto line = Logger::logStopProcessExitStatus(kName, 2);
    Logger::logStopProcessExitStatus(kName, -1);

    ASSERT_EQ(logger_->lines().size(), 2U);
    EXPECT_EQ(logger_->lines()[0], "9 stopping Switchboard-2.2.5.12, exiting with status 2 [" +
                                       line->description() + "]");
    EXPECT_THAT(logger_->lines()[1], MatchesRegex(".*, exiting with status -1 \\[.*"));
}

TEST_F(ProcessRecordsTest, OnAConsoleBothRecordsAreSilentButNumbered) {
    class Console : public NSLogLogger {
    public:
        void logMessage(const std::string& text) override { lines.emplace_back(text); }
        std::vector<std::string> lines;
    };
    const auto console = std::make_shared<Console>();
    Logger::setDefaultLogger(console);

    const auto start = Logger::logStartProcess(kName);
    const auto stop = Logger::logStopProcessExitStatus(kName, 2);

    EXPECT_THAT(console->lines, IsEmpty());
    EXPECT_EQ(start->count(), 8U);
    EXPECT_EQ(stop->sequence(), start->sequence() + 1);
}

}  // namespace
}  // namespace sevrin
