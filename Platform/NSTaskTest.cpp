// Contract tests of child processes: how they start, what they inherit, how they end.
#include "Platform/NSTask.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace sevrin::platform {
namespace {

using testing::HasSubstr;

std::string allOf(NSPipe& pipe) {
    std::string all;
    for (;;) {
        const std::string chunk = pipe.fileHandleForReading()->availableData();
        if (chunk.empty()) return all;
        all += chunk;
    }
}

// Whether `condition` holds in time.
bool comesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

// Whether the process is there, be it as a zombie.
bool exists(int process) {
    return ::kill(process, 0) == 0 || errno != ESRCH;
}

// A task that runs a shell script; its output goes to `output`.
class NSTaskTest : public testing::Test {
protected:
    void launch(const std::string& script) {
        task_->setLaunchPath("/bin/sh");
        task_->setArguments({"-c", script, "name of the script", "first"});
        task_->setStandardOutput(output_);
        task_->launch();
    }

    std::string outputOf(const std::string& script) {
        launch(script);
        return allOf(*output_);
    }

    // The error that launch() gives, 0 for none, and its text.
    std::pair<int, std::string> errorOf(const std::string& path,
                                        const std::vector<std::string>& arguments = {}) {
        task_->setLaunchPath(path);
        task_->setArguments(arguments);
        task_->setStandardOutput(output_);
        try {
            task_->launch();
        } catch (const std::system_error& error) {
            return {error.code().value(), error.what()};
        }
        return {0, ""};
    }

    std::unique_ptr<NSTask> task_ = std::make_unique<NSTask>();
    const std::shared_ptr<NSPipe> output_ = std::make_shared<NSPipe>();
};

TEST_F(NSTaskTest, TheProgramGetsItsArgumentsAndItsOutputArrives) {
    EXPECT_EQ(outputOf("echo \"$0, $1, $#\""), "name of the script, first, 1\n");
}

TEST_F(NSTaskTest, TheFirstWordIsTheLaunchPath) {
    task_->setLaunchPath("/bin/sh");
    task_->setStandardOutput(output_);
    task_->setArguments({"-c", "echo $0"});

    task_->launch();

    EXPECT_EQ(allOf(*output_), "/bin/sh\n");
    EXPECT_EQ(task_->launchPath(), "/bin/sh");
}

TEST_F(NSTaskTest, ItsExitStatusIsKnownOnceItHasEnded) {
    launch("exit 3");

    task_->waitUntilExit();

    EXPECT_FALSE(task_->isRunning());
    EXPECT_EQ(task_->terminationStatus(), 3);
    EXPECT_EQ(task_->terminationReason(), NSTask::TerminationReason::Exit);
}

TEST_F(NSTaskTest, ASignalThatEndsItIsNamed) {
    launch("kill -KILL $$");

    task_->waitUntilExit();

    EXPECT_EQ(task_->terminationStatus(), SIGKILL);
    EXPECT_EQ(task_->terminationReason(), NSTask::TerminationReason::UncaughtSignal);
}

TEST_F(NSTaskTest, ItRunsBetweenLaunchAndEnd) {
    EXPECT_FALSE(task_->isRunning());
    EXPECT_EQ(task_->processIdentifier(), 0);

    launch("echo $$; exec sleep 60");
    EXPECT_TRUE(task_->isRunning());
    EXPECT_EQ(output_->fileHandleForReading()->availableData(),
              std::to_string(task_->processIdentifier()) + "\n");

    ::kill(task_->processIdentifier(), SIGTERM);
    task_->waitUntilExit();
    EXPECT_FALSE(task_->isRunning());
}

TEST_F(NSTaskTest, ManyThreadsMayWaitForOneEnd) {
    launch("exec sleep 60");
    std::vector<std::thread> waiting;
    for (int i = 0; i < 4; ++i) {
        waiting.emplace_back([&] {
            task_->waitUntilExit();
            EXPECT_EQ(task_->terminationStatus(), SIGTERM);
        });
    }

    ::kill(task_->processIdentifier(), SIGTERM);

    for (std::thread& each : waiting)
        each.join();
}

TEST_F(NSTaskTest, AChildWhoseEndNobodyAsksForLeavesNoZombie) {
    launch("exit 1");
    const int process = task_->processIdentifier();
    task_.reset();

    EXPECT_TRUE(comesTrue([process] { return !exists(process); }));
}

TEST_F(NSTaskTest, AChildThatHasEndedIsNoZombieWhenThatIsKnown) {
    launch("exit 1");
    task_->waitUntilExit();

    EXPECT_FALSE(exists(task_->processIdentifier()));
}

TEST_F(NSTaskTest, OtherChildrenOfTheProcessStayWithWhoeverWaitsForThem) {
    const pid_t own = ::fork();
    if (own == 0) ::_exit(7);

    launch("exit 1");
    task_->waitUntilExit();

    int status = 0;
    EXPECT_EQ(::waitpid(own, &status, 0), own);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(NSTaskTest, AnEndThatSomebodyElseWaitedForIsUnknown) {
    const auto before = ::signal(SIGCHLD, SIG_IGN);
    launch("exit 1");
    task_->waitUntilExit();
    ::signal(SIGCHLD, before);

    EXPECT_EQ(task_->terminationReason(), NSTask::TerminationReason::Unknown);
    EXPECT_EQ(task_->terminationStatus(), -1);
}

TEST_F(NSTaskTest, OnlyTheStandardDescriptorsAreInherited) {
    const UniqueFd source(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    const UniqueFd low(::dup(source.get()));
    const UniqueFd high(::fcntl(source.get(), F_DUPFD, 500));
    ASSERT_EQ(::fcntl(low.get(), F_GETFD), 0);
    ASSERT_EQ(::fcntl(high.get(), F_GETFD), 0);

    // The shell looks for them itself; a descriptor that it has is one that it can duplicate.
    const std::string output =
        outputOf("for fd in " + std::to_string(low.get()) + " " + std::to_string(high.get()) +
                 "; do [ -e /dev/fd/$fd ] && echo $fd; done;"
                 "for fd in 0 1 2; do [ -e /dev/fd/$fd ] || echo $fd; done");

    EXPECT_EQ(output, "");
}

TEST_F(NSTaskTest, IgnoredSignalsAreNotInherited) {
    const auto before = ::signal(SIGPIPE, SIG_IGN);
    const std::string output = outputOf("kill -PIPE $$; echo survived");
    ::signal(SIGPIPE, before);
    task_->waitUntilExit();

    EXPECT_EQ(output, "");
    EXPECT_EQ(task_->terminationStatus(), SIGPIPE);
}

TEST_F(NSTaskTest, BlockedSignalsAreNotInherited) {
    sigset_t term;
    sigset_t before;
    ::sigemptyset(&term);
    ::sigaddset(&term, SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &term, &before);
    const std::string output = outputOf("kill -TERM $$; echo survived");
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);

    EXPECT_EQ(output, "");
}

TEST_F(NSTaskTest, TheChildHasTheWritingEndForItself) {
    launch("exec sleep 60");

    EXPECT_EQ(output_->fileHandleForWriting()->fileDescriptor(), -1);

    ::kill(task_->processIdentifier(), SIGTERM);
    EXPECT_EQ(allOf(*output_), "");
}

TEST_F(NSTaskTest, WithoutAPipeTheOutputIsThatOfTheProcess) {
    NSPipe pipe;
    const UniqueFd before(::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    ASSERT_GE(::dup2(pipe.fileHandleForWriting()->fileDescriptor(), STDOUT_FILENO), 0);
    task_->setLaunchPath("/bin/sh");
    task_->setArguments({"-c", "echo heard"});
    task_->launch();
    task_->waitUntilExit();
    ::dup2(before.get(), STDOUT_FILENO);
    pipe.fileHandleForWriting()->closeFile();

    EXPECT_EQ(allOf(pipe), "heard\n");
}

TEST_F(NSTaskTest, AProgramThatIsNotThereIsAnErrorThatNamesIt) {
    const auto [number, text] = errorOf("/nowhere/at/all");

    EXPECT_EQ(number, ENOENT);
    EXPECT_THAT(text, HasSubstr("cannot start /nowhere/at/all"));
}

TEST_F(NSTaskTest, APathIsNeverSearchedFor) {
    EXPECT_EQ(errorOf("sh").first, ENOENT);
}

TEST_F(NSTaskTest, AFolderCannotBeStarted) {
    EXPECT_EQ(errorOf("/").first, EACCES);
}

TEST_F(NSTaskTest, AFileThatIsNoProgramCannotBeStarted) {
    EXPECT_EQ(errorOf("/etc/passwd").first, EACCES);
}

TEST_F(NSTaskTest, ATextThatWouldBeCutShortIsRefused) {
    EXPECT_EQ(errorOf("/bin/sh", {"-c", std::string("echo a\0b", 8)}).first, EINVAL);
    task_ = std::make_unique<NSTask>();
    EXPECT_EQ(errorOf(std::string("/bin/sh\0x", 9)).first, EINVAL);
}

TEST_F(NSTaskTest, ATaskThatCouldNotBeStartedIsNeitherRunningNorWaitedFor) {
    ASSERT_EQ(errorOf("/nowhere").first, ENOENT);

    EXPECT_FALSE(task_->isRunning());
    EXPECT_EQ(task_->processIdentifier(), 0);
    task_->waitUntilExit();
}

TEST_F(NSTaskTest, TheReaderOfATaskThatCouldNotBeStartedSeesTheEnd) {
    ASSERT_EQ(errorOf("/nowhere").first, ENOENT);

    EXPECT_EQ(output_->fileHandleForReading()->availableData(), "");
}

TEST_F(NSTaskTest, AnOutputThatIsClosedAlreadyIsAnError) {
    output_->fileHandleForWriting()->closeFile();

    EXPECT_EQ(errorOf("/bin/sh").first, EBADF);
}

using NSTaskDeathTest = NSTaskTest;

TEST_F(NSTaskDeathTest, LaunchingTwiceIsABug) {
    const auto launchTwice = [&] {
        launch("exit 0");
        task_->launch();
    };

    EXPECT_DEATH(launchTwice(), "a task is launched once");
}

TEST_F(NSTaskDeathTest, AskingHowATaskEndedThatNeverRanIsABug) {
    EXPECT_DEATH((void)task_->terminationStatus(), "a task that has ended was asked");
    ASSERT_EQ(errorOf("/nowhere").first, ENOENT);
    EXPECT_DEATH((void)task_->terminationReason(), "a task that has ended was asked");
}

}  // namespace
}  // namespace sevrin::platform
