// Setting attributes: what is written, what is refused, and that nothing is written by halves.
#include <gmock/gmock.h>

#include <algorithm>
#include <vector>

#include "Platform/AttributeList.h"
#include "Platform/TestAttributes.h"

namespace sevrin::platform {
namespace {

// Values one after the other, as the call takes them.
class Values {
public:
    template <class T>
    Values& add(const T& value) {
        const auto* bytes = reinterpret_cast<const char*>(&value);
        bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
        return *this;
    }

    [[nodiscard]] int set(const std::string& path, attrgroup_t attributes,
                          unsigned long options = FSOPT_NOFOLLOW) const {
        const attrlist list = listOf(attributes);
        errno = 0;
        return setattrlist(path.c_str(), &list, bytes_.data(), bytes_.size(), options);
    }

private:
    std::vector<char> bytes_ = {};
};

constexpr timespec kThen{1'000'000'000, 123'456'789};
constexpr timespec kEarlier{900'000'000, 1};

bool isSameTime(timespec a, timespec b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

std::uint32_t flagsOf(const std::string& path) {
    const attrlist list = listOf(ATTR_CMN_FLAGS);
    std::array<char, 8> buffer{};
    EXPECT_EQ(getattrlist(path.c_str(), &list, buffer.data(), buffer.size(), FSOPT_NOFOLLOW), 0);
    RecordReader record(buffer.data());
    record.take<std::uint32_t>();
    return record.take<std::uint32_t>();
}

bool isRoot() {
    return ::geteuid() == 0;
}

TEST(SetAttributeListTest, EachTimeIsSetByItself) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const struct stat before = statOf(path);

    ASSERT_EQ(Values().add(kThen).set(path, ATTR_CMN_MODTIME), 0);
    EXPECT_TRUE(isSameTime(statOf(path).st_mtim, kThen));
    EXPECT_TRUE(isSameTime(statOf(path).st_atim, before.st_atim));

    ASSERT_EQ(Values().add(kEarlier).set(path, ATTR_CMN_ACCTIME), 0);
    EXPECT_TRUE(isSameTime(statOf(path).st_atim, kEarlier));
    EXPECT_TRUE(isSameTime(statOf(path).st_mtim, kThen));
}

TEST(SetAttributeListTest, TheModeTakesNoFileType) {
    const FileFolder folder;
    const std::string path = folder.file("a");

    ASSERT_EQ(Values().add(std::uint32_t{S_IFDIR | 04750}).set(path, ATTR_CMN_ACCESSMASK), 0);

    EXPECT_EQ(statOf(path).st_mode, static_cast<mode_t>(S_IFREG | 04750));
}

TEST(SetAttributeListTest, AllAttributesAreReadInTheOrderOfTheirBits) {
    if (!isRoot()) GTEST_SKIP() << "needs root";
    const FileFolder folder;
    const std::string path = folder.file("a");

    ASSERT_EQ(
        Values()
            .add(kThen)       // modification
            .add(timespec{})  // change: ignored
            .add(kEarlier)    // access
            .add(std::uint32_t{1234})
            .add(std::uint32_t{2345})
            .add(std::uint32_t{06711})
            .add(std::uint32_t{0})
            .set(path, ATTR_CMN_MODTIME | ATTR_CMN_CHGTIME | ATTR_CMN_ACCTIME | ATTR_CMN_OWNERID |
                           ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS),
        0);

    const struct stat stat = statOf(path);
    EXPECT_TRUE(isSameTime(stat.st_mtim, kThen));
    EXPECT_TRUE(isSameTime(stat.st_atim, kEarlier));
    EXPECT_EQ(stat.st_uid, 1234U);
    EXPECT_EQ(stat.st_gid, 2345U);
    EXPECT_EQ(stat.st_mode & 07777U, 06711U);
}

TEST(SetAttributeListTest, SettingTheChangeTimeAloneDoesNothing) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const struct stat before = statOf(path);

    EXPECT_EQ(Values().add(kThen).set(path, ATTR_CMN_CHGTIME), 0);

    EXPECT_TRUE(isSameTime(statOf(path).st_ctim, before.st_ctim));
}

TEST(SetAttributeListTest, ALinkItselfIsSetUnlessItIsToBeFollowed) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const std::string link = folder.link("link", "a");
    const struct stat before = statOf(path);

    ASSERT_EQ(Values().add(kThen).set(link, ATTR_CMN_MODTIME), 0);
    EXPECT_TRUE(isSameTime(statOf(link).st_mtim, kThen));
    EXPECT_TRUE(isSameTime(statOf(path).st_mtim, before.st_mtim));

    ASSERT_EQ(Values().add(kEarlier).set(link, ATTR_CMN_MODTIME, 0), 0);
    EXPECT_TRUE(isSameTime(statOf(path).st_mtim, kEarlier));
}

TEST(SetAttributeListTest, ALinkHasNoModeOfItsOwn) {
    const FileFolder folder;
    const std::string link = folder.link("link", "nowhere");

    EXPECT_EQ(Values().add(std::uint32_t{0777}).set(link, ATTR_CMN_ACCESSMASK), 0);
    EXPECT_EQ(Values().add(std::uint32_t{0600}).set(link, ATTR_CMN_ACCESSMASK), -1);
    EXPECT_EQ(errno, ENOTSUP);
}

TEST(SetAttributeListTest, ACreationTimeIsRefusedBeforeAnythingElseIsWritten) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const struct stat before = statOf(path);

    EXPECT_EQ(Values()
                  .add(kThen)
                  .add(kThen)
                  .add(std::uint32_t{0600})
                  .set(path, ATTR_CMN_CRTIME | ATTR_CMN_MODTIME | ATTR_CMN_ACCESSMASK),
              -1);

    EXPECT_EQ(errno, ENOTSUP);
    const struct stat after = statOf(path);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_TRUE(isSameTime(after.st_mtim, before.st_mtim));
    EXPECT_TRUE(isSameTime(after.st_ctim, before.st_ctim));
}

TEST(SetAttributeListTest, AFlagThatCannotBeStoredIsRefusedBeforeAnythingElseIsWritten) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const struct stat before = statOf(path);

    for (const std::uint32_t flag : {UF_IMMUTABLE, UF_HIDDEN, SF_ARCHIVED, SF_FIRMLINK}) {
        EXPECT_EQ(Values()
                      .add(std::uint32_t{0600})
                      .add(flag)
                      .set(path, ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS),
                  -1);
        EXPECT_EQ(errno, ENOTSUP);
    }

    EXPECT_TRUE(isSameTime(statOf(path).st_ctim, before.st_ctim));
}

TEST(SetAttributeListTest, WhatARefusedStepFollowedIsPutBack) {
    if (!isRoot()) GTEST_SKIP() << "needs root to become somebody else";
    const FileFolder folder;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    const std::string path = folder.file("a");
    ASSERT_EQ(::chown(path.c_str(), 1234, 1234), 0);
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    const struct stat before = statOf(path);

    // The owner may change mode and times, and may not make the file immutable.
    EXPECT_EXIT(
        {
            if (::setgid(1234) != 0 || ::setuid(1234) != 0) ::_exit(2);
            const int result =
                Values()
                    .add(kThen)
                    .add(std::uint32_t{0600})
                    .add(std::uint32_t{SF_IMMUTABLE})
                    .set(path, ATTR_CMN_MODTIME | ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS);
            ::_exit(result == -1 && (errno == EPERM || errno == ENOTSUP) ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");

    EXPECT_EQ(statOf(path).st_mode, before.st_mode);
    EXPECT_TRUE(isSameTime(statOf(path).st_mtim, before.st_mtim));
}

TEST(SetAttributeListTest, StoredFlagsAreSetAndClearedAgain) {
    if (!isRoot()) GTEST_SKIP() << "needs root";
    const FileFolder folder;
    const std::string path = folder.file("a");
    if (Values().add(std::uint32_t{UF_NODUMP}).set(path, ATTR_CMN_FLAGS) != 0) {
        GTEST_SKIP() << "/tmp is on a file system without flags";
    }
    EXPECT_EQ(flagsOf(path), UF_NODUMP);

    ASSERT_EQ(Values().add(std::uint32_t{SF_IMMUTABLE | SF_APPEND}).set(path, ATTR_CMN_FLAGS), 0);
    EXPECT_EQ(flagsOf(path), SF_IMMUTABLE | SF_APPEND);
    // Nothing but the flags can be set meanwhile.
    EXPECT_EQ(Values().add(std::uint32_t{0600}).set(path, ATTR_CMN_ACCESSMASK), -1);
    EXPECT_EQ(errno, EPERM);

    // Clearing them in the same call makes way for the mode.
    ASSERT_EQ(Values()
                  .add(std::uint32_t{0600})
                  .add(std::uint32_t{0})
                  .set(path, ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS),
              0);
    EXPECT_EQ(flagsOf(path), 0U);
    EXPECT_EQ(statOf(path).st_mode & 07777U, 0600U);
}

TEST(SetAttributeListTest, TheFlagsOfAHiddenFileCanBeWrittenBack) {
    const FileFolder folder;
    const std::string path = folder.file(".a");
    const std::uint32_t flags = flagsOf(path);
    ASSERT_EQ(flags & UF_HIDDEN, UF_HIDDEN);

    EXPECT_EQ(Values().add(flags).set(path, ATTR_CMN_FLAGS), 0);
}

TEST(SetAttributeListTest, WhatMakesNoSenseIsInvalid) {
    const FileFolder folder;
    const std::string path = folder.file("a");
    const timespec tooManyNanoseconds{0, 1'000'000'000};
    const timespec now{0, UTIME_NOW};

    EXPECT_EQ(Values().add(std::uint64_t{0}).set(path, ATTR_CMN_FILEID), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(Values().add(std::uint32_t{0}).set(path, ATTR_CMN_MODTIME), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(Values().add(tooManyNanoseconds).set(path, ATTR_CMN_MODTIME), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(Values().add(now).set(path, ATTR_CMN_MODTIME), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(Values().add(~std::uint32_t{0}).set(path, ATTR_CMN_OWNERID), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(Values().add(kThen).set(folder.at("missing"), ATTR_CMN_MODTIME), -1);
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace sevrin::platform
