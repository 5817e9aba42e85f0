// Making and removing the folders of the directory benchmark.
#include "bench/DirectoryFolder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/UniqueFd.h"

namespace sevrin::bench {

namespace {

using platform::UniqueFd;

constexpr std::int64_t kFilesPerFolder = 100;
constexpr std::int64_t kFoldersPerFolder = 100;

// The name of a file: the number in it is far from that of the file before.
std::string nameOf(std::int64_t index) {
    constexpr std::int64_t kPrime = 7919;
    constexpr std::int64_t kNumbers = 10'000'000;
    const std::string number = std::to_string(index * kPrime % kNumbers);
    switch (index % 4) {
        case 0:
            return "IMG_" + number + ".JPG";
        case 1:
            return "Screenshot " + number + ".png";
        case 2:
            return number + " report.txt";
        default:
            return "lib" + number.substr(0, 2) + "-v" + number + ".so";
    }
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error("cannot make " + what);
}

UniqueFd openFolder(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace

DirectoryFolder::DirectoryFolder(const std::string& parent) : path_(parent + "/directory-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) fail("a folder in " + parent);
}

DirectoryFolder::DirectoryFolder(DirectoryFolder&& other) noexcept
    : path_(std::exchange(other.path_, {})), entries_(other.entries_) {}

DirectoryFolder::~DirectoryFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

int DirectoryFolder::makeFolder(int parent, const std::string& name) {
    if (::mkdirat(parent, name.c_str(), 0755) != 0) fail(name);
    ++entries_;
    return ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

void DirectoryFolder::makeFiles(int folder, std::int64_t first, std::int64_t count) {
    for (std::int64_t i = first; i < first + count; ++i) {
        const std::string name = nameOf(i);
        const UniqueFd file(::openat(folder, name.c_str(), O_CREAT | O_EXCL | O_CLOEXEC, 0644));
        if (!file) fail(name);
        ++entries_;
    }
}

DirectoryFolder DirectoryFolder::flat(const std::string& parent, std::int64_t count) {
    DirectoryFolder made(parent);
    made.makeFiles(openFolder(made.path_).get(), 0, count);
    return made;
}

DirectoryFolder DirectoryFolder::tree(const std::string& parent, std::int64_t count) {
    DirectoryFolder made(parent);
    const UniqueFd top = openFolder(made.path_);
    UniqueFd above;
    std::int64_t folders = 0;
    for (std::int64_t done = 0; done < count; done += kFilesPerFolder, ++folders) {
        const std::string name = "folder " + std::to_string(folders);
        if (folders % kFoldersPerFolder == 0) above.reset(made.makeFolder(top.get(), name));
        const UniqueFd folder(made.makeFolder(above.get(), name));
        made.makeFiles(folder.get(), done, std::min(kFilesPerFolder, count - done));
    }
    return made;
}

}  // namespace sevrin::bench
