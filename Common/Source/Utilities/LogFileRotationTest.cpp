// Tests of the generations of the log file, and of many processes that share it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "Common/Source/Utilities/LogFileLogger.h"
#include "Common/Source/Utilities/TestLogFile.h"
#include "Platform/UniqueFd.h"

namespace sevrin {
namespace {

namespace fs = std::filesystem;
using platform::UniqueFd;
using testing::ElementsAreArray;
using testing::HasSubstr;

// A program that logs, with pipes to the test.
class Helper {
public:
    explicit Helper(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "log-test-helper");
        int toHelper[2];
        int fromHelper[2];
        if (::pipe2(toHelper, O_CLOEXEC) != 0 || ::pipe2(fromHelper, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        input_.reset(toHelper[1]);
        output_.reset(fromHelper[0]);
        const UniqueFd theirInput(toHelper[0]);
        const UniqueFd theirOutput(fromHelper[1]);
        std::vector<char*> words;
        for (std::string& argument : arguments)
            words.push_back(argument.data());
        words.push_back(nullptr);
        process_ = ::fork();
        if (process_ == 0) {
            ::dup2(theirInput.get(), STDIN_FILENO);
            ::dup2(theirOutput.get(), STDOUT_FILENO);
            ::execv(LOG_TEST_HELPER, words.data());
            ::_exit(127);
        }
    }
    Helper(Helper&& other) noexcept
        : process_(std::exchange(other.process_, 0)),
          input_(std::move(other.input_)),
          output_(std::move(other.output_)) {}
    Helper& operator=(Helper&&) = delete;
    ~Helper() {
        if (process_ > 0) finish();
    }

    [[nodiscard]] std::string readLine() {
        std::string line;
        for (char byte = 0; ::read(output_.get(), &byte, 1) == 1 && byte != '\n';)
            line += byte;
        return line;
    }
    void writeLine(std::string line) const {
        line += '\n';
        ASSERT_EQ(::write(input_.get(), line.data(), line.size()),
                  static_cast<ssize_t>(line.size()));
    }

    void endInput() { input_.reset(); }

    // Ends its input, and gives its exit status, or minus a signal.
    int finish() {
        endInput();
        int status = 0;
        ::waitpid(std::exchange(process_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t process_ = 0;
    UniqueFd input_;
    UniqueFd output_;
};

// What is in the files afterwards, the current one first; "-" for none. All ten are full before,
// each with its number, but for the one that is said to be missing.
struct Rotation {
    std::uint64_t keeping;
    int missing;
    std::vector<std::string> contents;

    friend void PrintTo(const Rotation& rotation, std::ostream* out) {
        *out << rotation.keeping << " without " << rotation.missing;
    }
};

class LogFileRotationTest : public testing::Test {
protected:
    LogFileRotationTest() { Logger::releaseDefaultLogger(); }
    ~LogFileRotationTest() override { Logger::releaseDefaultLogger(); }

    const TestLogFile log_;
};

class LogFileGenerationsTest : public LogFileRotationTest,
                               public testing::WithParamInterface<Rotation> {};

TEST_P(LogFileGenerationsTest, MoveUpByTheRule) {
    log_.makeFolder();
    for (int number = 0; number < 10; ++number)
        if (number != GetParam().missing) std::ofstream(log_.path(number)) << number;

    LogFileLogger::make()->rotateLogKeeping(GetParam().keeping);

    std::vector<std::string> contents;
    for (int number = 0; number < 10; ++number)
        contents.push_back(fs::exists(log_.path(number)) ? log_.read(number) : "-");
    EXPECT_THAT(contents, ElementsAreArray(GetParam().contents));
}

constexpr int kNone = -1;

INSTANTIATE_TEST_SUITE_P(
    Keeping, LogFileGenerationsTest,
    testing::Values(Rotation{0, kNone, {"0", "-", "-", "-", "-", "-", "-", "-", "-", "-"}},
                    Rotation{1, kNone, {"", "0", "-", "-", "-", "-", "-", "-", "-", "-"}},
                    Rotation{2, kNone, {"", "0", "1", "-", "-", "-", "-", "-", "-", "-"}},
                    Rotation{3, kNone, {"", "0", "1", "2", "-", "-", "-", "-", "-", "-"}},
                    Rotation{4, kNone, {"", "0", "1", "2", "3", "-", "-", "-", "-", "-"}},
                    Rotation{5, kNone, {"", "0", "1", "2", "3", "4", "-", "-", "-", "-"}},
                    Rotation{6, kNone, {"", "0", "1", "2", "3", "4", "5", "-", "-", "-"}},
                    Rotation{7, kNone, {"", "0", "1", "2", "3", "4", "5", "6", "-", "-"}},
                    Rotation{8, kNone, {"", "0", "1", "2", "3", "4", "5", "6", "7", "-"}},
                    Rotation{9, kNone, {"", "0", "1", "2", "3", "4", "5", "6", "7", "8"}},
                    Rotation{10, kNone, {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}},
                    Rotation{11, kNone, {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}},
                    Rotation{10, 5, {"", "0", "1", "2", "3", "4", "6", "7", "8", "9"}},
                    Rotation{3, 1, {"", "0", "-", "2", "-", "-", "-", "-", "-", "-"}},
                    Rotation{3, 0, {"", "-", "1", "2", "-", "-", "-", "-", "-", "-"}}),
    [](const auto& one) {
        const Rotation& rotation = one.param;
        return std::to_string(rotation.keeping) +
               (rotation.missing == kNone ? "" : "Without" + std::to_string(rotation.missing));
    });

TEST_F(LogFileRotationTest, ARotationIsAnnouncedOnce) {
    Helper helper({"announce"});

    const std::string heard = helper.readLine();

    if (heard == "shared") GTEST_SKIP() << "other tests rotate too, and there is no place apart";
    EXPECT_EQ(heard, "com.sevrin.log.rotation SevrinLogger (null);");
    EXPECT_EQ(helper.finish(), 0);
}

TEST_F(LogFileRotationTest, AnotherProcessGoesOnInTheNewFile) {
    Helper helper({"listen"});
    ASSERT_EQ(helper.readLine(), "ready");
    helper.writeLine("before");
    ASSERT_EQ(helper.readLine(), "written");

    LogFileLogger::make()->rotateLogKeeping(3);

    EXPECT_THAT(log_.read(1), HasSubstr("before"));
    // It hears of it when it hears of it; until then its lines go to the old file.
    for (int attempt = 0; log_.read().empty() && attempt < 1000; ++attempt) {
        helper.writeLine("after");
        ASSERT_EQ(helper.readLine(), "written");
        ::usleep(1000);
    }
    EXPECT_THAT(log_.read(), HasSubstr("after"));
    EXPECT_EQ(helper.finish(), 0);
}

// Every line of every process and thread: whole, once, in one of the files that there ever were.
class LogFileEnduranceTest : public LogFileRotationTest {
protected:
    // What each thread writes at least. SEVRIN_ENDURANCE=full in the environment asks for the whole
    // of it.
    static std::string lines() {
        const char* const wish = std::getenv("SEVRIN_ENDURANCE");
        return wish != nullptr && std::string(wish) == "full" ? "20000" : "500";
    }

    // Has the writer end, and gives the number of its lines.
    static std::size_t linesOf(Helper& writer) {
        EXPECT_EQ(writer.readLine(), "ready");
        writer.endInput();
        const std::string lines = writer.readLine();
        EXPECT_EQ(writer.finish(), 0);
        return lines.empty() ? 0 : std::stoul(lines);
    }

    void countLinesOf(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        for (std::string line; std::getline(file, line);) {
            ASSERT_FALSE(file.eof()) << "a line without its end in " << path;
            // A regular expression would take its time for each of these.
            const std::size_t message = line.find(" Minutia ");
            ASSERT_EQ(message, 29U) << path << ": " << line.substr(0, 100);
            if (line.compare(message, 24, " Minutia Created folder ") == 0) continue;
            const std::size_t identifier = line.rfind(" [8.");
            ASSERT_NE(identifier, line.npos);
            ASSERT_EQ(line.back(), ']');
            const std::string text = line.substr(message + 9, identifier - message - 9);
            const std::size_t filling = text.rfind('.') + 1;
            ASSERT_EQ(text.find_first_not_of('x', filling), text.npos);
            ASSERT_LE(text.size(), 20'000U);
            ++counts_[text.substr(0, filling)];
        }
    }

    std::map<std::string, int> counts_;
};

TEST_F(LogFileEnduranceTest, NoLineIsTornDoubledOrLost) {
    constexpr std::size_t kProcesses = 8;
    constexpr int kRotationsMin = 4;
    const std::string links = log_.home() + "/links";
    fs::create_directory(links);
    std::size_t written = 0;
    {
        Helper rotator({"rotate", links});
        ASSERT_EQ(rotator.readLine(), "ready");
        std::vector<Helper> writers;
        for (std::size_t process = 0; process < kProcesses; ++process)
            writers.push_back(Helper({"write", "p" + std::to_string(process), lines(), "8000"}));
        for (int rotation = 0; rotation < kRotationsMin; ++rotation)
            ASSERT_EQ(rotator.readLine(), "rotated");
        for (Helper& writer : writers)
            written += linesOf(writer);
    }

    for (const auto& entry : fs::directory_iterator(links))
        ASSERT_NO_FATAL_FAILURE(countLinesOf(entry.path()));
    ASSERT_NO_FATAL_FAILURE(countLinesOf(log_.path()));
    EXPECT_GE(written, kProcesses * 2 * std::stoul(lines()));
    EXPECT_EQ(counts_.size(), written);
    for (const auto& [line, count] : counts_)
        ASSERT_EQ(count, 1) << line;
}

// By the longest line in bytes.
class LogFileWholeLinesTest : public LogFileEnduranceTest,
                              public testing::WithParamInterface<const char*> {};

TEST_P(LogFileWholeLinesTest, AreWrittenByTwoProcesses) {
    std::size_t written = 0;
    {
        Helper first({"write", "first", "1000", GetParam()});
        Helper second({"write", "second", "1000", GetParam()});
        written = linesOf(first) + linesOf(second);
    }
    ASSERT_NO_FATAL_FAILURE(countLinesOf(log_.path()));

    EXPECT_GE(written, 4000U);
    EXPECT_EQ(counts_.size(), written);
}

INSTANTIATE_TEST_SUITE_P(Up, LogFileWholeLinesTest, testing::Values("100", "8000", "20000"),
                         [](const auto& one) { return "To" + std::string(one.param); });

}  // namespace
}  // namespace sevrin
