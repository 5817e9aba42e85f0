// Tests of moving, copying and removing trees: what Linux keeps with a file, trees of any depth,
// volumes of several kinds, and folders that change under way.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <signal.h>
#include <sys/fsuid.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Platform/ACL.h"
#include "Platform/NSFileManager.h"
#include "Platform/NSURL.h"
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

std::string attributeOf(const std::string& path, const char* name) {
    char value[256];
    const ssize_t size = ::lgetxattr(path.c_str(), name, value, sizeof value);
    return size < 0 ? "none" : std::string(value, static_cast<std::size_t>(size));
}

bool setAttribute(const std::string& path, const char* name, std::string_view value) {
    return ::lsetxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
}

constexpr std::string_view kList(
    "\x02\0\0\0\x01\0\x06\0\xff\xff\xff\xff\x02\0\x04\0\xe8\x03\0\0\x04\0\x04\0\xff\xff\xff\xff"
    "\x10\0\x06\0\xff\xff\xff\xff\x20\0\0\0\xff\xff\xff\xff",
    44);

bool hasACL(const std::string& path) {
    const acl_t acl = acl_get_link_np(path.c_str(), ACL_TYPE_EXTENDED);
    acl_free(acl);
    return acl != nullptr;
}

// Where many steps take little time.
std::string fastPlace() {
    return std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
}

// --- What a copy keeps.

TEST(TreeCopyTest, ExtendedAttributesAreKept) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file");
    const std::string large(2000, 'v');
    if (!setAttribute(folder / "a", "user.of.folder", "1") ||
        !setAttribute(folder / "a/file", "user.large", large)) {
        GTEST_SKIP() << "the file system has no extended attributes";
    }

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_EQ(attributeOf(folder / "b", "user.of.folder"), "1");
    char value[4000];
    EXPECT_EQ(::lgetxattr((folder / "b/file").c_str(), "user.large", value, sizeof value), 2000);
}

TEST(TreeCopyTest, AccessControlListsAreKept) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file");
    if (!setAttribute(folder / "a/file", "system.posix_acl_access", kList) ||
        !setAttribute(folder / "a", "system.posix_acl_default", kList)) {
        GTEST_SKIP() << "the file system has no access control lists";
    }

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_EQ(attributeOf(folder / "b/file", "system.posix_acl_access"), kList);
    EXPECT_EQ(attributeOf(folder / "b", "system.posix_acl_default"), kList);
    EXPECT_FALSE(hasACL(folder.path()));
}

TEST(TreeCopyTest, ACopyHasTheRightsOfItsSourceAndNotOfItsNewFolder) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/inner");
    folder.write("a/inner/file");
    folder.write("file");
    ::chmod((folder / "file").c_str(), 0640);
    folder.makeFolder("heir");
    if (!setAttribute(folder / "heir", "system.posix_acl_default", kList))
        GTEST_SKIP() << "the file system has no access control lists";

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "heir/a"), nullptr);
    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "file", folder / "heir/file"), nullptr);

    for (const char* name : {"heir/a", "heir/a/inner", "heir/a/inner/file", "heir/file"})
        EXPECT_FALSE(hasACL(folder / name)) << name;
    EXPECT_EQ(folder.attributes("heir/file").st_mode & 07777U, 0640U);
}

// Root gets everywhere, so the test is another user as far as files are concerned.
TEST(TreeCopyTest, AListThatKeepsEvenTheOwnerOutDoesNotHinderACopy) {
    constexpr uid_t kUser = 1234;
    constexpr std::string_view kNoRights(
        "\x02\0\0\0\x01\0\0\0\xff\xff\xff\xff\x04\0\0\0\xff\xff\xff\xff"
        "\x20\0\0\0\xff\xff\xff\xff",
        28);
    const TestFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/inner");
    folder.write("a/inner/file", "x");
    folder.makeFolder("heir");
    if (!setAttribute(folder / "heir", "system.posix_acl_default", kNoRights))
        GTEST_SKIP() << "the file system has no access control lists";
    if (::geteuid() == 0) {
        for (const char* name : {"", "a", "a/inner", "a/inner/file", "heir"})
            ASSERT_EQ(::chown((folder / name).c_str(), kUser, kUser), 0);
        ::setfsuid(kUser);
    }

    const auto error = manager().copyItemAtPathToPath(folder / "a", folder / "heir/a");

    if (::geteuid() == 0) ::setfsuid(0);
    EXPECT_EQ(error, nullptr) << (error ? error->description() : "");
    EXPECT_EQ(folder.read("heir/a/inner/file"), "x");
    EXPECT_EQ(folder.attributes("heir/a").st_mode & 07777U, 0755U);
}

TEST(TreeCopyTest, OwnersAndLentRightsAreKeptByRoot) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can give files away";
    const TestFolder folder;
    folder.makeFolder("a");
    folder.write("a/file");
    folder.makeLink("file", "a/link");
    ASSERT_EQ(::chown((folder / "a/file").c_str(), 1234, 2345), 0);
    ASSERT_EQ(::chmod((folder / "a/file").c_str(), 06755), 0);
    ASSERT_EQ(::lchown((folder / "a/link").c_str(), 1234, 2345), 0);

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_EQ(folder.attributes("b/file").st_uid, 1234U);
    EXPECT_EQ(folder.attributes("b/file").st_gid, 2345U);
    EXPECT_EQ(folder.attributes("b/file").st_mode & 07777U, 06755U);
    EXPECT_EQ(folder.attributes("b/link").st_uid, 1234U);
}

// Runs `work` as another user in a process of its own; whether it answered true.
bool asAnotherUser(const std::function<bool()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isOther = ::setgid(4321) == 0 && ::setuid(4321) == 0;
        ::_exit(isOther && work() ? 0 : 1);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

TEST(TreeCopyTest, ACopyThatCannotKeepItsOwnerLendsNoRights) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    const TestFolder folder;
    ::chmod(folder.path().c_str(), 0777);
    ::chmod(folder.write("a").c_str(), 06755);

    EXPECT_TRUE(asAnotherUser(
        [&] { return manager().copyItemAtPathToPath(folder / "a", folder / "b") == nullptr; }));

    EXPECT_EQ(folder.attributes("b").st_uid, 4321U);
    EXPECT_EQ(folder.attributes("b").st_mode & 07777U, 0755U);
}

TEST(TreeCopyTest, WhatMayNotBeReadIsNamedAndNothingStays) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    const TestFolder folder;
    ::chmod(folder.path().c_str(), 0777);
    folder.makeFolder("a");
    folder.write("a/public");
    ::chmod(folder.write("a/secret").c_str(), 0600);

    EXPECT_TRUE(asAnotherUser([&] {
        const NSErrorPtr error = manager().copyItemAtPathToPath(folder / "a", folder / "b");
        return codeOf(error) == EACCES &&
               *error->userInfo().find(NSFilePathErrorKey) == Value(folder / "a/secret");
    }));

    EXPECT_FALSE(folder.has("b"));
    EXPECT_TRUE(folder.has("a/public"));
}

TEST(TreeCopyTest, HolesStayHoles) {
    const TestFolder folder;
    const std::string path = folder.write("a");
    const UniqueFd file(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    constexpr off_t kSize = 16 << 20;
    ASSERT_EQ(::pwrite(file.get(), "begin", 5, 0), 5);
    ASSERT_EQ(::pwrite(file.get(), "middle", 6, kSize / 2), 6);
    ASSERT_EQ(::ftruncate(file.get(), kSize), 0);
    ASSERT_EQ(::fsync(file.get()), 0);
    ASSERT_LT(folder.attributes("a").st_blocks * 512, kSize / 4);

    ASSERT_EQ(manager().copyItemAtPathToPath(path, folder / "b"), nullptr);

    EXPECT_EQ(folder.attributes("b").st_size, kSize);
    EXPECT_LT(folder.attributes("b").st_blocks * 512, kSize / 4);
    EXPECT_EQ(folder.read("b"), folder.read("a"));
}

TEST(TreeCopyTest, NamesOfOneFileAreNamesOfOneCopy) {
    const TestFolder folder;
    folder.makeFolder("a");
    folder.makeFolder("a/deep");
    folder.makeFolder("a/deep/er");
    folder.write("a/first", "content");
    for (const char* name : {"a/second", "a/deep/third", "a/deep/er/fourth", "outside"})
        ASSERT_EQ(::link((folder / "a/first").c_str(), (folder / name).c_str()), 0);

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    const struct stat first = folder.attributes("b/first");
    EXPECT_EQ(first.st_nlink, 4U);
    EXPECT_NE(first.st_ino, folder.attributes("a/first").st_ino);
    for (const char* name : {"b/second", "b/deep/third", "b/deep/er/fourth"})
        EXPECT_EQ(folder.attributes(name).st_ino, first.st_ino) << name;
    EXPECT_EQ(folder.read("b/deep/er/fourth"), "content");
}

TEST(TreeCopyTest, SpecialFilesAreCopiedAndNotRead) {
    const TestFolder folder;
    folder.makeFolder("a");
    ASSERT_EQ(::mkfifo((folder / "a/pipe").c_str(), 0640), 0);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (folder / "a/socket").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const bool hasDevice =
        ::mknod((folder / "a/device").c_str(), S_IFCHR | 0600, ::makedev(1, 3)) == 0;

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_TRUE(S_ISFIFO(folder.attributes("b/pipe").st_mode));
    EXPECT_EQ(folder.attributes("b/pipe").st_mode & 07777U, 0640U);
    EXPECT_TRUE(S_ISSOCK(folder.attributes("b/socket").st_mode));
    if (hasDevice) {
        EXPECT_TRUE(S_ISCHR(folder.attributes("b/device").st_mode));
        EXPECT_EQ(folder.attributes("b/device").st_rdev, ::makedev(1, 3));
    }
}

TEST(TreeCopyTest, ALinkKeepsItsTime) {
    const TestFolder folder;
    folder.makeLink("nowhere", "a");
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 9}};
    ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "a").c_str(), times, AT_SYMLINK_NOFOLLOW), 0);

    ASSERT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_EQ(folder.attributes("b").st_mtim.tv_sec, 1'000'000'000);
    EXPECT_EQ(folder.attributes("b").st_mtim.tv_nsec, 9);
}

TEST(TreeCopyTest, WhatTheOwnerExcludesFromBackupStaysExcluded) {
    const TestFolder folder;
    const std::string path = folder.write("a");
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    const int flags = FS_NODUMP_FL;
    if (::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) != 0)
        GTEST_SKIP() << "the file system has no flags";

    ASSERT_EQ(manager().copyItemAtPathToPath(path, folder / "b"), nullptr);

    EXPECT_EQ(std::get<Value>(NSURL::fileURLWithPath(folder / "b")
                                  ->resourceValueForKey(NSURLIsExcludedFromBackupKey)),
              Value(true));
}

TEST(TreeCopyTest, FilesThatHideTheirSizeAreCopied) {
    const TestFolder folder;

    ASSERT_EQ(manager().copyItemAtPathToPath("/proc/self/limits", folder / "copy"), nullptr);

    EXPECT_TRUE(folder.read("copy").starts_with("Limit"));
}

// --- Trees of any depth.

// Makes `depth` folders within each other, a file in the last; longer than any path may be.
void makeDeepTree(const std::string& top, int depth, const std::string& name) {
    ASSERT_EQ(::mkdir(top.c_str(), 0755), 0);
    UniqueFd folder(::open(top.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(::mkdirat(folder.get(), name.c_str(), 0755), 0);
        folder.reset(::openat(folder.get(), name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
    const UniqueFd file(::openat(folder.get(), "leaf", O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    ASSERT_EQ(::write(file.get(), "deep", 4), 4);
}

TEST(TreeTest, TreesDeeperThanDescriptorsAndPathsAreCopiedAndRemoved) {
    const TestFolder folder(fastPlace());
    const std::string name(40, 'd');
    constexpr int kDepth = 2500;
    makeDeepTree(folder / "a", kDepth, name);
    std::string leaf = folder / "b";
    for (int i = 0; i < kDepth; ++i)
        leaf += "/" + name;
    leaf += "/leaf";

    EXPECT_EQ(manager().copyItemAtPathToPath(folder / "a", folder / "b"), nullptr);

    EXPECT_TRUE(manager().fileExistsAtPath(leaf));
    EXPECT_EQ(manager().copyItemAtPathToPath(leaf, folder / "leaf"), nullptr);
    EXPECT_EQ(folder.read("leaf"), "deep");
    EXPECT_EQ(manager().moveItemAtPathToPath(leaf, folder / "moved"), nullptr);
    EXPECT_EQ(manager().removeItemAtPath(folder / "a"), nullptr);
    EXPECT_EQ(manager().removeItemAtPath(folder / "b"), nullptr);
    EXPECT_FALSE(folder.has("a"));
    EXPECT_FALSE(folder.has("b"));
}

TEST(TreeTest, PathsAroundTheLongestAreTaken) {
    const TestFolder folder;
    for (const std::size_t size : {4094U, 4095U, 4096U, 4097U, 5000U}) {
        std::string path = folder / "t";
        while (path.size() + 202 < size)
            path += "/" + std::string(200, 'x');
        path += "/" + std::string(size - path.size() - 1, 'y');
        ASSERT_EQ(path.size(), size);

        ASSERT_EQ(manager().createDirectoryAtPath(path, true), nullptr) << size;

        bool isDirectory = false;
        EXPECT_TRUE(manager().fileExistsAtPathIsDirectory(path, isDirectory)) << size;
        EXPECT_EQ(manager().removeItemAtPath(path), nullptr) << size;
        EXPECT_FALSE(manager().fileExistsAtPath(path)) << size;
        EXPECT_EQ(manager().removeItemAtPath(folder / "t"), nullptr) << size;
    }
}

// --- Between volumes.

TEST(TreeMoveTest, AMoveToAnotherVolumeTakesEverythingAlong) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.makeFolder("a");
    folder.write("a/file", "content");
    folder.makeLink("file", "a/link");
    ASSERT_EQ(::link((folder / "a/file").c_str(), (folder / "a/other").c_str()), 0);

    ASSERT_EQ(manager().moveItemAtPathToPath(folder / "a", volume + "/b"), nullptr);

    EXPECT_FALSE(folder.has("a"));
    EXPECT_TRUE(manager().fileExistsAtPath(volume + "/b/link"));
    struct stat found {};
    ASSERT_EQ(::lstat((volume + "/b/other").c_str(), &found), 0);
    EXPECT_EQ(found.st_nlink, 2U);
}

TEST(TreeMoveTest, AMoveToAnotherVolumeRefusesWhatIsThere) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.write("a", "a");
    ASSERT_EQ(manager().createFileAtPath(volume + "/b", "b"), nullptr);

    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "a", volume + "/b")), EEXIST);

    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_EQ(std::filesystem::file_size(volume + "/b"), 1U);
}

TEST(TreeMoveTest, AFullVolumeGetsNothingAndTheSourceStays) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountMemory("volume");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.makeFolder("a");
    folder.write("a/small", "small");
    folder.write("a/large", std::string(4 << 20, 'x'));

    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "a", volume + "/a")), ENOSPC);
    EXPECT_EQ(codeOf(manager().copyItemAtPathToPath(folder / "a", volume + "/a")), ENOSPC);

    EXPECT_EQ(folder.read("a/small"), "small");
    EXPECT_EQ(folder.attributes("a/large").st_size, 4 << 20);
    EXPECT_TRUE(std::filesystem::is_empty(volume));
}

TEST(TreeMoveTest, AVolumeThatIsReadOnlyGetsAndGivesNothing) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.write("a", "a");
    ASSERT_EQ(manager().createFileAtPath(volume + "/b", "b"), nullptr);
    TestMounts::makeReadOnly(volume);

    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "a", volume + "/a")), EROFS);
    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(volume + "/b", folder / "b")), EROFS);

    EXPECT_EQ(folder.read("a"), "a");
    EXPECT_FALSE(folder.has("b"));
    EXPECT_TRUE(manager().fileExistsAtPath(volume + "/b"));
}

TEST(TreeRemovalTest, AMountedVolumeInATreeIsNotEmptied) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "tmpfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.makeFolder("a");
    folder.makeFolder("a/mount");
    ASSERT_EQ(manager().createFileAtPath(volume + "/kept", "kept"), nullptr);
    mounts.bind(volume, folder / "a/mount");

    EXPECT_EQ(codeOf(manager().removeItemAtPath(folder / "a")), EBUSY);
    EXPECT_EQ(codeOf(manager().removeItemAtPath(folder / "a/mount")), EBUSY);

    EXPECT_TRUE(folder.has("a/mount/kept"));
    ::umount2((folder / "a/mount").c_str(), MNT_DETACH);
}

// Whether the first extent of the file is shared with another one.
bool isShared(const std::string& path) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    alignas(fiemap) char space[sizeof(fiemap) + sizeof(fiemap_extent)] = {};
    auto* map = reinterpret_cast<fiemap*>(space);
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_flags = FIEMAP_FLAG_SYNC;
    map->fm_extent_count = 1;
    if (::ioctl(file.get(), FS_IOC_FIEMAP, map) != 0 || map->fm_mapped_extents == 0) return false;
    return (map->fm_extents[0].fe_flags & FIEMAP_EXTENT_SHARED) != 0;
}

TEST(TreeCopyTest, StorageIsSharedWhereTheFileSystemCan) {
    bool wasTried = false;
    for (const char* kind : {"btrfs", "xfs"}) {
        TestMounts mounts;
        const std::string volume = mounts.mountKind("volume", kind);
        if (!mounts) continue;
        wasTried = true;
        const std::string path = volume + "/a";
        const std::string content(1 << 20, 'x');
        ASSERT_EQ(manager().createFileAtPath(path, content), nullptr);

        ASSERT_EQ(manager().copyItemAtPathToPath(path, path + "2"), nullptr);

        EXPECT_TRUE(isShared(path + "2")) << kind;
        EXPECT_EQ(std::filesystem::file_size(path + "2"), content.size()) << kind;
    }
    if (!wasTried) GTEST_SKIP() << "no file system that shares can be made here";
}

TEST(TreeMoveTest, WhatAVolumeCannotHoldKeepsTheSourceWhereItIs) {
    const TestFolder folder;
    TestMounts mounts;
    const std::string volume = mounts.mountKind("volume", "ramfs");
    SEVRIN_SKIP_WITHOUT(mounts);
    folder.write("a", "a");
    if (!setAttribute(folder / "a", "user.note", "kept"))
        GTEST_SKIP() << "no extended attributes here";
    const std::string to = volume + "/a";
    ASSERT_EQ(manager().createFileAtPath(to, ""), nullptr);
    if (setAttribute(to, "user.note", "x")) GTEST_SKIP() << "every volume here has attributes";
    ASSERT_EQ(manager().removeItemAtPath(to), nullptr);

    EXPECT_EQ(codeOf(manager().moveItemAtPathToPath(folder / "a", to)), ENOTSUP);
    EXPECT_EQ(attributeOf(folder / "a", "user.note"), "kept");
    EXPECT_FALSE(manager().fileExistsAtPath(to));

    EXPECT_EQ(manager().copyItemAtPathToPath(folder / "a", to), nullptr);
    EXPECT_TRUE(manager().fileExistsAtPath(to));
}

// --- Folders that somebody swaps for links meanwhile.

// A process that exchanges the folder `a/inner` for a link to `outside`, and back, as fast as it
// can, and makes anew what somebody removes.
class Swapper {
public:
    explicit Swapper(const TestFolder& folder) : child_(::fork()) {
        if (child_ != 0) return;
        const std::string inner = folder / "a/inner";
        const std::string spare = folder / "spare";
        const std::string outside = folder / "outside";
        for (;;) {
            if (::renameat2(AT_FDCWD, inner.c_str(), AT_FDCWD, spare.c_str(), RENAME_EXCHANGE) == 0)
                continue;
            ::unlink((spare + "/file").c_str());
            ::rmdir(spare.c_str());
            ::unlink(spare.c_str());
            static_cast<void>(::symlink(outside.c_str(), spare.c_str()) == 0);
            ::mkdir((folder / "a").c_str(), 0755);
            ::mkdir(inner.c_str(), 0755);
            ::close(::open((inner + "/file").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
        }
    }
    Swapper(const Swapper&) = delete;
    Swapper& operator=(const Swapper&) = delete;
    ~Swapper() {
        ::kill(child_, SIGKILL);
        ::waitpid(child_, nullptr, 0);
    }

private:
    const pid_t child_;
};

TEST(TreeRemovalTest, AFolderThatIsSwappedForALinkDoesNotLeadOutOfTheTree) {
    const TestFolder folder(fastPlace());
    folder.makeFolder("outside");
    folder.write("outside/kept");
    const Swapper swapper(folder);

    for (int i = 0; i < 1000 && folder.has("outside/kept"); ++i) {
        while (!folder.has("a/inner/file") && !folder.has("a/inner/kept"))
            ::sched_yield();
        static_cast<void>(manager().removeItemAtPath(folder / "a"));
    }

    EXPECT_TRUE(folder.has("outside/kept"));
}

TEST(TreeCopyTest, AFolderThatIsSwappedForALinkIsNotCopiedFromOutside) {
    const TestFolder folder(fastPlace());
    folder.makeFolder("outside");
    folder.write("outside/secret");
    folder.makeFolder("a");
    const Swapper swapper(folder);

    int copies = 0;
    for (int i = 0; i < 3000; ++i) {
        if (manager().copyItemAtPathToPath(folder / "a", folder / "b") != nullptr) continue;
        ++copies;
        struct stat found {};
        const bool isFolder =
            ::lstat((folder / "b/inner").c_str(), &found) == 0 && S_ISDIR(found.st_mode);
        ASSERT_FALSE(isFolder && folder.has("b/inner/secret"));
        ASSERT_EQ(manager().removeItemAtPath(folder / "b"), nullptr);
    }
    EXPECT_GT(copies, 0);
    EXPECT_TRUE(folder.has("outside/secret"));
}

}  // namespace
}  // namespace sevrin::platform
