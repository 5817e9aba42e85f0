// A process of its own for the tests of preferences that need one: to be killed, to run as somebody
// else, to write at the same time.
//
//     preferences-test-helper home                        prints the home folder and the machine's
//     preferences-test-helper set DOMAIN KEY TEXT         writes one value
//     preferences-test-helper get DOMAIN KEY              prints one value
//     preferences-test-helper rewrite DOMAIN              writes three values that belong together,
//                                                         again and again, for ever
//     preferences-test-helper count DOMAIN KEY TIMES      writes the numbers from 1 on under KEY1,
//                                                         KEY2, ..., each by itself
//     preferences-test-helper hold PATH                   takes the lock and keeps it until input
//                                                         ends
//
// What the files do wrong it says on standard output.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Platform/CFPreferences.h"
#include "Platform/PathString.h"
#include "Platform/SearchPath.h"
#include "Platform/linux/PatientFileLock.h"

namespace sevrin::platform {
namespace {

int set(const std::string& domain, const std::string& key, const std::string& text) {
    CFPreferencesSetAppValue(key, text, domain);
    return CFPreferencesAppSynchronize(domain) ? 0 : 1;
}

int rewrite(const std::string& domain) {
    std::cout << "begins" << std::endl;
    for (int number = 1;; ++number) {
        CFPreferencesSetAppValue("first", number, domain);
        CFPreferencesSetAppValue("text", std::string(20'000, static_cast<char>('a' + number % 26)),
                                 domain);
        CFPreferencesSetAppValue("last", number, domain);
        if (!CFPreferencesAppSynchronize(domain)) return 1;
    }
}

int count(const std::string& domain, const std::string& key, int times) {
    for (int number = 1; number <= times; ++number) {
        CFPreferencesSetAppValue(key + std::to_string(number), number, domain);
        if (!CFPreferencesAppSynchronize(domain)) return 1;
    }
    return 0;
}

int hold(const std::string& path) {
    const auto lock = PatientFileLock::acquire(path, std::chrono::milliseconds(0));
    if (!lock) return 1;
    std::cout << "held" << std::endl;
    char byte;
    while (::read(STDIN_FILENO, &byte, 1) > 0) {
    }
    return 0;
}

int run(const std::vector<std::string>& words) {
    CFPreferencesSetFaultReporter([](const std::string& what) { std::cout << what << std::endl; });
    const std::string verb = words.size() > 1 ? words[1] : "";
    if (verb == "home") {
        std::cout << homeDirectory() << "\n" << localRoot() << std::endl;
        // A check for leaks at the end would attach to the process, which one that is set-user-id
        // refuses.
        ::_exit(0);
    }
    if (verb == "set" && words.size() == 5) return set(words[2], words[3], words[4]);
    if (verb == "get" && words.size() == 4) {
        std::cout << CFPreferencesCopyAppValue(words[3], words[2]).description() << std::endl;
        return 0;
    }
    if (verb == "rewrite" && words.size() == 3) return rewrite(words[2]);
    if (verb == "count" && words.size() == 5) return count(words[2], words[3], std::stoi(words[4]));
    if (verb == "hold" && words.size() == 3) return hold(words[2]);
    return 2;
}

}  // namespace
}  // namespace sevrin::platform

int main(int count, char** words) {
    return sevrin::platform::run({words, words + count});
}
