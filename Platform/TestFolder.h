// For tests only: a temporary folder of a test's own, and short words for what is done in it.
//
// The folder lies in /tmp, or where `parent` says, and goes with all that it holds. Paths are given
// relative to it.
#pragma once

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sevrin::platform {

class TestFolder {
public:
    explicit TestFolder(std::string_view parent = "/tmp")
        : path_(std::string(parent) + "/sevrin-test.XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary folder");
    }
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    ~TestFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string operator/(std::string_view name) const {
        return path_ + "/" + std::string(name);
    }

    // Makes a file; answers its path.
    std::string write(std::string_view name, std::string_view content = "") const {
        std::ofstream(*this / name, std::ios::binary) << content;
        return *this / name;
    }
    [[nodiscard]] std::string read(std::string_view name) const {
        std::ifstream file(*this / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::string makeFolder(std::string_view name) const {
        if (::mkdir((*this / name).c_str(), 0755) != 0) throw std::runtime_error("no folder");
        return *this / name;
    }
    std::string makeLink(std::string_view text, std::string_view name) const {
        if (::symlink(std::string(text).c_str(), (*this / name).c_str()) != 0)
            throw std::runtime_error("no link");
        return *this / name;
    }

    // Whether something is there; a link is not followed.
    [[nodiscard]] bool has(std::string_view name) const {
        struct stat found {};
        return ::lstat((*this / name).c_str(), &found) == 0;
    }
    [[nodiscard]] struct stat attributes(std::string_view name) const {
        struct stat found {};
        if (::lstat((*this / name).c_str(), &found) != 0) throw std::runtime_error("nothing there");
        return found;
    }

private:
    std::string path_;
};

}  // namespace sevrin::platform
