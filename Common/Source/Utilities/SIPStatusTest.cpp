// Tests of asking the tool for System Integrity Protection, with scripts in its place.
#include "Common/Source/Utilities/SIPStatus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Common/Source/Utilities/TestLogger.h"

namespace sevrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr OSVersion kElCapitan = packedOSVersion(10, 11, 0);

class SIPStatusTest : public testing::Test {
protected:
    static std::string makeFolder() {
        std::string path = std::filesystem::temp_directory_path() / "SIPStatusTest.XXXXXX";
        EXPECT_NE(::mkdtemp(path.data()), nullptr);
        return path;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    // Makes the tool a script that runs `commands` and takes down what it was called with.
    void makeTool(const std::string& commands) {
        std::ofstream(tool_) << "#!/bin/sh\necho \"$*\" >> " << calls_ << "\n" << commands << "\n";
        ASSERT_EQ(::chmod(tool_.c_str(), 0700), 0);
    }

    // Whether a tool that runs `commands` says that the protection is on.
    bool isEnabledAfter(const std::string& commands) {
        makeTool(commands);
        return SIPStatus(kElCapitan, tool_).isEnabled();
    }

    // A line for each call of the tool.
    [[nodiscard]] std::string calls() const {
        std::ifstream file(calls_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    const std::string folder_ = makeFolder();
    const std::string tool_ = folder_ + "/tool";
    const std::string calls_ = folder_ + "/calls";
    const std::shared_ptr<TestLogger> logger_ = std::make_shared<TestLogger>();
    const ScopedDefaultLogger installed_{logger_};
};

TEST_F(SIPStatusTest, TheFirstLineDecides) {
    EXPECT_TRUE(isEnabledAfter("echo 'System Integrity Protection status: enabled.'"));
    EXPECT_FALSE(isEnabledAfter("echo 'System Integrity Protection status: disabled.'"));
    EXPECT_TRUE(isEnabledAfter("echo 'status: enabled (Custom Configuration).'"));
    EXPECT_TRUE(isEnabledAfter("echo; echo 'status: enabled'; echo 'Kext Signing: disabled'"));
    EXPECT_FALSE(isEnabledAfter("echo 'status: disabled'; echo 'Kext Signing: enabled'"));
}

TEST_F(SIPStatusTest, TheToolIsAskedForTheStatusOnce) {
    makeTool("echo enabled");
    SIPStatus status(kElCapitan, tool_);

    EXPECT_TRUE(status.isEnabled());
    makeTool("echo disabled");
    EXPECT_TRUE(status.isEnabled());

    EXPECT_EQ(calls(), "status\n");
}

TEST_F(SIPStatusTest, BeforeElCapitanNobodyIsAsked) {
    makeTool("echo enabled");

    EXPECT_FALSE(SIPStatus(packedOSVersion(10, 10, 5), tool_).isEnabled());

    EXPECT_EQ(calls(), "");
    EXPECT_THAT(logger_->lines(), IsEmpty());
}

TEST_F(SIPStatusTest, TheExitStatusOfTheToolDoesNotMatter) {
    EXPECT_TRUE(isEnabledAfter("echo enabled; exit 1"));
    EXPECT_TRUE(isEnabledAfter("echo enabled; kill -KILL $$"));
}

TEST_F(SIPStatusTest, AToolThatSaysNothingSaysNo) {
    EXPECT_FALSE(isEnabledAfter("exit 0"));
    EXPECT_FALSE(isEnabledAfter("kill -KILL $$"));
    EXPECT_FALSE(isEnabledAfter("printf 'enabled \\377'"));
}

TEST_F(SIPStatusTest, AToolThatIsAbsentSaysNoForGood) {
    SIPStatus status(kElCapitan, tool_);

    EXPECT_FALSE(status.isEnabled());
    makeTool("echo enabled");
    EXPECT_FALSE(status.isEnabled());

    EXPECT_EQ(calls(), "");
}

TEST_F(SIPStatusTest, TheStatusIsLoggedWithAllThatTheToolSaid) {
    makeTool("echo 'status: enabled'; echo; echo 'Kext Signing: disabled'");

    (void)SIPStatus(kElCapitan, tool_).isEnabled();

    EXPECT_THAT(logger_->lines(),
                ElementsAre(MatchesRegex("9 \\+\\[Process isSIPEnabled\\] SIP status=YES \\[.*"),
                            MatchesRegex("9 " + tool_ + ": .*"),
                            MatchesRegex("9 \\[0\\]: status: enabled .*"),
                            MatchesRegex("9 \\[1\\]: Kext Signing: disabled .*")));
}

TEST_F(SIPStatusTest, TheLineOfTheToolLiesInThatOfTheStatus) {
    (void)SIPStatus(kElCapitan, tool_).isEnabled();

    const std::vector<std::string> lines = logger_->lines();
    ASSERT_EQ(lines.size(), 2U);
    const auto identifier = [](const std::string& line) {
        const std::size_t start = line.rfind('[') + 1;
        return line.substr(start, line.size() - 1 - start);
    };
    EXPECT_THAT(lines[0], MatchesRegex("9 .* SIP status=NO \\[.*"));
    EXPECT_EQ(identifier(lines[1]), identifier(lines[0]) + ".1");
}

}  // namespace
}  // namespace sevrin
