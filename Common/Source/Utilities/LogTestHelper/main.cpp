// A process of its own for the tests of the shared log file.
//
//     log-test-helper write NAME COUNT MAX two threads write at least COUNT lines each, of 10 to
//     MAX
//                                          bytes, and go on, slowly, until input ends:
//                                          "NAME.thread.number." and as many x as fit; then says
//                                          how many there were
//     log-test-helper rotate FOLDER        links every log file into FOLDER under a number and then
//                                          rotates, every 50 milliseconds until input ends, and
//                                          says so each time
//     log-test-helper listen               writes a line for each line of input, and hears of
//                                          rotations
//     log-test-helper announce             rotates where no other process hears it, and says how
//                                          often it was announced and what with; "shared" where
//                                          the system gives it no such place
//
// The others say "ready" on standard output when they have begun, and "written" for each line of
// input.
#include <sched.h>
#include <sys/select.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Common/Source/Utilities/LogFileLogger.h"
#include "Platform/DispatchQueue.h"
#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSRunLoop.h"

namespace sevrin {
namespace {

using platform::DispatchQueue;
using platform::NSRunLoop;

constexpr std::size_t kLineMin = 10;
constexpr std::chrono::milliseconds kRotationInterval{50};

void say(const std::string& word) {
    std::cout << word << std::endl;
}

// Runs the main run loop until `work` is done on another thread.
void serveUntilDone(const std::function<void()>& work) {
    std::thread worker([&] {
        work();
        DispatchQueue::mainQueue().async([] { NSRunLoop::currentRunLoop().stop(); });
    });
    NSRunLoop::currentRunLoop().run();
    worker.join();
}

// Gives the number of lines.
int writeLines(const std::string& name, int count, std::size_t sizeMax,
               const std::atomic<bool>& isEnded) {
    std::minstd_rand random(static_cast<unsigned>(std::hash<std::string>()(name)));
    int number = 0;
    for (; number < count || !isEnded; ++number) {
        std::string message = name + "." + std::to_string(number) + ".";
        const std::size_t size = kLineMin + random() % (sizeMax - kLineMin + 1);
        if (message.size() < size) message.append(size - message.size(), 'x');
        Logger::logMessage(LogClassification::Minutia, message);
        if (number >= count) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return number;
}

void write(const std::string& name, int count, std::size_t sizeMax) {
    serveUntilDone([&] {
        std::atomic<bool> isEnded = false;
        std::atomic<int> lines = 0;
        std::thread first([&] { lines += writeLines(name + ".1", count, sizeMax, isEnded); });
        std::thread second([&] { lines += writeLines(name + ".2", count, sizeMax, isEnded); });
        while (std::cin.get() != std::istream::traits_type::eof()) {
        }
        isEnded = true;
        first.join();
        second.join();
        say(std::to_string(lines));
    });
}

bool inputHasEnded() {
    fd_set input;
    FD_ZERO(&input);
    FD_SET(STDIN_FILENO, &input);
    timeval pause{.tv_sec = 0, .tv_usec = std::chrono::microseconds(kRotationInterval).count()};
    return ::select(STDIN_FILENO + 1, &input, nullptr, nullptr, &pause) > 0;
}

void rotate(const std::string& folder) {
    const LogFileLoggerPtr logger = LogFileLogger::make();
    const std::string current = logger->currentLogFilePath();
    for (int number = 0; !inputHasEnded(); ++number) {
        const std::string link = folder + "/" + std::to_string(number);
        if (::link(current.c_str(), link.c_str()) != 0) continue;
        logger->rotateLogKeeping(3);
        say("rotated");
    }
}

void listen() {
    serveUntilDone([] {
        for (std::string line; std::getline(std::cin, line);) {
            Logger::logMessage(LogClassification::Minutia, line);
            say("written");
        }
    });
}

bool write(const char* path, const std::string& text) {
    return static_cast<bool>(std::ofstream(path) << text << std::flush);
}

// Notifications travel within one network. An ordinary user gets one together with a world of users
// of its own, in which it has to be said who he is: nobody can post as nobody.
bool enterOwnNetwork() {
    if (::unshare(CLONE_NEWNET) == 0) return true;
    const std::string user = std::to_string(::geteuid());
    const std::string group = std::to_string(::getegid());
    return ::unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0 &&
           write("/proc/self/uid_map", user + ' ' + user + " 1") &&
           write("/proc/self/setgroups", "deny") &&
           write("/proc/self/gid_map", group + ' ' + group + " 1");
}

void announce() {
    if (!enterOwnNetwork()) return say("shared");
    constexpr std::chrono::milliseconds kForASecondOne{200};
    auto& center = platform::NSDistributedNotificationCenter::defaultCenter();
    std::string heard;
    const auto observer = center.addObserver(
        std::nullopt, std::nullopt, [&](const platform::NSNotification& notification) {
            heard += notification.name + " " + notification.object.value_or("none") + " " +
                     notification.userInfo.description() + ";";
            DispatchQueue::mainQueue().after(kForASecondOne,
                                             [] { NSRunLoop::currentRunLoop().stop(); });
        });
    LogFileLogger::make()->rotateLogKeeping(3);
    NSRunLoop::currentRunLoop().run();
    center.removeObserver(observer);
    say(heard);
}

int run(const std::vector<std::string>& words) {
    const std::string verb = words.size() > 1 ? words[1] : "";
    if (verb == "announce") {
        announce();
        return 0;
    }
    const LoggerPtr installed = Logger::defaultLogger();
    say("ready");
    if (verb == "write" && words.size() == 5) {
        write(words[2], std::atoi(words[3].c_str()), std::stoul(words[4]));
    } else if (verb == "rotate" && words.size() == 3) {
        rotate(words[2]);
    } else if (verb == "listen") {
        listen();
    } else {
        return 2;
    }
    return 0;
}

}  // namespace
}  // namespace sevrin

int main(int count, char** words) {
    return sevrin::run({words, words + count});
}
