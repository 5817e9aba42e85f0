// A bootstrap folder of the test's own, for the length of the test.
//
// Changes the environment of the process, so only one may exist at a time.
#pragma once

#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace sevrin::platform {

// Sets a variable of the environment, or unsets it, until it goes.
class EnvironmentChange {
public:
    EnvironmentChange(const char* name, const std::optional<std::string>& value) : name_(name) {
        if (const char* former = ::getenv(name)) former_ = former;
        apply(value);
    }
    EnvironmentChange(const EnvironmentChange&) = delete;
    EnvironmentChange& operator=(const EnvironmentChange&) = delete;
    ~EnvironmentChange() { apply(former_); }

private:
    void apply(const std::optional<std::string>& value) {
        if (value) {
            ::setenv(name_, value->c_str(), 1);
        } else {
            ::unsetenv(name_);
        }
    }

    const char* name_;
    std::optional<std::string> former_;
};

// A new folder under /tmp that everybody may enter; removed with all that is in it.
class TestFolder {
public:
    TestFolder() {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder");
        ::chmod(path_.c_str(), 0755);
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    std::string path_ = "/tmp/sevrin-test-XXXXXX";
};

}  // namespace sevrin::platform
