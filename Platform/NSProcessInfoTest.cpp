// Contract tests of what a process knows of itself and its system.
#include "Platform/NSProcessInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

namespace sevrin::platform {
namespace {

using testing::EndsWith;

const NSProcessInfo& info() {
    return NSProcessInfo::processInfo();
}

TEST(NSProcessInfoTest, ThereIsOneOfEachProcess) {
    EXPECT_EQ(&NSProcessInfo::processInfo(), &NSProcessInfo::processInfo());
}

TEST(NSProcessInfoTest, TheFirstArgumentIsThePathOfTheProgram) {
    const std::vector<std::string> arguments = info().arguments();

    ASSERT_FALSE(arguments.empty());
    EXPECT_THAT(arguments[0], EndsWith("PlatformTests"));
}

TEST(NSProcessInfoTest, TheNameIsTheLastComponentOfThatPath) {
    EXPECT_EQ(info().processName(), "PlatformTests");
}

TEST(NSProcessInfoTest, ArgumentsAreKeptWhateverIsInThem) {
    // The test runs itself once more with arguments of its own; that run answers by its status.
    constexpr const char* kMarker = "NSProcessInfoTestArguments";
    const std::string filter = "--gtest_filter=NSProcessInfoTest.ArgumentsAreKept*";
    const std::vector<std::string> arguments = info().arguments();
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] != kMarker) continue;
        const bool asGiven = i + 3 == arguments.size() && arguments[i + 1].empty() &&
                             arguments[i + 2] == "two words\n\xFF";
        std::_Exit(asGiven ? 0 : 1);
    }

    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::execl("/proc/self/exe", arguments[0].c_str(), filter.c_str(), kMarker, "",
                "two words\n\xFF", nullptr);
        std::_Exit(2);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(NSProcessInfoTest, TheVersionIsThatOfTheInterfacesOffered) {
    const NSProcessInfo::OperatingSystemVersion version = info().operatingSystemVersion();

    EXPECT_EQ(version.majorVersion, 10);
    EXPECT_EQ(version.minorVersion, 15);
    EXPECT_EQ(version.patchVersion, 7);
}

TEST(NSProcessInfoTest, TheVersionStringNamesTheRealSystem) {
    const std::regex form(R"(Version 10\.15\.7 \(.+, [A-Za-z]+ [0-9][0-9.]*\))");

    EXPECT_TRUE(std::regex_match(info().operatingSystemVersionString(), form))
        << info().operatingSystemVersionString();
}

TEST(NSProcessInfoTest, TheUptimeGrows) {
    const double before = info().systemUptime();
    const double after = info().systemUptime();

    EXPECT_GT(before, 0);
    EXPECT_GE(after, before);
}

TEST(NSProcessInfoTest, AProcessorIsActive) {
    EXPECT_GE(info().activeProcessorCount(), 1U);
}

}  // namespace
}  // namespace sevrin::platform
