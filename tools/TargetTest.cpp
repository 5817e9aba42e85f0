// Which switchboard the options mean, for root and for everybody else.
#include "tools/Target.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tools/Failure.h"

namespace sevrin {
namespace {

using Service = SwitchboardClient::Service;

ExitStatus refusal(const std::string& user) {
    try {
        (void)Target::fromOptions(false, user);
    } catch (const Failure& failure) {
        return failure.status;
    }
    return ExitStatus::Done;
}

TEST(TargetTest, WithoutOptionsItIsTheCallersOwn) {
    const Target target = Target::fromOptions(false, "");

    EXPECT_EQ(target.service, Service::User);
    EXPECT_EQ(target.serviceName(), "com.sevrin.switchboard." + std::to_string(::geteuid()));
}

TEST(TargetTest, TheSystemsIsOfNobodyInParticular) {
    const Target target = Target::fromOptions(true, "");

    EXPECT_EQ(target.service, Service::System);
    EXPECT_EQ(target.user, std::nullopt);
    EXPECT_EQ(target.serviceName(), "com.sevrin.switchboard");
}

TEST(TargetTest, WhatIsNoUserIdIsAUsageError) {
    for (const char* const text : {"x", "-1", "+1", "1x", " 1", "4294967295", "4294967296", "0x1"})
        EXPECT_EQ(refusal(text), ExitStatus::Usage) << text;
}

TEST(TargetTest, RootSpeaksForAnyUserOfTheSystems) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may";

    const Target target = Target::fromOptions(false, "4294967294");

    EXPECT_EQ(target.service, Service::System);
    EXPECT_EQ(target.user, 4294967294u);
}

TEST(TargetTest, RootForItselfMeansItsRegistryOfTheSystems) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root may";

    const Target target = Target::fromOptions(false, "0");

    EXPECT_EQ(target.service, Service::System);
    EXPECT_EQ(target.user, std::nullopt);
}

TEST(TargetTest, OthersSpeakForThemselvesOnly) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may";

    const std::string self = std::to_string(::geteuid());
    EXPECT_EQ(Target::fromOptions(false, self).service, Service::User);
    EXPECT_EQ(refusal(std::to_string(::geteuid() + 1)), ExitStatus::Refused);
    EXPECT_EQ(refusal("0"), ExitStatus::Refused);
}

}  // namespace
}  // namespace sevrin
