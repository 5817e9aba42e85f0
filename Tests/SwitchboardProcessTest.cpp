// The program itself, started as its users start it: who may, under which name, and how it ends.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Platform/NSDistributedNotificationCenter.h"
#include "Platform/NSRunLoop.h"
#include "Platform/NSXPCConnection.h"
#include "Platform/NSXPCListener.h"
#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/ServiceProcess.h"
#include "switchboard/SwitchboardProtocols.h"

namespace sevrin {
namespace {

using platform::NSDistributedNotificationCenter;
using platform::NSNotification;
using platform::NSRunLoop;
using platform::NSXPCConnection;
using platform::NSXPCInterface;
using platform::NSXPCListener;
using platform::Value;
using platform::ValueArray;
using test::ServiceFolder;
using test::ServiceProcess;
using test::TestChild;
using testing::HasSubstr;
using testing::Not;

using Arguments = std::vector<std::string>;

bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
}

std::string contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// Everything that the program still has to say on the console.
std::string console(ServiceProcess& service) {
    std::string text;
    while (const auto line = service.readLine())
        text += *line + "\n";
    return text;
}

// A switchboard of an ordinary user.
class UserSwitchboardProcessTest : public testing::Test {
protected:
    ServiceProcess start(const Arguments& arguments = {}) {
        return ServiceProcess(folder_, arguments, user_);
    }

    // What the program has to say when it ends with status 2 at once, on the console or in the log.
    std::string refusal(const Arguments& arguments) {
        ServiceProcess service = start(arguments);
        const std::string said = console(service);
        EXPECT_EQ(service.wait(), 2);
        EXPECT_FALSE(exists(socket_));
        EXPECT_FALSE(exists(folder_.bootstrap() + "/com.sevrin.switchboard"));
        return said + contents(folder_.logFile());
    }

    const uid_t user_ = TestChild::mayChangeUser() ? TestChild::kNobody : ::geteuid();
    const std::string name_ = "com.sevrin.switchboard." + std::to_string(user_);
    const ServiceFolder folder_{user_};
    const std::string socket_ = folder_.bootstrap() + "/" + name_;
};

TEST_F(UserSwitchboardProcessTest, ListensUnderTheUsersName) {
    ServiceProcess service = start();

    ASSERT_TRUE(service.waitUntilReady());

    EXPECT_TRUE(exists(socket_));
}

TEST_F(UserSwitchboardProcessTest, EndsWithStatusTwoAfterSIGTERM) {
    ServiceProcess service = start();
    ASSERT_TRUE(service.waitUntilReady());

    service.signal(SIGTERM);

    EXPECT_EQ(service.wait(), 2);
    EXPECT_FALSE(exists(socket_));
}

TEST_F(UserSwitchboardProcessTest, WritesTheRecordsOfItsStartAndItsEndIntoTheUsersLog) {
    ServiceProcess service = start();
    ASSERT_TRUE(service.waitUntilReady());
    const std::string process = "." + std::to_string(service.process()) + ".";
    service.signal(SIGTERM);
    EXPECT_EQ(console(service), "");
    EXPECT_EQ(service.wait(), 2);

    const std::string log = contents(folder_.logFile());
    EXPECT_THAT(log, testing::ContainsRegex(" #debug# started Switchboard-2.2.5.12 .8[.0-9]*" +
                                            process + "[0-9]+]\n"));
    EXPECT_THAT(log, testing::HasSubstr(" #debug# port: " + name_ + " ["));
    EXPECT_THAT(log, testing::HasSubstr(" #debug# users: " + std::to_string(user_) + " ["));
    EXPECT_THAT(
        log, testing::HasSubstr(" #debug# stopping Switchboard-2.2.5.12, exiting with status 2 ["));
}

TEST_F(UserSwitchboardProcessTest, EndsWithStatusZeroAfterSIGINT) {
    ServiceProcess service = start();
    ASSERT_TRUE(service.waitUntilReady());

    service.signal(SIGINT);

    EXPECT_EQ(service.wait(), 0);
    EXPECT_FALSE(exists(socket_));
}

TEST_F(UserSwitchboardProcessTest, IgnoresSIGHUP) {
    ServiceProcess service = start();
    ASSERT_TRUE(service.waitUntilReady());

    service.signal(SIGHUP);
    service.signal(SIGINT);

    EXPECT_EQ(service.wait(), 0);
}

TEST_F(UserSwitchboardProcessTest, ArgumentsThatOpenNoListChangeNothing) {
    ServiceProcess service = start({"501", "--verbose"});

    ASSERT_TRUE(service.waitUntilReady());

    EXPECT_TRUE(exists(socket_));
}

TEST_F(UserSwitchboardProcessTest, AListOfUsersIsForRootOnly) {
    EXPECT_THAT(refusal({"--users", "501"}), HasSubstr("system switchboard must run as root"));
}

TEST_F(UserSwitchboardProcessTest, AnEmptyListIsReportedBeforeTheMissingPrivilege) {
    const std::string said = refusal({"--users"});

    EXPECT_THAT(said, HasSubstr("empty --users list"));
    EXPECT_THAT(said, Not(HasSubstr("must run as root")));
}

TEST_F(UserSwitchboardProcessTest, ARefusalIsNoStop) {
    const std::string said = refusal({"--users"});

    // It got as far as the log, and what it says of its end there is why.
    EXPECT_THAT(said, HasSubstr(" #debug# started Switchboard-2.2.5.12 ["));
    EXPECT_THAT(said, HasSubstr(" Failure empty --users list ["));
    EXPECT_THAT(said, Not(HasSubstr("stopping")));
}

TEST_F(UserSwitchboardProcessTest, RaisesItsDescriptorLimitAsFarAsItMay) {
    ServiceProcess service = start();
    ASSERT_TRUE(service.waitUntilReady());

    std::ifstream limits("/proc/" + std::to_string(service.process()) + "/limits");
    std::string line;
    while (std::getline(limits, line) && line.rfind("Max open files", 0) != 0) {
    }
    std::istringstream words(line.substr(std::string("Max open files").size()));
    std::string soft, hard;
    words >> soft >> hard;
    EXPECT_EQ(soft, hard);
    EXPECT_NE(soft, "");
}

// Slow: the true delay, once.
TEST_F(UserSwitchboardProcessTest, AnnouncesItsStartOnceSixSecondsLater) {
    const bool isAlone = test::enterOwnNetwork();
    std::vector<NSNotification> heard;
    NSDistributedNotificationCenter& center = NSDistributedNotificationCenter::defaultCenter();
    const auto observer = center.addObserver("com.sevrin.switchboard.started", name_,
                                             [&](const NSNotification& notification) {
                                                 heard.push_back(notification);
                                                 NSRunLoop::currentRunLoop().stop();
                                             });
    const auto before = std::chrono::steady_clock::now();
    ServiceProcess service = start();

    const bool isHeard =
        NSRunLoop::currentRunLoop().runUntilDate(before + ServiceProcess::kPatience);

    ASSERT_TRUE(isHeard);
    EXPECT_TRUE(heard[0].userInfo.isNull());
    const auto passed = std::chrono::steady_clock::now() - before;
    EXPECT_TRUE(passed >= std::chrono::seconds(6) || !isAlone);
    service.signal(SIGTERM);
    EXPECT_EQ(service.wait(), 2);
    NSRunLoop::currentRunLoop().runUntilDate(std::chrono::steady_clock::now() +
                                             std::chrono::milliseconds(10));
    EXPECT_TRUE(heard.size() == 1 || !isAlone);
    center.removeObserver(observer);
}

// A switchboard of the system.
class SystemSwitchboardProcessTest : public testing::Test {
protected:
    void SetUp() override {
        if (!TestChild::mayChangeUser()) GTEST_SKIP() << "only root may start this one";
    }

    ServiceProcess start(const Arguments& arguments) {
        return ServiceProcess(folder_, arguments, 0);
    }

    // What the program says when it ends with status 2 at once, without its time stamp.
    std::string refusal(const Arguments& arguments) {
        ServiceProcess service = start(arguments);
        const std::string said = console(service);
        EXPECT_EQ(service.wait(), 2);
        EXPECT_FALSE(exists(socket_));
        const std::size_t message = said.find("] ");
        return message == std::string::npos ? said : said.substr(message + 2);
    }

    const ServiceFolder folder_{::geteuid()};
    const std::string socket_ = folder_.bootstrap() + "/com.sevrin.switchboard";
};

TEST_F(SystemSwitchboardProcessTest, ListensUnderTheSystemsName) {
    ServiceProcess service = start({"--users", "501", "502"});

    ASSERT_TRUE(service.waitUntilReady());

    EXPECT_TRUE(exists(socket_));
}

TEST_F(SystemSwitchboardProcessTest, WordsBeforeTheListAreSkipped) {
    ServiceProcess service = start({"foo", "--users", "501"});

    ASSERT_TRUE(service.waitUntilReady());

    EXPECT_TRUE(exists(socket_));
}

TEST_F(SystemSwitchboardProcessTest, RootMustSayWhomToServe) {
    EXPECT_EQ(refusal({}), "(Failure) missing --users\n");
    EXPECT_EQ(refusal({"501"}), "(Failure) missing --users\n");
}

TEST_F(SystemSwitchboardProcessTest, AnEmptyListIsRefused) {
    EXPECT_EQ(refusal({"--users"}), "(Failure) empty --users list\n");
    EXPECT_EQ(refusal({"--users", "0"}), "(Failure) empty --users list\n");
    EXPECT_EQ(refusal({"--users", "-1"}), "(Failure) empty --users list\n");
}

TEST_F(SystemSwitchboardProcessTest, EndsWithStatusTwoAfterSIGTERMAndZeroAfterSIGINT) {
    ServiceProcess terminated = start({"--users", "501"});
    ASSERT_TRUE(terminated.waitUntilReady());
    terminated.signal(SIGTERM);
    EXPECT_EQ(terminated.wait(), 2);

    ServiceProcess interrupted = start({"--users", "501"});
    ASSERT_TRUE(interrupted.waitUntilReady());
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.wait(), 0);
}

TEST_F(SystemSwitchboardProcessTest, SaysNothingOnTheConsoleWhenAllIsWell) {
    ServiceProcess service = start({"--users", "501"});
    ASSERT_TRUE(service.waitUntilReady());

    service.signal(SIGTERM);

    EXPECT_EQ(console(service), "");
    EXPECT_EQ(service.wait(), 2);
}

// A switchboard that the test itself may use: the system's for root, else the own one.
class ServedProcessTest : public testing::Test {
protected:
    ServedProcessTest() {
        ::setenv("SEVRIN_BOOTSTRAP_DIR", folder_.bootstrap().c_str(), 1);
        if (!service_.waitUntilReady()) throw std::runtime_error("the service does not start");
    }
    ~ServedProcessTest() override { ::unsetenv("SEVRIN_BOOTSTRAP_DIR"); }

    static NSXPCConnection::Deadline soon() {
        return std::chrono::steady_clock::now() + ServiceProcess::kPatience;
    }

    std::shared_ptr<NSXPCConnection> connect() const {
        const auto domain =
            isSystem_ ? NSXPCConnection::Domain::System : NSXPCConnection::Domain::User;
        auto connection = NSXPCConnection::initWithMachServiceName(name_, domain);
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(VeloraSwitchboarding_private::protocol()));
        connection->resume();
        return connection;
    }

    // The first value of the answer; null also when there is none.
    static Value ask(NSXPCConnection& connection, const char* selector,
                     const ValueArray& arguments = {}) {
        const auto answer = connection.requestAndWait(
            *VeloraSwitchboarding_private::protocol().method(selector), arguments, soon());
        const auto* const values = std::get_if<ValueArray>(&answer);
        return values && !values->empty() ? values->front() : Value();
    }

    static void tell(NSXPCConnection& connection, const char* selector,
                     const ValueArray& arguments) {
        connection.send(*VeloraSwitchboarding_private::protocol().method(selector), arguments);
    }

    const bool isSystem_ = ::geteuid() == 0;
    const ServiceFolder folder_{::geteuid()};
    const std::string name_ = isSystem_ ? "com.sevrin.switchboard"
                                        : "com.sevrin.switchboard." + std::to_string(::geteuid());
    ServiceProcess service_{folder_, isSystem_ ? Arguments{"--users", "501"} : Arguments{},
                            ::geteuid()};
};

TEST_F(ServedProcessTest, SaysItsVersion) {
    const auto client = connect();

    EXPECT_EQ(ask(*client, "queryComponentVersionWithReply:"), Value("Switchboard-2.2.5.12"));
    EXPECT_EQ(ask(*client, "queryBuildNumberWithReply:"), Value(140556));
}

TEST_F(ServedProcessTest, WhatOneConnectionPublishesAnotherFindsUntilItEnds) {
    const auto listener = NSXPCListener::anonymousListener();
    const auto publisher = connect();
    const auto asker = connect();
    const auto find = [&] {
        return ask(*asker, "queryEndpointForIdentifier:withReply:", {"clock"});
    };

    tell(*publisher, "publishEndpoint:forIdentifier:", {listener->endpoint(), "clock"});
    static_cast<void>(ask(*publisher, "barrierWithCompletion:"));
    EXPECT_EQ(find(), Value(listener->endpoint()));

    publisher->invalidate();
    const auto deadline = soon();
    while (!find().isNull() && std::chrono::steady_clock::now() < deadline) {
    }
    EXPECT_TRUE(find().isNull());
}

TEST_F(ServedProcessTest, AnEndedServiceEndsItsConnections) {
    const auto client = connect();
    EXPECT_FALSE(ask(*client, "queryComponentVersionWithReply:").isNull());

    service_.signal(SIGTERM);
    EXPECT_EQ(service_.wait(), 2);

    EXPECT_TRUE(ask(*client, "queryComponentVersionWithReply:").isNull());
    EXPECT_TRUE(client->failure().has_value());
}

}  // namespace
}  // namespace sevrin
