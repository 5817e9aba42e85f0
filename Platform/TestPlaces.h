// For tests only: a home folder and a machine of a test's own, through the environment.
//
// The environment is the whole process's, so a test that has these must be alone in its process
// while it does; the test runner starts every test in a process of its own.
#pragma once

#include <stdlib.h>
#include <sys/wait.h>

#include <cstdio>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "Platform/TestFolder.h"

namespace sevrin::platform {

// A variable of the environment for the length of a test; nothing unsets it.
class ScopedVariable {
public:
    ScopedVariable(std::string name, const std::optional<std::string>& value)
        : name_(std::move(name)) {
        if (const char* before = ::getenv(name_.c_str())) before_ = before;
        set(value);
    }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;
    ~ScopedVariable() { set(before_); }

private:
    void set(const std::optional<std::string>& value) const {
        if (value) {
            ::setenv(name_.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name_.c_str());
        }
    }

    std::string name_;
    std::optional<std::string> before_;
};

class TestPlaces {
public:
    explicit TestPlaces(std::string_view parent = "/tmp")
        : folder_(parent),
          home_("CFFIXED_USER_HOME", folder_.makeFolder("home")),
          machine_("SEVRIN_LOCAL_ROOT", folder_.makeFolder("machine")) {}

    [[nodiscard]] const TestFolder& folder() const { return folder_; }
    [[nodiscard]] std::string home() const { return folder_ / "home"; }
    [[nodiscard]] std::string machine() const { return folder_ / "machine"; }

    // The file of a preference domain, the user's or the machine's.
    [[nodiscard]] std::string userFile(std::string_view domain) const {
        return home() + "/Library/Preferences/" + std::string(domain) + ".plist";
    }
    [[nodiscard]] std::string machineFile(std::string_view domain) const {
        return machine() + "/Library/Preferences/" + std::string(domain) + ".plist";
    }

private:
    TestFolder folder_;
    ScopedVariable home_;
    ScopedVariable machine_;
};

// Runs Python, which reads and writes property lists without any code of ours; `arguments` are in
// sys.argv. Gives what the program prints; throws when it fails.
inline std::string runPython(const std::string& program, const std::string& arguments = "") {
    const std::string command =
        "python3 -c 'import sys, plistlib, datetime, os\n" + program + "' " + arguments;
    FILE* const output = ::popen(command.c_str(), "r");
    if (output == nullptr) throw std::runtime_error("no python3");
    std::string printed;
    for (int byte = std::fgetc(output); byte != EOF; byte = std::fgetc(output))
        printed += static_cast<char>(byte);
    if (::pclose(output) != 0) throw std::runtime_error("python3 failed: " + printed);
    return printed;
}

// Writes a property list, given in Python's words, to a file whose folders it makes.
inline void writePropertyList(const std::string& path, const std::string& value) {
    runPython(
        "os.makedirs(os.path.dirname(sys.argv[1]), exist_ok=True)\n"
        "plistlib.dump(" +
            value + ", open(sys.argv[1], \"wb\"), fmt=plistlib.FMT_BINARY)",
        "'" + path + "'");
}

// What a property list holds, as Python prints it, keys in order.
inline std::string readPropertyList(const std::string& path) {
    return runPython("print(plistlib.load(open(sys.argv[1], \"rb\")), end=\"\")", "'" + path + "'");
}

}  // namespace sevrin::platform
