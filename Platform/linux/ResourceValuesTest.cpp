// Tests of the resource values that Linux keeps in places of its own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>

#include <string>

#include "Platform/NSURL.h"
#include "Platform/TestFolder.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

Value isExcluded(const std::string& path) {
    return std::get<Value>(
        NSURL::fileURLWithPath(path)->resourceValueForKey(NSURLIsExcludedFromBackupKey));
}

TEST(ResourceValuesTest, TheFlagNoDumpExcludesFromBackup) {
    const TestFolder folder;
    const std::string path = folder.write("file");
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int flags = FS_NODUMP_FL;
    if (::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) != 0)
        GTEST_SKIP() << "the file system has no flags";

    EXPECT_EQ(isExcluded(path), Value(true));
}

TEST(ResourceValuesTest, TheAttributeExcludesFromBackupOnlyWhenItSaysFalse) {
    const TestFolder folder;
    const std::string path = folder.write("file");
    for (const auto& [text, expected] : {std::pair<std::string, bool>{"false", true},
                                         {"true", false},
                                         {"false!", false},
                                         {"", false}}) {
        if (::lsetxattr(path.c_str(), "user.xdg.robots.backup", text.data(), text.size(), 0) != 0)
            GTEST_SKIP() << "the file system has no extended attributes";

        EXPECT_EQ(isExcluded(path), Value(expected)) << text;
    }
}

TEST(ResourceValuesTest, IncludingAgainClearsFlagAndAttribute) {
    const TestFolder folder;
    const std::string path = folder.write("file");
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int flags = FS_NODUMP_FL;
    if (::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) != 0 ||
        ::lsetxattr(path.c_str(), "user.xdg.robots.backup", "false", 5, 0) != 0) {
        GTEST_SKIP() << "the file system has no flags or no extended attributes";
    }

    const NSURLPtr url = NSURL::fileURLWithPath(path);
    EXPECT_EQ(url->setResourceValueForKey(false, NSURLIsExcludedFromBackupKey), nullptr);

    EXPECT_EQ(isExcluded(path), Value(false));
}

TEST(ResourceValuesTest, ALinkCannotBeExcludedAndItsTargetStaysAsItIs) {
    const TestFolder folder;
    const std::string target = folder.write("file");
    const NSURLPtr url = NSURL::fileURLWithPath(folder.makeLink("file", "link"));

    EXPECT_EQ(url->setResourceValueForKey(true, NSURLIsExcludedFromBackupKey)->code(), ENOTSUP);

    EXPECT_EQ(isExcluded(target), Value(false));
}

}  // namespace
}  // namespace sevrin::platform
