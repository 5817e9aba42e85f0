// Starting a program with posix_spawn, and a thread per child that waits for it.
//
// The thread comes before the child and starts it: no child can be there for which nobody waits,
// not even when the system has no thread left. It waits for that child alone, so whoever else in
// this process has children keeps them.
#include "Platform/NSTask.h"

#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "Platform/Assertion.h"

namespace sevrin::platform {
namespace {

// What posix_spawn changes between fork and exec.
class SpawnSettings {
public:
    // `output` becomes the standard output, if there is one.
    explicit SpawnSettings(std::optional<int> output) {
        note(::posix_spawn_file_actions_init(&actions_));
        note(::posix_spawnattr_init(&attributes_));
        if (output) note(::posix_spawn_file_actions_adddup2(&actions_, *output, STDOUT_FILENO));
        note(::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));

        sigset_t signals;
        ::sigfillset(&signals);
        note(::posix_spawnattr_setsigdefault(&attributes_, &signals));
        ::sigemptyset(&signals);
        note(::posix_spawnattr_setsigmask(&attributes_, &signals));
        note(::posix_spawnattr_setflags(&attributes_,
                                        POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        ::posix_spawnattr_destroy(&attributes_);
        ::posix_spawn_file_actions_destroy(&actions_);
    }

    // Starts a program with these settings; gives 0 or the number of the error.
    [[nodiscard]] int spawn(std::vector<std::string>& words, pid_t& pid) const {
        if (error_ != 0) return error_;
        std::vector<char*> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        return ::posix_spawn(&pid, arguments[0], &actions_, &attributes_, arguments.data(),
                             environ);
    }

private:
    void note(int error) {
        if (error_ == 0) error_ = error;
    }

    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
    int error_ = 0;  // The first one: a child without one of the settings must not be started.
};

bool hasNul(const std::string& text) {
    return text.find('\0') != std::string::npos;
}

}  // namespace

// One child, from before its start to after its end.
class NSTask::Child {
public:
    // Starts `words[0]` with `words`, on a thread that stays with the child, and returns when it is
    // started. Gives 0 or the number of the error.
    static int start(const std::shared_ptr<Child>& child, std::vector<std::string>& words,
                     std::optional<int> output) {
        try {
            std::thread([child, &words, output] { child->live(words, output); }).detach();
        } catch (const std::system_error& noThread) {
            return noThread.code().value();
        }
        std::unique_lock lock(child->mutex_);
        child->changed_.wait(lock, [&] { return child->stage_ != Stage::New; });
        return child->error_;
    }

    [[nodiscard]] pid_t pid() const {
        const std::lock_guard lock(mutex_);
        return pid_;
    }

    [[nodiscard]] bool isRunning() const {
        const std::lock_guard lock(mutex_);
        return stage_ == Stage::Running;
    }

    void waitForEnd() const {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stage_ != Stage::Running; });
    }

    // The reason and the number that goes with it.
    [[nodiscard]] std::pair<TerminationReason, int> termination() const {
        const std::lock_guard lock(mutex_);
        SEVRIN_ASSERT(stage_ == Stage::Ended && pid_ != 0, "a task that has ended was asked");
        return {reason_, status_};
    }

private:
    enum class Stage { New, Running, Ended };

    // The whole of the thread. `words` are the starter's, who waits until the child is started.
    void live(std::vector<std::string>& words, std::optional<int> output) noexcept {
        // Signals for the process are handled on its other threads.
        sigset_t signals;
        ::sigfillset(&signals);
        ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        ::pthread_setname_np(::pthread_self(), "task");

        pid_t pid = 0;
        const int error = SpawnSettings(output).spawn(words, pid);
        {
            const std::lock_guard lock(mutex_);
            error_ = error;
            pid_ = error == 0 ? pid : 0;
            stage_ = error == 0 ? Stage::Running : Stage::Ended;
            changed_.notify_all();
        }
        if (error == 0) wait(pid);
    }

    void wait(pid_t pid) {
        int status = 0;
        pid_t ended = 0;
        do {
            ended = ::waitpid(pid, &status, 0);
        } while (ended < 0 && errno == EINTR);

        const std::lock_guard lock(mutex_);
        if (ended == pid && WIFEXITED(status)) {
            reason_ = TerminationReason::Exit;
            status_ = WEXITSTATUS(status);
        } else if (ended == pid) {
            reason_ = TerminationReason::UncaughtSignal;
            status_ = WTERMSIG(status);
        }
        stage_ = Stage::Ended;
        changed_.notify_all();
    }

    mutable std::mutex mutex_;  // Guards what follows.
    mutable std::condition_variable changed_;
    Stage stage_ = Stage::New;
    int error_ = 0;
    pid_t pid_ = 0;
    TerminationReason reason_ = TerminationReason::Unknown;
    int status_ = -1;
};

NSTask::NSTask() = default;
NSTask::~NSTask() = default;

void NSTask::launch() {
    SEVRIN_ASSERT(!child_, "a task is launched once");
    child_ = std::make_shared<Child>();

    struct WritingEnd {
        NSPipe* pipe;
        ~WritingEnd() {
            if (pipe) pipe->fileHandleForWriting()->closeFile();
        }
    };
    const WritingEnd writingEnd{standardOutput_.get()};
    std::optional<int> output;
    if (standardOutput_) output = standardOutput_->fileHandleForWriting()->fileDescriptor();

    std::vector<std::string> words{launchPath_};
    words.insert(words.end(), arguments_.begin(), arguments_.end());
    const int error = std::any_of(words.begin(), words.end(), hasNul)
                          ? EINVAL
                          : Child::start(child_, words, output);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), "cannot start " + launchPath_);
}

int NSTask::processIdentifier() const noexcept {
    return child_ ? child_->pid() : 0;
}

bool NSTask::isRunning() const {
    return child_ && child_->isRunning();
}

void NSTask::waitUntilExit() const {
    if (child_) child_->waitForEnd();
}

int NSTask::terminationStatus() const {
    SEVRIN_ASSERT(child_, "a task that has ended was asked");
    return child_->termination().second;
}

NSTask::TerminationReason NSTask::terminationReason() const {
    SEVRIN_ASSERT(child_, "a task that has ended was asked");
    return child_->termination().first;
}

}  // namespace sevrin::platform
