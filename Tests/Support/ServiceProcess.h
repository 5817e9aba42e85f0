// The switchboard program as a child process, with folders of its own, so that a test neither meets
// nor disturbs the switchboards of the machine.
//
// The program's path comes from the build as SEVRIN_SWITCHBOARD_PROGRAM. Run by root, a test may
// start it as root or as an ordinary user; otherwise as the test's own user only.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/UniqueFd.h"
#include "Tests/Support/TestChild.h"

namespace sevrin::test {

// A private folder that holds the home folder and the bootstrap folder of one service; removed with
// everything in it.
class ServiceFolder {
public:
    explicit ServiceFolder(uid_t owner) {
        std::string name = std::filesystem::temp_directory_path() / "sevrin-service-XXXXXX";
        if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp " + name);
        path_ = name;
        for (const std::string& folder : {path_, home(), bootstrap()}) {
            ::mkdir(folder.c_str(), 0700);
            if (::chown(folder.c_str(), owner, static_cast<gid_t>(-1)) != 0)
                throw std::runtime_error("chown " + folder);
        }
    }
    ~ServiceFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ServiceFolder(const ServiceFolder&) = delete;
    ServiceFolder& operator=(const ServiceFolder&) = delete;

    [[nodiscard]] std::string home() const { return path_ + "/home"; }
    [[nodiscard]] std::string bootstrap() const { return path_ + "/bootstrap"; }
    [[nodiscard]] std::string logFile() const { return home() + "/Library/Logs/Sevrin/Sevrin.log"; }

private:
    std::string path_;
};

class ServiceProcess {
public:
    static constexpr std::chrono::seconds kPatience{60};

    // Starts the program with `arguments` as `user`, whose folders are in `folder`. What it writes
    // to the console is read with readLine().
    ServiceProcess(const ServiceFolder& folder, const std::vector<std::string>& arguments,
                   uid_t user)
        : child_(start(folder, arguments, user)) {}

    // Whether the program has come as far as to sleep in its run loop, its signal handlers
    // installed; false when it ended before.
    [[nodiscard]] bool waitUntilReady() const {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (std::chrono::steady_clock::now() < deadline) {
            const std::optional<Status> status = mainThreadStatus();
            if (!status) return false;
            if (status->isAsleep && ((status->caughtSignals >> (SIGTERM - 1)) & 1)) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return false;
    }

    void signal(int number) const { ::kill(child_.process(), number); }

    // The exit status, or minus the signal that ended it.
    int wait() { return child_.wait(); }

    // The next line on the console; nothing once the program has ended.
    [[nodiscard]] std::optional<std::string> readLine() { return child_.readLine(); }

    [[nodiscard]] pid_t process() const { return child_.process(); }

private:
    static TestChild start(const ServiceFolder& folder, const std::vector<std::string>& arguments,
                           uid_t user) {
        // Opened here: the user may not be allowed into the build folder.
        const platform::UniqueFd program(::open(SEVRIN_SWITCHBOARD_PROGRAM, O_RDONLY | O_CLOEXEC));
        if (!program) throw std::runtime_error("cannot open " SEVRIN_SWITCHBOARD_PROGRAM);

        std::vector<char*> words{const_cast<char*>("switchboard")};
        for (const std::string& argument : arguments)
            words.push_back(const_cast<char*>(argument.c_str()));
        words.push_back(nullptr);
        const auto run = [&] {
            ::setenv("CFFIXED_USER_HOME", folder.home().c_str(), 1);
            ::setenv("SEVRIN_BOOTSTRAP_DIR", folder.bootstrap().c_str(), 1);
            ::unsetenv("JOURNAL_STREAM");
            ::dup2(STDOUT_FILENO, STDERR_FILENO);
            ::fexecve(program.get(), words.data(), environ);
            return 112;
        };
        const bool isOther = user != ::geteuid();
        return TestChild::running(run, isOther ? std::optional(user) : std::nullopt);
    }

    struct Status {
        bool isAsleep = false;
        std::uint64_t caughtSignals = 0;  // a bit for each, the lowest for signal 1
    };

    // What the kernel says about the main thread; nothing once the program has ended.
    [[nodiscard]] std::optional<Status> mainThreadStatus() const {
        std::ifstream file("/proc/" + std::to_string(child_.process()) + "/status");
        Status status;
        std::string word;
        while (file >> word) {
            if (word == "State:") {
                file >> word;
                if (word == "Z") return std::nullopt;
                status.isAsleep = word == "S";
            } else if (word == "SigCgt:") {
                file >> std::hex >> status.caughtSignals;
                return status;
            }
        }
        return std::nullopt;
    }

    TestChild child_;
};

}  // namespace sevrin::test
