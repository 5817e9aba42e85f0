// Tests of a listener that has run out of descriptors, in a process of its own with few of them: it
// must neither spin nor exit, leave whoever came first alone, and go on when there is room.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "Platform/NSXPCConnection.h"
#include "Platform/XPCTestSupport.h"
#include "Platform/linux/BootstrapTestSupport.h"
#include "Platform/linux/TestProcess.h"

namespace sevrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace xpctest;

constexpr uid_t kSomebodyElse = 65'534;
constexpr rlim_t kFewDescriptors = 200;

class XPCListenerTest : public testing::Test {
protected:
    XPCListenerTest() : server_(XPC_TEST_HELPER, {"serve", "test.service"}, few()) {
        EXPECT_EQ(server_.line(), "serving");
    }

    static TestProcess::Start few() {
        TestProcess::Start start;
        start.descriptorsMax = kFewDescriptors;
        return start;
    }

    static std::shared_ptr<NSXPCConnection> connect() {
        const auto domain =
            ::geteuid() == 0 ? NSXPCConnection::Domain::System : NSXPCConnection::Domain::User;
        auto connection = NSXPCConnection::initWithMachServiceName("test.service", domain);
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
        connection->resume();
        return connection;
    }

    // How often the server's XPC thread has gone to sleep since it began; a thread that spins does
    // not sleep at all but is counted when it is preempted.
    [[nodiscard]] std::size_t switchesOfServer() const {
        const std::string tasks = "/proc/" + std::to_string(server_.pid()) + "/task";
        for (const auto& task : std::filesystem::directory_iterator(tasks)) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm") >> std::ws, name);
            if (name != "xpc") continue;
            std::ifstream status(task.path() / "status");
            std::size_t switches = 0;
            for (std::string line; std::getline(status, line);) {
                const std::size_t place = line.find("ctxt_switches:");
                if (place != std::string::npos) switches += std::stoul(line.substr(place + 14));
            }
            return switches;
        }
        ADD_FAILURE() << "the server has no XPC thread";
        return 0;
    }

    // Processor time that the server has used, in clock ticks.
    [[nodiscard]] long ticksOfServer() const {
        std::ifstream stat("/proc/" + std::to_string(server_.pid()) + "/stat");
        std::string word;
        long ticks = 0;
        for (int field = 1; field <= 15 && stat >> word; ++field) {
            if (field >= 14) ticks += std::stol(word);
        }
        return ticks;
    }

    TestFolder folder_;
    EnvironmentChange moved_{"SEVRIN_BOOTSTRAP_DIR", folder_.path()};
    TestProcess server_;
};

TEST_F(XPCListenerTest, WithoutDescriptorsNewClientsWaitAndOthersAreServed) {
    const auto first = connect();
    note(*first, "fill");
    ASSERT_EQ(textOf(ask(*first, "full?")), "full?");

    Mailbox<std::string> answers;
    std::vector<std::shared_ptr<NSXPCConnection>> waiting;
    for (int i = 0; i < 5; ++i) {
        waiting.push_back(connect());
        waiting.back()->request(serviceMethod("echo:withReply:"), std::vector<Value>{"waited"},
                                [&](const auto& answer) { answers.put(textOf(answer)); });
    }
    EXPECT_EQ(textOf(ask(*first, "still here?")), "still here?");
    EXPECT_EQ(answers.size(), 0u);
    note(*first, "free");

    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(answers.take(), "waited");
    EXPECT_EQ(server_.finish(), 0);
    waitForXPCThread();
}

TEST_F(XPCListenerTest, WithoutDescriptorsItDoesNotSpin) {
    const auto first = connect();
    note(*first, "fill");
    ASSERT_EQ(textOf(ask(*first, "full?")), "full?");
    const auto waiting = connect();
    ASSERT_EQ(textOf(ask(*first, "still here?")), "still here?");

    const std::size_t switchesBefore = switchesOfServer();
    const long ticksBefore = ticksOfServer();
    std::this_thread::sleep_for(1s);  // Not for luck: what it does in a second is the question.

    // It looks ten times a second; spinning it would use most of a hundred ticks.
    EXPECT_LT(switchesOfServer() - switchesBefore, 100u);
    EXPECT_LT(ticksOfServer() - ticksBefore, 20);
    note(*first, "free");
    EXPECT_EQ(textOf(ask(*waiting, "and now?")), "and now?");
    EXPECT_EQ(server_.finish(), 0);
}

// As many connections as one user gets, each with descriptors of a frame that never ends.
TEST_F(XPCListenerTest, WhatOneUserHoardsLeavesDescriptorsForAnother) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root becomes somebody else";
    const auto before = connect();
    ASSERT_EQ(textOf(ask(*before, "before")), "before");
    TestProcess::Start start;
    start.user = kSomebodyElse;
    TestProcess hoarder(XPC_TEST_HELPER, {"hoard", "test.service", "200"}, start);
    ASSERT_EQ(hoarder.line(), "hoarding");

    const auto after = connect();

    EXPECT_EQ(textOf(ask(*after, "after")), "after");
    const int open = std::stoi(textOf(ask(*after, "open descriptors")));
    EXPECT_LT(open, static_cast<int>(kFewDescriptors) - 10);
    EXPECT_EQ(hoarder.finish(), 0);
    EXPECT_EQ(server_.finish(), 0);
}

}  // namespace
}  // namespace sevrin::platform
