// Tests of preferences with several processes: at the same time, killed, hanging, set-user-id.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Platform/CFPreferences.h"
#include "Platform/TestPlaces.h"
#include "Platform/linux/PatientFileLock.h"
#include "Platform/linux/PreferenceFile.h"
#include "Platform/linux/TestProcess.h"

namespace sevrin::platform {
namespace {

using preferences::FileContent;
using testing::HasSubstr;
using testing::Optional;

constexpr const char* kDomain = "com.example.app";
constexpr std::chrono::milliseconds kNoPatience{0};

TestProcess helper(const std::vector<std::string>& arguments) {
    return {PREFERENCES_TEST_HELPER, arguments, TestProcess::Start()};
}

TEST(PreferencesProcessTest, ProcessesThatChangeDifferentKeysLoseNothing) {
    const TestPlaces places("/dev/shm");
    {
        TestProcess first = helper({"count", kDomain, "first", "100"});
        TestProcess second = helper({"count", kDomain, "second", "100"});
        TestProcess third = helper({"count", kDomain, "third", "100"});

        EXPECT_EQ(first.finish(), 0);
        EXPECT_EQ(second.finish(), 0);
        EXPECT_EQ(third.finish(), 0);
    }

    EXPECT_EQ(CFPreferencesCopyMultiple(kDomain).size(), 300U);
    EXPECT_EQ(CFPreferencesCopyAppValue("second57", kDomain), Value(57));
}

// The three values are written together, so a file with values of two writings would be torn.
TEST(PreferencesProcessTest, AProcessKilledAtAnyMomentLeavesTheOldFileOrTheNewOne) {
    constexpr int kKills = 300;
    const TestPlaces places("/dev/shm");
    std::minstd_rand random(20261121);
    int different = 0;
    std::int64_t before = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        TestProcess writer = helper({"rewrite", kDomain});
        ASSERT_THAT(writer.line(), Optional(std::string("begins")));
        const auto microseconds = static_cast<int>(random() % 3000);
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
        writer.kill();

        const FileContent content = preferences::readFile(places.userFile(kDomain));
        if (content.state == FileContent::State::Absent) continue;
        ASSERT_EQ(content.state, FileContent::State::Whole) << content.why;
        const Value* const first = content.values.find("first");
        const Value* const last = content.values.find("last");
        const Value* const text = content.values.find("text");
        ASSERT_TRUE(first && last && text);
        ASSERT_EQ(*first, *last);
        const std::int64_t number = *first->ifSigned();
        ASSERT_EQ(*text->ifString(), std::string(20'000, static_cast<char>('a' + number % 26)));
        different += number != before;
        before = number;
    }
    // Else the kills came all before the first writing, and nothing was shown.
    EXPECT_GT(different, kKills / 10);
}

TEST(PreferencesProcessTest, WhatAKilledProcessLeftDoesNotHinderTheNext) {
    const TestPlaces places;
    std::filesystem::create_directories(places.home() + "/Library/Preferences");
    const std::string hidden = places.home() + "/Library/Preferences/.com.example.app.plist.";
    std::ofstream(hidden + "new") << "half";
    std::ofstream(hidden + "lock") << "";

    CFPreferencesSetAppValue("key", 1, kDomain);

    EXPECT_TRUE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_EQ(readPropertyList(places.userFile(kDomain)), "{'key': 1}");
    EXPECT_FALSE(std::filesystem::exists(hidden + "new"));
}

TEST(PreferencesProcessTest, AProcessThatHangsWithTheLockStopsNobody) {
    const TestPlaces places;
    const std::string folder = places.home() + "/Library/Preferences";
    std::filesystem::create_directories(folder);
    writePropertyList(places.userFile(kDomain), "{\"key\": 1}");
    TestProcess holder = helper({"hold", folder + "/.com.example.app.plist.lock"});
    ASSERT_THAT(holder.line(), Optional(std::string("held")));
    std::string fault;
    CFPreferencesSetFaultReporter([&](const std::string& what) { fault = what; });

    EXPECT_EQ(CFPreferencesCopyAppValue("key", kDomain), Value(1));
    CFPreferencesSetAppValue("key", 2, kDomain);
    EXPECT_FALSE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_THAT(fault, HasSubstr("another process holds the lock for too long"));
    CFPreferencesSetAppValue("key", 1, "com.example.other");
    EXPECT_TRUE(CFPreferencesAppSynchronize("com.example.other"));

    EXPECT_EQ(holder.finish(), 0);
    EXPECT_TRUE(CFPreferencesAppSynchronize(kDomain));
    EXPECT_EQ(readPropertyList(places.userFile(kDomain)), "{'key': 2}");
    CFPreferencesSetFaultReporter(nullptr);
}

TEST(PreferencesProcessTest, AKilledHolderOfTheLockHoldsItNoMore) {
    const TestFolder folder;
    TestProcess holder = helper({"hold", folder / "lock"});
    ASSERT_THAT(holder.line(), Optional(std::string("held")));
    EXPECT_FALSE(PatientFileLock::acquire(folder / "lock", kNoPatience));
    EXPECT_EQ(errno, EWOULDBLOCK);

    holder.kill();

    EXPECT_TRUE(PatientFileLock::acquire(folder / "lock", kNoPatience));
}

TEST(PreferencesProcessTest, TheLockGoesWithItsFile) {
    const TestFolder folder;
    {
        const auto lock = PatientFileLock::acquire(folder / "lock", kNoPatience);
        ASSERT_TRUE(lock);
        EXPECT_TRUE(folder.has("lock"));
        EXPECT_FALSE(PatientFileLock::acquire(folder / "lock", kNoPatience));
    }
    EXPECT_FALSE(folder.has("lock"));
}

TEST(PreferencesProcessTest, AFileThatItsUserMayNotReadIsLeftAlone) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root, to run as another user";
    const TestPlaces places;
    writePropertyList(places.userFile(kDomain), "{\"secret\": 1}");
    ASSERT_EQ(::chmod(places.userFile(kDomain).c_str(), 0600), 0);
    std::filesystem::permissions(places.folder().path(), std::filesystem::perms(0755));
    const TestFolder programs;
    ASSERT_EQ(::chmod(programs.path().c_str(), 0755), 0);
    std::filesystem::copy(PREFERENCES_TEST_HELPER, programs / "helper");
    TestProcess::Start asNobody;
    asNobody.user = 65534;

    TestProcess reader(programs / "helper", {"get", kDomain, "secret"}, asNobody);

    EXPECT_THAT(reader.line(), Optional(HasSubstr("preferences ignored")));
    EXPECT_THAT(reader.line(), Optional(std::string("(null)")));
    EXPECT_EQ(reader.finish(), 0);
    EXPECT_EQ(readPropertyList(places.userFile(kDomain)), "{'secret': 1}");
}

// The program of one user, run by another who says where the home folder is to be.
class SetUserIdTest : public testing::Test {
protected:
    static constexpr uid_t kOwner = 65533;
    static constexpr uid_t kCaller = 65532;

    void SetUp() override {
        if (::geteuid() != 0) GTEST_SKIP() << "needs root, to make set-user-id programs";
        std::filesystem::permissions(places_.folder().path(), std::filesystem::perms(0777));
        std::filesystem::copy(PREFERENCES_TEST_HELPER, program());
        ASSERT_EQ(::chown(program().c_str(), kOwner, kOwner), 0);
    }

    std::string program() const { return places_.folder() / "helper"; }

    std::vector<std::string> places(mode_t mode) const {
        EXPECT_EQ(::chmod(program().c_str(), mode), 0);
        TestProcess::Start start;
        start.user = kCaller;
        start.environment = {"HOME=" + places_.home()};
        TestProcess process(program(), {"home"}, start);
        std::vector<std::string> lines{process.line().value_or("none"),
                                       process.line().value_or("none")};
        EXPECT_EQ(process.finish(), 0);
        return lines;
    }

    const TestPlaces places_;
};

TEST_F(SetUserIdTest, AnOrdinaryProgramGoesWhereItIsSent) {
    EXPECT_THAT(places(0755), testing::ElementsAre(places_.home(), places_.machine()));
}

TEST_F(SetUserIdTest, ASetUserIdProgramIsNotSentAnywhere) {
    EXPECT_THAT(places(04755), testing::ElementsAre("/", ""));
}

TEST_F(SetUserIdTest, ASetGroupIdProgramIsNotSentAnywhere) {
    EXPECT_THAT(places(02755), testing::ElementsAre("/", ""));
}

}  // namespace
}  // namespace sevrin::platform
