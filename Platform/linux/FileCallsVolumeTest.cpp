// Tests of the single calls on file systems of several kinds.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "Platform/FileCalls.h"
#include "Platform/TestMounts.h"

namespace sevrin::platform {
namespace {

class FileCallsVolumeTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override { SEVRIN_SKIP_WITHOUT(mounts_); }

    [[nodiscard]] std::string write(const std::string& name) const {
        const std::string path = volume_ + "/" + name;
        std::ofstream(path) << name;
        return path;
    }
    static std::string read(const std::string& path) {
        std::string content;
        std::ifstream(path) >> content;
        return content;
    }

    TestMounts mounts_;
    const std::string volume_ = mounts_.mountKind("volume", GetParam());
};

TEST_P(FileCallsVolumeTest, TheBitsOfASizeAreThoseThatTheFileSystemKeeps) {
    const long expected = std::string(GetParam()) == "vfat" ? 33 : 64;

    EXPECT_EQ(platform::pathconf(volume_.c_str(), _PC_FILESIZEBITS), expected);
}

TEST_P(FileCallsVolumeTest, SwappingSwapsOrSaysThatItIsNotSupportedAndChangesNothing) {
    const std::string a = write("a");
    const std::string b = write("b");

    const int result = renamex_np(a.c_str(), b.c_str(), RENAME_SWAP);

    if (result != 0) {
        EXPECT_EQ(errno, ENOTSUP);
    }
    EXPECT_EQ(read(a), result == 0 ? "b" : "a");
    EXPECT_EQ(read(b), result == 0 ? "a" : "b");
}

TEST_P(FileCallsVolumeTest, AnExclusiveRenameNeverReplaces) {
    const std::string a = write("a");
    const std::string b = write("b");

    EXPECT_EQ(renamex_np(a.c_str(), b.c_str(), RENAME_EXCL), -1);
    EXPECT_TRUE(errno == EEXIST || errno == ENOTSUP);

    EXPECT_EQ(read(a), "a");
    EXPECT_EQ(read(b), "b");
}

INSTANTIATE_TEST_SUITE_P(Kinds, FileCallsVolumeTest,
                         testing::Values("tmpfs", "ramfs", "ext4", "xfs", "btrfs", "vfat"),
                         [](const auto& test) { return std::string(test.param); });

}  // namespace
}  // namespace sevrin::platform
