// A program that a test starts and talks to in lines.
//
// Its standard input and output are pipes to the test (or what the test gives it); standard error
// is the test's. Killed and waited for when it goes, however the test ended.
#pragma once

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Platform/UniqueFd.h"

extern char** environ;

namespace sevrin::platform {

class TestProcess {
public:
    // How the program starts, beside what it inherits.
    struct Start {
        std::optional<uid_t> user;              // as this user, and its group of the same number
        std::vector<std::string> environment;   // "NAME=value"; takes precedence
        std::optional<rlim_t> descriptorsMax;   // RLIMIT_NOFILE, both
        int input = -1;                         // its standard input, borrowed, instead of a pipe
        std::vector<std::pair<int, int>> keep;  // descriptors of ours, and the number each gets
    };

    TestProcess(const std::string& program, const std::vector<std::string>& arguments,
                const Start& start) {
        int toProgram[2];
        int fromProgram[2];
        if (::pipe2(toProgram, O_CLOEXEC) != 0 || ::pipe2(fromProgram, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipe");
        input_.reset(toProgram[1]);
        output_.reset(fromProgram[0]);
        const UniqueFd theirInput(toProgram[0]);
        const UniqueFd theirOutput(fromProgram[1]);

        // All memory is allocated before the fork: the test may have other threads.
        std::vector<std::string> words{program};
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<std::string> variables = start.environment;
        for (char** each = environ; *each; ++each)
            variables.emplace_back(*each);
        const std::vector<char*> argv = pointersTo(words);
        const std::vector<char*> envp = pointersTo(variables);

        // Another user may not be able to reach the folder that the program lies in.
        const UniqueFd image(start.user ? ::open(program.c_str(), O_PATH | O_CLOEXEC) : -1);

        pid_ = ::fork();
        if (pid_ < 0) throw std::runtime_error("no process");
        if (pid_ == 0) {
            const int reachable = ::fcntl(image.get(), F_DUPFD_CLOEXEC, kOutOfTheWay);
            ::dup2(start.input >= 0 ? start.input : theirInput.get(), STDIN_FILENO);
            ::dup2(theirOutput.get(), STDOUT_FILENO);
            giveDescriptors(start.keep);
            becomeUser(start);
            if (reachable >= 0) ::execveat(reachable, "", argv.data(), envp.data(), AT_EMPTY_PATH);
            ::execve(program.c_str(), argv.data(), envp.data());
            ::_exit(127);
        }
    }
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;
    ~TestProcess() {
        if (pid_ > 0) kill();
    }

    [[nodiscard]] pid_t pid() const { return pid_; }

    // Its next line without the line end; nothing when none comes in time, or it has ended.
    [[nodiscard]] std::optional<std::string> line() {
        constexpr int kPatienceMs = 20'000;
        for (;;) {
            const std::size_t end = read_.find('\n');
            if (end != std::string::npos) {
                std::string found = read_.substr(0, end);
                read_.erase(0, end + 1);
                return found;
            }
            pollfd waiting{output_.get(), POLLIN, 0};
            if (::poll(&waiting, 1, kPatienceMs) <= 0) return std::nullopt;
            char buffer[4096];
            const ssize_t size = ::read(output_.get(), buffer, sizeof buffer);
            if (size <= 0) return std::nullopt;
            read_.append(buffer, static_cast<std::size_t>(size));
        }
    }

    // Ends its input and waits for it to end; gives its exit status, or minus the signal's number.
    int finish() {
        input_.reset();
        return wait();
    }

    // Kills it with no chance to tidy up.
    int kill() {
        ::kill(pid_, SIGKILL);
        return wait();
    }

private:
    // No test gives a descriptor such a number.
    static constexpr int kOutOfTheWay = 64;

    // In the child: all are first copied out of the way, for what one is to become may be what
    // another one still is.
    static void giveDescriptors(const std::vector<std::pair<int, int>>& keep) {
        constexpr std::size_t kMost = 8;
        int copies[kMost];
        if (keep.size() > kMost) ::_exit(127);
        for (std::size_t i = 0; i < keep.size(); ++i)
            copies[i] = ::fcntl(keep[i].first, F_DUPFD_CLOEXEC, kOutOfTheWay);
        for (std::size_t i = 0; i < keep.size(); ++i)
            ::dup2(copies[i], keep[i].second);
    }

    static std::vector<char*> pointersTo(std::vector<std::string>& texts) {
        std::vector<char*> pointers;
        for (std::string& text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);
        return pointers;
    }

    static void becomeUser(const Start& start) {
        if (start.descriptorsMax) {
            const rlimit limit{*start.descriptorsMax, *start.descriptorsMax};
            ::setrlimit(RLIMIT_NOFILE, &limit);
        }
        if (!start.user) return;
        const bool isDone = ::setgroups(0, nullptr) == 0 &&
                            ::setresgid(*start.user, *start.user, *start.user) == 0 &&
                            ::setresuid(*start.user, *start.user, *start.user) == 0;
        if (!isDone) ::_exit(126);
    }

    int wait() {
        int status = 0;
        while (::waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
        }
        pid_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    pid_t pid_ = 0;
    UniqueFd input_;
    UniqueFd output_;
    std::string read_;
};

}  // namespace sevrin::platform
