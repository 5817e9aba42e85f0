// Tests of the facts of a process: live ones in this process, and the ids in set-user-id programs.
#include "Common/Source/Utilities/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "Common/Source/Utilities/TestLogger.h"
#include "Common/Source/Utilities/TextPipeReader.h"
#include "Platform/NSProcessInfo.h"
#include "Platform/NSTask.h"

namespace sevrin {
namespace {

using platform::NSProcessInfo;
using platform::NSTask;
using testing::ElementsAre;
using testing::StartsWith;

TEST(ProcessTest, TheProcessorsAreThoseOfThePlatform) {
    EXPECT_EQ(Process::cpuCount(), NSProcessInfo::processInfo().activeProcessorCount());
    EXPECT_EQ(Process::optimalConcurrentQueueSize(),
              Process::optimalConcurrentQueueSizeForCPUCount(Process::cpuCount()));
}

TEST(ProcessTest, SmallMachinesHaveOneMoreInHandThanProcessors) {
    EXPECT_EQ(Process::optimalConcurrentQueueSizeForCPUCount(1), 2U);
    EXPECT_EQ(Process::optimalConcurrentQueueSizeForCPUCount(4), 5U);
    EXPECT_EQ(Process::optimalConcurrentQueueSizeForCPUCount(5), 5U);
    EXPECT_EQ(Process::optimalConcurrentQueueSizeForCPUCount(8), 8U);
}

TEST(ProcessTest, TheUpTimeIsThatOfTheContinuousClockInSeconds) {
    platform::mach_timebase_info_data_t base;
    ASSERT_EQ(platform::mach_timebase_info(base), platform::kKernSuccess);
    const auto now = [&base] {
        return static_cast<double>(platform::mach_continuous_approximate_time()) * base.numer /
               base.denom / 1e9;
    };
    constexpr double kRounding = 1e-3;

    const double before = now();
    const double upTime = Process::upTimeInterval();
    const double after = now();

    EXPECT_GE(upTime, before - kRounding);
    EXPECT_LE(upTime, after + kRounding);
}

TEST(ProcessTest, TheClockOfTheUpTimeIsTheBestOfTheRelease) {
    const auto clock = Process::upTimeClockForOSVersion;

    EXPECT_EQ(clock(packedOSVersion(10, 15, 7)), &platform::mach_continuous_approximate_time);
    EXPECT_EQ(clock(packedOSVersion(10, 12, 0)), &platform::mach_continuous_approximate_time);
    EXPECT_EQ(clock(packedOSVersion(10, 11, 6)), &platform::mach_approximate_time);
    EXPECT_EQ(clock(packedOSVersion(10, 10, 0)), &platform::mach_approximate_time);
    EXPECT_EQ(clock(packedOSVersion(10, 9, 5)), &platform::mach_absolute_time);
}

TEST(ProcessTest, ATickIsAFractionOfNanoseconds) {
    EXPECT_DOUBLE_EQ(Process::secondsPerTick(platform::kKernSuccess, {1, 1}), 1e-9);
    EXPECT_DOUBLE_EQ(Process::secondsPerTick(platform::kKernSuccess, {125, 3}), 125.0 / 3 / 1e9);
}

TEST(ProcessDeathTest, WithoutALengthOfTicksThereIsNoUpTime) {
    EXPECT_DEATH((void)Process::secondsPerTick(5, {}),
                 "Common/Source/Utilities/Process:215: \\+\\[Process upTimeInterval\\]: "
                 "result == noErr");
}

TEST(ProcessTest, TheVersionIsThatOfThePlatformPacked) {
    const auto version = NSProcessInfo::processInfo().operatingSystemVersion();

    EXPECT_EQ(Process::osVersion(),
              packedOSVersion(version.majorVersion, version.minorVersion, version.patchVersion));
    EXPECT_EQ(Process::osNickname(), osNickname(Process::osVersion()));
}

TEST(ProcessTest, TheReadableVersionIsTheNameAndThePlatformsText) {
    EXPECT_EQ(Process::readableOSVersion(),
              std::string(osNamePrefix(Process::osVersion())) +
                  NSProcessInfo::processInfo().operatingSystemVersionString());
    EXPECT_THAT(Process::readableOSVersion(), StartsWith("macOS Version "));
}

TEST(ProcessTest, TheFlagsAreThoseOfTheVersion) {
    const OSVersion version = Process::osVersion();

    EXPECT_EQ(Process::isYosemiteOrLater(), isOSVersionYosemiteOrLater(version));
    EXPECT_EQ(Process::isElCapitanOrLater(), isOSVersionElCapitanOrLater(version));
    EXPECT_EQ(Process::isSierraOrLater(), isOSVersionSierraOrLater(version));
    EXPECT_EQ(Process::isHighSierraOrLater(), isOSVersionHighSierraOrLater(version));
    EXPECT_EQ(Process::isMojaveOrLater(), isOSVersionMojaveOrLater(version));
    EXPECT_EQ(Process::isCatalinaOrLater(), isOSVersionCatalinaOrLater(version));
}

TEST(ProcessTest, EveryReleaseFrom10_9IsLaterThanTheOldOnes) {
    EXPECT_TRUE(Process::isTigerOrLater());
    EXPECT_TRUE(Process::isLeopardOrLater());
    EXPECT_TRUE(Process::isSnowLeopardOrLater());
    EXPECT_TRUE(Process::isLionOrLater());
    EXPECT_TRUE(Process::isMountainLionOrLater());
    EXPECT_TRUE(Process::isMavericksOrLater());
}

TEST(ProcessTest, ARangeOfVersionsEndsBeforeItsUpperBound) {
    const auto isWithin = Process::isOrLaterThanOSVersionButBeforeOSVersion;
    const OSVersion version = Process::osVersion();

    EXPECT_TRUE(isWithin(version, version + 1));
    EXPECT_TRUE(isWithin(0, version + 1));
    EXPECT_FALSE(isWithin(0, version));
    EXPECT_FALSE(isWithin(version, version));
    EXPECT_FALSE(isWithin(version + 1, version + 2));
}

TEST(ProcessTest, WhereThereIsNoToolForItSIPIsOffAndThatIsLoggedOnce) {
    if (std::filesystem::exists("/usr/bin/csrutil")) GTEST_SKIP() << "this system has the tool";
    const auto logger = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed(logger);

    EXPECT_FALSE(Process::isSIPEnabled());
    EXPECT_FALSE(Process::isSIPEnabled());

    EXPECT_THAT(logger->lines(),
                ElementsAre(StartsWith("9 +[Process isSIPEnabled] SIP status=NO ["),
                            StartsWith("9 /usr/bin/csrutil:")));
}

// What a process may do depends on whose it is and who runs it, so each test runs the helper in a
// process of its own, as a file that belongs to somebody.
class ProcessUserTest : public testing::Test {
protected:
    static constexpr unsigned kCaller = 65'534;
    static constexpr unsigned kOwner = 40'001;
    static constexpr unsigned kGroup = 40'002;

    void SetUp() override {
        if (::geteuid() != 0 || ::getuid() != 0) GTEST_SKIP() << "only root may give files away";
        ASSERT_NE(::mkdtemp(folder_.data()), nullptr);
        ASSERT_EQ(::chmod(folder_.c_str(), 0755), 0);
        struct statvfs volume {};
        ASSERT_EQ(::statvfs(folder_.c_str(), &volume), 0);
        if ((volume.f_flag & ST_NOSUID) != 0)
            GTEST_SKIP() << folder_ << " is on a volume without set-user-id programs";
        std::ifstream status("/proc/self/status");
        for (std::string line; std::getline(status, line);) {
            if (line == "NoNewPrivs:\t1")
                GTEST_SKIP() << "this process may not run set-user-id programs";
        }
    }

    void TearDown() override { std::filesystem::remove_all(folder_); }

    // The helper as a file of that user and group, with that mode.
    [[nodiscard]] std::string program(unsigned user, unsigned group, mode_t mode) const {
        const std::string path = folder_ + "/helper";
        std::filesystem::copy_file(PROCESS_TEST_HELPER, path);
        EXPECT_EQ(::chown(path.c_str(), user, group), 0);
        EXPECT_EQ(::chmod(path.c_str(), mode), 0);
        return path;
    }

    // The lines that `path` writes, run by root or by `caller`.
    static std::vector<std::string> run(const std::string& path,
                                        const std::vector<std::string>& words) {
        NSTask task;
        TextPipeReader reader;
        task.setLaunchPath(path);
        task.setArguments(words);
        task.setStandardOutput(reader.pipe());
        task.launch();
        reader.startReading();
        return reader.lines().value();
    }

    static std::vector<std::string> runAsCaller(const std::string& path,
                                                std::vector<std::string> words) {
        words.insert(words.begin(), {"as", std::to_string(kCaller), path});
        return run(PROCESS_TEST_HELPER, words);
    }

    std::string folder_ = std::filesystem::temp_directory_path() / "ProcessTest.XXXXXX";
};

TEST_F(ProcessUserTest, RootIsItsOwnUser) {
    const std::string path = program(0, 0, 0755);

    EXPECT_THAT(run(path, {"root", "user"}),
                ElementsAre("YES real 0:0 effective 0:0 recorded 0:0 privileged asUser asRoot",
                            "YES real 0:0 effective 0:0 recorded 0:0 privileged asUser asRoot"));
}

TEST_F(ProcessUserTest, AnOrdinaryUserStaysThat) {
    const std::string path = program(0, 0, 0755);
    const std::string same = "real 65534:65534 effective 65534:65534 recorded 65534:65534 asUser";

    EXPECT_THAT(runAsCaller(path, {"state", "root", "user"}),
                ElementsAre(same, "NO " + same, "YES " + same));
}

TEST_F(ProcessUserTest, AUsersProgramThatRootRunsGoesToRootAndBack) {
    const std::string path = program(kOwner, kGroup, 06755);
    const std::string asUser =
        "real 0:0 effective 40001:40002 recorded 40001:40002 privileged asUser";
    const std::string asRoot = "real 0:0 effective 0:0 recorded 40001:40002 privileged asRoot";

    EXPECT_THAT(run(path, {"state", "root", "root", "user", "user", "root"}),
                ElementsAre(asUser, "YES " + asRoot, "YES " + asRoot, "YES " + asUser,
                            "YES " + asUser, "YES " + asRoot));
}

TEST_F(ProcessUserTest, AProgramOfRootThatAUserRunsIsRootsThroughout) {
    const std::string path = program(0, 0, 04755);
    const std::string same = "real 65534:65534 effective 0:65534 recorded 0:65534 asUser asRoot";

    EXPECT_THAT(runAsCaller(path, {"state", "root", "user"}),
                ElementsAre(same, "YES " + same, "YES " + same));
}

TEST_F(ProcessUserTest, AUsersProgramThatAnotherUserRunsNeverBecomesRoot) {
    const std::string path = program(kOwner, kGroup, 06755);
    const std::string fallenBack = "real 65534:65534 effective 65534:65534 recorded 40001:40002";

    EXPECT_THAT(
        runAsCaller(path, {"state", "user", "root", "user"}),
        ElementsAre("real 65534:65534 effective 40001:40002 recorded 40001:40002 asUser",
                    "YES real 65534:65534 effective 40001:40002 recorded 40001:40002 asUser",
                    "NO " + fallenBack, "YES " + fallenBack));
}

TEST_F(ProcessUserTest, AllowingRootToBeTheUserChangesNothing) {
    const std::string path = program(kOwner, kGroup, 06755);

    const std::vector<std::string> lines = run(path, {"state", "allow"});

    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], lines[1]);
}

}  // namespace
}  // namespace sevrin
