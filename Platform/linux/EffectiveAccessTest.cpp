// The rights that are worked out, held against those that the kernel grants, as several users.
#include "Platform/linux/EffectiveAccess.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <vector>

#include "Platform/AttributeList.h"
#include "Platform/TestAttributes.h"
#include "Platform/TestMounts.h"
#include "Platform/UniqueFd.h"
#include "Platform/linux/OpenObject.h"

namespace sevrin::platform {
namespace {

constexpr uid_t kUser = 1234;
constexpr gid_t kGroup = 2345;
constexpr gid_t kOtherGroup = 3456;

std::uint32_t kernelsAnswer(int directory, const std::string& name) {
    std::uint32_t rights = 0;
    for (const int right : {R_OK, W_OK, X_OK}) {
        const int flags = AT_EACCESS | AT_SYMLINK_NOFOLLOW;
        if (::faccessat(directory, name.c_str(), right, flags) == 0) {
            rights |= static_cast<std::uint32_t>(right);
        }
    }
    return rights;
}

// The names in `folder` whose rights differ from the kernel's, with both; empty when all agree.
std::string differences(const std::string& folder, const std::vector<std::string>& names) {
    const UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory) return "cannot open the folder";
    EffectiveAccess access(directory.get());
    std::string result;
    for (const std::string& name : names) {
        struct statx stat {};
        if (::statx(directory.get(), name.c_str(), AT_SYMLINK_NOFOLLOW, kStatxFields, &stat) != 0) {
            return "cannot see " + name;
        }
        const std::uint32_t ours = access.of(directory.get(), name.c_str(), stat);
        const std::uint32_t theirs = kernelsAnswer(directory.get(), name);
        if (ours != theirs) {
            result += name + ": " + std::to_string(ours) + " not " + std::to_string(theirs) + '\n';
        }
    }
    return result;
}

// Runs `body` as another user in a process of its own; what it gives.
std::string asUser(uid_t user, gid_t group, const std::vector<gid_t>& groups,
                   const std::function<std::string()>& body) {
    int pipe[2];
    if (::pipe2(pipe, O_CLOEXEC) != 0) return "no pipe";
    const UniqueFd reading(pipe[0]);
    UniqueFd writing(pipe[1]);
    const pid_t child = ::fork();
    if (child == 0) {
        const bool isUser = ::setgroups(groups.size(), groups.data()) == 0 &&
                            ::setresgid(group, group, group) == 0 &&
                            ::setresuid(user, user, user) == 0;
        const std::string text = isUser ? body() : "cannot become the user";
        const ssize_t written = ::write(writing.get(), text.data(), text.size());
        ::_exit(written == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    writing.reset();
    std::string text;
    char buffer[4096];
    for (ssize_t size; (size = ::read(reading.get(), buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return status == 0 ? text : text + "the process failed";
}

// Files, folders and links of every owner, with every mode that tells classes apart.
std::vector<std::string> fill(const FileFolder& folder) {
    std::vector<std::string> names;
    for (const uid_t owner : {uid_t{0}, kUser}) {
        for (const gid_t group : {gid_t{0}, kGroup, kOtherGroup}) {
            for (const mode_t mode :
                 {0000U, 0007U, 0070U, 0700U, 0754U, 0642U, 0421U, 0124U, 0111U, 0666U}) {
                const std::string name = std::to_string(owner) + '-' + std::to_string(group) + '-' +
                                         std::to_string(mode);
                folder.file(name);
                folder.folder(name + 'd');
                for (const std::string& one : {name, name + 'd'}) {
                    EXPECT_EQ(::chown(folder.at(one).c_str(), owner, group), 0);
                    EXPECT_EQ(::chmod(folder.at(one).c_str(), mode), 0);
                    names.push_back(one);
                }
            }
        }
    }
    folder.link("link", "nowhere");
    names.emplace_back("link");
    EXPECT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    return names;
}

// Gives `kUser` the right to read, by a list beside the mode bits, which then grant nothing more.
bool addAcl(const std::string& path) {
    constexpr unsigned char kList[] = {2,    0, 0, 0,                           // version
                                       1,    0, 6, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // owner
                                       2,    0, 4, 0, 0xD2, 0x04, 0,    0,      // kUser
                                       4,    0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // group
                                       0x10, 0, 6, 0, 0xFF, 0xFF, 0xFF, 0xFF,   // mask
                                       0x20, 0, 2, 0, 0xFF, 0xFF, 0xFF, 0xFF};  // others
    return ::setxattr(path.c_str(), "system.posix_acl_access", kList, sizeof kList, 0) == 0;
}

TEST(EffectiveAccessTest, RightsAreThoseOfTheKernelForEveryUser) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become other users";
    const FileFolder folder;
    const std::vector<std::string> names = fill(folder);
    const auto compare = [&] { return differences(folder.path(), names); };

    EXPECT_EQ(compare(), "");
    EXPECT_EQ(asUser(kUser, kGroup, {}, compare), "");
    EXPECT_EQ(asUser(kUser, kUser, {kGroup, kOtherGroup}, compare), "");
    EXPECT_EQ(asUser(5555, 5555, {}, compare), "");
    EXPECT_EQ(asUser(5555, kOtherGroup, {5555}, compare), "");
}

TEST(EffectiveAccessTest, AnAccessControlListDecidesWhereThereIsOne) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become other users";
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const FileFolder inner(mounts.mountMemory("place", 0, "mode=0755"));
    ASSERT_EQ(::chmod(inner.path().c_str(), 0755), 0);
    const std::vector<std::string> names = {"listed", "plain"};
    for (const std::string& name : names)
        inner.file(name);
    if (!addAcl(inner.at("listed"))) GTEST_SKIP() << "no access control lists here";
    const auto compare = [&] { return differences(inner.path(), names); };

    EXPECT_EQ(asUser(kUser, kUser, {}, compare), "");
    EXPECT_EQ(asUser(5555, 5555, {}, compare), "");
    EXPECT_EQ(compare(), "");
}

TEST(EffectiveAccessTest, NothingIsWrittenOnAReadOnlyMount) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place");
    mounts.write("place/file");
    mounts.makeFolder("place/folder");
    mounts.makeLink("file", "place/link");
    ASSERT_EQ(::mkfifo((place + "/pipe").c_str(), 0600), 0);
    TestMounts::makeReadOnly(place);

    EXPECT_EQ(differences(place, {"file", "folder", "link", "pipe"}), "");
    // Seen from above, the mount point is the volume's root.
    EXPECT_EQ(differences(mounts.path(), {"place"}), "");
}

TEST(EffectiveAccessTest, NoFileIsExecutedOnAMountThatForbidsIt) {
    TestMounts mounts;
    SEVRIN_SKIP_WITHOUT(mounts);
    const std::string place = mounts.mountMemory("place", MS_NOEXEC);
    ASSERT_EQ(::chmod(mounts.write("place/file").c_str(), 0755), 0);
    mounts.makeFolder("place/folder");

    EXPECT_EQ(differences(place, {"file", "folder"}), "");
}

TEST(EffectiveAccessTest, WhatIsImmutableIsNotWrittenByRoot) {
    const FileFolder folder;
    const std::string path = folder.file("locked");
    const attrlist flags = listOf(ATTR_CMN_FLAGS);
    std::uint32_t value = SF_IMMUTABLE;
    if (setattrlist(path.c_str(), &flags, &value, sizeof value, 0) != 0) {
        GTEST_SKIP() << "needs root and a file system with flags";
    }

    EXPECT_EQ(differences(folder.path(), {"locked"}), "");

    value = 0;
    EXPECT_EQ(setattrlist(path.c_str(), &flags, &value, sizeof value, 0), 0);
}

TEST(EffectiveAccessTest, RootWithoutItsPrivilegesIsAUserLikeAnyOther) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    const FileFolder folder;
    const std::vector<std::string> names = fill(folder);

    EXPECT_EQ(asUser(0, 0, {},
                     [&] {
                         __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
                         const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
                         if (::syscall(SYS_capset, &header, none) != 0) {
                             return std::string("cannot drop privileges");
                         }
                         return differences(folder.path(), names);
                     }),
              "");
}

TEST(EffectiveAccessTest, InsideAUserNamespaceTheKernelIsAsked) {
    const FileFolder folder;
    const std::vector<std::string> names = {"mine", "locked"};
    for (const std::string& name : names)
        folder.file(name);
    ASSERT_EQ(::chmod(folder.at("locked").c_str(), 0), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(folder.at("locked").c_str(), kUser, kGroup), 0);
    }
    int status = -1;
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWUSER) != 0) ::_exit(77);
        ::_exit(differences(folder.path(), names).empty() ? 0 : 1);
    }
    ::waitpid(child, &status, 0);
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "user namespaces are not permitted here";

    EXPECT_EQ(status, 0);
}

TEST(EffectiveAccessTest, ADescriptorsOwnObjectIsAskedWithAnEmptyName) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    const UniqueFd object = openObject(path.c_str(), false);
    struct statx stat {};
    ASSERT_TRUE(statObject(object.get(), kStatxFields, stat));

    EXPECT_EQ(EffectiveAccess(object.get()).of(object.get(), "", stat),
              static_cast<std::uint32_t>(R_OK | W_OK));
}

}  // namespace
}  // namespace sevrin::platform
