// A child process for tests that need a second one, if asked under another user.
//
// Either a function run in a fork of the test, which must keep to system calls because the parent's
// threads and loops are not there; or this very test program started afresh in a role: a test file
// that offers roles registers a testing::Environment that looks at role() before any test runs.
// The child's standard input and output are pipes to the test. No child outlives its TestChild.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Platform/UniqueFd.h"

namespace sevrin::test {

class TestChild {
public:
    static constexpr uid_t kNobody = 65534;
    static constexpr const char* kRoleVariable = "SEVRIN_TEST_ROLE";

    // Whether this process may start children under other users.
    [[nodiscard]] static bool mayChangeUser() { return ::geteuid() == 0; }

    // The role that this process was started in, or nullptr.
    [[nodiscard]] static const char* role() { return std::getenv(kRoleVariable); }

    // A fork that runs `body`, as `user` if given, and ends with the status that it returns.
    [[nodiscard]] static TestChild running(const std::function<int()>& body,
                                           std::optional<uid_t> user = std::nullopt) {
        UniqueFd toChild[2], fromChild[2];
        openPipe(toChild);
        openPipe(fromChild);
        const pid_t process = ::fork();
        if (process < 0) throw std::runtime_error("fork");
        if (process == 0) {
            ::dup2(toChild[0].get(), STDIN_FILENO);
            ::dup2(fromChild[1].get(), STDOUT_FILENO);
            if (user && (::setgid(*user) != 0 || ::setuid(*user) != 0)) ::_exit(111);
            for (UniqueFd* end : {&toChild[1], &fromChild[0]})
                end->reset();
            ::_exit(body());
        }
        return TestChild(process, std::move(toChild[1]), std::move(fromChild[0]));
    }

    // This test program again, playing `role`.
    [[nodiscard]] static TestChild playing(const std::string& role,
                                           std::optional<uid_t> user = std::nullopt) {
        return running(
            [&] {
                ::setenv(kRoleVariable, role.c_str(), 1);
                ::execl("/proc/self/exe", "child", static_cast<char*>(nullptr));
                return 112;
            },
            user);
    }

    TestChild(TestChild&& other) noexcept
        : process_(std::exchange(other.process_, 0)),
          input_(std::move(other.input_)),
          output_(std::move(other.output_)) {}
    TestChild& operator=(TestChild&&) = delete;

    ~TestChild() {
        if (process_ == 0) return;
        ::kill(process_, SIGKILL);
        wait();
    }

    [[nodiscard]] pid_t process() const { return process_; }

    // The next line that the child writes, without its end; nothing once it writes no more.
    [[nodiscard]] std::optional<std::string> readLine() {
        std::string line;
        for (char byte = 0; ::read(output_.get(), &byte, 1) == 1;) {
            if (byte == '\n') return line;
            line += byte;
        }
        return std::nullopt;
    }

    // Skips what the child writes until it writes `line`. False when it ends before.
    [[nodiscard]] bool waitForLine(const std::string& line) {
        while (const std::optional<std::string> read = readLine()) {
            if (read == line) return true;
        }
        return false;
    }

    // Ends what the child reads from its standard input.
    void closeInput() { input_.reset(); }

    // The child's exit status, or minus the signal that ended it.
    int wait() {
        int status = 0;
        while (::waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    using UniqueFd = platform::UniqueFd;

    TestChild(pid_t process, UniqueFd input, UniqueFd output)
        : process_(process), input_(std::move(input)), output_(std::move(output)) {}

    static void openPipe(UniqueFd (&ends)[2]) {
        int descriptors[2];
        if (::pipe2(descriptors, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
        for (int end = 0; end < 2; ++end)
            ends[end].reset(descriptors[end]);
    }

    pid_t process_;
    UniqueFd input_;
    UniqueFd output_;
};

}  // namespace sevrin::test
