// Tests of a file that is appended to by many and exchanged under them.
#include "Common/Source/Utilities/AppendedFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Platform/TestFolder.h"

namespace sevrin {
namespace {

namespace fs = std::filesystem;
using platform::UniqueFd;

class AppendedFileTest : public testing::Test {
protected:
    [[nodiscard]] std::string path(const std::string& name) const {
        return folder_.path() + "/" + name;
    }
    [[nodiscard]] UniqueFd open(const std::string& name) const {
        return UniqueFd(
            ::open(path(name).c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
    }
    [[nodiscard]] std::string read(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const platform::TestFolder folder_;
    AppendedFile file_;
};

TEST_F(AppendedFileTest, WithoutAFileALineFails) {
    EXPECT_FALSE(file_.isOpen());
    EXPECT_EQ(file_.appendLine("lost"), EBADF);
    EXPECT_EQ(file_.close(), 0);
    EXPECT_TRUE(file_.isStillAt(path("a")));
}

TEST_F(AppendedFileTest, ALineIsItsBytesAndALineFeed) {
    ASSERT_EQ(file_.replace(open("a")), 0);

    EXPECT_EQ(file_.appendLine("first"), 0);
    EXPECT_EQ(file_.appendLine(""), 0);

    EXPECT_EQ(read("a"), "first\n\n");
}

TEST_F(AppendedFileTest, AfterTheExchangeLinesGoToTheOtherFile) {
    ASSERT_EQ(file_.replace(open("a")), 0);
    ASSERT_EQ(file_.appendLine("one"), 0);

    ASSERT_EQ(file_.replace(open("b")), 0);

    ASSERT_EQ(file_.appendLine("two"), 0);
    EXPECT_EQ(read("a"), "one\n");
    EXPECT_EQ(read("b"), "two\n");
}

TEST_F(AppendedFileTest, AfterClosingALineFailsUntilThereIsAFileAgain) {
    ASSERT_EQ(file_.replace(open("a")), 0);

    ASSERT_EQ(file_.close(), 0);

    EXPECT_FALSE(file_.isOpen());
    EXPECT_EQ(file_.appendLine("lost"), EBADF);
    ASSERT_EQ(file_.replace(open("a")), 0);
    EXPECT_EQ(file_.appendLine("found"), 0);
    EXPECT_EQ(read("a"), "found\n");
}

TEST_F(AppendedFileTest, AtTheEndNoDescriptorIsLeft) {
    const auto openCount = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openCount();
    {
        AppendedFile opened;
        ASSERT_EQ(opened.replace(open("a")), 0);
        ASSERT_EQ(opened.replace(open("b")), 0);
        AppendedFile closed;
        ASSERT_EQ(closed.replace(open("c")), 0);
        ASSERT_EQ(closed.close(), 0);
    }

    EXPECT_EQ(openCount(), before);
}

TEST_F(AppendedFileTest, ANumberThatBecameAnothersIsLeftToIt) {
    UniqueFd first = open("a");
    const int number = first.get();
    ASSERT_EQ(file_.replace(std::move(first)), 0);
    const UniqueFd other = open("other");
    ASSERT_EQ(::dup2(other.get(), number), number);

    EXPECT_FALSE(file_.isStillAt(path("a")));
    EXPECT_EQ(file_.replace(open("b")), EBADF);

    EXPECT_EQ(file_.appendLine("mine"), 0);
    EXPECT_EQ(read("b"), "mine\n");
    EXPECT_EQ(read("other"), "");
    EXPECT_EQ(::write(number, "theirs", 6), 6);
    ::close(number);
}

TEST_F(AppendedFileTest, AFileIsStillThereUntilItsNameLeadsElsewhere) {
    ASSERT_EQ(file_.replace(open("a")), 0);
    EXPECT_TRUE(file_.isStillAt(path("a")));

    fs::rename(path("a"), path("b"));
    EXPECT_FALSE(file_.isStillAt(path("a")));
    EXPECT_TRUE(file_.isStillAt(path("b")));
    fs::create_symlink(path("b"), path("a"));
    EXPECT_FALSE(file_.isStillAt(path("a")));
}

// Two threads write while a third exchanges and closes the file, and a fourth opens files of its
// own all the time, which would get a number that becomes free.
TEST_F(AppendedFileTest, NoLineGoesToAStrangersFileHoweverOftenTheFileIsExchanged) {
    constexpr int kExchanges = 2000;
    ASSERT_EQ(file_.replace(open("0")), 0);
    std::atomic<bool> isEnded = false;
    std::atomic<int> written = 0;
    const auto write = [&] {
        while (!isEnded)
            written += file_.appendLine("a line of the log") == 0 ? 1 : 0;
    };
    std::thread first(write);
    std::thread second(write);
    std::thread stranger([&] {
        while (!isEnded)
            static_cast<void>(open("stranger"));
    });

    for (int number = 1; number <= kExchanges; ++number) {
        ASSERT_EQ(file_.replace(open(std::to_string(number % 4))), 0);
        if (number % 8 == 0) {
            ASSERT_EQ(file_.close(), 0);
        }
    }
    isEnded = true;
    for (std::thread* thread : {&first, &second, &stranger})
        thread->join();

    EXPECT_EQ(read("stranger"), "");
    int found = 0;
    for (const char* name : {"0", "1", "2", "3"}) {
        std::istringstream lines(read(name));
        for (std::string line; std::getline(lines, line); ++found)
            ASSERT_EQ(line, "a line of the log");
    }
    EXPECT_EQ(found, written);
}

TEST_F(AppendedFileTest, ALineThatIsCutShortIsEndedByTheNextOneThatThereIsRoomFor) {
    ASSERT_EQ(file_.replace(open("a")), 0);
    ASSERT_EQ(file_.appendLine("whole"), 0);
    const auto handler = ::signal(SIGXFSZ, SIG_IGN);
    struct rlimit before {};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
    struct rlimit full = before;
    full.rlim_cur = 10;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full), 0);

    const int cut = file_.appendLine("cut short");
    const int lost = file_.appendLine("lost");
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
    AppendedFile next;  // It is known to the process, not to the object alone.
    ASSERT_EQ(next.replace(open("a")), 0);
    const int found = next.appendLine("found");
    const int after = next.appendLine("after");
    ::signal(SIGXFSZ, handler);

    EXPECT_EQ(cut, 0);
    EXPECT_EQ(lost, EFBIG);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(after, 0);
    EXPECT_EQ(read("a"), "whole\ncut \nfound\nafter\n");
}

}  // namespace
}  // namespace sevrin
