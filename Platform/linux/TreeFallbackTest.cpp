// Tests of moving and copying where the kernel or the file system cannot do what they usually can.
//
// A child process has a filter refuse system calls to it, as an old kernel or a simple file system
// would, and does the work.
#include <gtest/gtest.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/fs.h>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "Platform/NSFileManager.h"
#include "Platform/TestFolder.h"
#include "Platform/TestMounts.h"
#include "Platform/UniqueFd.h"

namespace sevrin::platform {
namespace {

const NSFileManager& manager() {
    return NSFileManager::defaultManager();
}

std::int64_t codeOf(const NSErrorPtr& error) {
    return error ? error->code() : 0;
}

// From here on the system call fails with `error` in this process, for good.
bool refuse(long call, int error) {
    sock_filter steps[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(steps)), steps};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Whether `work` answers true in a child to which the calls are refused.
bool withoutCalls(const std::vector<std::pair<long, int>>& calls,
                  const std::function<bool()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        bool isFine = true;
        for (const auto& [call, error] : calls)
            isFine = isFine && refuse(call, error);
        ::_exit(isFine && work() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(TreeFallbackTest, AMoveRefusesWhatIsThereAlsoWhereARenameCannot) {
    const TestFolder folder;
    folder.write("a", "a");
    folder.write("b", "b");
    folder.makeFolder("c");
    folder.write("c/inside");
    folder.makeFolder("empty");

    for (const int error : {EINVAL, ENOSYS}) {
        EXPECT_TRUE(withoutCalls({{SYS_renameat2, error}}, [&] {
            return codeOf(manager().moveItemAtPathToPath(folder / "a", folder / "b")) == EEXIST &&
                   codeOf(manager().moveItemAtPathToPath(folder / "c", folder / "empty")) ==
                       EEXIST &&
                   codeOf(manager().moveItemAtPathToPath(folder / "c", folder / "c/d")) == EINVAL &&
                   manager().moveItemAtPathToPath(folder / "a", folder / "x") == nullptr &&
                   manager().moveItemAtPathToPath(folder / "x", folder / "a") == nullptr &&
                   manager().moveItemAtPathToPath(folder / "c", folder / "y") == nullptr &&
                   manager().moveItemAtPathToPath(folder / "y", folder / "c") == nullptr;
        })) << error;
    }

    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_EQ(folder.read("b"), "b");
    EXPECT_TRUE(folder.has("c/inside"));
    EXPECT_FALSE(folder.has("c/d"));
    EXPECT_FALSE(folder.has("x"));
    EXPECT_FALSE(folder.has("y"));
}

TEST(TreeFallbackTest, ContentIsCopiedThroughMemoryWhereTheKernelCannot) {
    const TestFolder folder;
    const std::string content = std::string(700'001, 'x') + "end";
    folder.write("a", content);
    const std::string path = folder.write("holes", "begin");
    ASSERT_EQ(::truncate(path.c_str(), 5 << 20), 0);

    EXPECT_TRUE(withoutCalls({{SYS_copy_file_range, ENOSYS}}, [&] {
        return manager().copyItemAtPathToPath(folder / "a", folder / "b") == nullptr &&
               manager().copyItemAtPathToPath(folder / "holes", folder / "holes2") == nullptr;
    }));

    EXPECT_EQ(folder.read("b"), content);
    EXPECT_EQ(folder.read("holes2"), folder.read("holes"));
}

TEST(TreeFallbackTest, AFileSystemThatCannotLinkGetsACopyForEachName) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/first", "content");
    ASSERT_EQ(::link((folder / "a/first").c_str(), (folder / "a/second").c_str()), 0);

    EXPECT_TRUE(withoutCalls({{SYS_linkat, EPERM}}, [&] {
        return manager().copyItemAtPathToPath(folder / "a", folder / "b") == nullptr;
    }));

    EXPECT_EQ(folder.read("b/first"), "content");
    EXPECT_EQ(folder.read("b/second"), "content");
}

TEST(TreeFallbackTest, AMoveWhoseCopyCannotBeWrittenToTheDiskLeavesTheSource) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.makeFolder("a");
    folder.write("a/file", "content");

    EXPECT_TRUE(withoutCalls({{SYS_syncfs, EIO}}, [&] {
        return codeOf(manager().moveItemAtPathToPath(folder / "a", volume + "/a")) == EIO;
    }));

    EXPECT_EQ(folder.read("a/file"), "content");
    EXPECT_TRUE(std::filesystem::is_empty(volume));
}

TEST(TreeFallbackTest, AMoveThatCannotRemoveAnythingTakesItsCopyBack) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.makeFolder("a");
    const UniqueFd file(::open(folder.write("a/file", "content").c_str(), O_RDONLY | O_CLOEXEC));
    const int flags = FS_IMMUTABLE_FL;
    if (::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) != 0)
        GTEST_SKIP() << "the file system has no flags";

    const NSErrorPtr error = manager().moveItemAtPathToPath(folder / "a", volume + "/a");

    const int none = 0;
    ::ioctl(file.get(), FS_IOC_SETFLAGS, &none);
    EXPECT_EQ(codeOf(error), EPERM);
    EXPECT_EQ(*error->userInfo().find(NSFilePathErrorKey), Value(folder / "a/file"));
    EXPECT_EQ(folder.read("a/file"), "content");
    EXPECT_TRUE(std::filesystem::is_empty(volume));
}

// The write happens when the copy is being written to the disk: a filter cannot do that, but a
// second process that waits for the copy can.
TEST(TreeFallbackTest, WhatIsWrittenWhileAMoveRunsIsNeverLost) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    int lost = 0;
    for (int round = 0; round < 50; ++round) {
        folder.makeFolder("a");
        for (int i = 0; i < 20; ++i)
            folder.write("a/" + std::to_string(i), "old");
        const pid_t child = ::fork();
        if (child == 0) {
            const UniqueFd inside(::open((folder / "a").c_str(), O_RDONLY | O_CLOEXEC));
            for (int i = 0; i < 10'000 && inside; ++i) {
                const UniqueFd late(
                    ::openat(inside.get(), "late", O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
                if (late) ::_exit(0);
            }
            ::_exit(1);
        }
        static_cast<void>(manager().moveItemAtPathToPath(folder / "a", volume + "/a"));
        int status = 0;
        ::waitpid(child, &status, 0);
        const bool wasWritten = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        const bool isThere = folder.has("a/late") || manager().fileExistsAtPath(volume + "/a/late");
        lost += wasWritten && !isThere ? 1 : 0;
        static_cast<void>(manager().removeItemAtPath(folder / "a"));
        static_cast<void>(manager().removeItemAtPath(volume + "/a"));
    }

    EXPECT_EQ(lost, 0);
}

TEST(TreeFallbackTest, OnlyTheLettersOfANameMayChangeWhereTheyMeanTheSame) {
    TestMounts mounts;
    const std::string path = mounts.mountImage("volume", "xfs -q -n version=ci");
    SEVRIN_SKIP_WITHOUT(mounts);
    ASSERT_EQ(manager().createFileAtPath(path + "/name", "content"), nullptr);
    ASSERT_EQ(manager().createFileAtPath(path + "/other", ""), nullptr);

    EXPECT_EQ(manager().moveItemAtPathToPath(path + "/name", path + "/NAME"), nullptr);

    EXPECT_EQ(std::filesystem::directory_iterator(path)->path().filename(), "NAME");
    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(path + "/NAME", path + "/OTHER")), EEXIST);
}

TEST(TreeFallbackTest, TwoNamesOfOneFileThatDifferInLettersAreTwoItems) {
    const TestFolder folder;
    folder.write("name", "content");
    ASSERT_EQ(::link((folder / "name").c_str(), (folder / "NAME").c_str()), 0);

    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "name", folder / "NAME")), EEXIST);

    EXPECT_TRUE(folder.has("name"));
    EXPECT_TRUE(folder.has("NAME"));
}

}  // namespace
}  // namespace sevrin::platform
