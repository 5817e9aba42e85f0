// Reading packed records of attributes in tests, one field after the other, and the folders they
// are about.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Platform/AttributeList.h"

namespace sevrin::platform {

// Takes the fields of a record in their order.
class RecordReader {
public:
    explicit RecordReader(const void* record) : at_(static_cast<const char*>(record)) {}

    template <class T>
    T take() {
        T value;
        std::memcpy(&value, at_, sizeof value);
        at_ += sizeof value;
        return value;
    }

    // The text that the reference here points to; its length must count exactly its one NUL.
    std::string takeText() {
        const char* reference = at_;
        const auto where = take<attrreference_t>();
        if (where.attr_length == 0) return {};
        const char* text = reference + where.attr_dataoffset;
        EXPECT_EQ(std::strlen(text) + 1, where.attr_length);
        return text;
    }

    // Bytes from `record` to here.
    [[nodiscard]] std::size_t distanceFrom(const void* record) const {
        return static_cast<std::size_t>(at_ - static_cast<const char*>(record));
    }

private:
    const char* at_;
};

inline bool operator==(const attribute_set_t& a, const attribute_set_t& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// A list that asks for the groups given.
inline attrlist listOf(attrgroup_t commonAttributes, attrgroup_t directory = 0,
                       attrgroup_t file = 0, attrgroup_t volume = 0) {
    return {ATTR_BIT_MAP_COUNT, 0, commonAttributes, volume, directory, file, 0};
}

inline constexpr std::size_t kBufferSize = 16384;
using AttributeBuffer = std::array<char, kBufferSize>;

// A folder of the test's own with what tests put into one; removed with all that is in it.
class FileFolder {
public:
    explicit FileFolder(const std::string& parent = "/tmp") : path_(parent + "/sevrin-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder");
    }
    FileFolder(const FileFolder&) = delete;
    FileFolder& operator=(const FileFolder&) = delete;
    ~FileFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] std::string at(const std::string& name) const { return path_ + '/' + name; }

    // A file with `content`; its path.
    std::string file(const std::string& name, const std::string& content = "") const {
        std::ofstream(at(name)) << content;
        return at(name);
    }

    std::string folder(const std::string& name) const {
        EXPECT_EQ(::mkdir(at(name).c_str(), 0755), 0);
        return at(name);
    }

    std::string link(const std::string& name, const std::string& target) const {
        EXPECT_EQ(::symlink(target.c_str(), at(name).c_str()), 0);
        return at(name);
    }

private:
    std::string path_;
};

inline struct stat statOf(const std::string& path) {
    struct stat stat {};
    EXPECT_EQ(::lstat(path.c_str(), &stat), 0);
    return stat;
}

}  // namespace sevrin::platform
