// Unit tests of service names: claiming, being found, being trusted, taking over a launcher's
// socket, and what a process that was killed leaves behind.
#include "Platform/linux/Bootstrap.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <fstream>

#include "Platform/XPCTestSupport.h"
#include "Platform/linux/BootstrapFolder.h"
#include "Platform/linux/BootstrapTestSupport.h"
#include "Platform/linux/TestProcess.h"

namespace sevrin::platform::bootstrap {
namespace {

using namespace xpctest;

using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Code = XPCError::Code;
using Domain = NSXPCConnection::Domain;

constexpr uid_t kSomebodyElse = 65'534;

class BootstrapTest : public testing::Test {
protected:
    // The domain that this process's services are in.
    static Domain domain() { return ::geteuid() == 0 ? Domain::System : Domain::User; }

    std::string whyNotListening(std::string_view name) {
        const auto listening = listenAsService(name);
        const auto* why = std::get_if<std::string>(&listening);
        return why ? *why : "";
    }

    // Why connecting to `name` fails; nothing when it does not.
    std::optional<XPCError> whyNotConnecting(const std::string& name) {
        const auto connected = connectToService(name, domain(), patience());
        const auto* error = std::get_if<XPCError>(&connected);
        return error ? std::optional(*error) : std::nullopt;
    }

    static std::shared_ptr<NSXPCConnection> connectTo(std::string_view name) {
        auto connection = NSXPCConnection::initWithMachServiceName(name, domain());
        connection->setRemoteObjectInterface(
            NSXPCInterface::interfaceWithProtocol(serviceProtocol()));
        connection->resume();
        return connection;
    }

    std::vector<std::string> filesInFolder() {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path()))
            names.push_back(entry.path().filename());
        return names;
    }

    static TestProcess startServer(const std::string& name) {
        return TestProcess(XPC_TEST_HELPER, {"serve", name}, {});
    }

    TestFolder folder_;
    EnvironmentChange moved_{"SEVRIN_BOOTSTRAP_DIR", folder_.path()};
};

TEST_F(BootstrapTest, AServiceIsFoundByItsName) {
    TestServer server(NSXPCListener::initWithMachServiceName("test.service"));

    const auto client = connectTo("test.service");

    EXPECT_EQ(textOf(ask(*client, "hello")), "hello");
    client->invalidate();
}

TEST_F(BootstrapTest, AnEndpointOfAServiceLeadsToItToo) {
    TestServer server(NSXPCListener::initWithMachServiceName("test.service"));

    EXPECT_EQ(textOf(ask(*server.connect(), "hello")), "hello");
}

TEST_F(BootstrapTest, TheSocketOfAUserIsTheUsersAndThatOfTheSystemIsForAll) {
    const auto listening = listenAsService("test.service");
    ASSERT_TRUE(std::holds_alternative<ListeningSocket>(listening));
    struct stat status {};
    ASSERT_EQ(::lstat((folder_.path() + "/test.service").c_str(), &status), 0);

    EXPECT_TRUE(S_ISSOCK(status.st_mode));
    EXPECT_EQ(status.st_mode & 0777, ::geteuid() == 0 ? 0666u : 0600u);
}

TEST_F(BootstrapTest, ANameThatNobodyServesHasNoService) {
    const auto error = whyNotConnecting("test.nobody");

    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, Code::NoService);
    EXPECT_THAT(error->description,
                HasSubstr("nobody listens as test.nobody in " + folder_.path()));
}

TEST_F(BootstrapTest, ASecondServerOfANameIsToldWhoServesItAndStaysSilent) {
    TestServer first(NSXPCListener::initWithMachServiceName("test.service"));
    testing::internal::CaptureStderr();

    const auto second = NSXPCListener::initWithMachServiceName("test.service");

    const std::string expected =
        "another process serves that name already (pid " + std::to_string(::getpid()) + ")";
    EXPECT_EQ(second->registrationFailure(), expected);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("test.service: not reachable: " + expected));
    EXPECT_EQ(second->endpoint(), nullptr);
    second->resume();
    second->invalidate();
    const auto client = connectTo("test.service");
    EXPECT_EQ(textOf(ask(*client, "the first?")), "the first?");
    client->invalidate();
}

TEST_F(BootstrapTest, AnInvalidatedServiceLeavesItsNameToTheNext) {
    NSXPCListener::initWithMachServiceName("test.service")->invalidate();
    EXPECT_THAT(filesInFolder(), UnorderedElementsAre("test.service.lock"));

    TestServer next(NSXPCListener::initWithMachServiceName("test.service"));

    EXPECT_FALSE(next.listener().registrationFailure());
    const auto client = connectTo("test.service");
    EXPECT_EQ(textOf(ask(*client, "the next?")), "the next?");
    client->invalidate();
}

TEST_F(BootstrapTest, TwoNamesAreTwoServices) {
    TestServer first(NSXPCListener::initWithMachServiceName("test.first"));
    TestServer second(NSXPCListener::initWithMachServiceName("test.second"));
    second.service->onEcho = [](const std::string&, const TestService::StringReply& reply) {
        reply("second");
    };

    const auto client = connectTo("test.second");

    EXPECT_EQ(textOf(ask(*client, "first")), "second");
    client->invalidate();
}

TEST_F(BootstrapTest, AFolderOfAnyLengthWill) {
    std::string deep = folder_.path();
    for (int i = 0; i < 5; ++i) {
        deep += "/" + std::string(200, 'd');
        ASSERT_EQ(::mkdir(deep.c_str(), 0700), 0);
    }
    const EnvironmentChange moved("SEVRIN_BOOTSTRAP_DIR", deep);
    TestServer server(NSXPCListener::initWithMachServiceName("test.service"));

    const auto client = connectTo("test.service");

    EXPECT_EQ(textOf(ask(*client, "deep")), "deep");
    client->invalidate();
}

TEST_F(BootstrapTest, ANameThatCannotBeASocketsIsNotClaimed) {
    for (const std::string& name : {std::string(200, 'n'), std::string("a/b"), std::string("..")}) {
        EXPECT_NE(whyNotListening(name), "") << name;
        const auto error = whyNotConnecting(name);
        ASSERT_TRUE(error) << name;
        EXPECT_EQ(error->code, Code::NoService);
    }
    EXPECT_THAT(filesInFolder(), IsEmpty());
}

TEST_F(BootstrapTest, AnUnsafeFolderIsNotServedFrom) {
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0777), 0);
    testing::internal::CaptureStderr();

    const auto listener = NSXPCListener::initWithMachServiceName("test.service");

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("is writable by others"));
    EXPECT_TRUE(listener->registrationFailure());
    EXPECT_EQ(connectTo("test.service")->failure()->code, Code::Untrusted);
    EXPECT_THAT(filesInFolder(), IsEmpty());
}

// The credentials of a listener are those of the process that made it listen.
TEST_F(BootstrapTest, AServiceOfAnotherUserIsNotTrusted) {
    if (::geteuid() != 0) GTEST_SKIP() << "only root becomes somebody else";
    const std::string path = folder_.path() + "/test.service";
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const bool isListening = ::setresuid(kSomebodyElse, kSomebodyElse, kSomebodyElse) == 0 &&
                                 ::listen(socket.get(), 1) == 0;
        ::_exit(isListening ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);

    const auto error = whyNotConnecting("test.service");

    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, Code::Untrusted);
    EXPECT_THAT(error->description, HasSubstr("is served by user 65534"));
}

TEST_F(BootstrapTest, ASocketFileWithoutAServerHasNoService) {
    {
        TestProcess server = startServer("test.service");
        ASSERT_EQ(server.line(), "serving");
        EXPECT_EQ(server.kill(), -SIGKILL);
    }
    ASSERT_THAT(filesInFolder(), UnorderedElementsAre("test.service", "test.service.lock"));

    const auto error = whyNotConnecting("test.service");

    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, Code::NoService);
}

TEST_F(BootstrapTest, AKilledServersNameIsTakenOverAtOnce) {
    TestProcess killed = startServer("test.service");
    ASSERT_EQ(killed.line(), "serving");
    const auto before = connectTo("test.service");
    ASSERT_EQ(textOf(ask(*before, "before")), "before");
    EXPECT_EQ(killed.kill(), -SIGKILL);
    EXPECT_EQ(codeOf(ask(*before, "gone?")), Code::Disconnected);

    TestProcess next = startServer("test.service");

    EXPECT_EQ(next.line(), "serving");
    const auto after = connectTo("test.service");
    EXPECT_EQ(textOf(ask(*after, "after")), "after");
    after->invalidate();
    EXPECT_EQ(next.finish(), 0);
    EXPECT_THAT(filesInFolder(), UnorderedElementsAre("test.service.lock"));
}

TEST_F(BootstrapTest, AServerInAnotherProcessKeepsItsName) {
    TestProcess server = startServer("test.service");
    ASSERT_EQ(server.line(), "serving");

    EXPECT_EQ(whyNotListening("test.service"), "another process serves that name already (pid " +
                                                   std::to_string(server.pid()) + ")");
    EXPECT_EQ(server.finish(), 0);
}

TEST_F(BootstrapTest, ConnectingToAFullBacklogEndsAtItsDeadline) {
    const std::string path = folder_.path() + "/test.service";
    UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(::listen(socket.get(), 0), 0);
    const auto first = connectToService("test.service", domain(), patience());
    ASSERT_TRUE(std::holds_alternative<UniqueFd>(first));

    const auto second = connectToService(
        "test.service", domain(), std::chrono::steady_clock::now() + std::chrono::milliseconds(30));

    const auto* error = std::get_if<XPCError>(&second);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, Code::DeadlinePassed);
}

// MARK: A launcher's socket

class BootstrapLauncherTest : public BootstrapTest {
protected:
    BootstrapLauncherTest() : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const std::string path = folder_.path() + "/test.service";
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    // The helper, serving `name` with `descriptor` as its fourth, started as a launcher would; the
    // shell knows the process id that it becomes.
    static TestProcess launch(const std::string& name, int descriptor, const std::string& names) {
        TestProcess::Start start;
        start.environment = {"LISTEN_FDS=2", "LISTEN_FDNAMES=" + names};
        start.keep = {{STDERR_FILENO, 3}, {descriptor, 4}};
        return TestProcess("/bin/sh",
                           {"-c", "LISTEN_PID=$$ exec " XPC_TEST_HELPER " serve " + name}, start);
    }

    UniqueFd socket_;
};

TEST_F(BootstrapLauncherTest, ASocketThatTheLauncherOpenedIsTakenOver) {
    ASSERT_EQ(::listen(socket_.get(), 5), 0);
    const auto early = connectTo("test.service");

    TestProcess server = launch("test.service", socket_.get(), "other:test.service");

    EXPECT_EQ(server.line(), "serving");
    EXPECT_EQ(textOf(ask(*early, "early bird")), "early bird");
    EXPECT_EQ(server.finish(), 0);
    // The socket stays the launcher's: it starts the next one when somebody connects again.
    EXPECT_THAT(filesInFolder(), UnorderedElementsAre("test.service"));
}

TEST_F(BootstrapLauncherTest, WhoeverConnectsBetweenTwoServersIsServedByTheSecond) {
    ASSERT_EQ(::listen(socket_.get(), 5), 0);
    TestProcess first = launch("test.service", socket_.get(), "other:test.service");
    ASSERT_EQ(first.line(), "serving");
    ASSERT_EQ(first.finish(), 0);
    const auto between = connectTo("test.service");

    TestProcess second = launch("test.service", socket_.get(), "other:test.service");

    EXPECT_EQ(second.line(), "serving");
    EXPECT_EQ(textOf(ask(*between, "patient")), "patient");
    EXPECT_EQ(second.finish(), 0);
}

TEST_F(BootstrapLauncherTest, ASocketOfAnotherNameIsLeftAlone) {
    ASSERT_EQ(::listen(socket_.get(), 5), 0);

    TestProcess server = launch("test.another", socket_.get(), "other:test.service");

    EXPECT_EQ(server.line(), "serving");
    const auto client = connectTo("test.another");
    EXPECT_EQ(textOf(ask(*client, "by its own socket")), "by its own socket");
    client->invalidate();
}

TEST_F(BootstrapLauncherTest, ADescriptorThatIsNoListeningStreamOfOursIsRefused) {
    const UniqueFd datagram(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const UniqueFd network(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::listen(network.get(), 1), 0);
    const UniqueFd file(::open("/dev/null", O_RDWR | O_CLOEXEC));

    for (const int wrong : {socket_.get(), datagram.get(), network.get(), file.get()}) {
        TestProcess server = launch("test.service", wrong, "other:test.service");
        EXPECT_EQ(server.line(), "failed: the socket that the launcher passed does not listen");
        EXPECT_EQ(server.finish(), 1);
    }
}

TEST_F(BootstrapLauncherTest, WhatWasMeantForAnotherProcessIsIgnored) {
    ASSERT_EQ(::listen(socket_.get(), 5), 0);
    TestProcess::Start start;
    start.environment = {"LISTEN_FDS=1", "LISTEN_FDNAMES=test.another", "LISTEN_PID=1"};
    start.keep = {{socket_.get(), 3}};

    TestProcess server(XPC_TEST_HELPER, {"serve", "test.another"}, start);

    EXPECT_EQ(server.line(), "serving");
    EXPECT_EQ(server.finish(), 0);
    EXPECT_THAT(filesInFolder(), UnorderedElementsAre("test.service", "test.another.lock"));
}

// The launcher listens, and starts the server once somebody connects.
TEST_F(BootstrapLauncherTest, ANameThatALauncherListensForIsNotTakenFromIt) {
    ASSERT_EQ(::listen(socket_.get(), 5), 0);

    EXPECT_EQ(whyNotListening("test.service"),
              "another process serves that name already (pid " + std::to_string(::getpid()) + ")");

    const auto client = connectTo("test.service");
    TestProcess server = launch("test.service", socket_.get(), "other:test.service");
    EXPECT_EQ(textOf(ask(*client, "still there?")), "still there?");
    EXPECT_EQ(server.finish(), 0);
}

TEST_F(BootstrapLauncherTest, ALauncherWithAFullBacklogKeepsItsNameToo) {
    ASSERT_EQ(::listen(socket_.get(), 0), 0);
    const auto first = connectToService("test.service", domain(), patience());
    ASSERT_TRUE(std::holds_alternative<UniqueFd>(first));

    EXPECT_EQ(whyNotListening("test.service"),
              "another process serves that name already (pid unknown)");
}

TEST_F(BootstrapLauncherTest, AListenerThatHasGivenUpTheLockIsEndingAndIsReplaced) {
    ASSERT_EQ(::listen(socket_.get(), 5), 0);
    std::ofstream(folder_.path() + "/test.service.lock") << ::getpid();

    EXPECT_EQ(whyNotListening("test.service"), "");
}

TEST_F(BootstrapLauncherTest, VariablesThatMakeNoSenseAreIgnored) {
    const char* senseless[][2] = {{"LISTEN_FDS", ""},
                                  {"LISTEN_FDS", "-1"},
                                  {"LISTEN_FDS", "x"},
                                  {"LISTEN_FDS", "0"},
                                  {"LISTEN_FDS", "99999999999999999999"}};
    for (const auto& [name, value] : senseless) {
        const EnvironmentChange process("LISTEN_PID", std::to_string(::getpid()));
        const EnvironmentChange names("LISTEN_FDNAMES", "test.another");
        const EnvironmentChange wrong(name, value);
        EXPECT_EQ(whyNotListening("test.another"), "") << value;
    }
}

}  // namespace
}  // namespace sevrin::platform::bootstrap
