// The exit status and the words of each way in which a switchboard or a publisher gives no answer.
#include "tools/Failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tools/Target.h"

namespace sevrin {
namespace {

using testing::HasSubstr;
using Code = CallError::Code;

const Target kSystem{SwitchboardClient::Service::System};
const Target kUser{SwitchboardClient::Service::User};

TEST(FailureTest, AMessageSaysWhoWhatWhyAndWhatToTry) {
    EXPECT_EQ(messageOf({ExitStatus::No, "what", "why", "this"}, "verb"),
              "switchboardctl: verb: what: why. Try: this");
    EXPECT_EQ(messageOf({ExitStatus::No, "", "why"}, ""), "switchboardctl: why");
}

TEST(FailureTest, AMessageIsOneLineWhateverIsInIt) {
    EXPECT_EQ(messageOf({ExitStatus::No, "a\nb", "why"}, "verb"),
              "switchboardctl: verb: a\\u000ab: why");
}

struct Meaning {
    Code code;
    ExitStatus ofSwitchboard;
    ExitStatus ofPublisher;
};

class MeaningTest : public testing::TestWithParam<Meaning> {};

TEST_P(MeaningTest, HasItsExitStatus) {
    const CallError error{GetParam().code, "why"};

    EXPECT_EQ(switchboardFailure(error, kSystem).status, GetParam().ofSwitchboard);
    EXPECT_EQ(publisherFailure(error, "id").status, GetParam().ofPublisher);
}

TEST_P(MeaningTest, NamesTheServiceAndTheNextStep) {
    const CallError error{GetParam().code, "why"};

    for (const Target& target : {kSystem, kUser}) {
        const Failure failure = switchboardFailure(error, target);
        EXPECT_THAT(failure.reason, HasSubstr(target.serviceName() + ": why"));
        EXPECT_NE(failure.advice, "");
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, MeaningTest,
    testing::Values(
        Meaning{Code::NoService, ExitStatus::NoSwitchboard, ExitStatus::No},
        Meaning{Code::Untrusted, ExitStatus::NoSwitchboard, ExitStatus::No},
        Meaning{Code::Refused, ExitStatus::Refused, ExitStatus::Refused},
        Meaning{Code::VersionMismatch, ExitStatus::VersionMismatch, ExitStatus::VersionMismatch},
        Meaning{Code::Disconnected, ExitStatus::NoSwitchboard, ExitStatus::No},
        Meaning{Code::DeadlinePassed, ExitStatus::DeadlinePassed, ExitStatus::DeadlinePassed},
        Meaning{Code::BadAnswer, ExitStatus::NoSwitchboard, ExitStatus::No}));

TEST(FailureTest, AServiceThatTheReasonNamesIsNotNamedTwice) {
    const CallError error{Code::NoService, "nobody listens as com.sevrin.switchboard"};

    EXPECT_EQ(switchboardFailure(error, kSystem).reason, error.description);
}

TEST(FailureTest, TheNextStepKnowsWhoseServiceManagerItIs) {
    EXPECT_EQ(kSystem.launcherCommand("start"), "systemctl start switchboard");
    EXPECT_EQ(kUser.launcherCommand("start"), "systemctl --user start switchboard");
}

}  // namespace
}  // namespace sevrin
