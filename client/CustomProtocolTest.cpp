// A protocol of the test's own, served and called, in both directions.
#include "client/CustomProtocol.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "Platform/Class.h"
#include "Platform/SelectorMethod.h"
#include "Platform/XPCLimits.h"
#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using platform::ArgumentType;
using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::Protocol;
using platform::Value;
using platform::ValueArray;
using test::Inbox;
using test::kPatience;
using testing::ElementsAre;
using testing::HasSubstr;
using Code = CallError::Code;

const Protocol& listeningProtocol() {
    static const Protocol& theProtocol =
        *new Protocol("TestListening", {}, {{"hear:", {{ArgumentType::Kind::String}}, false, {}}});
    return theProtocol;
}

const Protocol& echoProtocol() {
    const ArgumentType string{ArgumentType::Kind::String};
    static const Protocol& theProtocol =
        *new Protocol("TestEchoing", {&SVComponentServing::protocol()},
                      {{"echo:withReply:", {string}, true, {string}},
                       {"shout:", {string}, false, {}},
                       {"count:withReply:",
                        {{ArgumentType::Kind::Dictionary}},
                        true,
                        {{ArgumentType::Kind::UnsignedInt32}}}});
    return theProtocol;
}

class Listener final : public platform::Object {
public:
    explicit Listener(Inbox<std::string>& heard) : heard_(heard) {}

    [[nodiscard]] const platform::Class& isa() const override {
        static const platform::Class& theClass =
            *new platform::Class("TestListener", &Object::classObject(),
                                 {{"hear:", platform::selectorMethod<Listener>(&Listener::hear)}});
        return theClass;
    }

    void hear(const std::string& text) { heard_.add(text); }

private:
    Inbox<std::string>& heard_;
};

// Echoes, and shouts back to its peer.
class Echo final : public platform::Object {
public:
    explicit Echo(const std::shared_ptr<NSXPCConnection>& peer) : peer_(peer) {
        peer->setRemoteObjectInterface(NSXPCInterface::interfaceWithProtocol(listeningProtocol()));
    }

    [[nodiscard]] const platform::Class& isa() const override {
        using platform::selectorMethod;
        static const platform::Class& theClass =
            *new platform::Class("TestEcho", &Object::classObject(),
                                 {{"echo:withReply:", selectorMethod<Echo>(&Echo::echo)},
                                  {"shout:", selectorMethod<Echo>(&Echo::shout)},
                                  {"count:withReply:", selectorMethod<Echo>(&Echo::count)}});
        return theClass;
    }

    void echo(const std::string& text, std::function<void(std::string)> reply) { reply(text); }
    void shout(const std::string& text) {
        const auto peer = peer_.lock();
        if (peer) peer->send(*listeningProtocol().method("hear:"), ValueArray{text + "!"});
    }
    void count(const Value& dictionary, std::function<void(std::uint32_t)> reply) {
        reply(static_cast<std::uint32_t>(dictionary.ifDictionary()->size()));
    }

private:
    const std::weak_ptr<NSXPCConnection> peer_;
};

class CustomProtocolTest : public testing::Test {
protected:
    CustomProtocolTest() { client_.start(); }

    Inbox<std::string> heard_;
    ProtocolServer server_{
        echoProtocol(), [](const auto& connection) { return std::make_shared<Echo>(connection); }};
    ProtocolClient client_{echoProtocol(),
                           server_.endpoint(),
                           {.exportedProtocol = &listeningProtocol(),
                            .exportedObject = std::make_shared<Listener>(heard_)}};
};

TEST_F(CustomProtocolTest, CallsAreAnswered) {
    Inbox<ValueArray> answers;

    client_.call("echo:withReply:", {"a"}, kPatience,
                 [&](const auto& answer) { answers.add(*answer); });

    EXPECT_EQ(*client_.call("echo:withReply:", {"b"}, kPatience), ValueArray{"b"});
    EXPECT_THAT(answers.waitFor(1), ElementsAre(ValueArray{"a"}));
}

TEST_F(CustomProtocolTest, TheServerMayCallBack) {
    client_.send("shout:", {"hello"});

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("hello!"));
}

TEST_F(CustomProtocolTest, WhatTheProtocolDoesNotAllowIsRefusedBeforeItIsSent) {
    const auto expectRefusal = [this](const char* selector, const ValueArray& arguments) {
        EXPECT_THROW((void)client_.call(selector, arguments, kPatience), std::invalid_argument);
        EXPECT_THROW(client_.call(selector, arguments, kPatience, [](const auto&) {}),
                     std::invalid_argument);
    };

    expectRefusal("sing:", {"a"});
    expectRefusal("shout:", {"a"});
    expectRefusal("echo:withReply:", {});
    expectRefusal("echo:withReply:", {1});
    expectRefusal("echo:withReply:", {"a", "b"});
    expectRefusal("count:withReply:", {platform::Dictionary{{"k", Value()}}});
    EXPECT_THROW(client_.send("echo:withReply:", {"a"}), std::invalid_argument);
    EXPECT_THROW(client_.send("shout:", {Value()}), std::invalid_argument);

    EXPECT_EQ(*client_.call("echo:withReply:", {"b"}, kPatience), ValueArray{"b"});
}

TEST_F(CustomProtocolTest, AMessageLongerThanAFrameIsRefusedBeforeItIsSent) {
    const ValueArray tooLong = {std::string(platform::kFrameBodyBytesMax, 'x')};

    EXPECT_THROW((void)client_.call("echo:withReply:", tooLong, kPatience), std::length_error);

    EXPECT_EQ(*client_.call("echo:withReply:", {"b"}, kPatience), ValueArray{"b"});
}

TEST_F(CustomProtocolTest, APeerOfAnotherProtocolLosesItsConnection) {
    ComponentServer other(std::make_shared<Component>("Thing-1.0", 1));
    ProtocolClient client(echoProtocol(), other.endpoint(), {});
    client.startAndWait(kPatience);

    const auto answer = client.call("echo:withReply:", {"a"}, kPatience);

    ASSERT_FALSE(answer);
    EXPECT_EQ(answer.error().code, Code::Disconnected);
}

}  // namespace
}  // namespace sevrin
