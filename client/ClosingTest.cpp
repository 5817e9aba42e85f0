// What callbacks may do to their client, and how a client ends.
#include "client/SwitchboardClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>

#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using test::anEndpoint;
using test::Inbox;
using test::kPatience;
using test::options;
using test::TestSwitchboard;
using testing::ElementsAre;
using Code = CallError::Code;
using State = SwitchboardClient::State;
using namespace std::chrono_literals;

class ClosingTest : public testing::Test {
protected:
    // A client that is connected.
    static SwitchboardClient connected() {
        return *SwitchboardClient::connect(options(), kPatience);
    }

    TestSwitchboard board_;
};

TEST_F(ClosingTest, ACompletionMayCallAgain) {
    SwitchboardClient client = connected();
    Inbox<std::string> versions;

    client.query("a", kPatience, [&](const auto&) {
        client.componentVersion(kPatience, [&](const auto& version) { versions.add(*version); });
    });

    EXPECT_THAT(versions.waitFor(1), ElementsAre("Switchboard-2.2.5.12"));
}

TEST_F(ClosingTest, ACompletionMayDestroyTheClientAndTheOthersStillEnd) {
    auto client = std::make_unique<SwitchboardClient>(connected());
    board_.setHolds(true);
    Inbox<bool> answered;
    client->query("a", kPatience, [&](const auto& answer) {
        client.reset();
        answered.add(answer.hasValue());
    });
    client->query("b", kPatience, [&](const auto& answer) { answered.add(answer.hasValue()); });
    ASSERT_EQ(board_.waitForCalls(3).size(), 3u);

    board_.setHolds(false);

    EXPECT_EQ(answered.waitFor(2).size(), 2u);
}

TEST_F(ClosingTest, ANotificationHandlerMayDestroyTheClient) {
    auto client = std::make_unique<SwitchboardClient>(connected());
    Inbox<bool> called;
    (void)client->subscribe({}, [&](const Notification&) {
        client.reset();
        called.add(true);
    });
    ASSERT_TRUE(client->barrier(kPatience));

    board_.forward(1, {"a"});
    board_.forward(1, {"b"});

    EXPECT_EQ(called.waitFor(1).size(), 1u);
}

TEST_F(ClosingTest, ClosingEndsUnansweredCallsAndLaterOnes) {
    SwitchboardClient client = connected();
    board_.setHolds(true);
    Inbox<Code> codes;
    client.query("a", kPatience, [&](const auto& answer) { codes.add(answer.error().code); });

    client.close();
    client.close();

    EXPECT_THAT(codes.waitFor(1), ElementsAre(Code::Disconnected));
    EXPECT_EQ(client.query("a", kPatience).error().code, Code::Disconnected);
    EXPECT_EQ(client.post({"a"}).error().code, Code::Disconnected);
    EXPECT_EQ(client.waitUntilConnected(kPatience).error().code, Code::Disconnected);
    EXPECT_EQ(client.state(), State::Closed);
    EXPECT_EQ(client.peer(), std::nullopt);
}

TEST_F(ClosingTest, NothingLastsInAClosedClient) {
    SwitchboardClient client = connected();
    client.close();

    client.publish(anEndpoint(), "a");
    client.redact("a");
    client.setUser(5);
    client.unsubscribe(client.subscribe({}, [](const Notification&) {}));
    client.unsubscribeAll();

    EXPECT_TRUE(client.closeAndWait(kPatience));
    EXPECT_THAT(board_.calls(), ElementsAre("barrier"));
}

TEST_F(ClosingTest, AfterCloseAndWaitEveryCompletionHasRun) {
    for (int round = 0; round < 50; ++round) {
        SwitchboardClient client = connected();
        std::atomic<int> ended = 0;
        for (int i = 0; i < 20; ++i)
            client.query("a", kPatience, [&](const auto&) { ++ended; });

        ASSERT_TRUE(client.closeAndWait(kPatience));

        ASSERT_EQ(ended, 20);
    }
}

TEST_F(ClosingTest, CloseAndWaitGivesUpWithTheDeadlineWhileACallbackRuns) {
    SwitchboardClient client = connected();
    Inbox<bool> entered;
    Inbox<bool> leave;
    client.barrier(kPatience, [&](const auto&) {
        entered.add(true);
        (void)leave.waitFor(1);
    });
    ASSERT_EQ(entered.waitFor(1).size(), 1u);

    EXPECT_FALSE(client.closeAndWait(1ms));

    leave.add(true);
    EXPECT_TRUE(client.closeAndWait(kPatience));
}

TEST_F(ClosingTest, AMovedClientKeepsItsConnection) {
    SwitchboardClient first = connected();
    SwitchboardClient second = std::move(first);
    SwitchboardClient third = connected();

    third = std::move(second);

    EXPECT_TRUE(third.barrier(kPatience));
    EXPECT_EQ(board_.arrivals(), 2u);
}

using ClosingDeathTest = ClosingTest;

TEST_F(ClosingDeathTest, WaitingOnTheXPCThreadIsABug) {
    board_.stop();
    const auto waitInACompletion = [](auto wait) {
        SwitchboardClient client(options());
        Inbox<bool> never;
        client.barrier(kPatience, [&](const auto&) { wait(client); });
        (void)never.waitFor(1);
    };

    EXPECT_DEATH(waitInACompletion([](auto& client) { (void)client.barrier(1s); }), "XPC thread");
    EXPECT_DEATH(waitInACompletion([](auto& client) { (void)client.waitUntilConnected(1s); }),
                 "XPC thread");
    EXPECT_DEATH(waitInACompletion([](auto& client) { (void)client.closeAndWait(1s); }),
                 "XPC thread");
    EXPECT_DEATH(waitInACompletion([](auto&) { (void)SwitchboardClient::connect(options(), 1s); }),
                 "XPC thread");
}

TEST_F(ClosingDeathTest, AnExceptionThatLeavesACompletionEndsTheProcess) {
    board_.stop();
    const auto throwInACompletion = [] {
        SwitchboardClient client(options());
        Inbox<bool> never;
        client.barrier(kPatience, [](const auto&) { throw std::runtime_error("oh dear"); });
        (void)never.waitFor(1);
    };

    EXPECT_DEATH(throwInACompletion(), "a callback threw: oh dear");
}

}  // namespace
}  // namespace sevrin
