// A child process that runs another program.
//
// Set up by one thread, launched once; from then on any thread may ask and wait. A child that was
// launched is collected as soon as it ends, whether or not anybody asks how, so it never stays
// behind as a zombie. Dropping the task does not end the child.
//
// The child starts clean: it has the standard input, output and error of this process (or what the
// task was given instead), no other descriptor however it was opened, no blocked signal and no
// changed signal handling. It has this process's environment, working directory, process group and
// user.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NSPipe.h"

namespace sevrin::platform {

class NSTask {
public:
    // How a child ended. Unknown: somebody else in this process waited for it, or the process
    // ignores its children.
    enum class TerminationReason { Exit, UncaughtSignal, Unknown };

    NSTask();
    NSTask(const NSTask&) = delete;
    NSTask& operator=(const NSTask&) = delete;
    ~NSTask();

    // The path of the program; no search along PATH. Before launch().
    void setLaunchPath(std::string path) { launchPath_ = std::move(path); }
    [[nodiscard]] const std::string& launchPath() const noexcept { return launchPath_; }

    // What the program gets as its arguments; its path is put before them. Before launch().
    void setArguments(std::vector<std::string> arguments) { arguments_ = std::move(arguments); }
    [[nodiscard]] const std::vector<std::string>& arguments() const noexcept { return arguments_; }

    // What becomes the child's standard output; nullptr, as at first, for this process's own.
    // Before launch().
    void setStandardOutput(std::shared_ptr<NSPipe> pipe) { standardOutput_ = std::move(pipe); }
    [[nodiscard]] const std::shared_ptr<NSPipe>& standardOutput() const noexcept {
        return standardOutput_;
    }

    // Starts the child and returns once it runs the program. Closes this process's writing end of
    // the standard output, also when it throws: whoever reads it learns of its end in any case.
    // Throws std::system_error that names the program and says why it cannot be started: no such
    // file, no permission, no program, a NUL within a text, or no process or thread to be had.
    // Launching twice is a bug.
    void launch();

    // The child's process number; 0 before a successful launch().
    [[nodiscard]] int processIdentifier() const noexcept;

    // Whether the child was started and has not ended yet.
    [[nodiscard]] bool isRunning() const;

    // Returns when the child has ended; at once when it was never started.
    void waitUntilExit() const;

    // The exit status, or the number of the signal that ended the child; -1 if Unknown. To be asked
    // of a child that has ended; anything else is a bug.
    [[nodiscard]] int terminationStatus() const;
    [[nodiscard]] TerminationReason terminationReason() const;

private:
    class Child;

    std::string launchPath_;
    std::vector<std::string> arguments_;
    std::shared_ptr<NSPipe> standardOutput_;
    std::shared_ptr<Child> child_;  // Since the launch; shared with the thread that waits for it.
};

}  // namespace sevrin::platform
