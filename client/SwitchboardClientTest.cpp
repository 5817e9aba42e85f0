// What a client's calls do and how they end, against a switchboard inside the test.
#include "client/SwitchboardClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "Platform/XPCLimits.h"
#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using test::anEndpoint;
using test::Inbox;
using test::kPatience;
using test::options;
using test::TestSwitchboard;
using testing::ElementsAre;
using testing::HasSubstr;
using Code = CallError::Code;
using namespace std::chrono_literals;

constexpr std::size_t kIdentifierBytesMax = platform::kIdentifierBytesMax;

class SwitchboardClientTest : public testing::Test {
protected:
    // A client that is connected.
    static SwitchboardClient connected() {
        return *SwitchboardClient::connect(options(), kPatience);
    }

    TestSwitchboard board_;
};

// MARK: Answers

TEST_F(SwitchboardClientTest, VersionAndBuildNumberAreTheSwitchboards) {
    SwitchboardClient client = connected();

    EXPECT_EQ(*client.componentVersion(kPatience), "Switchboard-2.2.5.12");
    EXPECT_EQ(*client.buildNumber(kPatience), 140556u);
}

TEST_F(SwitchboardClientTest, QueryFindsWhatAnotherClientPublished) {
    SwitchboardClient publisher = connected();
    SwitchboardClient client = connected();
    const auto listener = platform::NSXPCListener::anonymousListener();
    const EndpointPtr endpoint = listener->endpoint();
    publisher.publish(endpoint, "com.example.thing");
    ASSERT_TRUE(publisher.barrier(kPatience));

    const Result<EndpointPtr> found = client.query("com.example.thing", kPatience);

    ASSERT_TRUE(found);
    ASSERT_NE(*found, nullptr);
    EXPECT_TRUE((*found)->isEqual(*endpoint));
}

TEST_F(SwitchboardClientTest, QueryGivesNullWhenNobodyPublishes) {
    SwitchboardClient client = connected();

    const Result<EndpointPtr> found = client.query("com.example.nothing", kPatience);

    ASSERT_TRUE(found);
    EXPECT_EQ(*found, nullptr);
}

TEST_F(SwitchboardClientTest, ConnectingToAPublisherThatIsNotThereSaysSo) {
    SwitchboardClient client = connected();

    const auto component = client.connectToPublisher("com.example.nothing", kPatience);

    ASSERT_FALSE(component);
    EXPECT_EQ(component.error().code, Code::NoService);
    EXPECT_THAT(component.error().description, HasSubstr("com.example.nothing"));
}

TEST_F(SwitchboardClientTest, PostIsAnsweredAfterItWasHandled) {
    SwitchboardClient client = connected();

    ASSERT_TRUE(client.post({"com.example.news", "me", platform::Dictionary{{"a", 1}}}, kPatience));

    EXPECT_THAT(board_.calls(), ElementsAre("barrier", "post com.example.news me 1", "barrier"));
}

TEST_F(SwitchboardClientTest, PostWithoutAnswerArrivesWithoutSourceAndInfo) {
    SwitchboardClient client = connected();

    ASSERT_TRUE(client.post({.name = "com.example.news"}));

    EXPECT_EQ(board_.waitForCalls(2).back(), "post com.example.news - -");
}

TEST_F(SwitchboardClientTest, PostingFasterThanTheSwitchboardHandlesIsRefusedAndBreaksNothing) {
    SwitchboardClient client = connected();
    board_.setHolds(true);  // Barriers too, so that nothing counts as handled.
    const Notification news{"n", "s", platform::Dictionary{{"k", std::string(100'000, 'x')}}};
    std::size_t sent = 0;
    Result<void> posted;
    while ((posted = client.post(news)))
        ++sent;

    EXPECT_EQ(posted.error().code, Code::DeadlinePassed);
    EXPECT_EQ(sent, 10u);
    board_.setHolds(false);
    ASSERT_TRUE(client.barrier(kPatience));
    EXPECT_TRUE(client.post(news));
    EXPECT_EQ(board_.arrivals(), 1u);
}

TEST_F(SwitchboardClientTest, ManyPostsInARowArriveInOrder) {
    constexpr int kMany = 20'000;
    SwitchboardClient client = connected();

    for (int i = 0; i < kMany; ++i) {
        const Notification news{.name = std::to_string(i)};
        const bool isSent = client.post(news) || client.post(news, kPatience);
        ASSERT_TRUE(isSent) << i;
    }
    ASSERT_TRUE(client.barrier(kPatience));

    auto calls = board_.calls();
    std::erase(calls, "barrier");
    ASSERT_EQ(calls.size(), static_cast<std::size_t>(kMany));
    for (int i = 0; i < kMany; ++i)
        ASSERT_EQ(calls[static_cast<std::size_t>(i)], "post " + std::to_string(i) + " - -");
}

TEST_F(SwitchboardClientTest, PeerIsTheProcessOfTheSwitchboard) {
    SwitchboardClient client = connected();

    EXPECT_EQ(client.peer(), (Peer{::geteuid(), ::getegid(), ::getpid()}));
}

TEST_F(SwitchboardClientTest, AnEndpointIsWithdrawnByPublishingNull) {
    SwitchboardClient client = connected();

    client.publish(nullptr, "com.example.thing");

    EXPECT_EQ(board_.waitForCalls(2).back(), "redact com.example.thing");
}

TEST_F(SwitchboardClientTest, CallsMadeBeforeTheConnectionIsThereAreAnswered) {
    SwitchboardClient client(options());

    EXPECT_EQ(*client.componentVersion(kPatience), "Switchboard-2.2.5.12");
}

// MARK: No answers

TEST_F(SwitchboardClientTest, WaitingForASilentSwitchboardEndsWithTheDeadline) {
    SwitchboardClient client = connected();
    board_.setHolds(true);

    const auto answer = client.componentVersion(1ms);

    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error().code, Code::DeadlinePassed);
}

TEST_F(SwitchboardClientTest, ACompletionOfASilentSwitchboardComesWithTheDeadline) {
    SwitchboardClient client = connected();
    board_.setHolds(true);
    Inbox<Code> codes;

    client.query("com.example.thing", 1ms,
                 [&](const Result<EndpointPtr>& found) { codes.add(found.error().code); });

    EXPECT_THAT(codes.waitFor(1), ElementsAre(Code::DeadlinePassed));
}

TEST_F(SwitchboardClientTest, AnAnswerThatComesTooLateDisturbsNothing) {
    SwitchboardClient client = connected();
    board_.setHolds(true);
    Inbox<Code> codes;
    ASSERT_FALSE(client.componentVersion(1ms));
    client.buildNumber(1ms, [&](const auto& answer) { codes.add(answer.error().code); });
    ASSERT_EQ(codes.waitFor(1).size(), 1u);
    ASSERT_EQ(board_.waitForCalls(3).size(), 3u);

    board_.setHolds(false);

    EXPECT_EQ(*client.componentVersion(kPatience), "Switchboard-2.2.5.12");
    EXPECT_EQ(codes.items().size(), 1u);
    EXPECT_EQ(board_.arrivals(), 1u);
}

TEST_F(SwitchboardClientTest, ADeadlineThatHasPassedEndsTheCallAtOnce) {
    SwitchboardClient client = connected();
    board_.setHolds(true);
    Inbox<Code> codes;

    EXPECT_EQ(client.barrier(0s).error().code, Code::DeadlinePassed);
    EXPECT_EQ(client.barrier(-1h).error().code, Code::DeadlinePassed);
    client.barrier(-1h, [&](const auto& answer) { codes.add(answer.error().code); });

    EXPECT_THAT(codes.waitFor(1), ElementsAre(Code::DeadlinePassed));
}

TEST_F(SwitchboardClientTest, WhatIsInFlightWhenTheConnectionBreaksEndsAsDisconnected) {
    SwitchboardClient client = connected();
    board_.setHolds(true);
    Inbox<Code> codes;
    client.query("a", kPatience, [&](const auto& answer) { codes.add(answer.error().code); });
    client.post({.name = "b"}, kPatience,
                [&](const auto& answer) { codes.add(answer.error().code); });
    ASSERT_EQ(board_.waitForCalls(4).size(), 4u);

    board_.stop();

    EXPECT_THAT(codes.waitFor(2), ElementsAre(Code::Disconnected, Code::Disconnected));
}

TEST_F(SwitchboardClientTest, AThreadThatWaitsWhenTheConnectionBreaksIsTold) {
    SwitchboardClient client = connected();
    board_.setHolds(true);
    std::thread breaker([this] {
        (void)board_.waitForCalls(2);
        board_.stop();
    });

    const auto answer = client.query("a", kPatience);
    breaker.join();

    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error().code, Code::Disconnected);
}

TEST_F(SwitchboardClientTest, EachOfThousandsOfCallsEndsOnceThoughTheConnectionBreaksAmongThem) {
    constexpr std::size_t kCalls = 6'000;
    SwitchboardClient client = connected();
    std::vector<std::atomic<int>> endings(kCalls);
    std::atomic<std::size_t> answered = 0;
    Inbox<bool> ended;

    for (std::size_t i = 0; i < kCalls; ++i) {
        client.query("com.example." + std::to_string(i), kPatience, [&, i](const auto& answer) {
            ++endings[i];
            if (answer) ++answered;
            ended.add(true);
        });
        if (i == kCalls / 2) (void)board_.waitForCalls(kCalls / 4);
        if (i == kCalls / 2) board_.hangUp();
    }
    ASSERT_EQ(ended.waitFor(kCalls).size(), kCalls);
    ASSERT_TRUE(client.closeAndWait(kPatience));

    for (const auto& count : endings)
        ASSERT_EQ(count, 1);
    EXPECT_GE(answered, kCalls / 8);
    EXPECT_LT(answered, kCalls);
}

TEST_F(SwitchboardClientTest, ManyThreadsMayWaitAtOnce) {
    SwitchboardClient client = connected();
    std::atomic<int> answered = 0;
    std::vector<std::thread> threads;

    for (int i = 0; i < 16; ++i) {
        threads.emplace_back([&] {
            for (int call = 0; call < 100; ++call)
                answered += client.componentVersion(kPatience).hasValue() ? 1 : 0;
        });
    }
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(answered, 1'600);
}

// MARK: What cannot be sent

TEST_F(SwitchboardClientTest, UserInfoThatCannotTravelIsRefusedAndTheConnectionUnharmed) {
    SwitchboardClient client = connected();
    using platform::Dictionary;
    const std::vector<Dictionary> infos = {
        {{"null", platform::Value()}},         {{"set", platform::Set({1})}},
        {{"endpoint", anEndpoint()}},          {{1, "a key that is no text"}},
        {{"\xff", "a key that is not UTF-8"}},
    };

    for (const Dictionary& info : infos) {
        const Notification notification{"a", std::nullopt, info};
        EXPECT_THROW((void)client.post(notification), std::invalid_argument);
        EXPECT_THROW((void)client.post(notification, kPatience), std::invalid_argument);
        EXPECT_THROW(client.post(notification, kPatience, [](auto) {}), std::invalid_argument);
    }

    EXPECT_TRUE(client.barrier(kPatience));
    EXPECT_EQ(board_.arrivals(), 1u);
}

TEST_F(SwitchboardClientTest, UserInfoNestsAsDeepAsTheProtocolAllowsAndNoDeeper) {
    SwitchboardClient client = connected();
    platform::Value deepest = "bottom";
    for (unsigned level = 1; level < platform::kNestingMax; ++level)
        deepest = platform::ValueArray{deepest};

    EXPECT_TRUE(client.post({"a", "b", platform::Dictionary{{"k", deepest}}}, kPatience));
    EXPECT_THROW(
        (void)client.post({"a", "b", platform::Dictionary{{"k", platform::ValueArray{deepest}}}}),
        std::invalid_argument);
}

TEST_F(SwitchboardClientTest, ANotificationLongerThanAMessageIsRefusedAndTheConnectionUnharmed) {
    SwitchboardClient client = connected();
    const Notification notification{
        "a", "b", platform::Dictionary{{"k", std::string(platform::kFrameBodyBytesMax, 'x')}}};

    EXPECT_THROW((void)client.post(notification), std::length_error);

    EXPECT_TRUE(client.barrier(kPatience));
    EXPECT_EQ(board_.arrivals(), 1u);
}

TEST_F(SwitchboardClientTest, IdentifiersAreAsLongAsTheProtocolAllowsAndNoLonger) {
    SwitchboardClient client = connected();
    const std::string longest(kIdentifierBytesMax, 'i');
    const std::string longer = longest + "i";

    client.publish(anEndpoint(), longest);
    EXPECT_TRUE(client.query(longest, kPatience));
    EXPECT_THROW(client.publish(anEndpoint(), longer), std::length_error);
    EXPECT_THROW(client.redact(longer), std::length_error);
    EXPECT_THROW((void)client.query(longer, kPatience), std::length_error);
    EXPECT_THROW(client.query(longer, kPatience, [](auto) {}), std::length_error);
}

TEST_F(SwitchboardClientTest, AnIdentifierIsMeasuredAsItTravels) {
    SwitchboardClient client = connected();
    const std::string grows(kIdentifierBytesMax / 4 + 1,
                            '\xff');  // Each byte becomes \xff in text.

    EXPECT_THROW(client.publish(anEndpoint(), grows), std::length_error);
}

}  // namespace
}  // namespace sevrin
