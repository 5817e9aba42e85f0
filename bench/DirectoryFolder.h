// The folders that the directory benchmark lists: made of empty files, removed at the end.
//
// Names are like those that cameras, builds and people give. A folder goes with its object.
#pragma once

#include <cstdint>
#include <string>

namespace sevrin::bench {

class DirectoryFolder {
public:
    // `count` files in one new folder within `parent`. Throws std::runtime_error.
    static DirectoryFolder flat(const std::string& parent, std::int64_t count);

    // `count` files in folders of a hundred, a hundred of those in each folder above.
    static DirectoryFolder tree(const std::string& parent, std::int64_t count);

    DirectoryFolder(DirectoryFolder&& other) noexcept;
    DirectoryFolder& operator=(DirectoryFolder&&) = delete;
    ~DirectoryFolder();

    [[nodiscard]] const std::string& path() const { return path_; }

    // Everything in it, folders too.
    [[nodiscard]] std::int64_t entries() const { return entries_; }

private:
    explicit DirectoryFolder(const std::string& parent);
    [[nodiscard]] int makeFolder(int parent, const std::string& name);
    void makeFiles(int folder, std::int64_t first, std::int64_t count);

    std::string path_;
    std::int64_t entries_ = 0;
};

}  // namespace sevrin::bench
