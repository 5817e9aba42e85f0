// Tests of access control lists; they are given by the attributes in which the kernel keeps them.
#include "Platform/ACL.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <cerrno>
#include <memory>
#include <string>

#include "Platform/TestFolder.h"

namespace sevrin::platform {
namespace {

using OwnedACL = std::unique_ptr<ACL, decltype(&acl_free)>;

OwnedACL extendedACL(const std::string& path) {
    return {acl_get_link_np(path.c_str(), ACL_TYPE_EXTENDED), &acl_free};
}

// user::rw- user:1000:r-- group::r-- mask::r-- other::---
constexpr char kList[] =
    "\x02\0\0\0"
    "\x01\0\x06\0\xff\xff\xff\xff"
    "\x02\0\x04\0\xe8\x03\0\0"
    "\x04\0\x04\0\xff\xff\xff\xff"
    "\x10\0\x04\0\xff\xff\xff\xff"
    "\x20\0\0\0\xff\xff\xff\xff";
constexpr char kText[] = "user::rw-\nuser:1000:r--\ngroup::r--\nmask::r--\nother::---\n";

class ACLTest : public testing::Test {
protected:
    // Gives the item a list, or skips the test where there are none.
    void give(const std::string& path, const char* attribute = "system.posix_acl_access") {
        if (::lsetxattr(path.c_str(), attribute, kList, sizeof kList - 1, 0) != 0 &&
            errno == ENOTSUP) {
            GTEST_SKIP() << "the file system of " << path << " has no access control lists";
        }
    }

    const TestFolder folder_;
};

TEST_F(ACLTest, ModeBitsAloneAreNoList) {
    folder_.write("file");
    ::chmod((folder_ / "file").c_str(), 0751);

    EXPECT_EQ(extendedACL(folder_ / "file"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(extendedACL(folder_.path()), nullptr);
}

TEST_F(ACLTest, NothingThereHasNoList) {
    EXPECT_EQ(extendedACL(folder_ / "missing"), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(extendedACL(folder_.write("file") + "/below"), nullptr);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(ACLTest, AnEntryForAnotherUserIsAList) {
    give(folder_.write("file"));

    const OwnedACL acl = extendedACL(folder_ / "file");

    ASSERT_TRUE(acl);
    EXPECT_EQ(acl_to_text(*acl), kText);
}

TEST_F(ACLTest, ALinkHasNoListAlthoughItsTargetHas) {
    give(folder_.write("file"));
    folder_.makeLink("file", "link");

    EXPECT_EQ(extendedACL(folder_ / "link"), nullptr);
}

TEST_F(ACLTest, WhatAFolderHandsOnIsPartOfItsList) {
    give(folder_.makeFolder("folder"), "system.posix_acl_default");

    const OwnedACL acl = extendedACL(folder_ / "folder");

    ASSERT_TRUE(acl);
    EXPECT_TRUE(acl_to_text(*acl).starts_with("default:user::rw-\ndefault:user:1000:r--\n"));
}

TEST_F(ACLTest, AListIsGivenToAnotherItemAndTakenAway) {
    give(folder_.write("file"));
    const std::string other = folder_.write("other");
    const OwnedACL acl = extendedACL(folder_ / "file");
    ASSERT_TRUE(acl);

    ASSERT_EQ(acl_set_link_np(other.c_str(), ACL_TYPE_EXTENDED, acl.get()), 0);

    const OwnedACL given = extendedACL(other);
    ASSERT_TRUE(given);
    EXPECT_EQ(acl_to_text(*given), kText);
    ASSERT_EQ(acl_set_link_np(other.c_str(), ACL_TYPE_EXTENDED, nullptr), 0);
    EXPECT_EQ(extendedACL(other), nullptr);
}

TEST_F(ACLTest, AFileIsNotGivenWhatOnlyAFolderCanHandOn) {
    give(folder_.makeFolder("folder"), "system.posix_acl_default");
    give(folder_ / "folder");
    const std::string file = folder_.write("file");
    const OwnedACL acl = extendedACL(folder_ / "folder");
    ASSERT_TRUE(acl);

    EXPECT_EQ(acl_set_link_np(file.c_str(), ACL_TYPE_EXTENDED, acl.get()), -1);

    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(extendedACL(file), nullptr);
}

TEST_F(ACLTest, ALinkIsGivenNone) {
    give(folder_.write("file"));
    const OwnedACL acl = extendedACL(folder_ / "file");
    const std::string link = folder_.makeLink("file", "link");

    EXPECT_EQ(acl_set_link_np(link.c_str(), ACL_TYPE_EXTENDED, acl.get()), -1);
    EXPECT_EQ(errno, ENOTSUP);
}

TEST_F(ACLTest, ThereIsOneKindOfList) {
    EXPECT_EQ(acl_get_link_np(folder_.path().c_str(), static_cast<acl_type_t>(0)), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
}  // namespace sevrin::platform
