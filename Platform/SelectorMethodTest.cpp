// Tests of methods made from member functions: what becomes of each kind of argument, and of the
// reply block.
#include "Platform/SelectorMethod.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace sevrin::platform {
namespace {

using EndpointPtr = std::shared_ptr<NSXPCListenerEndpoint>;

class Endpoint : public NSXPCListenerEndpoint {};

// Not the first base of Receiver, so that a call through the wrong address would be noticed.
class Named {
public:
    virtual ~Named() = default;
    virtual void rename(const std::string& newName) = 0;
};

class Receiver : public Object, public Named {
public:
    void nothing() { ++calls; }
    void rename(const std::string& newName) override { name = newName; }
    void describe(std::string text, const std::optional<std::string>& more, std::uint32_t number) {
        name = std::move(text);
        detail = more;
        count = number;
    }
    void keep(const Value& value, EndpointPtr given) {
        kept = value;
        endpoint = std::move(given);
    }
    void ask(const std::string& question, std::function<void(std::string, std::uint32_t)> answer) {
        name = question;
        answerLater = std::move(answer);
    }
    void seek(const std::function<void(EndpointPtr)>& found) { found(endpoint); }
    void finish(std::function<void()> done) { done(); }

    int calls = 0;
    std::string name;
    std::optional<std::string> detail = "before";
    std::uint32_t count = 0;
    Value kept;
    EndpointPtr endpoint;
    std::function<void(std::string, std::uint32_t)> answerLater;
};

class SelectorMethodTest : public testing::Test {
protected:
    // Sends `arguments`; keeps what is replied in `replies_`.
    Value send(const Class::Method& method, ValueArray arguments) {
        Invocation invocation{arguments, [this](ValueArray values) { replies_.push_back(values); }};
        return method(&receiver_, invocation);
    }

    Receiver receiver_;
    std::vector<ValueArray> replies_;
};

TEST_F(SelectorMethodTest, AMethodWithoutArgumentsIsCalledAndGivesNull) {
    EXPECT_TRUE(send(selectorMethod<Receiver>(&Receiver::nothing), {}).isNull());

    EXPECT_EQ(receiver_.calls, 1);
    EXPECT_TRUE(replies_.empty());
}

TEST_F(SelectorMethodTest, ArgumentsArriveInOrderAsTheirOwnTypes) {
    const auto method = selectorMethod<Receiver>(&Receiver::describe);

    send(method, {"text", "more", std::numeric_limits<std::uint32_t>::max()});

    EXPECT_EQ(receiver_.name, "text");
    EXPECT_EQ(receiver_.detail, "more");
    EXPECT_EQ(receiver_.count, std::numeric_limits<std::uint32_t>::max());
}

TEST_F(SelectorMethodTest, NullIsNoText) {
    send(selectorMethod<Receiver>(&Receiver::describe), {"text", nullptr, 0});

    EXPECT_EQ(receiver_.detail, std::nullopt);
}

TEST_F(SelectorMethodTest, AValueArrivesAsItIs) {
    const Dictionary userInfo{{"key", ValueArray{1, "two"}}};

    send(selectorMethod<Receiver>(&Receiver::keep), {userInfo, nullptr});

    EXPECT_EQ(receiver_.kept, Value(userInfo));
}

TEST_F(SelectorMethodTest, AnEndpointArrivesAsTheSameObjectAndNullAsNone) {
    const auto method = selectorMethod<Receiver>(&Receiver::keep);
    const auto endpoint = std::make_shared<Endpoint>();

    send(method, {nullptr, endpoint});
    EXPECT_EQ(receiver_.endpoint, endpoint);

    send(method, {nullptr, nullptr});
    EXPECT_EQ(receiver_.endpoint, nullptr);
}

TEST_F(SelectorMethodTest, AMemberOfAnInterfaceReachesTheReceiver) {
    send(selectorMethod<Receiver>(&Named::rename), {"by its interface"});

    EXPECT_EQ(receiver_.name, "by its interface");
}

TEST_F(SelectorMethodTest, WhatTheReplyBlockIsGivenIsRepliedHoweverLate) {
    send(selectorMethod<Receiver>(&Receiver::ask), {"why"});
    EXPECT_EQ(receiver_.name, "why");
    EXPECT_TRUE(replies_.empty());

    receiver_.answerLater("because", 42);

    EXPECT_EQ(replies_, (std::vector<ValueArray>{{"because", 42}}));
}

TEST_F(SelectorMethodTest, ARepliedObjectIsThatObjectAndNoneIsNull) {
    const auto method = selectorMethod<Receiver>(&Receiver::seek);
    send(method, {});
    receiver_.endpoint = std::make_shared<Endpoint>();
    send(method, {});

    ASSERT_EQ(replies_.size(), 2U);
    EXPECT_TRUE(replies_[0].at(0).isNull());
    EXPECT_EQ(replies_[1].at(0).object(), receiver_.endpoint);
}

TEST_F(SelectorMethodTest, AReplyBlockWithoutArgumentsRepliesNothing) {
    send(selectorMethod<Receiver>(&Receiver::finish), {});

    EXPECT_EQ(replies_, (std::vector<ValueArray>{{}}));
}

TEST_F(SelectorMethodTest, AReplyThatNobodyWaitsForIsDropped) {
    const auto method = selectorMethod<Receiver>(&Receiver::ask);
    ValueArray arguments{"why"};
    Invocation invocation{arguments, nullptr};

    method(&receiver_, invocation);

    EXPECT_EQ(receiver_.name, "why");
    EXPECT_NO_THROW(receiver_.answerLater("because", 42));
}

using SelectorMethodDeathTest = SelectorMethodTest;

TEST_F(SelectorMethodDeathTest, AnArgumentOfAnotherTypeIsABug) {
    const auto method = selectorMethod<Receiver>(&Receiver::describe);

    EXPECT_DEATH(send(method, {7, nullptr, 0}), "argument is a string");
    EXPECT_DEATH(send(method, {"text", 7, 0}), "argument is a string");
    EXPECT_DEATH(send(method, {"text", nullptr, -1}), "argument is an unsigned 32-bit integer");
    EXPECT_DEATH(send(method, {"text", nullptr, std::int64_t{1} << 32}),
                 "argument is an unsigned 32-bit integer");
}

TEST_F(SelectorMethodDeathTest, AnObjectThatIsNoEndpointIsABug) {
    const auto method = selectorMethod<Receiver>(&Receiver::keep);

    EXPECT_DEATH(send(method, {nullptr, std::make_shared<Object>()}), "argument is an endpoint");
    EXPECT_DEATH(send(method, {nullptr, "text"}), "argument is an endpoint");
}

TEST_F(SelectorMethodDeathTest, AMissingOrSuperfluousArgumentIsABug) {
    constexpr const char* kWords = "message has the arguments of the method";

    EXPECT_DEATH(send(selectorMethod<Receiver>(&Receiver::describe), {"text"}), kWords);
    EXPECT_DEATH(send(selectorMethod<Receiver>(&Receiver::nothing), {1}), kWords);
    EXPECT_DEATH(send(selectorMethod<Receiver>(&Receiver::ask), {"why", 1}), kWords);
}

}  // namespace
}  // namespace sevrin::platform
