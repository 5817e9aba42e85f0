// How a client connects for the first time, and how it fails to, against a switchboard inside the
// test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>
#include <thread>

#include "Tests/Support/ObservedClientTest.h"
#include "Tests/Support/StateChanges.h"
#include "Tests/Support/TestSwitchboard.h"

namespace sevrin {
namespace {

using test::anEndpoint;
using test::Inbox;
using test::isEvent;
using test::kPatience;
using test::options;
using test::serviceName;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using Code = CallError::Code;
using Event = SwitchboardClient::StateChange::Event;
using State = SwitchboardClient::State;
using namespace std::chrono_literals;

class ConnectingTest : public test::ObservedClientTest {};

TEST_F(ConnectingTest, ConnectingWithoutASwitchboardSaysWhichNameNobodyServes) {
    const auto client = SwitchboardClient::connect(options(), kPatience);

    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::NoService);
    EXPECT_THAT(client.error().description, HasSubstr(serviceName()));
}

TEST_F(ConnectingTest, AConnectionThatTheSwitchboardRefusesIsToldAsRefused) {
    board_.start();
    board_.setAccepts(false);

    const auto client = SwitchboardClient::connect(options(), kPatience);

    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::Refused);
}

TEST_F(ConnectingTest, AFolderThatOthersMayWriteToIsNotTrusted) {
    board_.start();
    const std::string folder = std::getenv("SEVRIN_BOOTSTRAP_DIR");
    ASSERT_EQ(::chmod(folder.c_str(), 0777), 0);

    const auto client = SwitchboardClient::connect(options(), kPatience);

    ASSERT_EQ(::chmod(folder.c_str(), 0700), 0);
    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::Untrusted);
}

TEST_F(ConnectingTest, ASwitchboardThatNeverGreetsIsGivenUpWithTheDeadline) {
    board_.start();
    board_.setHolds(true);

    const auto client = SwitchboardClient::connect(options(), 1ms);

    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::DeadlinePassed);
}

// A server that speaks version 2 of the protocol, and nothing else.
class VersionTwoServer {
public:
    VersionTwoServer() : path_(std::getenv("SEVRIN_BOOTSTRAP_DIR") + ("/" + serviceName())) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path_.c_str());
        listening_.reset(::socket(AF_UNIX, SOCK_STREAM, 0));
        EXPECT_EQ(
            ::bind(listening_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
        EXPECT_EQ(::listen(listening_.get(), 1), 0);
        thread_ = std::thread([this] {
            const platform::UniqueFd client(::accept(listening_.get(), nullptr, nullptr));
            const std::string greeting("\x0d\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\x82\x6asevrin-xpc\x02",
                                       29);
            EXPECT_EQ(::send(client.get(), greeting.data(), greeting.size(), 0), 29);
            char byte;
            while (::read(client.get(), &byte, 1) > 0) {
            }
        });
    }
    ~VersionTwoServer() {
        thread_.join();
        ::unlink(path_.c_str());
    }

private:
    const std::string path_;
    platform::UniqueFd listening_;
    std::thread thread_;
};

TEST_F(ConnectingTest, ASwitchboardOfAnotherVersionIsToldWithBothVersions) {
    const VersionTwoServer server;

    const auto client = SwitchboardClient::connect(options(), kPatience);

    ASSERT_FALSE(client);
    EXPECT_EQ(client.error().code, Code::VersionMismatch);
    EXPECT_THAT(client.error().description, AllOf(HasSubstr("version 2"), HasSubstr("version 1")));
}

TEST_F(ConnectingTest, AFirstAttemptThatFailedIsToldToItsCallerAloneAndNotRepeated) {
    const auto client = SwitchboardClient::connect(observed(), kPatience);
    board_.start();
    SwitchboardClient next = *SwitchboardClient::connect(options(), kPatience);
    ASSERT_TRUE(next.closeAndWait(kPatience));

    EXPECT_FALSE(client);
    EXPECT_EQ(board_.arrivals(), 1u);
    EXPECT_TRUE(changes_.items().empty());
}

TEST_F(ConnectingTest, AClientThatIsThereBeforeTheSwitchboardConnectsOnceItComes) {
    SwitchboardClient client(observed());
    client.publish(anEndpoint(), "com.example.early");
    ASSERT_THAT(changes_.waitFor(1), ElementsAre(isEvent(Event::Unreachable, Code::NoService)));

    board_.start();
    ASSERT_TRUE(client.waitUntilConnected(kPatience));

    EXPECT_THAT(changes_.waitFor(2), ElementsAre(isEvent(Event::Unreachable, Code::NoService),
                                                 isEvent(Event::Connected)));
    EXPECT_THAT(board_.calls(), ElementsAre("publish com.example.early", "barrier"));
    EXPECT_EQ(client.state(), State::Connected);
}

TEST_F(ConnectingTest, WaitingForASwitchboardThatNeverComesSaysWhatStoodInTheWay) {
    SwitchboardClient client(observed());
    ASSERT_EQ(changes_.waitFor(1).size(), 1u);

    const Result<void> connected = client.waitUntilConnected(1ms);

    ASSERT_FALSE(connected);
    EXPECT_EQ(connected.error().code, Code::DeadlinePassed);
    EXPECT_THAT(connected.error().description, HasSubstr(serviceName()));
}

TEST_F(ConnectingTest, CallsFailAtOnceWhileThereIsNoSwitchboard) {
    SwitchboardClient client(observed());
    ASSERT_EQ(changes_.waitFor(1).size(), 1u);
    Inbox<Code> codes;

    client.query("a", kPatience, [&](const auto& answer) { codes.add(answer.error().code); });
    client.post({"a"}, kPatience, [&](const auto& answer) { codes.add(answer.error().code); });

    EXPECT_EQ(client.query("a", kPatience).error().code, Code::NoService);
    EXPECT_EQ(client.post({"a"}, kPatience).error().code, Code::NoService);
    EXPECT_THAT(codes.waitFor(2), ElementsAre(Code::NoService, Code::NoService));
}

}  // namespace
}  // namespace sevrin
