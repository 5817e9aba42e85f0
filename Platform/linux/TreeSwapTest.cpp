// Tests of folders that become links at the worst moment: between being seen as a folder and being
// opened. The work is done in a child process that is stopped there.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>
#include <string>

#include "Platform/NSFileManager.h"
#include "Platform/TestFolder.h"

namespace sevrin::platform {
namespace {

// Whether the stopped process is about to open something by exactly this name.
bool isAboutToOpen(pid_t process, const std::string& name) {
    __ptrace_syscall_info info{};
    if (::ptrace(PTRACE_GET_SYSCALL_INFO, process, sizeof info, &info) <= 0 ||
        info.op != PTRACE_SYSCALL_INFO_ENTRY || info.entry.nr != SYS_openat) {
        return false;
    }
    std::string found(name.size() + 1, '\1');
    iovec here{found.data(), found.size()};
    iovec there{reinterpret_cast<void*>(info.entry.args[1]), found.size()};
    return ::process_vm_readv(process, &here, 1, &there, 1, 0) ==
               static_cast<ssize_t>(found.size()) &&
           found == name + '\0';
}

// Does `work` in a child and `swap` once, just before the child opens `name`. Answers how often the
// child came to that point, or -1 where processes cannot be followed.
int swapBeforeOpening(const std::string& name, const std::function<void()>& swap,
                      const std::function<void()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
        ::raise(SIGSTOP);
        work();
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFSTOPPED(status)) return -1;
    ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int times = 0;
    while (::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr) == 0 &&
           ::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        if (WSTOPSIG(status) == (SIGTRAP | 0x80) && isAboutToOpen(child, name) && times++ == 0)
            swap();
    }
    return times;
}

class TreeSwapTest : public testing::Test {
protected:
    TreeSwapTest() {
        folder_.makeFolder("outside");
        folder_.write("outside/secret", "secret");
        folder_.makeFolder("a");
        folder_.makeFolder("a/inner");
        folder_.write("a/inner/file");
        folder_.makeLink(folder_ / "outside", "link");
    }

    // Exchanges `inner`, wherever it is, for the link.
    void swapFor(const std::string& inner) const {
        ASSERT_EQ(::renameat2(AT_FDCWD, inner.c_str(), AT_FDCWD, (folder_ / "link").c_str(),
                              RENAME_EXCHANGE),
                  0);
    }

    const TestFolder folder_;
};

TEST_F(TreeSwapTest, RemovingTakesTheLinkAndNotWhatItLeadsTo) {
    const int times = swapBeforeOpening(
        "inner", [&] { swapFor(folder_ / "a/inner"); },
        [&] {
            static_cast<void>(NSFileManager::defaultManager().removeItemAtPath(folder_ / "a"));
        });
    if (times < 0) GTEST_SKIP() << "processes cannot be followed here";

    EXPECT_EQ(times, 1);
    EXPECT_EQ(folder_.read("outside/secret"), "secret");
    EXPECT_FALSE(folder_.has("a"));
}

TEST_F(TreeSwapTest, CopyingDoesNotReadWhatTheLinkLeadsTo) {
    const int times = swapBeforeOpening(
        "inner", [&] { swapFor(folder_ / "a/inner"); },
        [&] {
            static_cast<void>(
                NSFileManager::defaultManager().copyItemAtPathToPath(folder_ / "a", folder_ / "b"));
        });
    if (times < 0) GTEST_SKIP() << "processes cannot be followed here";

    EXPECT_EQ(times, 1);
    EXPECT_FALSE(folder_.has("b/inner/secret"));
    EXPECT_EQ(folder_.read("outside/secret"), "secret");
}

// The copy's own new folder is swapped, for a link through which the copy would be written.
TEST_F(TreeSwapTest, CopyingDoesNotWriteThroughALinkThatTakesThePlaceOfItsFolder) {
    const int times = swapBeforeOpening(
        "b", [&] { swapFor(folder_ / "b"); },
        [&] {
            static_cast<void>(
                NSFileManager::defaultManager().copyItemAtPathToPath(folder_ / "a", folder_ / "b"));
        });
    if (times < 0) GTEST_SKIP() << "processes cannot be followed here";

    EXPECT_EQ(times, 1);
    EXPECT_FALSE(folder_.has("outside/inner"));
    EXPECT_TRUE(folder_.has("outside/secret"));
}

}  // namespace
}  // namespace sevrin::platform
