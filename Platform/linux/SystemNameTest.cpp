// Tests of the system's name for people.
#include "Platform/linux/SystemName.h"

#include <gtest/gtest.h>

namespace sevrin::platform {
namespace {

TEST(SystemNameTest, TheNameIsWithoutItsQuotes) {
    EXPECT_EQ(prettyNameFromOsRelease("NAME=\"Debian GNU/Linux\"\n"
                                      "PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\n"
                                      "ID=debian\n"),
              "Debian GNU/Linux 12 (bookworm)");
    EXPECT_EQ(prettyNameFromOsRelease("PRETTY_NAME='Arch Linux'"), "Arch Linux");
    EXPECT_EQ(prettyNameFromOsRelease("PRETTY_NAME=Void\n"), "Void");
}

TEST(SystemNameTest, EscapesAreResolvedAsTheShellDoes) {
    EXPECT_EQ(prettyNameFromOsRelease(R"(PRETTY_NAME="a \"b\" \$c \\ d")"), R"(a "b" $c \ d)");
    EXPECT_EQ(prettyNameFromOsRelease(R"(PRETTY_NAME='a \ b')"), R"(a \ b)");
    EXPECT_EQ(prettyNameFromOsRelease(R"(PRETTY_NAME=it\'s)"), "it's");
}

TEST(SystemNameTest, OfSeveralAssignmentsTheLastHolds) {
    EXPECT_EQ(prettyNameFromOsRelease("PRETTY_NAME=One\nPRETTY_NAME=Two\n"), "Two");
}

TEST(SystemNameTest, ASystemWithoutANameIsLinux) {
    EXPECT_EQ(prettyNameFromOsRelease(""), "Linux");
    EXPECT_EQ(prettyNameFromOsRelease("PRETTY_NAME=\n"), "Linux");
    EXPECT_EQ(prettyNameFromOsRelease("#PRETTY_NAME=x\nMY_PRETTY_NAME=y\n"), "Linux");
}

TEST(SystemNameTest, UnfinishedQuotesAndEscapesEndWithTheLine) {
    EXPECT_EQ(prettyNameFromOsRelease("PRETTY_NAME=\"open\nID=x\n"), "open");
    EXPECT_EQ(prettyNameFromOsRelease("PRETTY_NAME=end\\"), "end\\");
}

TEST(SystemNameTest, AKernelVersionEndsWhereTheDistributionsWordsBegin) {
    EXPECT_EQ(versionFromKernelRelease("6.1.0-18-amd64"), "6.1.0");
    EXPECT_EQ(versionFromKernelRelease("6.18.2"), "6.18.2");
    EXPECT_EQ(versionFromKernelRelease("custom"), "custom");
    EXPECT_EQ(versionFromKernelRelease(""), "");
}

}  // namespace
}  // namespace sevrin::platform
